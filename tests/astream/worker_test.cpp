// The worker job run directly on a stream record: buffer exchange between nodes,
// disabled nodes skipped, failures reported without stopping the chain, per-node timing
// behind its marker file.
#include <cstdint>
#include <string>
#include <vector>

#include "astream_test_util.h"
#include "test_support.h"

namespace {

using astream_test::FakeStream;
using astream_test::MixinAttr;
using astream_test::SplitAttr;
using astream_test::SwapAttr;

class WorkerTest : public audiomw_test::AudioTest {
  protected:
    // Builds the pipeline and a job over two buffers of the stream's size.
    void Build(FakeStream& s, std::initializer_list<ASTREAM_NODE_ATTR_S> nodes) {
        ASTREAM_ATTR_S a;
        a.s32AiId = 0;
        a.s32WorkerNum = 1;
        a.lstNodeAttr = nodes;
        ASSERT_EQ(0, AUDIO_ASTREAM_InitPipeline(&s.h, &a));
        bufA.assign(s.h.u32BufLen / 2, 0);
        bufB.assign(s.h.u32BufLen / 2, 0x5555);
        s.h.astJob[0] = {&s.h, reinterpret_cast<char*>(bufA.data()), reinterpret_cast<char*>(bufB.data())};
    }
    ASTREAM_NODE_S* Node(FakeStream& s, size_t i) {
        auto it = s.h.lstNode.begin();
        std::advance(it, i);
        return *it;
    }
    std::vector<int16_t> bufA, bufB;
};

// The first node writes its result to pOut, so the second works in place on buffer B.
TEST_F(WorkerTest, NodeAfterAnOutOfPlaceNodeGetsBufferB) {
    FakeStream s(2, 4);
    Build(s, {SwapAttr({1, 0}), MixinAttr(0, 1, 1)});
    bufA = {1, 2, 3, 4, 5, 6, 7, 8};
    audiomw_test::StdoutCapture out;
    threadAudioProcessWorker(&s.h.astJob[0]);
    EXPECT_EQ((std::vector<int16_t>{1, 2, 3, 4, 5, 6, 7, 8}), bufA);
    EXPECT_EQ((std::vector<int16_t>{3, 4, 5, 6, 1, 2, 3, 4}), bufB);
    EXPECT_EQ("", out.Stop());
}

// Two out-of-place nodes: the data travels A -> B -> A.
TEST_F(WorkerTest, TwoOutOfPlaceNodesEndInBufferA) {
    FakeStream s(2, 2);
    Build(s, {SwapAttr({1, 0}), SwapAttr({1, 0})});
    bufA = {1, 2, 3, 4};
    threadAudioProcessWorker(&s.h.astJob[0]);
    EXPECT_EQ((std::vector<int16_t>{1, 2, 3, 4}), bufA);
    EXPECT_EQ((std::vector<int16_t>{3, 4, 1, 2}), bufB);
}

// A refused node is built disabled and skipped without a report.
TEST_F(WorkerTest, DisabledNodeIsSkipped) {
    FakeStream s(2, 2);
    Build(s, {SplitAttr(0, 5, 0), SwapAttr({1, 0})});
    bufA = {1, 2, 3, 4};
    audiomw_test::StdoutCapture out;
    threadAudioProcessWorker(&s.h.astJob[0]);
    EXPECT_EQ((std::vector<int16_t>{3, 4, 1, 2}), bufB);
    EXPECT_EQ("", out.Stop());
}

// A node that fails is reported and leaves bInPlace as the node before it set it; the
// rest of the chain runs.
TEST_F(WorkerTest, FailingNodeIsReportedAndTheChainGoesOn) {
    FakeStream s(2, 2, 1);
    Build(s, {MixinAttr(0, 1, 1), SplitAttr(0, 5, 0), SwapAttr({1, 0})});
    Node(s, 1)->_mbEnable = ZN_TRUE;  // the refused split now runs and fails
    bufA = {10, 20, 30, 40};
    audiomw_test::StdoutCapture out;
    threadAudioProcessWorker(&s.h.astJob[0]);
    EXPECT_EQ("ASTREAM[1] failed\n", out.Stop());
    EXPECT_EQ((std::vector<int16_t>{20, 30, 30, 40}), bufA);
    EXPECT_EQ((std::vector<int16_t>{30, 40, 20, 30}), bufB);
}

// Per-node timing is printed only while the marker exists and for a node that took at
// least a millisecond: a mixin over 16 x 2^20 samples does.
TEST_F(WorkerTest, NodeTimingFollowsTheMarker) {
    FakeStream s(16, 1u << 20);
    Build(s, {MixinAttr(0, 1, 15), SwapAttr({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15})});
    {
        audiomw_test::StdoutCapture out;
        threadAudioProcessWorker(&s.h.astJob[0]);
        EXPECT_EQ("", out.Stop());
    }
    root.SetMarker("/var/debugnodeprocess");
    audiomw_test::StdoutCapture out;
    threadAudioProcessWorker(&s.h.astJob[0]);
    std::string text = out.Stop();
    const std::string head = "node process: type =4 cost ";
    ASSERT_EQ(0u, text.find(head)) << text;
    size_t end = text.find("ms \n");
    ASSERT_NE(std::string::npos, end) << text;
    EXPECT_GT(std::stol(text.substr(head.size(), end - head.size())), 0);
    // Each timing line names its node; only nodes of a millisecond or more appear.
    EXPECT_EQ(std::string::npos, text.find("node process: type =4", end));
}

}  // namespace
