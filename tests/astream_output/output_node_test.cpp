// The output node and the line-in state: AO bytes, drop counter, GPIO check, AO 0 recording,
// running streams while the state changes.
#include <tinyalsa/vcard.h>

#include <chrono>
#include <cstdlib>
#include <future>
#include <list>
#include <regex>

#include "../ao/ao_test_util.h"
#include "../astream/astream_test_util.h"
#include "astream/astream_output_node.h"
#include "host_test.h"

namespace {

using audiomw_test::SinkBytes;
using Bytes = std::vector<uint8_t>;

constexpr int kChn = 4;
constexpr uint32_t kFrames = 160;
constexpr uint32_t kBlock = kFrames * 2;

using astream_test::OutputAttr;

// Standard output with each "name-line: " prefix reduced to "name: ".
std::string Printed(audiomw_test::StdoutCapture& cap) {
    return std::regex_replace(cap.Stop(), std::regex("-[0-9]+: "), ": ");
}

void SetLineIn(bool connected) {
    AUDIO_ASTREAM_LineInDectMutexLock();
    EXPECT_EQ(0, AUDIO_ASTREAM_SetLineInConnetState(connected ? ZN_TRUE : ZN_FALSE));
    AUDIO_ASTREAM_LineInDectMutexUnlock();
}

class OutputNodeTest : public audiomw_test::AoTest {
  protected:
    void SetUp() override {
        AoTest::SetUp();
        BSP_ClearGpioOverrides();
        for (int ao = 0; ao < 3; ao++) {  // AO n on card 10 + n: 2 channels at 16 kHz
            audiomw_test::LoadCards("pcm card=" + std::to_string(10 + ao) +
                                    " device=0 dir=playback sink=memory");
            AO_ATTR_S attr = audiomw_test::AlsaAoAttr(10 + ao, 0, 16000, 2, kFrames);
            ASSERT_EQ(0, AUDIO_AO_Create(ao, &attr));
        }
        for (int i = 0; i < kChn * static_cast<int>(kFrames); i++)
            in[i] = static_cast<int16_t>(i * 3 + 1);
    }
    void TearDown() override {
        if (!streams.empty())
            gs_AstreamHandler[0] = nullptr;  // a node test's stand-in, not a created stream
        streams.clear();
        for (int id = 0; id < 2; id++) {
            AUDIO_ASTREAM_Destroy(id);
            astream_test::DropAi(id);
        }
        SetLineIn(false);
        BSP_ClearGpioOverrides();
        AoTest::TearDown();
    }
    // File AI `id` and stream `id` with these nodes, started.
    void StartStream(int id, std::initializer_list<ASTREAM_NODE_ATTR_S> nodes, int workers) {
        const std::string path = root.Dir() + "/in" + std::to_string(id) + ".pcm";
        audiomw_test::WriteFileBytes(path, audiomw_test::MakePattern(2, kFrames * 50, id + 1));
        AI_ATTR_S ai = astream_test::FileAi(path, 2, kFrames);
        ASTREAM_ATTR_S attr = astream_test::StreamAttr(id, workers, nodes);
        ASSERT_EQ(0, AUDIO_AI_Create(id, &ai) + AUDIO_ASTREAM_Create(id, &attr) + AUDIO_ASTREAM_Start(id));
    }
    // An output node on a new stream registered in slot 0, so that line-in changes reach it.
    ASTREAM_NODE_S* Build(ASTREAM_NODE_ATTR_S attr) {
        astream_test::FakeStream& s = streams.emplace_back(kChn, kFrames);
        ASTREAM_ATTR_S sa = astream_test::StreamAttr(0, 1, {attr});
        EXPECT_EQ(0, AUDIO_ASTREAM_InitPipeline(&s.h, &sa));
        gs_AstreamHandler[0] = &s.h;
        return s.h.lstNode.empty() ? nullptr : s.h.lstNode.back();
    }
    // One frame through the node, which always leaves the data in place.
    int Process(ASTREAM_NODE_S* node) {
        std::memset(out, 0x5A, sizeof(out));
        bool inPlace = false;
        int ret = node->process(reinterpret_cast<char*>(in), reinterpret_cast<char*>(out), inPlace);
        EXPECT_TRUE(inPlace);
        return ret;
    }
    Bytes Group(int offset, int count, int times = 1) const {
        const uint8_t* p = reinterpret_cast<const uint8_t*>(in) + offset * kBlock;
        Bytes r;
        for (int i = 0; i < times; i++)
            r.insert(r.end(), p, p + count * kBlock);
        return r;
    }

