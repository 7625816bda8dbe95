// The AI and AO loaders: XML text in, records and warnings out, one table row per rule.
#include "config_test_util.h"
#include "host_test.h"

namespace {

using namespace config_test;

constexpr const char* kAiOp = "AUDIO_AI_LoadFromConfig";
constexpr const char* kAoOp = "AUDIO_AO_LoadFromConfig";

const auto AiWarn = [](const std::string& m) { return Logged{UTIL_LOG_WARN, kAiOp, m}; };
const auto AoWarn = [](const std::string& m) { return Logged{UTIL_LOG_WARN, kAoOp, m}; };
tagAI_XML_CFG_S File(tagAI_XML_CFG_S r, const std::string& path) {
    r.stAttr.eType = AI_DEV_TYPE_FILE;
    std::memcpy(r.stAttr.acFilePath, path.data(), path.size());
    return r;
}
tagAI_XML_CFG_S Combo(tagAI_XML_CFG_S r, std::vector<int> ids) {
    r.stAttr.eType = AI_DEV_TYPE_COMBO;
    std::copy(ids.begin(), ids.end(), r.stAttr.stComboDev.as32AiId);
    r.stAttr.stComboDev.s32AiCnt = static_cast<int>(ids.size());
    return r;
}

struct Row {
    const char* title;
    std::string sections;  // inside <Audio>
    std::vector<tagAI_XML_CFG_S> ai;
    std::vector<tagAO_XML_CFG_S> ao;
    std::vector<Logged> warnings;
};

TEST_F(ConfigTest, LoadersTurnSectionsIntoRecordsAndWarnings) {
    const std::string mb(1 << 20, 'm');
    const Row rows[] = {
        // clang-format off
        {"every attribute, the third AI gets the lowest unclaimed id",
         "<AI Id='0' Name='Mic'><Device Type='Alsa' CardId='0' DevId='0'/><SampleRate Cur='16KHZ'/>"
         "<Channel Cur='8'/><FrameSize Cur='256'/><Volume Cur='100'/></AI>"
         "<AI Id='1' Name='FromFile'><Device Type='Afile' FilePath='/tmp/in.pcm'/><SampleRate Cur='48KHZ'/>"
         "<Channel Cur='2'/><FrameSize Cur='256'/></AI><AI Name='Both'><Device Type='Combo' AiIdList='0:1'/></AI>"
         "<AO Id='0' Name='Speaker'><Device Type='Alsa' CardId='0' DevId='1'/><SampleRate Cur='48KHZ'/>"
         "<Channel Cur='2'/><FrameSize Cur='256'/><Volume Cur='100'/></AO>",
         {Ai(0, "Mic", {16000, 8, 256, 100}), File(Ai(1, "FromFile", {48000, 2, 256}), "/tmp/in.pcm"),
          Combo(Ai(2, "Both"), {0, 1})},
         {Ao(0, "Speaker", {48000, 2, 256, 100, 0, 1})}, {AiWarn("Get Id of AI[Both] failed, auto set")}},
        {"no AI or AO element: empty lists", "<ASTREAM Id='0'/>", {}, {}, {}},
        {"ids: missing, sharing a bit modulo 32, repeated, not an integer, hex as the integer query reads it; "
         "automatic ids after all stated, in document order",
         "<AI Name='A'/><AI Id='33' Name='B'/><AI Id='1' Name='C'/><AI Id='1' Name='D'/><AI Id='x' Name='X'/>"
         "<AI Id='0' Name='E'/><AI Id='0x10' Name='H'/><AO Name='a'/><AO Id='2' Name='b'/><AO Id='34' Name='c'/>"
         "<AO Id='0' Name='d'/>", {Ai(2, "A"), Ai(33, "B"), Ai(3, "C"), Ai(4, "D"), Ai(5, "X"), Ai(0, "E"), Ai(16, "H")},
         {Ao(1, "a"), Ao(2, "b"), Ao(3, "c"), Ao(0, "d")},
         {AiWarn("Get Id of AI[A] failed, auto set"), AiWarn("Id of AI[C] has been used, auto set"),
          AiWarn("Id of AI[D] has been used, auto set"), AiWarn("Get Id of AI[X] failed, auto set"),
          AoWarn("Get Id of AO[a] failed, auto set"), AoWarn("Id of AO[c] has been used, auto set")}},
        {"a negative id other than -1 takes its low five bits silently and gets an automatic id",
         "<AI Id='-2' Name='N'/><AI Id='30' Name='T'/><AI Id='-1' Name='M'/>", {Ai(0, "N"), Ai(1, "T"), Ai(2, "M")}, {},
         {AiWarn("Id of AI[T] has been used, auto set"), AiWarn("Get Id of AI[M] failed, auto set")}},
        {"device type and child names in any case and order, attribute names exact; unknown AO child skipped",
         "<AI Id='0' Name='a'><device type='alsa' CardId='5'/><DEVICE Type='ALSA' CardId='3' devid='9'/>"
         "<samplerate Cur='8khz'/><CHANNEL Cur='4'/><framesize Cur='64'/><volume Cur='7'/></AI>"
         "<AO Id='1' Name='s'><volume Cur='5'/><FRAMESIZE Cur='160'/><Mute Cur='1'/>"
         "<channel Cur='1'/><samplerate Cur='32khz'/><device Type='alsa' DevId='3'/></AO>",
         {Ai(0, "a", {8000, 4, 64, 7, 3})}, {Ao(1, "s", {32000, 1, 160, 5, 0, 3})},
         {AiWarn("Missing attr Type of <Device> for AI[a], type set to -1"),
          AoWarn("Un-support sub node <Mute> for AO")}},
        {"no Device: ALSA card 0 device 0; non-integer Cur keeps the default",
         "<AI Id='0' Name='a'><Channel Cur='two'/><FrameSize/><Volume Cur=''/></AI>", {Ai(0, "a")}, {}, {}},
        {"the last of repeated children wins",
         "<AI Id='0' Name='a'><Channel Cur='2'/><Device Type='Afile' FilePath='/x'/><Channel Cur='6'/>"
         "<Device Type='Alsa' CardId='1' DevId='2'/></AI>", {Ai(0, "a", {0, 6, 0, 0, 1, 2})}, {}, {}},
        {"unknown device type: type -1, record kept; file and combo devices are inputs only",
         "<AI Id='0' Name='u'><Device Type='Usb' CardId='4'/><Channel Cur='2'/></AI>"
         "<AO Id='0' Name='f'><Device Type='Afile' FilePath='/x'/></AO>"
         "<AO Id='1' Name='c'><Device Type='Combo' AiIdList='1:2'/></AO>",
         {Ai(0, "u", {0, 2}, -1)}, {Ao(0, "f", {}, -1), Ao(1, "c", {}, -1)},
         {AiWarn("Un-support device type Usb for AI"), AoWarn("Un-support device type Afile for AO"),
          AoWarn("Un-support device type Combo for AO")}},
        {"unknown child element skipped, and what is nested in it not read",
         "<AI Id='0' Name='a'><Gain Cur='3'/><Wrap>" + Repeat("<Channel Cur='9'>", 80) +
         Repeat("</Channel>", 80) + "</Wrap><Channel Cur='2'/></AI>", {Ai(0, "a", {0, 2})}, {},
         {AiWarn("Un-support sub node <Gain> for AI"), AiWarn("Un-support sub node <Wrap> for AI")}},
        {"missing Name: empty name, named by position; Device without Type; SampleRate without Cur keeps the rate",
         "<AI Id='0' Name='a'/><AI><SampleRate Cur='16KHZ'/><SampleRate/></AI><AO Id='0'><Device CardId='2'/><SampleRate/></AO>",
         {Ai(0, "a"), Ai(1, "", {16000})}, {Ao(0, "", {}, -1)}, {AiWarn("Missing attr Name of AI 2, name left empty"),
          AiWarn("Get Id of AI[] failed, auto set"), AiWarn("Missing attr Cur of <SampleRate> for AI[], rate unchanged"),
          AoWarn("Missing attr Name of AO 1, name left empty"),
          AoWarn("Missing attr Type of <Device> for AO[], type set to -1"),
          AoWarn("Missing attr Cur of <SampleRate> for AO[], rate unchanged")}},
        {"section names are exact: other elements are passed over silently; Latin-1 bytes in a name are kept",
         "<ai Id='5' Name='lower'/><Ai Id='6'/><ao Id='1'/><Other/><AI Id='1' Name='caf\xe9'/>text<!-- c -->"
         "<AI Id='2' Name='r2'/>", {Ai(1, "caf\xe9"), Ai(2, "r2")}, {}, {}},
        {"megabyte name, type, path and id list, 10,000 sections: fields keep 32, 39 and 4, log lines 32 and 64 "
         "characters; automatic ids run out at 31",
         "<AI Name='" + mb + "'><Device Type='" + mb + "'/></AI><AI Id='1' Name='c'><Device Type='Combo' AiIdList='" +
         Repeat("7:", 1 << 19) + "7'/></AI><AI Id='2' Name='f'><Device Type='Afile' FilePath='" + mb + "'/></AI>" +
         Repeat("<AI Name='n'><Channel Cur='1'/></AI>", 10000),
         Many<tagAI_XML_CFG_S>({Ai(0, mb, {}, -1), Combo(Ai(1, "c"), {7, 7, 7, 7}), File(Ai(2, "f"), mb.substr(0, 39))},
                               10000, [](int i) { return Ai(std::min(i + 3, 31), "n", {0, 1}); }), {},
         Many<Logged>({AiWarn("Get Id of AI[" + mb.substr(0, 32) + "] failed, auto set"),
                       AiWarn("Un-support device type " + mb.substr(0, 64) + " for AI"),
                       AiWarn("AiIdList of AI[c] holds 524289 ids, only the first 4 kept")},
                      10000, [](int) { return AiWarn("Get Id of AI[n] failed, auto set"); })},
        // clang-format on
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.title);
        WriteConfig("\xef\xbb\xbf<?xml version='1.0'?>\n<Audio>" + row.sections + "</Audio>\n");
        log.Clear();
        std::list<tagAI_XML_CFG_S> ai(3);  // replaced whole by a successful load
        std::list<tagAO_XML_CFG_S> ao(2);
        const int calls = CFG_GetDocCallCount();
        ASSERT_EQ(0, AUDIO_AI_LoadFromConfig(ai));
        EXPECT_EQ(1, CFG_GetDocLastFlag()) << "the file is loaded anew";
        ASSERT_EQ(0, AUDIO_AO_LoadFromConfig(ao));
        EXPECT_EQ(1, CFG_GetDocLastFlag());
        EXPECT_EQ(calls + 2, CFG_GetDocCallCount());
        ExpectBytes(row.ai, ai);
        ExpectBytes(row.ao, ao);
        ExpectLines(log, row.warnings);
    }
}

