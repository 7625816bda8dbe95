// Dump node: the file made at build, what process writes while enabled, the close line,
// refused groups, and AUDIO_ASTREAM_enableDumpNode on the slot table.
#include <cstdint>
#include <string>
#include <vector>

#include "astream/astream_debug_dump_node.h"
#include "astream_test_util.h"
#include "test_support.h"

namespace {

using astream_test::BuildNode;
using astream_test::DumpAttr;
using astream_test::FakeStream;
using astream_test::SwapAttr;
using audiomw_test::FileExists;
using audiomw_test::MakePattern;
using audiomw_test::ReadFileBytes;
using audiomw_test::WriteFileBytes;

class DumpNodeTest : public audiomw_test::AudioTest {
  protected:
    std::string DumpPath() const { return root.Dir() + "/d.pcm"; }
};

TEST_F(DumpNodeTest, BuildEmptiesTheFileAndStartsDisabled) {
    WriteFileBytes(DumpPath(), std::vector<uint8_t>(100, 7));
    FakeStream s(4, 8);
    auto node = BuildNode(s, DumpAttr(DumpPath(), 1, 2));
    ASSERT_NE(nullptr, node);
    EXPECT_EQ(ZN_FALSE, node->_mbEnable);
    EXPECT_TRUE(FileExists(DumpPath()));
    EXPECT_TRUE(ReadFileBytes(DumpPath()).empty());
    EXPECT_EQ(1, log.Count(7, "dump to " + DumpPath()));
    EXPECT_EQ(1, log.Count(6, "ASTREAM[0] add node type[154]"));
    EXPECT_EQ(0, log.CountContaining("init failed"));

    // Disabled: nothing written, bInPlace left as it was.
    std::vector<uint8_t> in = MakePattern(4, 8), out(in.size(), 0);
    for (bool flag : {false, true}) {
        bool inPlace = flag;
        EXPECT_EQ(0, node->process(reinterpret_cast<char*>(in.data()), reinterpret_cast<char*>(out.data()),
                                   inPlace));
        EXPECT_EQ(flag, inPlace);
    }
    EXPECT_TRUE(ReadFileBytes(DumpPath()).empty());
    EXPECT_EQ(0, node->destroy());
    EXPECT_EQ(1, log.Count(7, "dump file " + DumpPath() + " closed, _mu32WriteLen:0"));
}

// Enabled for ten periods, disabled for two, enabled for one more: the file holds the
// group of the eleven enabled periods in order, and the close line counts its bytes.
TEST_F(DumpNodeTest, EnabledPeriodsAppendTheGroup) {
    const int chn = 4;
    const uint32_t frames = 8;
    const size_t block = frames * 2;
    FakeStream s(chn, frames);
    auto node = BuildNode(s, DumpAttr(DumpPath(), 1, 2));
    ASSERT_NE(nullptr, node);
    std::vector<uint8_t> expect;
    std::vector<uint8_t> out(chn * block, 0);
    for (uint32_t period = 0; period < 13; period++) {
        node->_mbEnable = (period < 10 || period == 12) ? ZN_TRUE : ZN_FALSE;
        std::vector<uint8_t> in = MakePattern(chn, frames, 3, period * frames);
        const std::vector<uint8_t> before = in;
        bool inPlace = false;
        ASSERT_EQ(0, node->process(reinterpret_cast<char*>(in.data()), reinterpret_cast<char*>(out.data()),
                                   inPlace));
        EXPECT_EQ(node->_mbEnable != ZN_FALSE, inPlace);
        EXPECT_EQ(before, in);
        if (node->_mbEnable) {
            expect.insert(expect.end(), in.begin() + block, in.begin() + 3 * block);
        }
    }
    EXPECT_EQ(std::vector<uint8_t>(out.size(), 0), out);
    EXPECT_EQ(expect, ReadFileBytes(DumpPath()));
    EXPECT_EQ(0, node->destroy());
    EXPECT_EQ(ZN_FALSE, node->_mbEnable);
    EXPECT_EQ(1, log.Count(7, "dump file " + DumpPath() +
                                  " closed, _mu32WriteLen:" + std::to_string(11 * 2 * block)));
}

// A file that cannot be made: the build keeps the node; enabled, it writes nothing and
// reports success with the data left in place.
TEST_F(DumpNodeTest, MissingDirectoryFailsInitAndWritesNothing) {
    const std::string path = root.Dir() + "/none/d.pcm";
    FakeStream s(2, 4);
    auto node = BuildNode(s, DumpAttr(path, 0, 2));
    ASSERT_NE(nullptr, node);
    EXPECT_EQ(1, log.Count(3, "dump file " + path + " create failed"));
    EXPECT_EQ(1, log.Count(3, "ASTREAM[0] pipeline node type[154] init failed"));
    EXPECT_LT(log.IndexOf("ASTREAM[0] pipeline node type[154] init failed"),
              log.IndexOf("ASTREAM[0] add node type[154]"));
    node->_mbEnable = ZN_TRUE;
    std::vector<uint8_t> in = MakePattern(2, 4), out(in.size(), 0);
    bool inPlace = false;
    EXPECT_EQ(
        0, node->process(reinterpret_cast<char*>(in.data()), reinterpret_cast<char*>(out.data()), inPlace));
    EXPECT_TRUE(inPlace);
    EXPECT_FALSE(FileExists(path));
    EXPECT_EQ(0, node->destroy());
}

// A group outside the stream's blocks is refused before any file is touched: an existing
// file at the path stays, and enabling the node writes nothing from outside the buffer.
TEST_F(DumpNodeTest, GroupOutsideTheBufferIsRefused) {
    struct {
        int chn, offset, count;
        const char* message;
    } const cases[] = {
        {4, 3, 2, "ASTREAM[0] DUMP node refused: offset 3, cnt 2 outside 4 channels"},
        {4, -1, 1, "ASTREAM[0] DUMP node refused: offset -1, cnt 1 outside 4 channels"},
        {4, 0, -1, "ASTREAM[0] DUMP node refused: offset 0, cnt -1 outside 4 channels"},
        {4, 2147483647, 2, "ASTREAM[0] DUMP node refused: offset 2147483647, cnt 2 outside 4 channels"},
        {0, 0, 0, "ASTREAM[0] DUMP node refused: offset 0, cnt 0 outside 0 channels"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.message);
        log.Clear();
        WriteFileBytes(DumpPath(), {1, 2, 3});
        FakeStream s(c.chn, 4);
        auto node = BuildNode(s, DumpAttr(DumpPath(), c.offset, c.count));
        ASSERT_NE(nullptr, node);
        EXPECT_EQ(1, log.Count(3, c.message));
        EXPECT_EQ(1, log.Count(3, "ASTREAM[0] pipeline node type[154] init failed"));
        node->_mbEnable = ZN_TRUE;
        std::vector<uint8_t> in(s.h.u32BufLen + 2, 9), out(in.size(), 0);
        bool inPlace = false;
        EXPECT_EQ(0, node->process(reinterpret_cast<char*>(in.data()), reinterpret_cast<char*>(out.data()),
                                   inPlace));
        EXPECT_TRUE(inPlace);
        EXPECT_EQ((std::vector<uint8_t>{1, 2, 3}), ReadFileBytes(DumpPath()));
        node->destroy();
    }
}

TEST_F(DumpNodeTest, SetCfgChangesNothing) {
    FakeStream s(2, 4);
    auto node = BuildNode(s, DumpAttr(DumpPath(), 0, 1));
    ASSERT_NE(nullptr, node);
    auto* dump = dynamic_cast<ASTREAM_DEBUG_DUMP_NODE_S*>(node.get());
    ASSERT_NE(nullptr, dump);
    ASTREAM_OUTPUT_ATTR_S cfg = {1, 1, 1, 1, ZN_TRUE, 1};
    EXPECT_EQ(0, node->setCfg(cfg));
    EXPECT_EQ(ZN_FALSE, node->_mbEnable);
    EXPECT_EQ(0, dump->_mstAttr.s32ChnOffset);
    EXPECT_EQ(1, dump->_mstAttr.s32ChnCnt);
    EXPECT_EQ(DumpPath(), dump->_mstAttr.acPath);
    node->destroy();
}

// enableDumpNode sets exactly the dump nodes of the named slot, to the value given.
TEST_F(DumpNodeTest, EnableDumpNodeWalksTheSlot) {
    FakeStream s(2, 4, 1);
    ASTREAM_ATTR_S attr;
    attr.s32AiId = 0;
    attr.s32WorkerNum = 1;
    attr.lstNodeAttr = {DumpAttr(DumpPath(), 0, 1), SwapAttr({1, 0}), DumpAttr(root.Dir() + "/e.pcm", 1, 1)};
    ASSERT_EQ(0, AUDIO_ASTREAM_InitPipeline(&s.h, &attr));
    ASSERT_EQ(3u, s.h.lstNode.size());
    std::vector<ASTREAM_NODE_S*> nodes(s.h.lstNode.begin(), s.h.lstNode.end());
    auto states = [&] {
        return std::vector<int>{nodes[0]->_mbEnable, nodes[1]->_mbEnable, nodes[2]->_mbEnable};
    };
    ASSERT_EQ(nullptr, gs_AstreamHandler[1]);
    gs_AstreamHandler[1] = &s.h;

    EXPECT_EQ(0, AUDIO_ASTREAM_enableDumpNode(1, ZN_TRUE));
    EXPECT_EQ((std::vector<int>{1, 1, 1}), states());
    EXPECT_EQ(1, log.Count(6, "enable dump node event, eEnable:1.\n"));
    EXPECT_EQ(0, AUDIO_ASTREAM_enableDumpNode(1, static_cast<tagZN_BOOL>(2)));
    EXPECT_EQ((std::vector<int>{2, 1, 2}), states());
    // Other slots and ids outside the table: logged, nothing changed.
    for (int id : {0, -1, 2, 1000}) {
        EXPECT_EQ(0, AUDIO_ASTREAM_enableDumpNode(id, ZN_FALSE));
    }
    EXPECT_EQ((std::vector<int>{2, 1, 2}), states());
    EXPECT_EQ(4, log.Count(6, "enable dump node event, eEnable:0.\n"));
    EXPECT_EQ(0, AUDIO_ASTREAM_enableDumpNode(1, ZN_FALSE));
    EXPECT_EQ((std::vector<int>{0, 1, 0}), states());

    gs_AstreamHandler[1] = nullptr;
}

}  // namespace
