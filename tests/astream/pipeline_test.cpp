// Pipeline build and teardown, and the worker job that runs a pipeline.
#include <string>
#include <vector>

#include "astream_test_util.h"
#include "test_support.h"

namespace {

using namespace astream_test;
using audiomw_test::Logged;

Logged Pipeline(int level, const std::string& message) {
    return {level, "AUDIO_ASTREAM_InitPipeline", message};
}

class PipelineTest : public audiomw_test::AudioTest {
  protected:
    const std::string p1 = root.Dir() + "/a.pcm", p2 = root.Dir() + "/b.pcm";
};

TEST_F(PipelineTest, NullArgumentsAndAnEmptyList) {
    FakeStream s(2, 4, 1);
    ASTREAM_ATTR_S a = StreamAttr(0, 1);
    EXPECT_EQ(-2, AUDIO_ASTREAM_InitPipeline(nullptr, &a) + AUDIO_ASTREAM_InitPipeline(&s.h, nullptr));
    EXPECT_EQ(0, AUDIO_ASTREAM_DestroyPipeline(nullptr) + AUDIO_ASTREAM_InitPipeline(&s.h, &a));
    EXPECT_TRUE(s.h.lstNode.empty());
    EXPECT_EQ((std::vector<Logged>{Pipeline(3, "ASTREAM pipeline init with a null stream"),
                                   Pipeline(3, "ASTREAM pipeline init with a null attribute record")}),
              log.All());
}

// A code without a class after two built nodes: both destroyed in list order, build fails.
TEST_F(PipelineTest, CodeWithoutClassUndoesTheBuild) {
    for (int code : {7, 5, 152, 155, -1, 1000}) {
        SCOPED_TRACE(code);
        log.Clear();
        FakeStream s(2, 4, 1);
        ASTREAM_ATTR_S a = StreamAttr(
            0, 1, {DumpAttr(p1, 0, 1), DumpAttr(p2, 1, 1), NodeAttr(static_cast<ASTREAM_NODE_TYPE_E>(code))});
        EXPECT_EQ(-1, AUDIO_ASTREAM_InitPipeline(&s.h, &a));
        EXPECT_TRUE(s.h.lstNode.empty());
        const std::string refused =
            "ASTREAM[1] pipeline node type[" + std::to_string(code) + "] not support yet";
        log.ExpectInOrder({Pipeline(6, "ASTREAM[1] add node type[154]"),
                           Pipeline(6, "ASTREAM[1] add node type[154]"),
                           Pipeline(3, refused),
                           Pipeline(4, "ASTREAM[1] create failed, destroy"),
                           {7, "destroy", "dump file " + p1 + " closed, _mu32WriteLen:0"},
                           {7, "destroy", "dump file " + p2 + " closed, _mu32WriteLen:0"}});
        EXPECT_EQ(0, log.Count({6, "AUDIO_ASTREAM_DestroyPipeline", "ASTREAM[1] pipeline destroyed"}));
    }
}

// The worker job over buffers A and B: out-of-place nodes swap them, failures are reported.
TEST_F(PipelineTest, WorkerJobPassesTheBuffersAlongTheChain) {
    using Samples = std::vector<int16_t>;
    const struct {
        std::vector<ASTREAM_NODE_ATTR_S> nodes;
        int forceOn;                  // a refused node forced on, -1 for none
        Samples a, expectA, expectB;  // one frame of a.size() channels
        bool failed;
    } cases[] = {
        // The swap writes pOut, so the mixin works in place on buffer B.
        {{SwapAttr({1, 0}), MixinAttr(0, 1, 1)}, -1, {1, 3}, {1, 3}, {2, 1}, false},
        {{SwapAttr({1, 2, 0}), SwapAttr({1, 2, 0})}, -1, {1, 2, 3}, {2, 3, 1}, {3, 1, 2}, false},
        {{SplitAttr(0, 5, 0), SwapAttr({1, 0})}, -1, {1, 2}, {1, 2}, {2, 1}, false},
        // The failing split leaves bInPlace as the mixin set it.
        {{MixinAttr(0, 1, 1), SplitAttr(0, 5, 0), SwapAttr({1, 0})}, 1, {1, 3}, {2, 3}, {3, 2}, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.nodes.size() << " nodes, " << c.a.size() << " channels");
        FakeStream s(static_cast<int>(c.a.size()), 1, 1);
        ASTREAM_ATTR_S a = StreamAttr(0, 1);
        a.lstNodeAttr.assign(c.nodes.begin(), c.nodes.end());
        ASSERT_EQ(0, AUDIO_ASTREAM_InitPipeline(&s.h, &a));
        if (c.forceOn >= 0)
            (*std::next(s.h.lstNode.begin(), c.forceOn))->_mbEnable = ZN_TRUE;
        Samples bufA = c.a, bufB(c.a.size(), 0x5555);
        s.h.astJob[0] = {&s.h, reinterpret_cast<char*>(bufA.data()), reinterpret_cast<char*>(bufB.data())};
        audiomw_test::StdoutCapture out;
        threadAudioProcessWorker(&s.h.astJob[0]);
        EXPECT_EQ(c.failed ? "ASTREAM[1] failed\n" : "", out.Stop());
        EXPECT_EQ(c.expectA, bufA);
        EXPECT_EQ(c.expectB, bufB);
    }
}

}  // namespace