    std::list<astream_test::FakeStream> streams;
    int16_t in[kChn * kFrames];
    int16_t out[kChn * kFrames];
};

// Init enables the AO, destroy disables it. What reaches the AO per record: the group, every drop
// counter's frame on AO 1 only, line-in to AO 0 by state and GPIO (1 clears the state and sends
// silence, zeroing the group in pOut only, -1 keeps it), nothing from a group outside the stream.
// The recording gets AO 0's data all the same; an AO that cannot open fails init, the node stays.
TEST_F(OutputNodeTest, ProcessSendsTheGroupByRecordLineInAndGpio) {
    root.SetMarker("/var/recordoutput");
    const std::string outside = " outside 4 channels, nothing is sent";
    const struct {
        ASTREAM_NODE_ATTR_S attr;
        bool connected;
        int gpio, frames, ret, sent;  // sent: copies of the group, -1: silence
        bool after;                   // the line-in state afterwards
        std::string line;             // an init error
    } cases[] = {
        // clang-format off
        {OutputAttr(2, 0, 2), false, 0, 1, 0, 1, false, ""},
        {OutputAttr(1, 2, 2, -1, 3), false, 0, 5, 0, 2, false, ""},
        {OutputAttr(2, 2, 2, -1, 3), false, 0, 5, 0, 5, false, ""},
        {OutputAttr(0, 0, 2, 1), true, 0, 1, 0, 1, true, ""},
        {OutputAttr(0, 0, 2, 1), true, -1, 1, 0, 1, true, ""},
        {OutputAttr(0, 0, 2, 1), true, 1, 1, 0, -1, false, ""},
        {OutputAttr(2, 0, 2, 1), true, 1, 1, 0, 1, true, ""},
        {OutputAttr(2, 0, 2, 1), false, 1, 1, 0, 1, false, ""},
        {OutputAttr(2, 3, 2), false, 0, 1, -1, 0, false, "offset 3 count 2" + outside},
        {OutputAttr(2, -1, 2), false, 0, 1, -1, 0, false, "offset -1 count 2" + outside},
        {OutputAttr(2, 5, 0), false, 0, 1, -1, 0, false, "offset 5 count 0" + outside},
        {OutputAttr(2, 0, -1), false, 0, 1, -1, 0, false, "offset 0 count -1" + outside},
        {OutputAttr(2, 0x7fffffff, 2), false, 0, 1, -1, 0, false, "offset 2147483647 count 2" + outside},
        // clang-format on
    };
    for (const auto& c : cases) {
        const ASTREAM_OUTPUT_ATTR_S& o = c.attr.unAttr.stOutput;
        SCOPED_TRACE(testing::Message() << "AO " << o.s32AoId << ", offset " << o.s32ChnOffset << ", GPIO "
                                        << c.gpio << ", connected " << c.connected);
        SetLineIn(false);  // a change reaches only the node registered at the time
        log.Clear();
        ASTREAM_NODE_S* node = Build(c.attr);
        EXPECT_EQ(c.line.empty(), !log.Has({3, "init", "ASTREAM[0] node type[0] channel group " + c.line}));
        EXPECT_TRUE(c.ret != 0 || AUDIO_AO_isReady(o.s32AoId) == 1) << "init enables the AO";
        SetLineIn(c.connected);
        BSP_SetGpioOverride(14, c.gpio);
        const Bytes before = SinkBytes(10 + o.s32AoId, 0);
        for (int f = 0; f < c.frames; f++)
            EXPECT_EQ(c.ret, Process(node));
        const Bytes sink = SinkBytes(10 + o.s32AoId, 0);
        EXPECT_EQ(c.sent < 0    ? Bytes(2 * kBlock, 0)
                  : c.sent == 0 ? Bytes()
                                : Group(o.s32ChnOffset, o.s32ChnCnt, c.sent),
                  Bytes(sink.begin() + before.size(), sink.end()));
        EXPECT_EQ(c.after ? ZN_TRUE : ZN_FALSE, AUDIO_ASTREAM_GetLineInConnetState());
        Bytes pOut(sizeof(out), 0x5A);
        std::fill_n(pOut.begin(), c.sent < 0 ? 2 * kBlock : 0, 0);
        EXPECT_EQ(pOut,
                  Bytes(reinterpret_cast<uint8_t*>(out), reinterpret_cast<uint8_t*>(out) + sizeof(out)));
    }
    const auto lines = log.All();
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const audiomw_test::Logged& l) {
        return l.level == 7 && l.func == "init" &&
               std::regex_match(l.message, std::regex("[0-9]+, OUTPUT node\n"));
    })) << log.Dump();
    root.SetMarker("/var/recordoutput", false);
    ASTREAM_RecordOutputData(nullptr, 0);  // closes the recording
    EXPECT_EQ(Group(0, 2, 3), audiomw_test::ReadFileBytes(root.Path("/var/I2sOutput.pcm")));
    gs_AstreamHandler[0] = nullptr;
    streams.clear();
    EXPECT_EQ(0, AUDIO_AO_isReady(0) + AUDIO_AO_isReady(1) + AUDIO_AO_isReady(2));
    vcard_remove_card(12);
    ASTREAM_NODE_S* node = Build(OutputAttr(2, 0, 2));
    EXPECT_TRUE(log.Has({3, "AUDIO_ASTREAM_InitPipeline", "ASTREAM[0] pipeline node type[0] init failed"}));
    EXPECT_EQ(0, Process(node));
}

