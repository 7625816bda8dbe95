// Channel and dump nodes: exact buffers, bInPlace, log lines, refused records, dump files; the
// pipeline build and teardown, and the worker job that runs a pipeline.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <string>
#include <vector>

#include "astream_test_util.h"
#include "test_support.h"

namespace {

using namespace astream_test;
using audiomw_test::FileExists;
using audiomw_test::Logged;
using audiomw_test::ReadFileBytes;
using audiomw_test::WriteFileBytes;
using Samples = std::vector<int16_t>;
using Bytes = std::vector<uint8_t>;

constexpr int16_t kStale = 0x7A7A;  // what pOut holds before a node runs
constexpr int16_t kLo = INT16_MIN, kHi = INT16_MAX;

Samples Iota(size_t n) {
    Samples v(n);
    for (size_t i = 0; i < n; i++)
        v[i] = static_cast<int16_t>(i + 1);
    return v;
}

// `base` with the samples from index `at` on replaced by `v`.
Samples With(Samples base, size_t at, const Samples& v) {
    std::copy(v.begin(), v.end(), base.begin() + at);
    return base;
}

template <typename T>
char* P(std::vector<T>& v) {
    return reinterpret_cast<char*>(v.data());
}

struct ProcessVector {
    int chn;
    uint32_t frames;
    ASTREAM_NODE_ATTR_S attr;
    Samples in, expect;  // expect: the period after the node, wherever it lies
    bool inPlace;
};

const ProcessVector kVectors[] = {
    // 4 channels split into a mono block and a 3-channel group: the whole result is in pOut.
    {4, 4, SplitAttr(0, 1, 3), Iota(16), {1, 5, 9, 13, 2, 3, 4, 6, 7, 8, 10, 11, 12, 14, 15, 16}, false},
    // a + b = 2 < 8 >> 1: the result goes back into pIn; a + b = C >> 1 (8, 7) completes pOut.
    {8, 4, SplitAttr(2, 1, 1), Iota(32), With(Iota(32), 8, {9, 11, 13, 15, 10, 12, 14, 16}), true},
    {8, 4, SplitAttr(1, 2, 2), Iota(32),
     With(Iota(32), 4, {5, 6, 9, 10, 13, 14, 17, 18, 7, 8, 11, 12, 15, 16, 19, 20}), false},
    {7, 1, SplitAttr(0, 1, 2), Iota(7), Iota(7), false},
    {2, 3, SplitAttr(0, 2, 0), Iota(6), Iota(6), false},
    {4, 2, SplitAttr(3, 0, 1), Iota(8), Iota(8), true},
    {4, 4, MergeAttr(0, 1, 3), {1, 5, 9, 13, 2, 3, 4, 6, 7, 8, 10, 11, 12, 14, 15, 16}, Iota(16), false},
    {8, 4, MergeAttr(2, 1, 1), With(Iota(32), 8, {9, 11, 13, 15, 10, 12, 14, 16}), Iota(32), true},
    {2, 4, SwapAttr({1, 0}), Iota(8), {5, 6, 7, 8, 1, 2, 3, 4}, false},
    {3, 2, SwapAttr({2, 0, 1}), Iota(6), {3, 4, 5, 6, 1, 2}, false},
    // Block 0 named twice: the later source wins, block 1 keeps stale data.
    {2, 2, SwapAttr({0, 0}), Iota(4), {3, 4, kStale, kStale}, false},
    // (target + group) / 3 truncated toward zero, no overflow; a target inside its group reads written ones.
    {3, 2, MixinAttr(0, 1, 2), {30, -7, 1, 2, 0, 0}, {11, -2, 1, 2, 0, 0}, true},
    {3, 2, MixinAttr(0, 1, 0), Iota(6), Iota(6), true},
    {3, 2, MixinAttr(0, 1, 2), {kLo, kLo, kLo, kLo, kHi, kHi}, {kLo, 10922, kLo, kLo, kHi, kHi}, true},
    {2, 4, MixinAttr(1, 0, 2), {3, 6, 9, 12, 30, 60, 90, 120}, {3, 6, 9, 12, 13, 27, 43, 94}, true},
};

Logged Pipeline(int level, const std::string& message) {
    return {level, "AUDIO_ASTREAM_InitPipeline", message};
}

class NodeTest : public audiomw_test::AudioTest {
  protected:
    std::string DumpPath() const { return root.Dir() + "/d.pcm"; }
    bool NoErrors() const {
        const auto all = log.All();
        return std::none_of(all.begin(), all.end(), [](const Logged& l) { return l.level <= 4; });
    }
};

TEST_F(NodeTest, ChannelProcessVectors) {
    const char* const names[] = {"", "SWAP", "SPLIT", "MERGE", "MIXIN"};
    for (const ProcessVector& t : kVectors) {
        SCOPED_TRACE(testing::Message() << "type " << t.attr.eType << ", " << t.chn << " channels");
        log.Clear();
        FakeStream s(t.chn, t.frames);
        auto node = BuildNode(s, t.attr);
        ASSERT_NE(nullptr, node);
        ASSERT_EQ(t.in.size(), s.h.u32BufLen / 2);
        // "[init:N] N, XXX node\n" at level 7: the argument repeats the prefix's line number.
        const audiomw_test::LogLine first = log.Lines().at(0);
        const std::string n = first.text.substr(6, first.text.find(']') - 6);
        EXPECT_EQ("[init:" + n + "] " + n + ", " + names[t.attr.eType] + " node\n", first.text);
        EXPECT_EQ(7, first.level);
        EXPECT_TRUE(NoErrors());
        EXPECT_EQ(0, node->setCfg({5, 6, 7, 1, ZN_TRUE, 9}));  // the result below shows nothing changed
        Samples in = t.in, out(in.size(), kStale);
        bool inPlace = !t.inPlace;
        EXPECT_EQ(0, node->process(P(in), P(out), inPlace));
        EXPECT_EQ(t.inPlace, inPlace);
        EXPECT_EQ(t.expect, t.inPlace ? in : out);
        EXPECT_EQ(t.inPlace ? t.expect : t.in, in) << "pIn is only read when the result goes to pOut";
        const Samples inBefore = in, outBefore = out;
        EXPECT_EQ(0, node->destroy());
        EXPECT_EQ(-1, node->process(P(in), P(out), inPlace) + node->_mbEnable);
        EXPECT_EQ(t.inPlace, inPlace);
        EXPECT_EQ(inBefore, in);
        EXPECT_EQ(outBefore, out);
    }
}

// A refused record: init logs why, the node is kept disabled and, even forced on, touches nothing.
TEST_F(NodeTest, RecordsOutsideTheBuffersAreRefused) {
    const std::string r = "ASTREAM[0] ", missing = root.Dir() + "/none/d.pcm";
    const struct {
        int chn;
        ASTREAM_NODE_ATTR_S attr;
        std::string message;
    } cases[] = {
        // clang-format off
        {21, SwapAttr({0}), r + "SWAP node refused: 21 channels, the map holds 1..20"},
        {0, SwapAttr({0}), r + "SWAP node refused: 0 channels, the map holds 1..20"},
        {4, SwapAttr({0, 1, 2, 4}), r + "SWAP node refused: map[3] = 4 outside 4 channels"},
        {4, SwapAttr({-1, 1, 2, 3}), r + "SWAP node refused: map[0] = -1 outside 4 channels"},
        {4, SplitAttr(-1, 1, 1), r + "SPLIT node refused: offset -1, cnt a 1, cnt b 1 outside 4 channels"},
        {4, SplitAttr(0, -1, 2), r + "SPLIT node refused: offset 0, cnt a -1, cnt b 2 outside 4 channels"},
        {4, SplitAttr(1, 0, 0), r + "SPLIT node refused: offset 1, cnt a 0, cnt b 0 outside 4 channels"},
        {4, SplitAttr(2, 2, 1), r + "SPLIT node refused: offset 2, cnt a 2, cnt b 1 outside 4 channels"},
        {4, SplitAttr(INT_MAX, 1, 1), r + "SPLIT node refused: offset 2147483647, cnt a 1, cnt b 1 outside 4 channels"},
        {0, SplitAttr(0, 1, 0), r + "SPLIT node refused: offset 0, cnt a 1, cnt b 0 outside 0 channels"},
        {4, MergeAttr(3, 1, 1), r + "MERGE node refused: offset 3, cnt a 1, cnt b 1 outside 4 channels"},
        {4, MergeAttr(0, INT_MAX, INT_MAX), r + "MERGE node refused: offset 0, cnt a 2147483647, cnt b 2147483647 outside 4 channels"},
        {4, MixinAttr(4, 0, 1), r + "MIXIN node refused: target 4, offset 0, cnt 1 outside 4 channels"},
        {4, MixinAttr(-1, 0, 1), r + "MIXIN node refused: target -1, offset 0, cnt 1 outside 4 channels"},
        {4, MixinAttr(0, 1, -1), r + "MIXIN node refused: target 0, offset 1, cnt -1 outside 4 channels"},
        {4, MixinAttr(0, 3, 2), r + "MIXIN node refused: target 0, offset 3, cnt 2 outside 4 channels"},
        {4, DumpAttr(DumpPath(), 3, 2), r + "DUMP node refused: offset 3, cnt 2 outside 4 channels"},
        {4, DumpAttr(DumpPath(), -1, 1), r + "DUMP node refused: offset -1, cnt 1 outside 4 channels"},
        {4, DumpAttr(DumpPath(), 0, -1), r + "DUMP node refused: offset 0, cnt -1 outside 4 channels"},
        {4, DumpAttr(DumpPath(), INT_MAX, 2), r + "DUMP node refused: offset 2147483647, cnt 2 outside 4 channels"},
        {0, DumpAttr(DumpPath(), 0, 0), r + "DUMP node refused: offset 0, cnt 0 outside 0 channels"},
        {2, DumpAttr(missing, 0, 1), "dump file " + missing + " create failed"},  // a dump without its file
        // clang-format on
    };
    for (const auto& t : cases) {
        SCOPED_TRACE(t.message);
        log.Clear();
        WriteFileBytes(DumpPath(), {1, 2, 3});
        FakeStream s(t.chn, 4);
        auto node = BuildNode(s, t.attr);
        ASSERT_NE(nullptr, node);
        const std::string failed =
            "ASTREAM[0] pipeline node type[" + std::to_string(t.attr.eType) + "] init failed";
        EXPECT_EQ(1, log.Count({3, "init", t.message}));
        log.ExpectInOrder({{3, "AUDIO_ASTREAM_InitPipeline", failed},
                           {6, "AUDIO_ASTREAM_InitPipeline",
                            "ASTREAM[0] add node type[" + std::to_string(t.attr.eType) + "]"}});  // kept
        EXPECT_EQ(ZN_FALSE, node->_mbEnable);
        const bool dump = t.attr.eType == ASTREAM_NODE_TYPE_E_DEBUG_DUMP;
        Samples in(s.h.u32BufLen / 2 + 1, 1111), out(in.size(), 2222);
        for (tagZN_BOOL enable : {ZN_FALSE, ZN_TRUE}) {
            node->_mbEnable = enable;
            bool inPlace = !enable;
            EXPECT_EQ(dump ? 0 : -1, node->process(P(in), P(out), inPlace));
            EXPECT_EQ(!enable || dump, inPlace);
            EXPECT_EQ(Samples(in.size(), 1111), in);
            EXPECT_EQ(Samples(out.size(), 2222), out);
        }
        EXPECT_EQ((Bytes{1, 2, 3}), ReadFileBytes(DumpPath()));
        EXPECT_FALSE(FileExists(missing));
        node->destroy();
    }
}

// The dump file, emptied at init, holds the group of the enabled periods only.
TEST_F(NodeTest, DumpAppendsTheGroupOfEnabledPeriods) {
    const uint32_t frames = 8, block = frames * 2;
    WriteFileBytes(DumpPath(), Bytes(100, 7));
    FakeStream s(4, frames);
    auto node = BuildNode(s, DumpAttr(DumpPath(), 1, 2));
    ASSERT_NE(nullptr, node);
    EXPECT_TRUE(FileExists(DumpPath()) && ReadFileBytes(DumpPath()).empty());
    EXPECT_EQ(1, log.Count({7, "init", "dump to " + DumpPath()}));
    EXPECT_TRUE(NoErrors());
    EXPECT_EQ(0, node->setCfg({0, 0, 4, 1, ZN_TRUE, 1}) + node->_mbEnable);
    Bytes expect, out(4 * block, 0);
    for (uint32_t period = 0; period < 13; period++) {
        const bool enabled = period < 10 || period == 12;
        node->_mbEnable = enabled ? ZN_TRUE : ZN_FALSE;
        Bytes in = audiomw_test::MakePattern(4, frames, 3, period * frames);
        const Bytes before = in;
        bool inPlace = period == 10;  // a disabled node leaves it either way
        ASSERT_EQ(0, node->process(P(in), P(out), inPlace));
        EXPECT_EQ(enabled || period == 10, inPlace);
        EXPECT_EQ(before, in);
        if (enabled)
            expect.insert(expect.end(), in.begin() + block, in.begin() + 3 * block);
    }
    EXPECT_EQ(Bytes(out.size(), 0), out);
    EXPECT_EQ(expect, ReadFileBytes(DumpPath()));
    EXPECT_EQ(0, node->destroy() + node->_mbEnable);
    EXPECT_EQ(1, log.Count({7, "destroy",
                            "dump file " + DumpPath() +
                                " closed, _mu32WriteLen:" + std::to_string(11 * 2 * block)}));
}

// enableDumpNode sets the dump nodes of the named slot only; other ids change nothing.
TEST_F(NodeTest, EnableDumpNodeWalksTheSlot) {
    FakeStream s(2, 4, 1);
    ASTREAM_ATTR_S attr = StreamAttr(
        0, 1, {DumpAttr(DumpPath(), 0, 1), SwapAttr({1, 0}), DumpAttr(root.Dir() + "/e.pcm", 1, 1)});
    ASSERT_EQ(0, AUDIO_ASTREAM_InitPipeline(&s.h, &attr));
    std::vector<ASTREAM_NODE_S*> nodes(s.h.lstNode.begin(), s.h.lstNode.end());
    auto states = [&] {
        return std::vector<int>{nodes[0]->_mbEnable, nodes[1]->_mbEnable, nodes[2]->_mbEnable};
    };
    gs_AstreamHandler[1] = &s.h;
    const struct {
        int id, value;
        std::vector<int> states;
    } steps[] = {{1, 1, {1, 1, 1}}, {1, 2, {2, 1, 2}},    {0, 0, {2, 1, 2}}, {-1, 0, {2, 1, 2}},
                 {2, 0, {2, 1, 2}}, {1000, 0, {2, 1, 2}}, {1, 0, {0, 1, 0}}};
    for (const auto& st : steps) {
        log.Clear();
        EXPECT_EQ(0, AUDIO_ASTREAM_enableDumpNode(st.id, static_cast<tagZN_BOOL>(st.value)));
        EXPECT_EQ(st.states, states()) << st.id << " " << st.value;
        EXPECT_TRUE(log.Has({6, "AUDIO_ASTREAM_enableDumpNode",
                             "enable dump node event, eEnable:" + std::to_string(st.value) + ".\n"}));
    }
    gs_AstreamHandler[1] = nullptr;
}

TEST_F(NodeTest, NullArgumentsAndAnEmptyList) {
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
TEST_F(NodeTest, CodeWithoutClassUndoesTheBuild) {
    for (int code : {7, 5, 152, 155, -1, 1000}) {
        SCOPED_TRACE(code);
        log.Clear();
        FakeStream s(2, 4, 1);
        ASTREAM_ATTR_S a = StreamAttr(0, 1,
                                      {DumpAttr(DumpPath(), 0, 1), DumpAttr(root.Dir() + "/b.pcm", 1, 1),
                                       NodeAttr(static_cast<ASTREAM_NODE_TYPE_E>(code))});
        EXPECT_EQ(-1, AUDIO_ASTREAM_InitPipeline(&s.h, &a));
        EXPECT_TRUE(s.h.lstNode.empty());
        const std::string refused =
            "ASTREAM[1] pipeline node type[" + std::to_string(code) + "] not support yet";
        log.ExpectInOrder(
            {Pipeline(6, "ASTREAM[1] add node type[154]"),
             Pipeline(6, "ASTREAM[1] add node type[154]"),
             Pipeline(3, refused),
             Pipeline(4, "ASTREAM[1] create failed, destroy"),
             {7, "destroy", "dump file " + DumpPath() + " closed, _mu32WriteLen:0"},
             {7, "destroy", "dump file " + root.Dir() + "/b.pcm" + " closed, _mu32WriteLen:0"}});
        EXPECT_EQ(0, log.Count({6, "AUDIO_ASTREAM_DestroyPipeline", "ASTREAM[1] pipeline destroyed"}));
    }
}

// The worker job over buffers A and B: out-of-place nodes swap them, failures are reported.
TEST_F(NodeTest, WorkerJobPassesTheBuffersAlongTheChain) {
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
