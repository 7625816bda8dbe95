// The output node and the line-in state: what reaches the AO per frame, the drop
// counter, silence for a disconnected line-in, the GPIO check, the AO 0 recording.
#include <tinyalsa/vcard.h>

#include <atomic>
#include <cstdio>
#include <regex>
#include <thread>

#include "../ao/ao_test_util.h"
#include "../astream/astream_test_util.h"
#include "astream/astream_output_node.h"
#include "host_test.h"

namespace {

using astream_test::FakeStream;
using audiomw_test::SinkBytes;
using Bytes = std::vector<uint8_t>;

constexpr int kChn = 4;
constexpr uint32_t kFrames = 160;
constexpr uint32_t kBlock = kFrames * 2;

ASTREAM_NODE_ATTR_S OutputAttr(int ao, int offset, int count, int source = -1, int dropFrames = -1) {
    ASTREAM_NODE_ATTR_S a = astream_test::NodeAttr(ASTREAM_NODE_TYPE_E_OUTPUT);
    a.unAttr.stOutput.s32AoId = ao;
    a.unAttr.stOutput.s32ChnOffset = offset;
    a.unAttr.stOutput.s32ChnCnt = count;
    a.unAttr.stOutput.s32AudioSourceId = source;
    a.unAttr.stOutput.s32DumpFrameCount = dropFrames;
    return a;
}

// Lines printed to standard output with their "name-line: " prefix reduced to "name: ".
std::string WithoutLineNumbers(const std::string& text) {
    return std::regex_replace(text, std::regex("-[0-9]+: "), ": ");
}

class OutputNodeTest : public audiomw_test::AoTest {
  protected:
    void SetUp() override {
        AoTest::SetUp();
        BSP_ClearGpioOverrides();
        // AO 0, 1 and 2 on cards 10, 11, 12, each 2 channels at 16 kHz.
        for (int ao = 0; ao < 3; ao++) {
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
        // The test's streams are gone by now: unhook them before resetting the state.
        gs_AstreamHandler[0] = nullptr;
        AUDIO_ASTREAM_LineInDectMutexLock();
        AUDIO_ASTREAM_SetLineInConnetState(ZN_FALSE);
        AUDIO_ASTREAM_LineInDectMutexUnlock();
        BSP_ClearGpioOverrides();
        AoTest::TearDown();
    }

    // Builds an output node in `stream` and registers the stream in slot 0, so that
    // line-in changes reach it.
    ASTREAM_NODE_S* Build(FakeStream& stream, ASTREAM_NODE_ATTR_S attr) {
        ASTREAM_ATTR_S sa;
        sa.s32AiId = 0;
        sa.s32WorkerNum = 1;
        sa.lstNodeAttr.push_back(attr);
        EXPECT_EQ(0, AUDIO_ASTREAM_InitPipeline(&stream.h, &sa));
        gs_AstreamHandler[0] = &stream.h;
        return stream.h.lstNode.empty() ? nullptr : stream.h.lstNode.back();
    }

    // One frame through the node; checks bInPlace comes back true.
    int Process(ASTREAM_NODE_S* node) {
        std::memset(out, 0x5A, sizeof(out));
        bool inPlace = false;
        int ret = node->process(reinterpret_cast<char*>(in), reinterpret_cast<char*>(out), inPlace);
        EXPECT_TRUE(inPlace);
        return ret;
    }

    Bytes Group(int offset, int count) const {
        const uint8_t* p = reinterpret_cast<const uint8_t*>(in) + offset * kBlock;
        return Bytes(p, p + count * kBlock);
    }

    static Bytes Repeat(const Bytes& b, int n) {
        Bytes r;
        for (int i = 0; i < n; i++) {
            r.insert(r.end(), b.begin(), b.end());
        }
        return r;
    }

    int16_t in[kChn * kFrames];
    int16_t out[kChn * kFrames];
};

TEST_F(OutputNodeTest, InitEnablesTheAoAndDestroyDisablesIt) {
    FakeStream s(kChn, kFrames);
    ASTREAM_NODE_S* node = Build(s, OutputAttr(2, 0, 2));
    ASSERT_NE(nullptr, node);
    EXPECT_EQ(1, AUDIO_AO_isReady(2));
    bool found = false;
    for (const auto& l : log.All()) {
        found |= l.level == 7 && l.func == "init" &&
                 std::regex_match(l.message, std::regex("[0-9]+, OUTPUT node\n"));
    }
    EXPECT_TRUE(found) << log.Dump();
    EXPECT_EQ(0, AUDIO_ASTREAM_DestroyPipeline(&s.h));
    EXPECT_EQ(0, AUDIO_AO_isReady(2));
}

TEST_F(OutputNodeTest, AoThatCannotOpenFailsInitButTheNodeStaysAndWrites) {
    vcard_remove_card(12);
    FakeStream s(kChn, kFrames);
    ASTREAM_NODE_S* node = Build(s, OutputAttr(2, 0, 2));
    ASSERT_NE(nullptr, node);
    EXPECT_TRUE(log.Has({3, "AUDIO_ASTREAM_InitPipeline", "ASTREAM[0] pipeline node type[0] init failed"}));
    EXPECT_EQ(0, Process(node));
}

TEST_F(OutputNodeTest, DropCounterActsOnAo1Only) {
    FakeStream s1(kChn, kFrames);
    ASTREAM_NODE_S* onAo1 = Build(s1, OutputAttr(1, 2, 2, -1, 3));
    FakeStream s2(kChn, kFrames);
    ASTREAM_NODE_S* onAo2 = Build(s2, OutputAttr(2, 2, 2, -1, 3));
    for (int frame = 0; frame < 5; frame++) {
        EXPECT_EQ(0, Process(onAo1));
        EXPECT_EQ(0, Process(onAo2));
    }
    EXPECT_EQ(Repeat(Group(2, 2), 2), SinkBytes(11, 0));
    EXPECT_EQ(Repeat(Group(2, 2), 5), SinkBytes(12, 0));
}

TEST_F(OutputNodeTest, DisconnectedLineInSendsSilenceToAo0WhileTheRecordingGetsTheData) {
    root.SetMarker("/var/recordoutput");
    FakeStream s(kChn, kFrames);
    ASTREAM_NODE_S* node = Build(s, OutputAttr(0, 1, 2, 1));
    BSP_SetGpioOverride(14, 1);
    for (int frame = 0; frame < 3; frame++) {
        EXPECT_EQ(0, Process(node));
    }
    EXPECT_EQ(Bytes(3 * 2 * kBlock, 0), SinkBytes(10, 0));
    // The node zeroed its group in the scratch buffer, and only there.
    const uint8_t* o = reinterpret_cast<const uint8_t*>(out);
    EXPECT_EQ(Bytes(kBlock, 0x5A), Bytes(o, o + kBlock));
    EXPECT_EQ(Bytes(2 * kBlock, 0), Bytes(o + kBlock, o + 3 * kBlock));
    EXPECT_EQ(Bytes(kBlock, 0x5A), Bytes(o + 3 * kBlock, o + 4 * kBlock));

    root.SetMarker("/var/recordoutput", false);
    EXPECT_EQ(0, Process(node));  // closes the recording
    EXPECT_EQ(Repeat(Group(1, 2), 3), audiomw_test::ReadFileBytes(root.Path("/var/I2sOutput.pcm")));
}

TEST_F(OutputNodeTest, ConnectThenGpioDisconnectSilencesTheSameFrame) {
    FakeStream s(kChn, kFrames);
    ASTREAM_NODE_S* node = Build(s, OutputAttr(0, 0, 2, 1));
    audiomw_test::StdoutCapture cap;
    AUDIO_ASTREAM_LineInDectMutexLock();
    EXPECT_EQ(0, AUDIO_ASTREAM_SetLineInConnetState(ZN_TRUE));
    AUDIO_ASTREAM_LineInDectMutexUnlock();
    EXPECT_EQ(ZN_TRUE, AUDIO_ASTREAM_GetLineInConnetState());
    EXPECT_EQ(ZN_TRUE, static_cast<ASTREAM_OUTPUT_NODE_S*>(node)->_mstAttr.bLineInConnect);

    BSP_SetGpioOverride(14, 0);
    EXPECT_EQ(0, Process(node));
    BSP_SetGpioOverride(14, 1);
    EXPECT_EQ(0, Process(node));
    std::string printed = WithoutLineNumbers(cap.Stop());

    Bytes sink = SinkBytes(10, 0);
    ASSERT_EQ(4 * kBlock, sink.size());
    EXPECT_EQ(Group(0, 2), Bytes(sink.begin(), sink.begin() + 2 * kBlock));
    EXPECT_EQ(Bytes(2 * kBlock, 0), Bytes(sink.begin() + 2 * kBlock, sink.end()));
    EXPECT_EQ(ZN_FALSE, AUDIO_ASTREAM_GetLineInConnetState());
    EXPECT_EQ(
        "setCfg: bLineInConnect =1 \n"
        "AUDIO_ASTREAM_SetLineInConnetState: bConnectFlag =1 \n"
        "setCfg: bLineInConnect =0 \n"
        "AUDIO_ASTREAM_SetLineInConnetState: bConnectFlag =0 \n",
        printed);
}

TEST_F(OutputNodeTest, UnreadableGpioLeavesAConnectedLineInPlaying) {
    FakeStream s(kChn, kFrames);
    ASTREAM_NODE_S* node = Build(s, OutputAttr(0, 0, 2, 1));
    AUDIO_ASTREAM_SetLineInConnetState(ZN_TRUE);
    BSP_SetGpioOverride(14, -1);
    EXPECT_EQ(0, Process(node));
    EXPECT_EQ(Group(0, 2), SinkBytes(10, 0));
    EXPECT_EQ(ZN_TRUE, AUDIO_ASTREAM_GetLineInConnetState());
}

TEST_F(OutputNodeTest, LineInSourceOnAnotherAoAlwaysSendsDataAndNeverReadsGpio) {
    FakeStream s(kChn, kFrames);
    ASTREAM_NODE_S* node = Build(s, OutputAttr(2, 0, 2, 1));
    AUDIO_ASTREAM_SetLineInConnetState(ZN_TRUE);
    BSP_SetGpioOverride(14, 1);  // would clear the state if it were read
    EXPECT_EQ(0, Process(node));
    AUDIO_ASTREAM_SetLineInConnetState(ZN_FALSE);
    EXPECT_EQ(0, Process(node));
    EXPECT_EQ(Repeat(Group(0, 2), 2), SinkBytes(12, 0));
}

TEST_F(OutputNodeTest, UnchangedStateDoesNothing) {
    FakeStream s(kChn, kFrames);
    ASTREAM_NODE_S* node = Build(s, OutputAttr(0, 0, 2, 1));
    static_cast<ASTREAM_OUTPUT_NODE_S*>(node)->_mstAttr.bLineInConnect = ZN_TRUE;
    audiomw_test::StdoutCapture cap;
    EXPECT_EQ(0, AUDIO_ASTREAM_SetLineInConnetState(ZN_FALSE));
    EXPECT_EQ("", cap.Stop());
    EXPECT_EQ(ZN_TRUE, static_cast<ASTREAM_OUTPUT_NODE_S*>(node)->_mstAttr.bLineInConnect);
}

TEST_F(OutputNodeTest, DebugLogMarkerTracesEachFrame) {
    root.SetMarker("/var/debuglog");
    FakeStream s(kChn, kFrames);
    ASTREAM_NODE_S* node = Build(s, OutputAttr(2, 0, 2, 1));
    audiomw_test::StdoutCapture cap;
    Process(node);
    EXPECT_EQ("process: Conn =0, SourceId =1, AoId =2 \n", WithoutLineNumbers(cap.Stop()));
}

TEST_F(OutputNodeTest, GroupOutsideTheStreamIsRefusedAndNothingIsWritten) {
    struct Case {
        int offset, count;
    };
    for (Case c : {Case{3, 2}, Case{-1, 2}, Case{5, 0}, Case{0, -1}, Case{0x7fffffff, 2}}) {
        SCOPED_TRACE(c.offset);
        FakeStream s(kChn, kFrames);
        ASTREAM_NODE_S* node = Build(s, OutputAttr(2, c.offset, c.count));
        EXPECT_TRUE(
            log.Has({3, "init",
                     "ASTREAM[0] node type[0] channel group offset " + std::to_string(c.offset) + " count " +
                         std::to_string(c.count) + " outside 4 channels, nothing is sent"}))
            << log.Dump();
        EXPECT_EQ(-1, Process(node));
        EXPECT_EQ(0u, SinkBytes(12, 0).size());
        gs_AstreamHandler[0] = nullptr;
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

// A group of 0 channels, at the start or at the end of the stream, is empty and inside
// it: AO 0 is handed an empty write for it and the recording is opened as for any group.
TEST_F(OutputNodeTest, EmptyGroupIsSentAndRecorded) {
    root.SetMarker("/var/recordoutput");
    ASSERT_EQ(0, AUDIO_AO_Destroy(0));
    auto* ao = new CountingAo();  // the AO table owns it
    ao->s32Id = 0;
    gs_pAoHandler[0] = ao;
    for (int offset : {0, kChn}) {
        FakeStream s(kChn, kFrames);
        ASTREAM_NODE_S* node = Build(s, OutputAttr(0, offset, 0));
        ASSERT_NE(nullptr, node);
        EXPECT_EQ(0, Process(node)) << offset;
        gs_AstreamHandler[0] = nullptr;
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

TEST_F(OutputNodeTest, SetCfgTakesOnlyTheConnectFlag) {
    FakeStream s(kChn, kFrames);
    auto* node = static_cast<ASTREAM_OUTPUT_NODE_S*>(Build(s, OutputAttr(2, 1, 2, 1, 7)));
    ASTREAM_OUTPUT_ATTR_S other = {3, 0, 1, 5, ZN_TRUE, 9};
    audiomw_test::StdoutCapture cap;
    EXPECT_EQ(0, node->setCfg(other));
    EXPECT_EQ("setCfg: bLineInConnect =1 \n", WithoutLineNumbers(cap.Stop()));
    ASTREAM_OUTPUT_ATTR_S expect = {2, 1, 2, 1, ZN_TRUE, 7};
    EXPECT_EQ(0, std::memcmp(&expect, &node->_mstAttr, sizeof(expect)));
}

}  // namespace