// State changes reach setCfg, which takes only the connect flag; the debug marker traces frames.
TEST_F(OutputNodeTest, StateChangesReachSetCfgWhichTakesOnlyTheConnectFlag) {
    auto* node = static_cast<ASTREAM_OUTPUT_NODE_S*>(Build(OutputAttr(0, 1, 2, 1, 7)));
    audiomw_test::StdoutCapture cap;
    SetLineIn(true);
    BSP_SetGpioOverride(14, 1);
    Process(node);
    EXPECT_EQ(
        "setCfg: bLineInConnect =1 \nAUDIO_ASTREAM_SetLineInConnetState: bConnectFlag =1 \n"
        "setCfg: bLineInConnect =0 \nAUDIO_ASTREAM_SetLineInConnetState: bConnectFlag =0 \n",
        Printed(cap));
    node->_mstAttr.bLineInConnect = ZN_TRUE;
    audiomw_test::StdoutCapture quiet;
    SetLineIn(false);
    EXPECT_EQ("", Printed(quiet));
    EXPECT_EQ(ZN_TRUE, node->_mstAttr.bLineInConnect);
    audiomw_test::StdoutCapture set;
    EXPECT_EQ(0, node->setCfg({3, 0, 1, 5, ZN_TRUE, 9}));
    EXPECT_EQ("setCfg: bLineInConnect =1 \n", Printed(set));
    ASTREAM_OUTPUT_ATTR_S expect = {0, 1, 2, 1, ZN_TRUE, 7};
    EXPECT_EQ(0, std::memcmp(&expect, &node->_mstAttr, sizeof(expect)));
    root.SetMarker("/var/debuglog");
    audiomw_test::StdoutCapture trace;
    BSP_SetGpioOverride(14, 0);
    Process(node);
    EXPECT_EQ("process: Conn =1, SourceId =1, AoId =0 \n", Printed(trace));
}

