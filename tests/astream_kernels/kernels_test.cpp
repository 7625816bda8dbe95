// The kernels the channel nodes run against their reference versions, byte for byte:
// every channel-count pair up to and past the specialised range, frame counts around
// vector widths, unaligned buffers, full-range samples, and mixin targets that overlap
// the averaged group.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <utility>
#include <vector>

#include "astream_channel_kernels.h"

namespace {

using namespace audiomw::astream;

constexpr uint32_t kMaxCnt = 11;  // past the specialised range, so the fallback runs too
const uint32_t kFrames[] = {0, 1, 2, 3, 7, 8, 9, 15, 16, 17, 23, 24, 25, 31, 32, 33, 47, 160, 256};

// The kernels under test: what the nodes call, and every instruction set's kernels this
// processor runs (the portable ones, then AVX2, AVX-512 or NEON).
std::vector<ChannelKernelSet> KernelsUnderTest() {
    std::vector<ChannelKernelSet> sets = {{"dispatched", SplitFrames, MergeFrames, MixinFrames, SwapBlocks}};
    uint32_t u32Count = 0;
    const ChannelKernelSet* pSets = ChannelKernelSets(&u32Count);
    sets.insert(sets.end(), pSets, pSets + u32Count);
    return sets;
}

std::vector<uint8_t> Random(size_t n, std::mt19937& rng) {
    std::vector<uint8_t> v(n);
    for (auto& b : v) {
        b = static_cast<uint8_t>(rng());
    }
    return v;
}

// Buffers start one byte into their storage, so no sample is 2-byte aligned.
constexpr size_t kSkew = 1;

// Split and merge: every pair of channel counts, each kernel set against the reference,
// apart and in place.
TEST(ChannelKernels, SplitAndMergeEqualReference) {
    std::mt19937 rng(1);
    for (const ChannelKernelSet& set : KernelsUnderTest()) {
        for (uint32_t a = 0; a <= kMaxCnt; a++) {
            for (uint32_t b = 0; b <= kMaxCnt; b++) {
                for (uint32_t frames : kFrames) {
                    SCOPED_TRACE(testing::Message()
                                 << set.pcName << " a=" << a << " b=" << b << " frames=" << frames);
                    const size_t lenA = a * frames * 2, lenB = b * frames * 2;
                    std::vector<uint8_t> src = Random(lenA + lenB + kSkew, rng);
                    std::vector<uint8_t> fast = Random(lenA + lenB + 2 * kSkew, rng), ref = fast;
                    const uint8_t* in = src.data() + kSkew;
                    set.pfnSplit(in, fast.data() + kSkew, fast.data() + kSkew + lenA, frames, a, b);
                    SplitFramesRef(in, ref.data() + kSkew, ref.data() + kSkew + lenA, frames, a, b);
                    ASSERT_EQ(ref, fast);
                    // In place, as the nodes run a group that stays in pIn: A over the source.
                    std::vector<uint8_t> work = src, outB = Random(lenB, rng);
                    set.pfnSplit(work.data() + kSkew, work.data() + kSkew, outB.data(), frames, a, b);
                    ASSERT_TRUE(std::equal(outB.begin(), outB.end(), ref.begin() + kSkew + lenA));
                    ASSERT_TRUE(
                        std::equal(ref.begin() + kSkew, ref.begin() + kSkew + lenA, work.begin() + kSkew));
                    set.pfnMerge(in, in + lenA, fast.data() + kSkew, frames, a, b);
                    MergeFramesRef(in, in + lenA, ref.data() + kSkew, frames, a, b);
                    ASSERT_EQ(ref, fast);
                    // In place: the frames written over B's blocks, A read from a copy.
                    std::vector<uint8_t> copyA(in, in + lenA);
                    work = src;
                    set.pfnMerge(copyA.data(), work.data() + kSkew + lenA, work.data() + kSkew, frames, a, b);
                    ASSERT_TRUE(std::equal(ref.begin() + kSkew, ref.end() - kSkew, work.begin() + kSkew));
                }
            }
        }
    }
}

// Swap: block sizes around every vector width, maps that reverse, rotate, and name one
// block twice (the later source wins, the unnamed block keeps what it held).
TEST(ChannelKernels, SwapEqualsReference) {
    std::mt19937 rng(5);
    const size_t blocks[] = {0, 2, 6, 14, 16, 18, 30, 32, 34, 62, 64, 66, 126, 130, 320, 512};
    const std::vector<int32_t> maps[] = {
        {0},       {1, 0},
        {2, 0, 1}, {7, 6, 5, 4, 3, 2, 1, 0},
        {0, 0, 1}, {19, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18}};
    for (const ChannelKernelSet& set : KernelsUnderTest()) {
        for (size_t block : blocks) {
            for (const std::vector<int32_t>& map : maps) {
                SCOPED_TRACE(testing::Message() << set.pcName << " block=" << block << " chn=" << map.size());
                const uint32_t chn = static_cast<uint32_t>(map.size());
                std::vector<uint8_t> in = Random(chn * block + kSkew, rng);
                std::vector<uint8_t> fast = Random(chn * block + 2 * kSkew, rng), ref = fast;
                set.pfnSwap(in.data() + kSkew, fast.data() + kSkew, map.data(), chn, block);
                SwapBlocksRef(in.data() + kSkew, ref.data() + kSkew, map.data(), chn, block);
                ASSERT_EQ(ref, fast);
            }
        }
    }
}

// The reference's definition on a tiny case: frames (1,2,3) split 1 + 2.
TEST(ChannelKernels, ReferenceSplitAndMergeDefinition) {
    const int16_t frames[] = {1, 2, 3, 4, 5, 6};
    int16_t a[2] = {}, b[4] = {};
    SplitFramesRef(reinterpret_cast<const uint8_t*>(frames), reinterpret_cast<uint8_t*>(a),
                   reinterpret_cast<uint8_t*>(b), 2, 1, 2);
    EXPECT_EQ(1, a[0]);
    EXPECT_EQ(4, a[1]);
    EXPECT_EQ((std::vector<int16_t>{2, 3, 5, 6}), std::vector<int16_t>(b, b + 4));
    int16_t back[6] = {};
    MergeFramesRef(reinterpret_cast<const uint8_t*>(a), reinterpret_cast<const uint8_t*>(b),
                   reinterpret_cast<uint8_t*>(back), 2, 1, 2);
    EXPECT_EQ(0, std::memcmp(frames, back, sizeof(back)));
}

// Full-range samples, including every extreme, for every group size; the target sits
// before, after and inside the group in one buffer, and once apart from a group that ends
// where its allocation ends (ASan sees any read past it).
TEST(ChannelKernels, MixinEqualsReference) {
    std::mt19937 rng(3);
    const int16_t extremes[] = {-32768, -32767, -1, 0, 1, 32766, 32767};
    for (const ChannelKernelSet& set : KernelsUnderTest()) {
        for (uint32_t c = 0; c <= kMaxCnt; c++) {
            for (uint32_t frames : kFrames) {
                const size_t block = frames * 2;
                const uint32_t blocks = c + 2;  // room for a target before and after the group
                for (uint32_t t = 0; t < blocks; t++) {
                    SCOPED_TRACE(testing::Message()
                                 << set.pcName << " c=" << c << " frames=" << frames << " target=" << t);
                    std::vector<uint8_t> fast = Random(blocks * block + kSkew, rng);
                    for (size_t i = 0; i + 1 < fast.size(); i += 2) {
                        if (rng() % 4 == 0) {
                            std::memcpy(&fast[i], &extremes[rng() % 7], 2);
                        }
                    }
                    std::vector<uint8_t> ref = fast;
                    uint8_t* base = fast.data() + kSkew;
                    set.pfnMixin(base + t * block, base + block, frames, c);
                    MixinFramesRef(ref.data() + kSkew + t * block, ref.data() + kSkew + block, frames, c);
                    ASSERT_EQ(ref, fast);
                    if (t == 0 && c > 0) {  // the group alone in its allocation: nothing past it is read
                        std::vector<uint8_t> group(base + block, base + (c + 1) * block), one(block),
                            oneRef(block);
                        set.pfnMixin(one.data(), group.data(), frames, c);
                        MixinFramesRef(oneRef.data(), group.data(), frames, c);
                        ASSERT_EQ(oneRef, one);
                    }
                }
            }
        }
    }
}

// Every sum a frame can reach, extremes included, for every group size: the quotient
// equals the integer division truncated toward zero (the specialised kernels divide by
// multiplying).
TEST(ChannelKernels, MixinQuotientIsExactForEveryReachableSum) {
    for (const ChannelKernelSet& set : KernelsUnderTest()) {
        for (uint32_t c = 1; c <= kMaxCnt; c++) {
            SCOPED_TRACE(testing::Message() << set.pcName << " c=" << c);
            const int32_t lo = -32768 * int32_t(c + 1), hi = 32767 * int32_t(c + 1);
            const uint32_t frames = uint32_t(hi - lo + 1);
            std::vector<int16_t> target(frames), group(size_t(frames) * c);
            for (uint32_t f = 0; f < frames; f++) {
                int32_t rest = lo + int32_t(f);
                auto take = [&rest]() {
                    int32_t v = rest < -32768 ? -32768 : (rest > 32767 ? 32767 : rest);
                    rest -= v;
                    return int16_t(v);
                };
                target[f] = take();
                for (uint32_t j = 0; j < c; j++) {
                    group[size_t(f) * c + j] = take();
                }
            }
            set.pfnMixin(reinterpret_cast<uint8_t*>(target.data()),
                         reinterpret_cast<const uint8_t*>(group.data()), frames, c);
            for (uint32_t f = 0; f < frames; f++) {
                const int32_t sum = lo + int32_t(f);
                if (target[f] != sum / int32_t(c + 1)) {
                    FAIL() << "sum " << sum << " gave " << target[f];
                }
            }
        }
    }
}

// The nodes run the processor's own vector kernels: NEON on every arm64 processor,
// AVX-512 or else AVX2 on x86-64 processors that have it.
TEST(ChannelKernels, NodesRunThisProcessorsVectorSet) {
    uint32_t u32Count = 0;
    const ChannelKernelSet* pSets = ChannelKernelSets(&u32Count);
    ASSERT_GE(u32Count, 1u);
    EXPECT_STREQ("portable", pSets[0].pcName);
#if defined(__aarch64__)
    EXPECT_STREQ("neon", pSets[u32Count - 1].pcName);
#elif defined(__x86_64__)
    const bool bAvx512 = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                         __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi") &&
                         __builtin_cpu_supports("avx512vnni");
    const char* pcBest = bAvx512 ? "avx512" : __builtin_cpu_supports("avx2") ? "avx2" : "portable";
    EXPECT_STREQ(pcBest, pSets[u32Count - 1].pcName);
#endif
}

// The completion copies around a group: the blocks before and after it come from pIn,
// the group's own bytes stay as the node wrote them; a group at either edge of the
// period copies nothing on that side. The threshold between the two ways is exact.
TEST(ChannelKernels, CompleteAroundGroupCopiesTheRest) {
    const size_t block = 4;
    const struct {
        uint32_t offset, cnt, chn;
    } cases[] = {{2, 4, 8}, {0, 4, 8}, {4, 4, 8}, {0, 8, 8}, {1, 1, 3}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "offset " << c.offset << ", cnt " << c.cnt << ", chn " << c.chn);
        std::vector<uint8_t> in(c.chn * block + 1), out(in.size());
        for (size_t i = 0; i < in.size(); i++) {
            in[i] = static_cast<uint8_t>(i);
            out[i] = static_cast<uint8_t>(200 + i % 50);
        }
        std::vector<uint8_t> expect = in;
        std::memcpy(&expect[c.offset * block], &out[c.offset * block], c.cnt * block);
        expect.back() = out.back();  // past the period: untouched
        CompleteAroundGroup(in.data(), out.data(), c.offset, c.cnt, c.chn, block);
        EXPECT_EQ(expect, out);
    }
    const struct {
        uint32_t cnt, chn;
        bool inPlace;
    } thresholds[] = {{2, 8, true}, {3, 8, true}, {4, 8, false}, {3, 7, false}, {2, 7, true}, {1, 2, false}};
    for (const auto& t : thresholds) {
        EXPECT_EQ(t.inPlace, GroupStaysInPlace(t.cnt, t.chn)) << t.cnt << " of " << t.chn;
    }
}

}  // namespace
