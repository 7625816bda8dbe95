// The stream loader: XML text in, stream records (nodes, adjustments) and warnings out.
#include <functional>
#include <tuple>

#include "config_test_util.h"
#include "host_test.h"

namespace {

using namespace config_test;

constexpr const char* kOp = "AUDIO_ASTREAM_LoadFromConfig";
constexpr auto kOut = ASTREAM_NODE_TYPE_E_OUTPUT, kSwap = ASTREAM_NODE_TYPE_E_SWAP,
               kSplit = ASTREAM_NODE_TYPE_E_SPLIT, kMerge = ASTREAM_NODE_TYPE_E_MERGE,
               kMixin = ASTREAM_NODE_TYPE_E_MIXIN, kAlg = ASTREAM_NODE_TYPE_E_ORVANE_ALG;

const auto Warn = [](const std::string& m) { return Logged{UTIL_LOG_WARN, kOp, m}; };
const auto Info = [](const std::string& m) { return Logged{UTIL_LOG_INFO, kOp, m}; };
ASTREAM_NODE_ATTR_S Dump(const std::string& path, int off, int cnt) {
    ASTREAM_NODE_ATTR_S n = Node(ASTREAM_NODE_TYPE_E_DEBUG_DUMP, {});
    std::memcpy(n.unAttr.stDump.acPath, path.data(), path.size());
    n.unAttr.stDump.s32ChnOffset = off;
    n.unAttr.stDump.s32ChnCnt = cnt;
    return n;
}

// Loaded first by every row: an ALSA, a file, a combo and an unknown-type AI, an ALSA
// AO and an unknown-type AO.
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

// An adjustment: the loaded record of device `id`, changed by `edit`.
template <typename A>
struct Adj {
    int id;
    std::function<void(A&)> edit;  // none: as loaded
};

struct StreamWant {
    int id;
    std::string name;
    int aiId, workers;
    std::vector<ASTREAM_NODE_ATTR_S> nodes;
    std::vector<Adj<AI_ATTR_S>> aiAdj;
    std::vector<Adj<AO_ATTR_S>> aoAdj;
};

struct Row {
    const char* title;
    std::string streams;  // the ASTREAM sections
    std::vector<StreamWant> want;
    std::vector<Logged> lines;  // in order; every warning the load logs is among them
};

template <typename R, typename A, typename D>
std::vector<R> Adjusted(const std::vector<Adj<A>>& adj, const std::list<D>& loaded) {
    std::vector<R> out;
    for (const Adj<A>& a : adj) {
        R r = Zeroed<R>();
        std::memcpy(&r, &a.id, sizeof(int));  // s32AiId / s32AoId come first
        for (const D& d : loaded) {
            r.stAttr = d.s32Id == a.id ? d.stAttr : r.stAttr;
        }
        if (a.edit) {
            a.edit(r.stAttr);
        }
        out.push_back(r);
    }
    return out;
}

TEST_F(ConfigTest, StreamLoaderTurnsSectionsIntoRecordsAndLines) {
    const std::string mb(1 << 20, 'm'), k60 = "/tmp/" + std::string(55, 'f');
    const Row rows[] = {
        // clang-format off
        {"every element and attribute", "<ASTREAM Id='3' Name='Normal' AiId='0' Worker='2'>"
         "<AiAdj Id='0' CardId='0' DevId='0' SampleRate='16KHZ' Channel='8' FrameSize='256'/>"
         "<AoAdj Id='0' CardId='0' DevId='1' SampleRate='48KHZ' Channel='2' FrameSize='256'/>"
         "<Node Type='Swap' Map='1:0:2:3:4:5:6:7'/><Node Type='OrvaneAlg' MicChnOffset='0' MicChnCnt='4' "
         "LineInChnCnt='2' RefChnOffset='6' ExRefChnOffset='7' AllRefChnOffset='6'/>"
         "<Node Type='Split' ChnOffset='0' ChnCntA='2' ChnCntB='6'/>"
         "<Node Type='Mixin' TargetIndex='0' ChnOffset='2' ChnCnt='1'/>"
         "<Node Type='Merge' ChnOffset='0' ChnCntA='2' ChnCntB='6'/>"
         "<Node Type='Dump' Path='/tmp/stream0.pcm' ChnOffset='0' ChnCnt='8'/>"
         "<Node Type='Output' AoId='0' ChnOffset='0' ChnCnt='2' AudioSourceId='1' DumpFrameCount='0'/></ASTREAM>",
         {{3, "Normal", 0, 2,
           {Node(kSwap, {1, 0, 2, 3, 4, 5, 6, 7}), Node(kAlg, {0, 4, 2, 6, 7, 6}), Node(kSplit, {0, 2, 6}),
            Node(kMixin, {0, 2, 1}), Node(kMerge, {0, 2, 6}), Dump("/tmp/stream0.pcm", 0, 8),
            Node(kOut, {0, 0, 2, 1, 0, 0})}, {{0, [](AI_ATTR_S& a) { a.stAlsaDev.s32CardId = 0; }}}, {{0, {}}}}},
         {Info("StreamId =3, OuputAoId =0, AudioSourceId =1 \n"), Info("StreamId =3, OuputAoId =0, DumpFrameCount =0 \n")}},
        {"output node in any case; a bad one is dropped and the others keep their order; the lines show -1 for a "
         "stream that waits for its automatic id",
         "<ASTREAM Name='o'><Node Type='output' AoId='0' ChnOffset='0' ChnCnt='1'/><Node Type='Output' AoId='1' "
         "ChnOffset='2'/><Node Type='OUTPUT' AoId='2' ChnOffset='1' ChnCnt='1' AudioSourceId='0'/></ASTREAM>",
         {{0, "o", 0, 0, {Node(kOut, {0, 0, 1, -1, 0, -1}), Node(kOut, {2, 1, 1, 0, 0, -1})}, {}, {}}},
         {Warn("Get Id of ASTREAM[o] failed, auto set"), Info("StreamId =-1, OuputAoId =0, AudioSourceId =-1 \n"),
          Info("StreamId =-1, OuputAoId =0, DumpFrameCount =-1 \n"),
          Warn("Ignore bad <Node type=\"Output\" AoId=\"1\" ChnOffset=\"2\" ChnCnt=\"-1\"/>"),
          Info("StreamId =-1, OuputAoId =2, AudioSourceId =0 \n")}},
        {"swap maps: short, absent, empty; a missing dump path drops the node; "
         "split, merge, mixin and algorithm checks print the values as read, -1 counts as missing",
         "<ASTREAM Id='0' Name='c'><Node Type='Swap' Map='1:0'/><Node Type='Swap'/><Node Type='swap' Map=''/>"
         "<Node Type='Dump' ChnOffset='0' ChnCnt='2'/><Node Type='Dump' Path='/p' ChnCnt='2'/>"
         "<Node Type='Split' ChnOffset='0' ChnCntA='2'/>"
         "<Node Type='Merge' ChnCntA='1' ChnCntB='1'/><Node Type='Mixin' TargetIndex='3' ChnOffset='1'/>"
         "<Node Type='OrvaneAlg' MicChnOffset='0' MicChnCnt='4' RefChnOffset='6'/>"
         "<Node Type='orvanealg' MicChnOffset='0' MicChnCnt='4' LineInChnCnt='0' RefChnOffset='6'/>"
         "<Node Type='Split' ChnOffset='-1' ChnCntA='1' ChnCntB='1'/></ASTREAM>",
         {{0, "c", 0, 0, {Node(kSwap, {1, 0}), Node(kSwap, {}), Node(kAlg, {0, 4, 0, 6, -1, -1})}, {}, {}}},
         {Warn("Ignore bad <Node type=\"Swap\" Map=\"NULL\"/>"),
          Warn("Ignore bad <Node type=\"Dump\" Path=\"\" ChnOffset=\"0\" ChnCnt=\"2\"/>"),
          Warn("Ignore bad <Node type=\"Dump\" Path=\"/p\" ChnOffset=\"-1\" ChnCnt=\"2\"/>"),
          Warn("Ignore bad <Node type=\"Split\" ChnOffset=\"0\" ChnCntA=\"2\" ChnCntB=\"-1\"/>"),
          Warn("Ignore bad <Node type=\"Merge\" ChnOffset=\"-1\" ChnCntA=\"1\" ChnCntB=\"1\"/>"),
          Warn("Ignore bad <Node type=\"Mixin\" TargetIndex=\"3\" ChnOffset=\"1\" ChnCnt=\"-1\"/>"),
          Warn("Ignore bad <Node type=\"OrvaneAlg\" MicChnOffset=\"0\" MicChnCnt=\"4\" LineInChnCnt=\"-1\" RefChnOffset=\"6\" />"),
          Warn("Ignore bad <Node type=\"Split\" ChnOffset=\"-1\" ChnCntA=\"1\" ChnCntB=\"1\"/>")}},
        {"nodes without Type are counted by the nodes accepted before them; unknown types are dropped",
         "<ASTREAM Id='0' Name='n'><Node Type='Split' ChnOffset='0' ChnCntA='1' ChnCntB='1'/><Node/>"
         "<Node AoId='0'/><Node Type='Echo'/><Node Type='Merge' ChnOffset='0' ChnCntA='1' ChnCntB='1'/>"
         "<Node type='Swap' Map='1:0'/></ASTREAM>",
         {{0, "n", 0, 0, {Node(kSplit, {0, 1, 1}), Node(kMerge, {0, 1, 1})}, {}, {}}},
         {Warn("Node 2 ignored because missing attr Type"), Warn("Node 2 ignored because missing attr Type"),
          Warn("Node 2 ignored because unknown Type \"Echo\""), Warn("Node 3 ignored because missing attr Type")}},
        {"an ALSA adjustment with only a rate keeps the rest as loaded; without a rate the loaded rate",
         "<ASTREAM Id='0' Name='r'><AiAdj Id='0' SampleRate='48khz'/><AiAdj Id='0' Channel='4' FrameSize='128'/>"
         "<AoAdj Id='0' SampleRate='16KHZ' DevId='3'/><AoAdj Id='0' Channel='1'/></ASTREAM>", {{0, "r", 0, 0, {},
           {{0, [](AI_ATTR_S& a) { a.eSampleRate = AI_SAMPLE_RATE_48000; }},
            {0, [](AI_ATTR_S& a) { a.s32Channel = 4, a.s32FrameLen = 128; }}},
           {{0, [](AO_ATTR_S& a) { a.eSampleRate = AI_SAMPLE_RATE_16000, a.stAlsaDev.s32DevId = 3; }},
            {0, [](AO_ATTR_S& a) { a.s32Channel = 1; }}}}},
         {Warn("No SampleRate in <AiAdj> of AI[0] for ASTREAM[r], keep 16000"),
          Warn("No SampleRate in <AoAdj> of AO[0] for ASTREAM[r], keep 48000")}},
        {"file and combo adjustments replace the path and the member list only when given",
         "<ASTREAM Id='0' Name='f'><AiAdj Id='1' FilePath='" + k60 + "' SampleRate='16KHZ' CardId='4'/>"
         "<AiAdj Id='1' SampleRate='8KHZ'/><AiAdj Id='2' AiIdList='3:1:0' SampleRate='16KHZ'/>"
         "<AiAdj Id='2' SampleRate='16KHZ'/><AiAdj Id='2' AiIdList='1:2:3:4:5' SampleRate='16KHZ'/></ASTREAM>",
         {{0, "f", 0, 0, {}, {{1, [&](AI_ATTR_S& a) { std::memset(a.acFilePath, 0, sizeof(a.acFilePath));
                 std::memcpy(a.acFilePath, k60.data(), 39); a.eSampleRate = AI_SAMPLE_RATE_16000; }},
            {1, [](AI_ATTR_S& a) { a.eSampleRate = AI_SAMPLE_RATE_8000; }},
            {2, [](AI_ATTR_S& a) { a.stComboDev = {{3, 1, 0, 0}, 3}; }}, {2, {}},
            {2, [](AI_ATTR_S& a) { a.stComboDev = {{1, 2, 3, 4}, 4}; }}}, {}}},
         {Warn("AiIdList of AiAdj for AI[2] in ASTREAM[f] holds 5 ids, only the first 4 kept")}},
        {"the three passes (all AiAdj, then all AoAdj, then all Node, whatever the document order); adjustments naming "
         "no loaded AI or AO, or one of an unknown type, are dropped",
         "<ASTREAM Id='0' Name='p'><Node/><AoAdj Id='1' SampleRate='8KHZ'/><AiAdj Id='5' SampleRate='8KHZ'/>"
         "<Node Type='Swap' Map='0'/><AiAdj Id='3'/><AoAdj Id='2'/><AiAdj SampleRate='8KHZ'/></ASTREAM>",
         {{0, "p", 0, 0, {Node(kSwap, {0})}, {}, {}}},
         {Warn("Bad AI[5] for ASTREAM adjustment, skip"), Warn("Bad AI[3] for ASTREAM adjustment, skip"),
          Warn("Bad AI[-1] for ASTREAM adjustment, skip"), Warn("Bad AO[1] for ASTREAM adjustment, skip"),
          Warn("Bad AO[2] for ASTREAM adjustment, skip"), Warn("Node 1 ignored because missing attr Type")}},
        {"stream ids: missing name, repeated, modulo 32, automatic after all are read; child names are exact; AiId "
         "and Worker default to 0",
         "<ASTREAM AiId='1'/><ASTREAM Id='1' Name='a'><aiadj Id='0'/><node Type='Swap' Map='1'/><Other/></ASTREAM>"
         "<ASTREAM Id='33' Name='b'/><ASTREAM Id='0' Name='c' AiId='7' Worker='9'/>",
         {{2, "", 1, 0, {}, {}, {}}, {1, "a", 0, 0, {}, {}, {}}, {3, "b", 0, 0, {}, {}, {}}, {0, "c", 7, 9, {}, {}, {}}},
         {Warn("Missing attr Name of ASTREAM 1, name left empty"), Warn("Get Id of ASTREAM[] failed, auto set"),
          Warn("Id of ASTREAM[b] has been used, auto set")}},
        {"megabyte name, map, path and type, 10,000 sections: fields keep 32, 20 and 63, log lines 32, 63 and 64 "
         "characters; automatic ids run out at 31",
         "<ASTREAM Id='0' Name='" + mb + "'><Node Type='Swap' Map='" + Repeat("7:", 1 << 19) + "7'/><Node Type='Dump' "
         "Path='" + mb + "' ChnOffset='1' ChnCnt='2'/><Node Type='Dump' Path='" + mb + "' ChnOffset='0'/><Node Type='" +
         mb + "'/></ASTREAM>" + Repeat("<ASTREAM Name='s' AiId='0' Worker='1'><Node Type='Swap' Map='1:0'/></ASTREAM>", 10000),
         Many<StreamWant>({{0, mb.substr(0, 32), 0, 0, {Node(kSwap, std::vector<int>(20, 7)), Dump(mb.substr(0, 63), 1, 2)},
                           {}, {}}}, 10000, [](int i) { return StreamWant{std::min(i + 1, 31), "s", 0, 1, {Node(kSwap, {1, 0})}, {}, {}}; }),
         Many<Logged>({Warn("Map of Swap node 1 in ASTREAM[" + mb.substr(0, 32) + "] holds 524289 entries, only the first 20 kept"),
                       Warn("Ignore bad <Node type=\"Dump\" Path=\"" + mb.substr(0, 63) + "\" ChnOffset=\"0\" ChnCnt=\"-1\"/>"),
                       Warn("Node 3 ignored because unknown Type \"" + mb.substr(0, 64) + "\"")},
                      10000, [](int) { return Warn("Get Id of ASTREAM[s] failed, auto set"); })},
        // clang-format on
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.title);
        WriteConfig("<Audio>" + kDevices + row.streams + "</Audio>");
        std::list<tagAI_XML_CFG_S> ai;
        std::list<tagAO_XML_CFG_S> ao;
        ASSERT_EQ(0, AUDIO_AI_LoadFromConfig(ai));
        ASSERT_EQ(0, AUDIO_AO_LoadFromConfig(ao));
        log.Clear();
        std::list<tagASTREAM_XML_CFG_S> streams(2);
        const int calls = CFG_GetDocCallCount();
        ASSERT_EQ(0, AUDIO_ASTREAM_LoadFromConfig(ai, ao, streams));
        EXPECT_EQ(1, CFG_GetDocLastFlag()) << "the file is loaded anew";
        EXPECT_EQ(calls + 1, CFG_GetDocCallCount());
        ASSERT_EQ(row.want.size(), streams.size());
        auto it = streams.begin();
        for (const StreamWant& w : row.want) {
            const tagASTREAM_XML_CFG_S& got = *it++;
            EXPECT_EQ(
                std::make_tuple(w.id, w.name, w.aiId, w.workers),
                std::make_tuple(got.s32Id, Name(got.acName), got.stAttr.s32AiId, got.stAttr.s32WorkerNum));
            ExpectBytes(w.nodes, got.stAttr.lstNodeAttr);
            ExpectBytes(Adjusted<tagAI_ADJ_CFG_S>(w.aiAdj, ai), got.lstAiAdj);
            ExpectBytes(Adjusted<tagAO_ADJ_CFG_S>(w.aoAdj, ao), got.lstAoAdj);
        }
        ExpectLines(log, row.lines);
    }
}

}  // namespace
