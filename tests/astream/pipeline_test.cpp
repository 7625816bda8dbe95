// Pipeline build and teardown: the class made for each code, list order, the failure
// exit on a code without a class, nodes whose init fails, and the teardown order.
#include <string>
#include <typeinfo>
#include <vector>

#include "astream/astream_debug_dump_node.h"
#include "astream/astream_merge_node.h"
#include "astream/astream_mixin_node.h"
#include "astream/astream_split_node.h"
#include "astream/astream_swap_node.h"
#include "astream_test_util.h"
#include "test_support.h"

namespace {

using astream_test::DumpAttr;
using astream_test::FakeStream;
using astream_test::MergeAttr;
using astream_test::MixinAttr;
using astream_test::NodeAttr;
using astream_test::SplitAttr;
using astream_test::SwapAttr;

class PipelineTest : public audiomw_test::AudioTest {
  protected:
    ASTREAM_ATTR_S Attr(std::initializer_list<ASTREAM_NODE_ATTR_S> nodes) {
        ASTREAM_ATTR_S a;
        a.s32AiId = 0;
        a.s32WorkerNum = 1;
        a.lstNodeAttr = nodes;
        return a;
    }
    std::string Closed(const std::string& path) { return "dump file " + path + " closed, _mu32WriteLen:0"; }
};

TEST_F(PipelineTest, EmptyListBuildsAnEmptyPipeline) {
    FakeStream s(2, 4, 1);
    ASTREAM_ATTR_S a = Attr({});
    EXPECT_EQ(0, AUDIO_ASTREAM_InitPipeline(&s.h, &a));
    EXPECT_TRUE(s.h.lstNode.empty());
    EXPECT_EQ(0, log.CountContaining("node"));
}

TEST_F(PipelineTest, EveryCodeBuildsItsClassInListOrder) {
    FakeStream s(4, 4, 1);
    ASTREAM_ATTR_S a = Attr({SwapAttr({1, 0, 3, 2}), SplitAttr(0, 1, 3), MixinAttr(0, 1, 1),
                             MergeAttr(0, 1, 3), DumpAttr(root.Dir() + "/d.pcm", 0, 4)});
    ASSERT_EQ(0, AUDIO_ASTREAM_InitPipeline(&s.h, &a));
    const std::vector<const std::type_info*> classes = {
        &typeid(ASTREAM_SWAP_NODE_S), &typeid(ASTREAM_SPLIT_NODE_S), &typeid(ASTREAM_MIXIN_NODE_S),
        &typeid(ASTREAM_MERGE_NODE_S), &typeid(ASTREAM_DEBUG_DUMP_NODE_S)};
    ASSERT_EQ(classes.size(), s.h.lstNode.size());
    auto it = a.lstNodeAttr.begin();
    int i = 0;
    int lastIndex = -1;
    for (ASTREAM_NODE_S* node : s.h.lstNode) {
        SCOPED_TRACE(i);
        EXPECT_EQ(*classes[i], typeid(*node));
        EXPECT_EQ(it->eType, node->_meType);
        EXPECT_EQ(&s.h, node->_mpHandler);
        EXPECT_EQ(it->eType == ASTREAM_NODE_TYPE_E_DEBUG_DUMP ? ZN_FALSE : ZN_TRUE, node->_mbEnable);
        int index = log.IndexOf("ASTREAM[1] add node type[" + std::to_string(it->eType) + "]", lastIndex + 1);
        EXPECT_GT(index, lastIndex);
        lastIndex = index;
        ++it;
        ++i;
    }
    EXPECT_EQ(0, log.CountContaining("failed"));
    // The nodes copied their records: the list may go away.
    a.lstNodeAttr.clear();
    auto* swap = dynamic_cast<ASTREAM_SWAP_NODE_S*>(s.h.lstNode.front());
    ASSERT_NE(nullptr, swap);
    EXPECT_EQ(3, swap->_mstAttr.as32Map[2]);
}

// A code without a class after two built nodes: both are destroyed in list order, the
// list is empty and the build fails.
TEST_F(PipelineTest, CodeWithoutClassUndoesTheBuild) {
    FakeStream s(2, 4, 1);
    const std::string p1 = root.Dir() + "/a.pcm", p2 = root.Dir() + "/b.pcm";
    ASTREAM_ATTR_S a =
        Attr({DumpAttr(p1, 0, 1), DumpAttr(p2, 1, 1), NodeAttr(static_cast<ASTREAM_NODE_TYPE_E>(7))});
    EXPECT_EQ(-1, AUDIO_ASTREAM_InitPipeline(&s.h, &a));
    EXPECT_TRUE(s.h.lstNode.empty());
    const std::vector<std::string> expected = {
        "ASTREAM[1] add node type[154]",
        "ASTREAM[1] add node type[154]",
        "ASTREAM[1] pipeline node type[7] not support yet",
        "ASTREAM[1] create failed, destroy",
        Closed(p1),
        Closed(p2),
    };
    int from = 0;
    for (const std::string& m : expected) {
        int index = log.IndexOf(m, from);
        EXPECT_GE(index, from) << m;
        from = index + 1;
    }
    EXPECT_EQ(1, log.Count(3, "ASTREAM[1] pipeline node type[7] not support yet"));
    EXPECT_EQ(1, log.Count(4, "ASTREAM[1] create failed, destroy"));
    EXPECT_EQ(0, log.CountContaining("pipeline destroyed"));
}

TEST_F(PipelineTest, CodesWithoutClassAreRefused) {
    for (int code : {5, 7, 152, 155, -1, 1000}) {
        SCOPED_TRACE(code);
        log.Clear();
        FakeStream s(2, 4, 0);
        ASTREAM_ATTR_S a = Attr({SwapAttr({1, 0}), NodeAttr(static_cast<ASTREAM_NODE_TYPE_E>(code))});
        EXPECT_EQ(-1, AUDIO_ASTREAM_InitPipeline(&s.h, &a));
        EXPECT_TRUE(s.h.lstNode.empty());
        EXPECT_EQ(
            1, log.Count(3, "ASTREAM[0] pipeline node type[" + std::to_string(code) + "] not support yet"));
    }
}

// A node whose init fails is reported, then added and kept; the build succeeds.
TEST_F(PipelineTest, NodeWhoseInitFailsIsKept) {
    FakeStream s(2, 4, 0);
    ASTREAM_ATTR_S a =
        Attr({DumpAttr(root.Dir() + "/none/d.pcm", 0, 1), SplitAttr(0, 3, 0), SwapAttr({1, 0})});
    ASSERT_EQ(0, AUDIO_ASTREAM_InitPipeline(&s.h, &a));
    ASSERT_EQ(3u, s.h.lstNode.size());
    int failed154 = log.IndexOf("ASTREAM[0] pipeline node type[154] init failed");
    int added154 = log.IndexOf("ASTREAM[0] add node type[154]");
    int failed2 = log.IndexOf("ASTREAM[0] pipeline node type[2] init failed");
    int added2 = log.IndexOf("ASTREAM[0] add node type[2]");
    EXPECT_GE(failed154, 0);
    EXPECT_EQ(failed154 + 1, added154);
    EXPECT_GT(failed2, added154);
    EXPECT_EQ(failed2 + 1, added2);
    EXPECT_EQ(0, log.CountContaining("type[1] init failed"));
    std::vector<ASTREAM_NODE_S*> nodes(s.h.lstNode.begin(), s.h.lstNode.end());
    EXPECT_EQ(ZN_FALSE, nodes[0]->_mbEnable);
    EXPECT_EQ(ZN_FALSE, nodes[1]->_mbEnable);
    EXPECT_EQ(ZN_TRUE, nodes[2]->_mbEnable);
}

TEST_F(PipelineTest, TeardownDestroysInListOrder) {
    FakeStream s(2, 4, 1);
    const std::string p1 = root.Dir() + "/a.pcm", p2 = root.Dir() + "/b.pcm";
    ASTREAM_ATTR_S a = Attr({DumpAttr(p1, 0, 1), SwapAttr({1, 0}), DumpAttr(p2, 1, 1)});
    ASSERT_EQ(0, AUDIO_ASTREAM_InitPipeline(&s.h, &a));
    log.Clear();
    EXPECT_EQ(0, AUDIO_ASTREAM_DestroyPipeline(&s.h));
    EXPECT_TRUE(s.h.lstNode.empty());
    EXPECT_EQ((std::vector<std::string>{Closed(p1), Closed(p2), "ASTREAM[1] pipeline destroyed"}),
              log.Messages());
    EXPECT_EQ(1, log.Count(6, "ASTREAM[1] pipeline destroyed"));
    EXPECT_EQ(0, AUDIO_ASTREAM_DestroyPipeline(nullptr));
}

TEST_F(PipelineTest, NullArgumentsAreRefused) {
    FakeStream s(2, 4);
    ASTREAM_ATTR_S a = Attr({SwapAttr({1, 0})});
    EXPECT_EQ(-1, AUDIO_ASTREAM_InitPipeline(nullptr, &a));
    EXPECT_EQ(-1, AUDIO_ASTREAM_InitPipeline(&s.h, nullptr));
    EXPECT_TRUE(s.h.lstNode.empty());
}

}  // namespace