// An AO that records the size of every write it is handed.
struct CountingAo : public AO_DEVICE_S {
    int init() override { return bHasInit = ZN_TRUE, 0; }
    int destroy() override { return bHasInit = ZN_FALSE, 0; }
    AUDIO_SET_ACTION_E calActionOnSetCfg(AO_ATTR_S*) override { return AUDIO_SET_ACTION_E_NEED_DESTROY; }
    int sendFrame(unsigned char*, int bytes) override { return writes.push_back(bytes), 0; }
    std::vector<int> writes;
};

// A group of 0 channels at either end is inside: an empty write to AO 0, and recorded.
TEST_F(OutputNodeTest, EmptyGroupIsSentAndRecorded) {
    root.SetMarker("/var/recordoutput");
    ASSERT_EQ(0, AUDIO_AO_Destroy(0));
    auto* ao = new CountingAo();  // the AO table owns it
    ao->s32Id = 0;
    gs_pAoHandler[0] = ao;
    for (int offset : {0, kChn}) {
        ASTREAM_NODE_S* node = Build(OutputAttr(0, offset, 0));
        ASSERT_NE(nullptr, node);
        EXPECT_EQ(0, Process(node)) << offset;
    }
    EXPECT_EQ((std::vector<int>{0, 0}), ao->writes);
    for (const auto& l : log.All())
        EXPECT_LT(4, l.level) << l;
    EXPECT_TRUE(audiomw_test::FileExists(root.Path("/var/I2sOutput.pcm")));
    root.SetMarker("/var/recordoutput", false);
    ASTREAM_RecordOutputData(nullptr, 0);  // closes the recording
    EXPECT_TRUE(audiomw_test::ReadFileBytes(root.Path("/var/I2sOutput.pcm")).empty());
}

// Output nodes in running streams while another thread changes the line-in state.
TEST_F(OutputNodeTest, LineInToggledFromAnotherThreadWhileTwoStreamsRun) {
    root.SetMarker("/var/recordoutput");
    // Both streams send line-in to AO 0 (recorded); stream 1 also to AO 1.
    StartStream(0, {OutputAttr(0, 0, 2, 1)}, 2);
    StartStream(1, {OutputAttr(0, 0, 2, 1), OutputAttr(1, 0, 2, 1)}, 3);

    // Locked changes against the workers' GPIO path: a lock-order fault hangs, hence the deadline.
    auto toggler = std::async(std::launch::async, [] {
        for (int i = 0; i < 400; i++) {
            BSP_SetGpioOverride(14, i % 3 == 0 ? 1 : 0);
            AUDIO_ASTREAM_LineInDectMutexLock();
            AUDIO_ASTREAM_SetLineInConnetState(static_cast<tagZN_BOOL>(i % 2));
            AUDIO_ASTREAM_LineInDectMutexUnlock();
            AUDIO_ASTREAM_GetLineInConnetState();
        }
    });
    if (toggler.wait_for(std::chrono::seconds(60)) != std::future_status::ready) {
        ADD_FAILURE() << "line-in toggling did not finish: lock-order deadlock";
        std::_Exit(1);
    }
    const size_t period = kFrames * 2 * 2;
    EXPECT_TRUE(audiomw_test::WaitFor([&] { return SinkBytes(11, 0).size() >= 60 * period; }));
    EXPECT_EQ(0, AUDIO_ASTREAM_Destroy(0) + AUDIO_ASTREAM_Destroy(1));
    EXPECT_EQ(0u, SinkBytes(10, 0).size() % period) << "a torn period reached AO 0";
    root.SetMarker("/var/recordoutput", false);
    ASTREAM_RecordOutputData(nullptr, 0);
    const size_t recorded = audiomw_test::ReadFileBytes(root.Path("/var/I2sOutput.pcm")).size();
    EXPECT_GT(recorded, 0u);
    EXPECT_EQ(0u, recorded % period) << "recordings of the two streams interleaved inside a period";
}

}  // namespace
