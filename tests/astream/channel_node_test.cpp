// Swap, split, merge and mixin nodes: exact output buffers and bInPlace for tables of
// records, refusal of records that would address memory outside the buffers, and the
// node slots around process.
#include <climits>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "astream/astream_merge_node.h"
#include "astream/astream_mixin_node.h"
#include "astream/astream_split_node.h"
#include "astream/astream_swap_node.h"
#include "astream_test_util.h"
#include "test_support.h"

namespace {

using astream_test::BuildNode;
using astream_test::FakeStream;
using astream_test::MergeAttr;
using astream_test::MixinAttr;
using astream_test::SplitAttr;
using astream_test::SwapAttr;

constexpr int16_t kStale = 0x7A7A;  // what pOut holds before a node runs

std::vector<int16_t> Iota(size_t n) {
    std::vector<int16_t> v(n);
    for (size_t i = 0; i < n; i++) {
        v[i] = static_cast<int16_t>(i + 1);
    }
    return v;
}

struct ProcessVector {
    const char* name;
    int chn;
    uint32_t frames;
    ASTREAM_NODE_ATTR_S attr;
    std::vector<int16_t> in;
    std::vector<int16_t> expect;  // the frame period after the node, wherever it lies
    bool inPlace;
    std::vector<int16_t> untouched;  // when not empty: what the other buffer must hold
};

std::vector<ProcessVector> Vectors() {
    std::vector<ProcessVector> v;
    // Split of 4-channel frames into a mono block and a 3-channel group: the whole result
    // lies in pOut.
    v.push_back({"split 0/1/3 of 4",
                 4,
                 4,
                 SplitAttr(0, 1, 3),
                 Iota(16),
                 {1, 5, 9, 13, 2, 3, 4, 6, 7, 8, 10, 11, 12, 14, 15, 16},
                 false,
                 {}});
    // A small group among 8: the two result blocks go back into pIn, the rest stays.
    v.push_back({"split 2/1/1 of 8",
                 8,
                 4,
                 SplitAttr(2, 1, 1),
                 Iota(32),
                 {1,  2,  3,  4,  5,  6,  7,  8,  9,  11, 13, 15, 10, 12, 14, 16,
                  17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32},
                 true,
                 {}});
    // a + b equal to half the channels takes the branch that completes pOut.
    v.push_back({"split 1/2/2 of 8",
                 8,
                 4,
                 SplitAttr(1, 2, 2),
                 Iota(32),
                 {1,  2,  3,  4,  5,  6,  9,  10, 13, 14, 17, 18, 7,  8,  11, 12,
                  15, 16, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32},
                 false,
                 {}});
    v.push_back({"split 0/2/0 of 2 keeps the group", 2, 3, SplitAttr(0, 2, 0), Iota(6), Iota(6), false, {}});
    v.push_back({"split 3/0/1 of 4 keeps the block", 4, 2, SplitAttr(3, 0, 1), Iota(8), Iota(8), true, {}});
    v.push_back({"merge 0/1/3 of 4",
                 4,
                 4,
                 MergeAttr(0, 1, 3),
                 {1, 5, 9, 13, 2, 3, 4, 6, 7, 8, 10, 11, 12, 14, 15, 16},
                 Iota(16),
                 false,
                 {}});
    v.push_back({"merge 2/1/1 of 8",
                 8,
                 4,
                 MergeAttr(2, 1, 1),
                 {1,  2,  3,  4,  5,  6,  7,  8,  9,  11, 13, 15, 10, 12, 14, 16,
                  17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32},
                 Iota(32),
                 true,
                 {}});
    v.push_back({"swap 1:0 of 2", 2, 4, SwapAttr({1, 0}), Iota(8), {5, 6, 7, 8, 1, 2, 3, 4}, false, {}});
    v.push_back({"swap 2:0:1 of 3", 3, 2, SwapAttr({2, 0, 1}), Iota(6), {3, 4, 5, 6, 1, 2}, false, {}});
    v.push_back({"swap 0 of 1", 1, 3, SwapAttr({0}), Iota(3), Iota(3), false, {}});
    // A map that names block 0 twice: the later source wins, block 1 keeps stale data.
    v.push_back({"swap 0:0 of 2", 2, 2, SwapAttr({0, 0}), Iota(4), {3, 4, kStale, kStale}, false, {}});
    // Target 0 = (target + two group channels) / 3, truncated toward zero.
    v.push_back(
        {"mixin 0/1/2 of 3", 3, 2, MixinAttr(0, 1, 2), {30, -7, 1, 2, 0, 0}, {11, -2, 1, 2, 0, 0}, true, {}});
    v.push_back({"mixin with no channels", 3, 2, MixinAttr(0, 1, 0), Iota(6), Iota(6), true, {}});
    v.push_back({"mixin at full scale",
                 3,
                 3,
                 MixinAttr(0, 1, 2),
                 {-32768, 32767, -32768, -32768, -32768, 32767, 32767, 32767, 32767},
                 {-32768, 32767, 10922, -32768, -32768, 32767, 32767, 32767, 32767},
                 true,
                 {}});
    // The target block lies inside the averaged group: frames go in increasing order, so
    // frames 2 and 3 read targets already written.
    v.push_back({"mixin into its own group",
                 2,
                 4,
                 MixinAttr(1, 0, 2),
                 {3, 6, 9, 12, 30, 60, 90, 120},
                 {3, 6, 9, 12, 13, 27, 43, 94},
                 true,
                 {}});
    return v;
}

class ChannelNodeTest : public audiomw_test::AudioTest {};

TEST_F(ChannelNodeTest, ProcessVectors) {
    for (const ProcessVector& t : Vectors()) {
        SCOPED_TRACE(t.name);
        FakeStream s(t.chn, t.frames);
        auto node = BuildNode(s, t.attr);
        ASSERT_NE(nullptr, node);
        ASSERT_EQ(t.in.size(), s.h.u32BufLen / 2);
        std::vector<int16_t> in = t.in;
        std::vector<int16_t> out(in.size(), kStale);
        bool inPlace = !t.inPlace;
        EXPECT_EQ(0, node->process(reinterpret_cast<char*>(in.data()), reinterpret_cast<char*>(out.data()),
                                   inPlace));
        EXPECT_EQ(t.inPlace, inPlace);
        EXPECT_EQ(t.expect, t.inPlace ? in : out);
        if (!t.inPlace) {
            EXPECT_EQ(t.in, in) << "pIn is only read when the result goes to pOut";
        }
        EXPECT_EQ(0, node->destroy());
    }
}

// Split and then merge with the same record give the buffer back, for every valid
// record of several channel counts, wherever the intermediate result lay.
TEST_F(ChannelNodeTest, SplitThenMergeIsIdentity) {
    std::mt19937 rng(7);
    for (int chn : {1, 2, 3, 4, 7, 8, 12, 20}) {
        const uint32_t frames = 1 + rng() % 40;
        for (int o = 0; o < chn; o++) {
            for (int a = 0; o + a <= chn; a++) {
                for (int b = (a == 0 ? 1 : 0); o + a + b <= chn; b++) {
                    SCOPED_TRACE(testing::Message() << "C=" << chn << " o=" << o << " a=" << a << " b=" << b);
                    FakeStream s(chn, frames);
                    auto split = BuildNode(s, SplitAttr(o, a, b));
                    auto merge = BuildNode(s, MergeAttr(o, a, b));
                    ASSERT_TRUE(split && merge);
                    std::vector<int16_t> orig(s.h.u32BufLen / 2);
                    for (auto& x : orig) {
                        x = static_cast<int16_t>(rng());
                    }
                    std::vector<int16_t> b1 = orig, b2(orig.size(), kStale);
                    char* pIn = reinterpret_cast<char*>(b1.data());
                    char* pOut = reinterpret_cast<char*>(b2.data());
                    bool inPlace = false;
                    ASSERT_EQ(0, split->process(pIn, pOut, inPlace));
                    if (!inPlace) {
                        std::swap(pIn, pOut);
                    }
                    ASSERT_EQ(0, merge->process(pIn, pOut, inPlace));
                    const char* result = inPlace ? pIn : pOut;
                    ASSERT_EQ(0, std::memcmp(orig.data(), result, s.h.u32BufLen));
                }
            }
        }
    }
}

// The split result block by block, against a model written from the definition: group
// A gets the first a samples of every frame, group B the next b.
TEST_F(ChannelNodeTest, SplitMatchesModelForRandomRecords) {
    std::mt19937 rng(11);
    for (int i = 0; i < 300; i++) {
        const int chn = 1 + rng() % 20;
        const uint32_t frames = 1 + rng() % 64;
        const int o = rng() % chn;
        const int a = rng() % (chn - o + 1);
        const int b = (a == 0 ? 1 : 0) + rng() % (chn - o - a + (a == 0 ? 0 : 1));
        if (o + a + b > chn) {
            continue;
        }
        SCOPED_TRACE(testing::Message()
                     << "C=" << chn << " F=" << frames << " o=" << o << " a=" << a << " b=" << b);
        FakeStream s(chn, frames);
        auto split = BuildNode(s, SplitAttr(o, a, b));
        ASSERT_NE(nullptr, split);
        std::vector<int16_t> in(s.h.u32BufLen / 2), out(in.size(), kStale);
        for (auto& x : in) {
            x = static_cast<int16_t>(rng());
        }
        std::vector<int16_t> expect = in;
        for (uint32_t f = 0; f < frames; f++) {
            for (int j = 0; j < a + b; j++) {
                int16_t sample = in[o * frames + f * (a + b) + j];
                if (j < a) {
                    expect[o * frames + f * a + j] = sample;
                } else {
                    expect[(o + a) * frames + f * b + (j - a)] = sample;
                }
            }
        }
        const std::vector<int16_t> orig = in;
        bool inPlace = false;
        ASSERT_EQ(0, split->process(reinterpret_cast<char*>(in.data()), reinterpret_cast<char*>(out.data()),
                                    inPlace));
        EXPECT_EQ(a + b < (chn >> 1), inPlace);
        EXPECT_EQ(expect, inPlace ? in : out);
    }
}

struct RefusedVector {
    const char* name;
    int chn;
    ASTREAM_NODE_ATTR_S attr;
    const char* message;  // the level-3 refusal logged by init
};

std::vector<RefusedVector> Refusals() {
    return {
        {"swap on 21 channels", 21, SwapAttr({0}),
         "ASTREAM[0] SWAP node refused: 21 channels, the map holds 1..20"},
        {"swap entry too high", 4, SwapAttr({0, 1, 2, 4}),
         "ASTREAM[0] SWAP node refused: map[3] = 4 outside 4 channels"},
        {"swap entry negative", 4, SwapAttr({-1, 1, 2, 3}),
         "ASTREAM[0] SWAP node refused: map[0] = -1 outside 4 channels"},
        {"swap without channels", 0, SwapAttr({0}),
         "ASTREAM[0] SWAP node refused: 0 channels, the map holds 1..20"},
        {"split negative offset", 4, SplitAttr(-1, 1, 1),
         "ASTREAM[0] SPLIT node refused: offset -1, cnt a 1, cnt b 1 outside 4 channels"},
        {"split negative count", 4, SplitAttr(0, -1, 2),
         "ASTREAM[0] SPLIT node refused: offset 0, cnt a -1, cnt b 2 outside 4 channels"},
        {"split empty group", 4, SplitAttr(1, 0, 0),
         "ASTREAM[0] SPLIT node refused: offset 1, cnt a 0, cnt b 0 outside 4 channels"},
        {"split past the end", 4, SplitAttr(2, 2, 1),
         "ASTREAM[0] SPLIT node refused: offset 2, cnt a 2, cnt b 1 outside 4 channels"},
        {"split overflowing sum", 4, SplitAttr(INT_MAX, 1, 1),
         "ASTREAM[0] SPLIT node refused: offset 2147483647, cnt a 1, cnt b 1 outside 4 channels"},
        {"split without channels", 0, SplitAttr(0, 1, 0),
         "ASTREAM[0] SPLIT node refused: offset 0, cnt a 1, cnt b 0 outside 0 channels"},
        {"merge past the end", 4, MergeAttr(3, 1, 1),
         "ASTREAM[0] MERGE node refused: offset 3, cnt a 1, cnt b 1 outside 4 channels"},
        {"merge huge counts", 4, MergeAttr(0, INT_MAX, INT_MAX),
         "ASTREAM[0] MERGE node refused: offset 0, cnt a 2147483647, cnt b 2147483647 outside 4 channels"},
        {"mixin target past the end", 4, MixinAttr(4, 0, 1),
         "ASTREAM[0] MIXIN node refused: target 4, offset 0, cnt 1 outside 4 channels"},
        {"mixin negative target", 4, MixinAttr(-1, 0, 1),
         "ASTREAM[0] MIXIN node refused: target -1, offset 0, cnt 1 outside 4 channels"},
        {"mixin negative count", 4, MixinAttr(0, 1, -1),
         "ASTREAM[0] MIXIN node refused: target 0, offset 1, cnt -1 outside 4 channels"},
        {"mixin group past the end", 4, MixinAttr(0, 3, 2),
         "ASTREAM[0] MIXIN node refused: target 0, offset 3, cnt 2 outside 4 channels"},
    };
}

// A refused record: init logs why and fails, the node stays built but disabled, and
// process touches neither buffer (ASan checks that nothing outside them is touched).
TEST_F(ChannelNodeTest, RecordsOutsideTheBuffersAreRefused) {
    for (const RefusedVector& t : Refusals()) {
        SCOPED_TRACE(t.name);
        log.Clear();
        FakeStream s(t.chn, 4);
        auto node = BuildNode(s, t.attr);
        ASSERT_NE(nullptr, node);
        EXPECT_EQ(1, log.Count(3, t.message));
        EXPECT_EQ(1, log.Count(3, "ASTREAM[0] pipeline node type[" + std::to_string(t.attr.eType) +
                                      "] init failed"));
        EXPECT_EQ(ZN_FALSE, node->_mbEnable);
        std::vector<int16_t> in(s.h.u32BufLen / 2 + 1, 1111), out(in.size(), 2222);
        for (tagZN_BOOL enable : {ZN_FALSE, ZN_TRUE}) {
            node->_mbEnable = enable;  // forced on: the record is still refused
            bool inPlace = true;
            EXPECT_EQ(-1, node->process(reinterpret_cast<char*>(in.data()),
                                        reinterpret_cast<char*>(out.data()), inPlace));
            EXPECT_TRUE(inPlace);
            EXPECT_EQ(std::vector<int16_t>(in.size(), 1111), in);
            EXPECT_EQ(std::vector<int16_t>(out.size(), 2222), out);
        }
        node->destroy();
    }
}

TEST_F(ChannelNodeTest, InitLogsItsLineNumber) {
    struct {
        ASTREAM_NODE_ATTR_S attr;
        const char* suffix;
    } const cases[] = {
        {SwapAttr({1, 0}), ", SWAP node\n"},
        {SplitAttr(0, 1, 1), ", SPLIT node\n"},
        {MergeAttr(0, 1, 1), ", MERGE node\n"},
        {MixinAttr(0, 1, 1), ", MIXIN node\n"},
    };
    for (const auto& c : cases) {
        log.Clear();
        FakeStream s(2, 4);
        auto node = BuildNode(s, c.attr);
        ASSERT_NE(nullptr, node);
        std::vector<audiomw_test::LogLine> lines = log.Lines();
        ASSERT_FALSE(lines.empty());
        const audiomw_test::LogLine& first = lines[0];
        EXPECT_EQ(7, first.level);
        // "[init:N] N, XXX node\n": the argument repeats the prefix's line number.
        size_t colon = first.text.find(':');
        size_t close = first.text.find("] ");
        ASSERT_TRUE(colon != std::string::npos && close != std::string::npos);
        std::string line = first.text.substr(colon + 1, close - colon - 1);
        EXPECT_EQ("[init:" + line + "] " + line + c.suffix, first.text);
        EXPECT_EQ(1, log.Count(6, "ASTREAM[0] add node type[" + std::to_string(c.attr.eType) + "]"));
        EXPECT_EQ(0, log.CountContaining("init failed"));
        node->destroy();
    }
}

// After destroy every channel node refuses to run and leaves bInPlace alone; setCfg
// changes nothing.
TEST_F(ChannelNodeTest, DestroyDisablesAndSetCfgIsInert) {
    for (const ASTREAM_NODE_ATTR_S& a :
         {SwapAttr({1, 0}), SplitAttr(0, 1, 1), MergeAttr(0, 1, 1), MixinAttr(0, 1, 1)}) {
        FakeStream s(2, 4);
        auto node = BuildNode(s, a);
        ASSERT_NE(nullptr, node);
        EXPECT_EQ(ZN_TRUE, node->_mbEnable);
        // setCfg with a record full of values: the node and its copy stay as they were.
        std::vector<unsigned char> before(
            reinterpret_cast<unsigned char*>(node.get()) + sizeof(ASTREAM_NODE_S),
            reinterpret_cast<unsigned char*>(node.get()) + sizeof(ASTREAM_NODE_S) + 12);
        ASTREAM_OUTPUT_ATTR_S cfg = {5, 6, 7, 1, ZN_TRUE, 9};
        EXPECT_EQ(0, node->setCfg(cfg));
        EXPECT_EQ(0, std::memcmp(before.data(),
                                 reinterpret_cast<unsigned char*>(node.get()) + sizeof(ASTREAM_NODE_S),
                                 before.size()));
        EXPECT_EQ(ZN_TRUE, node->_mbEnable);

        EXPECT_EQ(0, node->destroy());
        EXPECT_EQ(ZN_FALSE, node->_mbEnable);
        std::vector<int16_t> in = Iota(8), out(8, kStale);
        for (bool flag : {false, true}) {
            bool inPlace = flag;
            EXPECT_EQ(-1, node->process(reinterpret_cast<char*>(in.data()),
                                        reinterpret_cast<char*>(out.data()), inPlace));
            EXPECT_EQ(flag, inPlace);
        }
        EXPECT_EQ(Iota(8), in);
        EXPECT_EQ(std::vector<int16_t>(8, kStale), out);
    }
}

}  // namespace
