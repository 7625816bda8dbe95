// The output node and the line-in state: AO bytes, drop counter, GPIO check, AO 0 recording.
#include <tinyalsa/vcard.h>

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
        for (int i = 0; i < kChn * static_cast<int>(kFrames); i++) {
            in[i] = static_cast<int16_t>(i * 3 + 1);
        }
    }
    void TearDown() override {
        gs_AstreamHandler[0] = nullptr;
        streams.clear();
        SetLineIn(false);
        BSP_ClearGpioOverrides();
        AoTest::TearDown();
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
        for (int i = 0; i < times; i++) {
            r.insert(r.end(), p, p + count * kBlock);
        }
        return r;
    }

    std::list<astream_test::FakeStream> streams;
    int16_t in[kChn * kFrames];
    int16_t out[kChn * kFrames];
};

// Init enables the AO, destroy disables it; an AO that cannot open fails init, the node stays.
TEST_F(OutputNodeTest, InitEnablesTheAoAndDestroyDisablesIt) {
    ASSERT_NE(nullptr, Build(OutputAttr(2, 0, 2)));
    EXPECT_EQ(1, AUDIO_AO_isReady(2));
    const auto lines = log.All();
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const audiomw_test::Logged& l) {
        return l.level == 7 && l.func == "init" &&
               std::regex_match(l.message, std::regex("[0-9]+, OUTPUT node\n"));
    })) << log.Dump();
    EXPECT_EQ(0, AUDIO_ASTREAM_DestroyPipeline(&streams.back().h) + AUDIO_AO_isReady(2));
    vcard_remove_card(12);
    ASTREAM_NODE_S* node = Build(OutputAttr(2, 0, 2));
    ASSERT_NE(nullptr, node);
    EXPECT_TRUE(log.Has({3, "AUDIO_ASTREAM_InitPipeline", "ASTREAM[0] pipeline node type[0] init failed"}));
    EXPECT_EQ(0, Process(node));
}

TEST_F(OutputNodeTest, DropCounterActsOnAo1Only) {
    ASTREAM_NODE_S* onAo1 = Build(OutputAttr(1, 2, 2, -1, 3));
    ASTREAM_NODE_S* onAo2 = Build(OutputAttr(2, 2, 2, -1, 3));
    for (int frame = 0; frame < 5; frame++) {
        EXPECT_EQ(0, Process(onAo1) + Process(onAo2));
    }
    EXPECT_EQ(Group(2, 2, 2), SinkBytes(11, 0));
    EXPECT_EQ(Group(2, 2, 5), SinkBytes(12, 0));
}

// Line-in to AO 0 follows the state and GPIO (1 clears it, -1 keeps it); other AOs always get it.
TEST_F(OutputNodeTest, LineInStateAndGpioDecideWhatReachesTheAo) {
    const struct {
        int ao, gpio;
        bool connected, sent, connectedAfter;
    } cases[] = {{0, 0, true, true, true},
                 {0, -1, true, true, true},
                 {0, 1, true, false, false},
                 {2, 1, true, true, true},
                 {2, 1, false, true, false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << "AO " << c.ao << ", GPIO " << c.gpio << ", connected " << c.connected);
        SetLineIn(false);  // a change reaches only the node registered at the time
        ASTREAM_NODE_S* node = Build(OutputAttr(c.ao, 0, 2, 1));
        SetLineIn(c.connected);
        BSP_SetGpioOverride(14, c.gpio);
        const size_t before = SinkBytes(10 + c.ao, 0).size();
        EXPECT_EQ(0, Process(node));
        const Bytes sink = SinkBytes(10 + c.ao, 0);
        EXPECT_EQ(c.sent ? Group(0, 2) : Bytes(2 * kBlock, 0), Bytes(sink.begin() + before, sink.end()));
        EXPECT_EQ(c.connectedAfter ? ZN_TRUE : ZN_FALSE, AUDIO_ASTREAM_GetLineInConnetState());
    }
}

// A disconnected line-in: silence to AO 0 (group zeroed in pOut only), data to the recording.
TEST_F(OutputNodeTest, DisconnectedLineInSendsSilenceToAo0WhileTheRecordingGetsTheData) {
    root.SetMarker("/var/recordoutput");
    ASTREAM_NODE_S* node = Build(OutputAttr(0, 1, 2, 1));
    BSP_SetGpioOverride(14, 1);
    for (int frame = 0; frame < 3; frame++) {
        EXPECT_EQ(0, Process(node));
    }
    EXPECT_EQ(Bytes(3 * 2 * kBlock, 0), SinkBytes(10, 0));
    const uint8_t* o = reinterpret_cast<const uint8_t*>(out);
    Bytes expect(4 * kBlock, 0x5A);
    std::fill_n(expect.begin() + kBlock, 2 * kBlock, 0);
    EXPECT_EQ(expect, Bytes(o, o + 4 * kBlock));
    root.SetMarker("/var/recordoutput", false);
    EXPECT_EQ(0, Process(node));  // closes the recording
    EXPECT_EQ(Group(1, 2, 3), audiomw_test::ReadFileBytes(root.Path("/var/I2sOutput.pcm")));
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

TEST_F(OutputNodeTest, GroupOutsideTheStreamIsRefusedAndNothingIsWritten) {
    for (auto [offset, count] :
         std::vector<std::pair<int, int>>{{3, 2}, {-1, 2}, {5, 0}, {0, -1}, {0x7fffffff, 2}}) {
        SCOPED_TRACE(offset);
        ASTREAM_NODE_S* node = Build(OutputAttr(2, offset, count));
        EXPECT_TRUE(log.Has({3, "init",
                             "ASTREAM[0] node type[0] channel group offset " + std::to_string(offset) +
                                 " count " + std::to_string(count) + " outside 4 channels, nothing is sent"}))
            << log.Dump();
        EXPECT_EQ(-1, Process(node));
        EXPECT_EQ(0u, SinkBytes(12, 0).size());
    }
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
    for (const auto& l : log.All()) {
        EXPECT_LT(4, l.level) << l;
    }
    EXPECT_TRUE(audiomw_test::FileExists(root.Path("/var/I2sOutput.pcm")));
    root.SetMarker("/var/recordoutput", false);
    ASTREAM_RecordOutputData(nullptr, 0);  // closes the recording
    EXPECT_TRUE(audiomw_test::ReadFileBytes(root.Path("/var/I2sOutput.pcm")).empty());
}

}  // namespace