// A file that cannot be loaded or has no <Audio> root: -1, the error, the list as it was.
TEST_F(ConfigTest, EveryLoaderFailsOnAFileItCannotUseAndKeepsItsList) {
    const std::pair<std::string, bool> rows[] = {// clang-format off
        // text ("-": no file), whether it parses
        {"-", false}, {"", false}, {"<Audio><AI Id='0' Name='a'><Device Type='Al", false},
        {"<Sound><AI Id='0' Name='a'/></Sound>", true}, {"<audio><AI Id='0' Name='a'/></audio>", true}};
    // clang-format on
    for (const auto& row : rows) {
        SCOPED_TRACE(row.first);
        if (row.first != "-") {
            WriteConfig(row.first);
        }
        log.Clear();
        std::list<tagAI_XML_CFG_S> ai{Ai(7, "kept")};
        std::list<tagAO_XML_CFG_S> ao{Ao(3, "kept")};
        std::list<tagASTREAM_XML_CFG_S> streams(1);
        streams.front().s32Id = 9;
        EXPECT_EQ(-1, AUDIO_AI_LoadFromConfig(ai));
        EXPECT_EQ(-1, AUDIO_AO_LoadFromConfig(ao));
        EXPECT_EQ(-1, AUDIO_ASTREAM_LoadFromConfig(ai, ao, streams));
        ExpectBytes({Ai(7, "kept")}, ai);
        ExpectBytes({Ao(3, "kept")}, ao);
        ASSERT_EQ(1u, streams.size());
        EXPECT_EQ(9, streams.front().s32Id);
        auto err = [&](const char* op, const std::string& what) -> Logged {
            return {UTIL_LOG_ERR, op,
                    row.second ? "<Audio> not found\n"
                               : "load " + what + " from " + root.Path("/cfg0/mpp_cfg.xml") + " failed\n"};
        };
        ExpectLines(log,
                    {err(kAiOp, "AI"), err(kAoOp, "AO"), err("AUDIO_ASTREAM_LoadFromConfig", "ASTREAM")});
    }
}

}  // namespace
