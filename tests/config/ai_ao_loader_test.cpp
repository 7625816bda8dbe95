// The AI and AO loaders: XML text in, records and warnings out, one table row per rule.
#include <tinyxml2.h>

#include "config_test_util.h"
#include "host_test.h"

namespace {

using config_test::AiCfg;
using config_test::AlsaAi;
using config_test::AoCfg;
using config_test::ConfigTest;
using config_test::Logged;

constexpr const char* kAiOp = "AUDIO_AI_LoadFromConfig";
constexpr const char* kAoOp = "AUDIO_AO_LoadFromConfig";

Logged AiWarn(const std::string& m) {
    return {UTIL_LOG_WARN, kAiOp, m};
}
Logged AoWarn(const std::string& m) {
    return {UTIL_LOG_WARN, kAoOp, m};
}

tagAI_XML_CFG_S FileAi(int id, const std::string& name, const std::string& path, int rate, int ch,
                       int frames) {
    tagAI_XML_CFG_S r = AlsaAi(id, name, 0, 0, rate, ch, frames);
    r.stAttr.eType = AI_DEV_TYPE_FILE;
    std::memcpy(r.stAttr.acFilePath, path.data(), path.size());
    return r;
}

tagAI_XML_CFG_S ComboAi(int id, const std::string& name, std::vector<int> ids) {
    tagAI_XML_CFG_S r = AiCfg(id, name);
    r.stAttr.eType = AI_DEV_TYPE_COMBO;
    std::copy(ids.begin(), ids.end(), r.stAttr.stComboDev.as32AiId);
    r.stAttr.stComboDev.s32AiCnt = static_cast<int>(ids.size());
    return r;
}

tagAI_XML_CFG_S TypedAi(tagAI_XML_CFG_S r, int type) {
    r.stAttr.eType = static_cast<tagAI_DEV_TYPE_E>(type);
    return r;
}

// The value tinyxml2's integer query gives for a text, which the loaders take as it is.
int QueryInt(const std::string& text) {
    tinyxml2::XMLDocument doc;
    doc.Parse(("<a v='" + text + "'/>").c_str());
    int v = -12345;
    doc.FirstChildElement()->FindAttribute("v")->QueryIntValue(&v);
    return v;
}

struct AiRow {
    const char* title;
    std::string sections;  // inside <Audio>
    std::vector<tagAI_XML_CFG_S> records;
    std::vector<Logged> warnings;
};

const std::string k40(40, 'n');
const std::string k60 = "/tmp/" + std::string(55, 'p');

std::vector<AiRow> AiRows() {
    return {
        {"every attribute, the third AI gets the lowest unclaimed id",
         "<AI Id='0' Name='Mic'><Device Type='Alsa' CardId='0' DevId='0'/><SampleRate Cur='16KHZ'/>"
         "<Channel Cur='8'/><FrameSize Cur='256'/><Volume Cur='100'/></AI>"
         "<AI Id='1' Name='FromFile'><Device Type='Afile' FilePath='/tmp/in.pcm'/><SampleRate Cur='48KHZ'/>"
         "<Channel Cur='2'/><FrameSize Cur='256'/></AI>"
         "<AI Name='Both'><Device Type='Combo' AiIdList='0:1'/></AI>"
         "<AO Id='0' Name='Speaker'><Device Type='Alsa' CardId='0' DevId='1'/></AO>",
         {AlsaAi(0, "Mic", 0, 0, 16000, 8, 256, 100), FileAi(1, "FromFile", "/tmp/in.pcm", 48000, 2, 256),
          ComboAi(2, "Both", {0, 1})},
         {AiWarn("Get Id of AI[Both] failed, auto set")}},
        {"no AI element: empty list", "<AO Id='0' Name='x'/><ASTREAM Id='0'/>", {}, {}},
        {"a repeated id draws a warning and the lowest free id",
         "<AI Id='3' Name='A'/><AI Id='3' Name='B'/>",
         {AiCfg(3, "A"), AiCfg(0, "B")},
         {AiWarn("Id of AI[B] has been used, auto set")}},
        {"automatic ids come after all stated ids, in document order",
         "<AI Name='A'/><AI Id='0' Name='B'/><AI Name='C'/>",
         {AiCfg(1, "A"), AiCfg(0, "B"), AiCfg(2, "C")},
         {AiWarn("Get Id of AI[A] failed, auto set"), AiWarn("Get Id of AI[C] failed, auto set")}},
        {"ids share a bit modulo 32",
         "<AI Id='33' Name='A'/><AI Id='1' Name='B'/>",
         {AiCfg(33, "A"), AiCfg(0, "B")},
         {AiWarn("Id of AI[B] has been used, auto set")}},
        {"a negative id other than -1 takes its low five bits silently and gets an automatic id",
         "<AI Id='-2' Name='N'/><AI Id='30' Name='T'/><AI Id='-1' Name='M'/>",
         {AiCfg(0, "N"), AiCfg(1, "T"), AiCfg(2, "M")},
         {AiWarn("Id of AI[T] has been used, auto set"), AiWarn("Get Id of AI[M] failed, auto set")}},
        {"ids as tinyxml2 reads them: hex, sign, trailing text, not a number",
         "<AI Id='0x10' Name='H'/><AI Id='-0x10' Name='S'/><AI Id='7abc' Name='T'/><AI Id='x' Name='X'/>"
         "<AI Id='0xFFFFFFFF' Name='F'/>",
         {AiCfg(16, "H"), AiCfg(0, "S"), AiCfg(7, "T"), AiCfg(1, "X"), AiCfg(2, "F")},
         {AiWarn("Get Id of AI[X] failed, auto set"), AiWarn("Get Id of AI[F] failed, auto set")}},
        {"device type and child names in any case, attribute names exact",
         "<AI Id='0' Name='a'><device type='alsa' CardId='5'/><DEVICE Type='ALSA' CardId='3' devid='9'/>"
         "<samplerate Cur='8khz'/><CHANNEL Cur='4'/><framesize Cur='64'/><volume Cur='7'/></AI>",
         {AlsaAi(0, "a", 3, 0, 8000, 4, 64, 7)},
         {AiWarn("Missing attr Type of <Device> for AI[a], type set to -1")}},
        {"unknown rate name reads 48000; no SampleRate leaves 0",
         "<AI Id='0' Name='a'><SampleRate Cur='44KHZ'/></AI><AI Id='1' Name='b'><Channel Cur='1'/></AI>",
         {AlsaAi(0, "a", 0, 0, 48000, 0, 0), AlsaAi(1, "b", 0, 0, 0, 1, 0)},
         {}},
        {"no Device: ALSA card 0 device 0; non-integer Cur keeps the default",
         "<AI Id='0' Name='a'><Channel Cur='two'/><FrameSize/><Volume Cur=''/></AI>",
         {AiCfg(0, "a")},
         {}},
        {"the last of repeated children wins",
         "<AI Id='0' Name='a'><Channel Cur='2'/><Device Type='Afile' FilePath='/x'/><Channel Cur='6'/>"
         "<Device Type='Alsa' CardId='1' DevId='2'/></AI>",
         {[] {
             tagAI_XML_CFG_S r = FileAi(0, "a", "/x", 0, 6, 0);
             r.stAttr.eType = AI_DEV_TYPE_ALSA;
             r.stAttr.stAlsaDev.s32CardId = 1;
             r.stAttr.stAlsaDev.s32DevId = 2;
             return r;
         }()},
         {}},
        {"a 60-character FilePath keeps 39 characters and a NUL; a 40-character name keeps 32 without NUL",
         "<AI Id='0' Name='" + k40 + "'><Device Type='Afile' FilePath='" + k60 + "'/></AI>",
         {FileAi(0, k40, k60.substr(0, 39), 0, 0, 0)},
         {}},
        {"combo id lists: two ids, empty list, ids beyond the slot table",
         "<AI Id='0' Name='a'><Device Type='Combo' AiIdList='0:2'/></AI>"
         "<AI Id='1' Name='b'><Device Type='Combo' AiIdList=''/></AI>"
         "<AI Id='2' Name='c'><Device Type='Combo' AiIdList='10:2'/></AI>"
         "<AI Id='3' Name='d'><Device Type='Combo'/></AI>",
         {ComboAi(0, "a", {0, 2}), ComboAi(1, "b", {0}), ComboAi(2, "c", {10, 2}), ComboAi(3, "d", {})},
         {}},
        {"a combo list longer than 4 keeps its first 4 ids",
         "<AI Id='0' Name='big'><Device Type='Combo' AiIdList='1:2:3:4:5:6'/></AI>",
         {ComboAi(0, "big", {1, 2, 3, 4})},
         {AiWarn("AiIdList of AI[big] holds 6 ids, only the first 4 kept")}},
        {"unknown device type: type -1, record kept",
         "<AI Id='0' Name='u'><Device Type='Usb' CardId='4'/><Channel Cur='2'/></AI>",
         {TypedAi(AlsaAi(0, "u", 0, 0, 0, 2, 0), -1)},
         {AiWarn("Un-support device type Usb for AI")}},
        {"unknown child element skipped",
         "<AI Id='0' Name='a'><Gain Cur='3'/><Channel Cur='2'/></AI>",
         {AlsaAi(0, "a", 0, 0, 0, 2, 0)},
         {AiWarn("Un-support sub node <Gain> for AI")}},
        {"missing Name: empty name, named by position",
         "<AI Id='0' Name='a'/><AI><Channel Cur='1'/></AI>",
         {AiCfg(0, "a"), AlsaAi(1, "", 0, 0, 0, 1, 0)},
         {AiWarn("Missing attr Name of AI 2, name left empty"), AiWarn("Get Id of AI[] failed, auto set")}},
        {"SampleRate without Cur keeps the rate read before",
         "<AI Id='0' Name='a'><SampleRate Cur='16KHZ'/><SampleRate/></AI>",
         {AlsaAi(0, "a", 0, 0, 16000, 0, 0)},
         {AiWarn("Missing attr Cur of <SampleRate> for AI[a], rate unchanged")}},
        {"section names are exact: other elements are passed over silently",
         "<ai Id='5' Name='lower'/><Ai Id='6'/><Other/><AI Id='1' Name='real'/>text<!-- c --><AI Id='2' "
         "Name='r2'/>",
         {AiCfg(1, "real"), AiCfg(2, "r2")},
         {}},
        {"huge numbers as the integer query reads them",
         "<AI Id='0' Name='a'><Channel Cur='99999999999'/><FrameSize Cur='-99999999999'/>"
         "<Volume Cur='2147483648'/></AI>",
         {AlsaAi(0, "a", 0, 0, 0, QueryInt("99999999999"), QueryInt("-99999999999"), QueryInt("2147483648"))},
         {}},
    };
}

void PrintTo(const AiRow& r, std::ostream* os) {
    *os << r.title;
}

class AiLoaderTable : public ConfigTest, public ::testing::WithParamInterface<AiRow> {};

TEST_P(AiLoaderTable, RecordsAndWarnings) {
    const AiRow& row = GetParam();
    WriteConfig("<?xml version='1.0'?>\n<Audio>" + row.sections + "</Audio>\n");
    std::list<tagAI_XML_CFG_S> list(3);  // replaced whole by a successful load
    ASSERT_EQ(0, AUDIO_AI_LoadFromConfig(list)) << row.title;
    config_test::ExpectRecords(row.records, list);
    config_test::ExpectWarnings(log, row.warnings);
}

INSTANTIATE_TEST_SUITE_P(Config, AiLoaderTable, ::testing::ValuesIn(AiRows()),
                         [](const ::testing::TestParamInfo<AiRow>& i) {
                             return "row" + std::to_string(i.index);
                         });

struct AoRow {
    const char* title;
    std::string sections;
    std::vector<tagAO_XML_CFG_S> records;
    std::vector<Logged> warnings;
};

std::vector<AoRow> AoRows() {
    return {
        {"every attribute",
         "<AI Id='0' Name='Mic'/><AO Id='0' Name='Speaker'><Device Type='Alsa' CardId='0' DevId='1'/>"
         "<SampleRate Cur='48KHZ'/><Channel Cur='2'/><FrameSize Cur='256'/><Volume Cur='100'/></AO>",
         {AoCfg(0, "Speaker", 0, 0, 1, 48000, 2, 256, 100)},
         {}},
        {"no AO element", "<AI Id='0' Name='Mic'/>", {}, {}},
        {"file and combo devices are inputs only",
         "<AO Id='0' Name='f'><Device Type='Afile' FilePath='/x'/></AO>"
         "<AO Id='1' Name='c'><Device Type='Combo' AiIdList='1:2'/></AO>",
         {AoCfg(0, "f", -1, 0, 0, 0, 0, 0), AoCfg(1, "c", -1, 0, 0, 0, 0, 0)},
         {AoWarn("Un-support device type Afile for AO"), AoWarn("Un-support device type Combo for AO")}},
        {"ids: repeated, modulo 32, missing; automatic ids after all are read",
         "<AO Name='a'/><AO Id='2' Name='b'/><AO Id='34' Name='c'/><AO Id='0' Name='d'/>",
         {AoCfg(1, "a", 0, 0, 0, 0, 0, 0), AoCfg(2, "b", 0, 0, 0, 0, 0, 0), AoCfg(3, "c", 0, 0, 0, 0, 0, 0),
          AoCfg(0, "d", 0, 0, 0, 0, 0, 0)},
         {AoWarn("Get Id of AO[a] failed, auto set"), AoWarn("Id of AO[c] has been used, auto set")}},
        {"children in any case and order; unknown child skipped",
         "<AO Id='1' Name='s'><volume Cur='5'/><FRAMESIZE Cur='160'/><Mute Cur='1'/>"
         "<channel Cur='1'/><samplerate Cur='32khz'/><device Type='alsa' DevId='3'/></AO>",
         {AoCfg(1, "s", 0, 0, 3, 32000, 1, 160, 5)},
         {AoWarn("Un-support sub node <Mute> for AO")}},
        {"missing Name, Device without Type, SampleRate without Cur",
         "<AO Id='0'><Device CardId='2'/><SampleRate/></AO>",
         {AoCfg(0, "", -1, 0, 0, 0, 0, 0)},
         {AoWarn("Missing attr Name of AO 1, name left empty"),
          AoWarn("Missing attr Type of <Device> for AO[], type set to -1"),
          AoWarn("Missing attr Cur of <SampleRate> for AO[], rate unchanged")}},
    };
}

void PrintTo(const AoRow& r, std::ostream* os) {
    *os << r.title;
}

class AoLoaderTable : public ConfigTest, public ::testing::WithParamInterface<AoRow> {};

TEST_P(AoLoaderTable, RecordsAndWarnings) {
    const AoRow& row = GetParam();
    WriteConfig("<Audio>" + row.sections + "</Audio>");
    std::list<tagAO_XML_CFG_S> list(2);
    ASSERT_EQ(0, AUDIO_AO_LoadFromConfig(list)) << row.title;
    config_test::ExpectRecords(row.records, list);
    config_test::ExpectWarnings(log, row.warnings);
}

INSTANTIATE_TEST_SUITE_P(Config, AoLoaderTable, ::testing::ValuesIn(AoRows()),
                         [](const ::testing::TestParamInfo<AoRow>& i) {
                             return "row" + std::to_string(i.index);
                         });

// A file that cannot be loaded or has no <Audio> root: -1, the error, the list as it was.
struct FailRow {
    const char* title;
    const char* text;  // null: no file at all
    bool parses;
};

void PrintTo(const FailRow& r, std::ostream* os) {
    *os << r.title;
}

class LoadFailureTable : public ConfigTest, public ::testing::WithParamInterface<FailRow> {};

TEST_P(LoadFailureTable, EveryLoaderFailsAndKeepsItsList) {
    const FailRow& row = GetParam();
    if (row.text != nullptr) {
        WriteConfig(row.text);
    }
    std::list<tagAI_XML_CFG_S> ai{AiCfg(7, "kept")};
    std::list<tagAO_XML_CFG_S> ao{AoCfg(3, "kept", 0, 0, 0, 0, 0, 0)};
    std::list<tagASTREAM_XML_CFG_S> streams(1);
    streams.front().s32Id = 9;
    EXPECT_EQ(-1, AUDIO_AI_LoadFromConfig(ai));
    EXPECT_EQ(-1, AUDIO_AO_LoadFromConfig(ao));
    EXPECT_EQ(-1, AUDIO_ASTREAM_LoadFromConfig(ai, ao, streams));
    config_test::ExpectRecords({AiCfg(7, "kept")}, ai);
    config_test::ExpectRecords({AoCfg(3, "kept", 0, 0, 0, 0, 0, 0)}, ao);
    ASSERT_EQ(1u, streams.size());
    EXPECT_EQ(9, streams.front().s32Id);
    const std::string path = ConfigPath();
    if (row.parses) {
        config_test::ExpectWarnings(log,
                                    {{UTIL_LOG_ERR, kAiOp, "<Audio> not found\n"},
                                     {UTIL_LOG_ERR, kAoOp, "<Audio> not found\n"},
                                     {UTIL_LOG_ERR, "AUDIO_ASTREAM_LoadFromConfig", "<Audio> not found\n"}});
    } else {
        config_test::ExpectWarnings(
            log, {{UTIL_LOG_ERR, kAiOp, "load AI from " + path + " failed\n"},
                  {UTIL_LOG_ERR, kAoOp, "load AO from " + path + " failed\n"},
                  {UTIL_LOG_ERR, "AUDIO_ASTREAM_LoadFromConfig", "load ASTREAM from " + path + " failed\n"}});
    }
}

INSTANTIATE_TEST_SUITE_P(
    Config, LoadFailureTable,
    ::testing::Values(FailRow{"no file", nullptr, false}, FailRow{"empty file", "", false},
                      FailRow{"truncated", "<Audio><AI Id='0' Name='a'><Device Type='Al", false},
                      FailRow{"unclosed root", "<Audio><AI Id='0'/>", false},
                      FailRow{"not XML", "\xff\xfe\x00<\x00A\x00", false},
                      FailRow{"other root", "<Sound><AI Id='0' Name='a'/></Sound>", true},
                      FailRow{"root name in another case", "<audio><AI Id='0' Name='a'/></audio>", true}),
    [](const ::testing::TestParamInfo<FailRow>& i) { return "row" + std::to_string(i.index); });

TEST_F(ConfigTest, EveryLoaderLoadsTheFileAnewWithTheFlagTrue) {
    WriteConfig("<Audio><AI Id='0' Name='a'/></Audio>");
    std::list<tagAI_XML_CFG_S> ai;
    std::list<tagAO_XML_CFG_S> ao;
    std::list<tagASTREAM_XML_CFG_S> streams;
    const int before = CFG_GetDocCallCount();
    ASSERT_EQ(0, AUDIO_AI_LoadFromConfig(ai));
    EXPECT_EQ(1, CFG_GetDocLastFlag());
    ASSERT_EQ(0, AUDIO_AO_LoadFromConfig(ao));
    EXPECT_EQ(1, CFG_GetDocLastFlag());
    ASSERT_EQ(0, AUDIO_ASTREAM_LoadFromConfig(ai, ao, streams));
    EXPECT_EQ(1, CFG_GetDocLastFlag());
    EXPECT_EQ(before + 3, CFG_GetDocCallCount());
    // The file is read on every call: a changed file changes the next result.
    WriteConfig("<Audio><AI Id='4' Name='b'/><AI Id='5' Name='c'/></Audio>");
    ASSERT_EQ(0, AUDIO_AI_LoadFromConfig(ai));
    config_test::ExpectRecords({AiCfg(4, "b"), AiCfg(5, "c")}, ai);
}

}  // namespace
