// The stream loader: XML text in, stream records (nodes, adjustments) and warnings out.
#include "config_test_util.h"

namespace {

using config_test::AlgNode;
using config_test::ConfigTest;
using config_test::DumpNode;
using config_test::Logged;
using config_test::MergeNode;
using config_test::MixinNode;
using config_test::OutputNode;
using config_test::SplitNode;
using config_test::SwapNode;

constexpr const char* kOp = "AUDIO_ASTREAM_LoadFromConfig";

Logged Warn(const std::string& m) {
    return {UTIL_LOG_WARN, kOp, m};
}
Logged Info(const std::string& m) {
    return {UTIL_LOG_INFO, kOp, m};
}

// The AI and AO sections every row loads first: an ALSA AI, a file AI, a combo AI, an
// AI of an unknown type, an ALSA AO and an AO of an unknown type.
const std::string kDevices =
    "<AI Id='0' Name='Mic'><Device Type='Alsa' CardId='1' DevId='0'/><SampleRate Cur='16KHZ'/>"
    "<Channel Cur='8'/><FrameSize Cur='256'/><Volume Cur='100'/></AI>"
    "<AI Id='1' Name='File'><Device Type='Afile' FilePath='/tmp/a.pcm'/><SampleRate Cur='48KHZ'/>"
    "<Channel Cur='2'/><FrameSize Cur='160'/></AI>"
    "<AI Id='2' Name='Both'><Device Type='Combo' AiIdList='0:1'/><SampleRate Cur='16KHZ'/></AI>"
    "<AI Id='3' Name='Usb'><Device Type='Usb'/></AI>"
    "<AO Id='0' Name='Spk'><Device Type='Alsa' CardId='0' DevId='1'/><SampleRate Cur='48KHZ'/>"
    "<Channel Cur='2'/><FrameSize Cur='256'/><Volume Cur='100'/></AO>"
    "<AO Id='1' Name='Odd'><Device Type='Afile'/></AO>";

tagAI_ADJ_CFG_S AiAdj(int id, AI_ATTR_S attr) {
    tagAI_ADJ_CFG_S a;
    std::memset(&a, 0, sizeof(a));
    a.s32AiId = id;
    a.stAttr = attr;
    return a;
}

tagAO_ADJ_CFG_S AoAdj(int id, AO_ATTR_S attr) {
    tagAO_ADJ_CFG_S a;
    std::memset(&a, 0, sizeof(a));
    a.s32AoId = id;
    a.stAttr = attr;
    return a;
}

// The loaded records of kDevices, changed by `edit`.
template <typename F>
AI_ATTR_S LoadedAi(int id, F edit) {
    AI_ATTR_S a;
    std::memset(&a, 0, sizeof(a));
    if (id == 0) {
        a.stAlsaDev = {1, 0, 0};
        a.eSampleRate = AI_SAMPLE_RATE_16000;
        a.s32Channel = 8;
        a.s32FrameLen = 256;
        a.s32Volume = 100;
    } else if (id == 1) {
        a.eType = AI_DEV_TYPE_FILE;
        std::strcpy(a.acFilePath, "/tmp/a.pcm");
        a.eSampleRate = AI_SAMPLE_RATE_48000;
        a.s32Channel = 2;
        a.s32FrameLen = 160;
    } else {
        a.eType = AI_DEV_TYPE_COMBO;
        a.stComboDev.as32AiId[1] = 1;
        a.stComboDev.s32AiCnt = 2;
        a.eSampleRate = AI_SAMPLE_RATE_16000;
    }
    edit(a);
    return a;
}

template <typename F>
AO_ATTR_S LoadedAo(F edit) {
    AO_ATTR_S a;
    std::memset(&a, 0, sizeof(a));
    a.stAlsaDev = {0, 1, 0};
    a.eSampleRate = AI_SAMPLE_RATE_48000;
    a.s32Channel = 2;
    a.s32FrameSize = 256;
    a.s32Volume = 100;
    edit(a);
    return a;
}

struct StreamWant {
    int id;
    std::string name;
    int aiId;
    int workers;
    std::vector<ASTREAM_NODE_ATTR_S> nodes;
    std::vector<tagAI_ADJ_CFG_S> aiAdj;
    std::vector<tagAO_ADJ_CFG_S> aoAdj;
};

struct StreamRow {
    const char* title;
    std::string streams;  // the ASTREAM sections
    std::vector<StreamWant> want;
    std::vector<Logged> lines;  // in order; every warning the load logs is among them
};

const std::string k70 = "/tmp/" + std::string(65, 'd');
const std::string k60 = "/tmp/" + std::string(55, 'f');

std::vector<StreamRow> Rows() {
    auto none = [](auto&) {};
    return {
        {"every element and attribute",
         "<ASTREAM Id='0' Name='Normal' AiId='0' Worker='2'>"
         "<AiAdj Id='0' CardId='0' DevId='0' SampleRate='16KHZ' Channel='8' FrameSize='256'/>"
         "<AoAdj Id='0' CardId='0' DevId='1' SampleRate='48KHZ' Channel='2' FrameSize='256'/>"
         "<Node Type='Swap' Map='1:0:2:3:4:5:6:7'/>"
         "<Node Type='OrvaneAlg' MicChnOffset='0' MicChnCnt='4' LineInChnCnt='2' RefChnOffset='6' "
         "ExRefChnOffset='7' AllRefChnOffset='6'/>"
         "<Node Type='Split' ChnOffset='0' ChnCntA='2' ChnCntB='6'/>"
         "<Node Type='Mixin' TargetIndex='0' ChnOffset='2' ChnCnt='1'/>"
         "<Node Type='Merge' ChnOffset='0' ChnCntA='2' ChnCntB='6'/>"
         "<Node Type='Dump' Path='/tmp/stream0.pcm' ChnOffset='0' ChnCnt='8'/>"
         "<Node Type='Output' AoId='0' ChnOffset='0' ChnCnt='2' AudioSourceId='1' DumpFrameCount='0'/>"
         "</ASTREAM>",
         {{0,
           "Normal",
           0,
           2,
           {SwapNode({1, 0, 2, 3, 4, 5, 6, 7}), AlgNode(0, 4, 2, 6, 7, 6), SplitNode(0, 2, 6),
            MixinNode(0, 2, 1), MergeNode(0, 2, 6), DumpNode("/tmp/stream0.pcm", 0, 8),
            OutputNode(0, 0, 2, 1, 0)},
           {AiAdj(0, LoadedAi(0, [](AI_ATTR_S& a) { a.stAlsaDev.s32CardId = 0; }))},
           {AoAdj(0, LoadedAo(none))}}},
         {Info("StreamId =0, OuputAoId =0, AudioSourceId =1 \n"),
          Info("StreamId =0, OuputAoId =0, DumpFrameCount =0 \n")}},
        {"output node in any case; a bad one is dropped and the others keep their order",
         "<ASTREAM Id='1' Name='o'><Node Type='output' AoId='0' ChnOffset='0' ChnCnt='1'/>"
         "<Node Type='Output' AoId='1' ChnOffset='2'/><Node Type='OUTPUT' AoId='2' ChnOffset='1' ChnCnt='1'/>"
         "</ASTREAM>",
         {{1, "o", 0, 0, {OutputNode(0, 0, 1), OutputNode(2, 1, 1)}, {}, {}}},
         {Info("StreamId =1, OuputAoId =0, AudioSourceId =-1 \n"),
          Info("StreamId =1, OuputAoId =0, DumpFrameCount =-1 \n"),
          Warn("Ignore bad <Node type=\"Output\" AoId=\"1\" ChnOffset=\"2\" ChnCnt=\"-1\"/>"),
          Info("StreamId =1, OuputAoId =2, AudioSourceId =-1 \n")}},
        {"the output lines show -1 for a stream that waits for its automatic id",
         "<ASTREAM Name='auto'><Node Type='Output' AoId='3' ChnOffset='0' ChnCnt='2' "
         "AudioSourceId='0'/></ASTREAM>",
         {{0, "auto", 0, 0, {OutputNode(3, 0, 2, 0, -1)}, {}, {}}},
         {Warn("Get Id of ASTREAM[auto] failed, auto set"),
          Info("StreamId =-1, OuputAoId =3, AudioSourceId =0 \n"),
          Info("StreamId =-1, OuputAoId =3, DumpFrameCount =-1 \n")}},
        {"swap maps: short, absent, empty, longer than 20",
         "<ASTREAM Id='0' Name='s'><Node Type='Swap' Map='1:0'/><Node Type='Swap'/><Node Type='swap' Map=''/>"
         "<Node Type='Swap' Map='0:1:2:3:4:5:6:7:8:9:10:11:12:13:14:15:16:17:18:19:20:21'/></ASTREAM>",
         {{0,
           "s",
           0,
           0,
           {SwapNode({1, 0}), SwapNode({}),
            SwapNode({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19})},
           {},
           {}}},
         {Warn("Ignore bad <Node type=\"Swap\" Map=\"NULL\"/>"),
          Warn("Map of Swap node 3 in ASTREAM[s] holds 22 entries, only the first 20 kept")}},
        {"dump paths: 70 characters keep 63, a missing path drops the node",
         "<ASTREAM Id='0' Name='d'><Node Type='Dump' Path='" + k70 +
             "' ChnOffset='1' ChnCnt='2'/><Node Type='Dump' ChnOffset='0' ChnCnt='2'/>"
             "<Node Type='Dump' Path='/p' ChnCnt='2'/></ASTREAM>",
         {{0, "d", 0, 0, {DumpNode(k70.substr(0, 63), 1, 2)}, {}, {}}},
         {Warn("Ignore bad <Node type=\"Dump\" Path=\"\" ChnOffset=\"0\" ChnCnt=\"2\"/>"),
          Warn("Ignore bad <Node type=\"Dump\" Path=\"/p\" ChnOffset=\"-1\" ChnCnt=\"2\"/>")}},
        {"split, merge, mixin and algorithm checks print the values as read",
         "<ASTREAM Id='0' Name='c'><Node Type='Split' ChnOffset='0' ChnCntA='2'/>"
         "<Node Type='Merge' ChnCntA='1' ChnCntB='1'/><Node Type='Mixin' TargetIndex='3' ChnOffset='1'/>"
         "<Node Type='OrvaneAlg' MicChnOffset='0' MicChnCnt='4' RefChnOffset='6'/>"
         "<Node Type='orvanealg' MicChnOffset='0' MicChnCnt='4' LineInChnCnt='0' "
         "RefChnOffset='6'/></ASTREAM>",
         {{0, "c", 0, 0, {AlgNode(0, 4, 0, 6)}, {}, {}}},
         {Warn("Ignore bad <Node type=\"Split\" ChnOffset=\"0\" ChnCntA=\"2\" ChnCntB=\"-1\"/>"),
          Warn("Ignore bad <Node type=\"Merge\" ChnOffset=\"-1\" ChnCntA=\"1\" ChnCntB=\"1\"/>"),
          Warn("Ignore bad <Node type=\"Mixin\" TargetIndex=\"3\" ChnOffset=\"1\" ChnCnt=\"-1\"/>"),
          Warn("Ignore bad <Node type=\"OrvaneAlg\" MicChnOffset=\"0\" MicChnCnt=\"4\" LineInChnCnt=\"-1\" "
               "RefChnOffset=\"6\" />")}},
        {"an attribute given as -1 counts as missing",
         "<ASTREAM Id='0' Name='m'><Node Type='Split' ChnOffset='-1' ChnCntA='1' ChnCntB='1'/></ASTREAM>",
         {{0, "m", 0, 0, {}, {}, {}}},
         {Warn("Ignore bad <Node type=\"Split\" ChnOffset=\"-1\" ChnCntA=\"1\" ChnCntB=\"1\"/>")}},
        {"nodes without Type are counted by the nodes accepted before them; unknown types are dropped",
         "<ASTREAM Id='0' Name='n'><Node Type='Split' ChnOffset='0' ChnCntA='1' ChnCntB='1'/><Node/>"
         "<Node AoId='0'/><Node Type='Echo'/><Node Type='Merge' ChnOffset='0' ChnCntA='1' ChnCntB='1'/>"
         "<Node type='Swap' Map='1:0'/></ASTREAM>",
         {{0, "n", 0, 0, {SplitNode(0, 1, 1), MergeNode(0, 1, 1)}, {}, {}}},
         {Warn("Node 2 ignored because missing attr Type"), Warn("Node 2 ignored because missing attr Type"),
          Warn("Node 2 ignored because unknown Type \"Echo\""),
          Warn("Node 3 ignored because missing attr Type")}},
        {"adjustments naming no loaded AI or AO, or one of an unknown type, are dropped",
         "<ASTREAM Id='0' Name='b'><AiAdj Id='5' SampleRate='8KHZ'/><AiAdj Id='3'/><AiAdj SampleRate='8KHZ'/>"
         "<AoAdj Id='1' SampleRate='8KHZ'/><AoAdj Id='2'/></ASTREAM>",
         {{0, "b", 0, 0, {}, {}, {}}},
         {Warn("Bad AI[5] for ASTREAM adjustment, skip"), Warn("Bad AI[3] for ASTREAM adjustment, skip"),
          Warn("Bad AI[-1] for ASTREAM adjustment, skip"), Warn("Bad AO[1] for ASTREAM adjustment, skip"),
          Warn("Bad AO[2] for ASTREAM adjustment, skip")}},
        {"an ALSA adjustment with only a rate keeps the rest as loaded; without a rate it keeps the loaded "
         "rate",
         "<ASTREAM Id='0' Name='r'><AiAdj Id='0' SampleRate='48khz'/><AiAdj Id='0' Channel='4' "
         "FrameSize='128'/>"
         "<AoAdj Id='0' SampleRate='16KHZ' DevId='3'/><AoAdj Id='0' Channel='1'/></ASTREAM>",
         {{0,
           "r",
           0,
           0,
           {},
           {AiAdj(0, LoadedAi(0, [](AI_ATTR_S& a) { a.eSampleRate = AI_SAMPLE_RATE_48000; })),
            AiAdj(0, LoadedAi(0,
                              [](AI_ATTR_S& a) {
                                  a.s32Channel = 4;
                                  a.s32FrameLen = 128;
                              }))},
           {AoAdj(0, LoadedAo([](AO_ATTR_S& a) {
                      a.eSampleRate = AI_SAMPLE_RATE_16000;
                      a.stAlsaDev.s32DevId = 3;
                  })),
            AoAdj(0, LoadedAo([](AO_ATTR_S& a) { a.s32Channel = 1; }))}}},
         {Warn("No SampleRate in <AiAdj> of AI[0] for ASTREAM[r], keep 16000"),
          Warn("No SampleRate in <AoAdj> of AO[0] for ASTREAM[r], keep 48000")}},
        {"file and combo adjustments replace the path and the member list only when given",
         "<ASTREAM Id='0' Name='f'><AiAdj Id='1' FilePath='" + k60 +
             "' SampleRate='16KHZ' CardId='4'/><AiAdj Id='1' SampleRate='8KHZ'/>"
             "<AiAdj Id='2' AiIdList='3:1:0' SampleRate='16KHZ'/><AiAdj Id='2' SampleRate='16KHZ'/>"
             "<AiAdj Id='2' AiIdList='1:2:3:4:5' SampleRate='16KHZ'/></ASTREAM>",
         {{0,
           "f",
           0,
           0,
           {},
           {AiAdj(1, LoadedAi(1,
                              [](AI_ATTR_S& a) {
                                  std::memset(a.acFilePath, 0, sizeof(a.acFilePath));
                                  std::memcpy(a.acFilePath, k60.data(), 39);
                                  a.eSampleRate = AI_SAMPLE_RATE_16000;
                              })),
            AiAdj(1, LoadedAi(1, [](AI_ATTR_S& a) { a.eSampleRate = AI_SAMPLE_RATE_8000; })),
            AiAdj(2, LoadedAi(2,
                              [](AI_ATTR_S& a) {
                                  a.stComboDev = {{3, 1, 0, 0}, 3};
                              })),
            AiAdj(2, LoadedAi(2, [](AI_ATTR_S&) {})),
            AiAdj(2, LoadedAi(2,
                              [](AI_ATTR_S& a) {
                                  a.stComboDev = {{1, 2, 3, 4}, 4};
                              }))},
           {}}},
         {Warn("AiIdList of AiAdj for AI[2] in ASTREAM[f] holds 5 ids, only the first 4 kept")}},
        {"the three passes: all AiAdj, then all AoAdj, then all Node, whatever the document order",
         "<ASTREAM Id='0' Name='p'><Node/><AoAdj Id='9'/><AiAdj Id='9'/><Node Type='Swap' Map='0'/>"
         "<AiAdj Id='8'/></ASTREAM>",
         {{0, "p", 0, 0, {SwapNode({0})}, {}, {}}},
         {Warn("Bad AI[9] for ASTREAM adjustment, skip"), Warn("Bad AI[8] for ASTREAM adjustment, skip"),
          Warn("Bad AO[9] for ASTREAM adjustment, skip"), Warn("Node 1 ignored because missing attr Type")}},
        {"child names of a stream are exact; AiId and Worker default to 0",
         "<ASTREAM Id='1' Name='x'><aiadj Id='0'/><node Type='Swap' Map='1'/><Other/></ASTREAM>"
         "<ASTREAM Id='0' Name='y' AiId='7' Worker='9'/>",
         {{1, "x", 0, 0, {}, {}, {}}, {0, "y", 7, 9, {}, {}, {}}},
         {}},
        {"stream ids: missing name, repeated, modulo 32, automatic after all are read",
         "<ASTREAM AiId='1'/><ASTREAM Id='1' Name='a'/><ASTREAM Id='33' Name='b'/><ASTREAM Id='0' Name='c'/>",
         {{2, "", 1, 0, {}, {}, {}},
          {1, "a", 0, 0, {}, {}, {}},
          {3, "b", 0, 0, {}, {}, {}},
          {0, "c", 0, 0, {}, {}, {}}},
         {Warn("Missing attr Name of ASTREAM 1, name left empty"),
          Warn("Get Id of ASTREAM[] failed, auto set"), Warn("Id of ASTREAM[b] has been used, auto set")}},
    };
}

void PrintTo(const StreamRow& r, std::ostream* os) {
    *os << r.title;
}

class StreamLoaderTable : public ConfigTest, public ::testing::WithParamInterface<StreamRow> {};

TEST_P(StreamLoaderTable, RecordsAndLines) {
    const StreamRow& row = GetParam();
    WriteConfig("<Audio>" + kDevices + row.streams + "</Audio>");
    std::list<tagAI_XML_CFG_S> ai;
    std::list<tagAO_XML_CFG_S> ao;
    ASSERT_EQ(0, AUDIO_AI_LoadFromConfig(ai));
    ASSERT_EQ(0, AUDIO_AO_LoadFromConfig(ao));
    log.Clear();
    std::list<tagASTREAM_XML_CFG_S> streams(2);
    ASSERT_EQ(0, AUDIO_ASTREAM_LoadFromConfig(ai, ao, streams)) << row.title;
    ASSERT_EQ(row.want.size(), streams.size());
    auto it = streams.begin();
    for (const StreamWant& w : row.want) {
        const tagASTREAM_XML_CFG_S& got = *it++;
        SCOPED_TRACE(w.name);
        EXPECT_EQ(w.id, got.s32Id);
        EXPECT_EQ(w.name, config_test::Name(got.acName));
        EXPECT_EQ(w.aiId, got.stAttr.s32AiId);
        EXPECT_EQ(w.workers, got.stAttr.s32WorkerNum);
        config_test::ExpectNodes(w.nodes, got.stAttr.lstNodeAttr);
        ASSERT_EQ(w.aiAdj.size(), got.lstAiAdj.size());
        size_t i = 0;
        for (const tagAI_ADJ_CFG_S& a : got.lstAiAdj) {
            EXPECT_TRUE(config_test::SameBytes(w.aiAdj[i], a))
                << "AiAdj " << i << "\n  want " << w.aiAdj[i].s32AiId << " " << w.aiAdj[i].stAttr
                << "\n  got  " << a.s32AiId << " " << a.stAttr;
            i++;
        }
        ASSERT_EQ(w.aoAdj.size(), got.lstAoAdj.size());
        i = 0;
        for (const tagAO_ADJ_CFG_S& a : got.lstAoAdj) {
            EXPECT_TRUE(config_test::SameBytes(w.aoAdj[i], a))
                << "AoAdj " << i << "\n  want " << w.aoAdj[i].stAttr << "\n  got  " << a.stAttr;
            i++;
        }
    }
    config_test::ExpectWarnings(log, row.lines);
}

INSTANTIATE_TEST_SUITE_P(Config, StreamLoaderTable, ::testing::ValuesIn(Rows()),
                         [](const ::testing::TestParamInfo<StreamRow>& i) {
                             return "row" + std::to_string(i.index);
                         });

// A loaded configuration is a plain value: copies own their lists.
TEST_F(ConfigTest, StreamRecordsCopyTheirLists) {
    WriteConfig(
        "<Audio>" + kDevices +
        "<ASTREAM Id='0' Name='a'><AiAdj Id='0' SampleRate='8KHZ'/><Node Type='Swap' Map='1:0'/></ASTREAM>"
        "</Audio>");
    std::list<tagAI_XML_CFG_S> ai;
    std::list<tagAO_XML_CFG_S> ao;
    std::list<tagASTREAM_XML_CFG_S> streams;
    ASSERT_EQ(0, AUDIO_AI_LoadFromConfig(ai));
    ASSERT_EQ(0, AUDIO_AO_LoadFromConfig(ao));
    ASSERT_EQ(0, AUDIO_ASTREAM_LoadFromConfig(ai, ao, streams));
    tagASTREAM_XML_CFG_S copy = streams.front();
    streams.clear();
    ai.clear();
    ASSERT_EQ(1u, copy.lstAiAdj.size());
    EXPECT_EQ(AI_SAMPLE_RATE_8000, copy.lstAiAdj.front().stAttr.eSampleRate);
    config_test::ExpectNodes({SwapNode({1, 0})}, copy.stAttr.lstNodeAttr);
}

}  // namespace
