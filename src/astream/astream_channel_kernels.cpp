#include "astream_channel_kernels.h"

#include <array>
#include <cstddef>
#include <cstring>
#include <type_traits>
#include <utility>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "samples are little-endian and copied as they lie");

namespace audiomw {
namespace astream {

namespace {

constexpr uint32_t kSampleBytes = 2;

// The kernels' helpers are always inlined, so that a kernel compiled for a wider
// instruction set (below, AVX2 on x86-64) carries them in that set too.
#define KERNEL_INLINE inline __attribute__((always_inline))

// The helpers also take 256-bit vectors; they are only ever inlined into AVX2 kernels,
// so the calling convention GCC warns about for such arguments is never used.
#pragma GCC diagnostic ignored "-Wpsabi"

// Channel counts up to this value get a kernel with the counts fixed at compile time:
// copies of constant size, and vector permutes for the shapes below.
constexpr uint32_t kFixedMax = 8;

inline int32_t Load16(const uint8_t* p) {
    int16_t s16;
    std::memcpy(&s16, p, sizeof(s16));
    return s16;
}

inline void Store16(uint8_t* p, int32_t s32) {
    int16_t s16 = static_cast<int16_t>(s32);
    std::memcpy(p, &s16, sizeof(s16));
}

// ---- Vector kernels -------------------------------------------------------------------
//
// Samples move in units of 1 or 2 samples (16 or 32 bits); 32-bit lanes when both
// channel counts are even, so that each lane moves two samples. A chunk of as many
// frames as a vector has lanes is a whole number of vectors for any channel count, so
// each output vector of a chunk is a fixed gather of lanes from the chunk's input
// vectors. The gather is a chain of two-input shuffles, one per input vector that
// contributes lanes, every index computed at compile time; the compiler turns the chain
// into the target's permutes. Lanes are moved as they are, so the result equals the
// reference bit for bit. Frames past the last whole chunk take the scalar copies.
//
// Vectors are 16 bytes in the portable build and 32 bytes in the AVX2 build (x86-64
// processors that run it). Which shapes take the vector path is a measured choice. With
// the SSE2 baseline, 32-bit lane permutes are cheap, while 16-bit ones are cheap only as
// the even/odd selections of 1 + 1 channels; other 16-bit shapes, and outputs gathered
// from more inputs than kMaxInputs, run faster as per-frame copies of constant size.
// AVX2's byte shuffles make every 16-bit gather cheaper than the copies.
template <int Bytes>
struct Unit16 {
    typedef int16_t V __attribute__((vector_size(Bytes)));
    static constexpr int kLanes = Bytes / 2;
    static constexpr uint32_t kSamples = 1;
    static constexpr bool kAnyShape = Bytes == 32;
    static constexpr int kMaxInputs = kAnyShape ? 8 : 3;
};

template <int Bytes>
struct Unit32 {
    typedef int32_t V __attribute__((vector_size(Bytes)));
    static constexpr int kLanes = Bytes / 4;
    static constexpr uint32_t kSamples = 2;
    static constexpr bool kAnyShape = true;
    static constexpr int kMaxInputs = 4;
};

// Units of vectors of `Bytes` bytes for frames of A + B channels.
template <uint32_t A, uint32_t B, int Bytes>
using UnitFor = typename std::conditional<A % 2 == 0 && B % 2 == 0, Unit32<Bytes>, Unit16<Bytes>>::type;

// Whether a split or merge of A + B channels in unit U uses the vector path at all.
template <typename U, uint32_t A, uint32_t B>
constexpr bool VectorShape() {
    return U::kAnyShape || (A == 1 && B == 1);
}

template <typename V>
KERNEL_INLINE V LoadV(const uint8_t* p) {
    V v;
    std::memcpy(&v, p, sizeof(v));
    return v;
}

template <typename V>
KERNEL_INLINE void StoreV(uint8_t* p, V v) {
    std::memcpy(p, &v, sizeof(v));
}

// A gather map M: lane k of output vector j takes input unit M::Src(j, k), that is lane
// Src % L of input vector Src / L, for L = M::kL lanes.
template <typename M>
constexpr int SrcVec(int j, int k) {
    return M::Src(j, k) / M::kL;
}

template <typename M>
constexpr int SrcLane(int j, int k) {
    return M::Src(j, k) % M::kL;
}

// The i-th distinct input vector output vector j draws from, in lane order; -1 past
// the last.
template <typename M>
constexpr int UsedInput(int j, int i) {
    int s32Seen = 0;
    for (int k = 0; k < M::kL; k++) {
        bool bNew = true;
        for (int m = 0; m < k; m++) {
            bNew = bNew && SrcVec<M>(j, m) != SrcVec<M>(j, k);
        }
        if (bNew && s32Seen++ == i) {
            return SrcVec<M>(j, k);
        }
    }
    return -1;
}

template <typename M>
constexpr int UsedCount(int j) {
    int n = 0;
    while (UsedInput<M>(j, n) >= 0) {
        n++;
    }
    return n;
}

// The most input vectors any of the first `count` output vectors draws from.
template <typename M>
constexpr int MaxUsed(int count) {
    int n = 0;
    for (int j = 0; j < count; j++) {
        n = UsedCount<M>(j) > n ? UsedCount<M>(j) : n;
    }
    return n;
}

// First step: lanes from the first two inputs in one two-input shuffle.
template <typename M, typename V, int J, int P0, int P1, size_t... K>
KERNEL_INLINE V FirstTwo(V v0, V v1, std::index_sequence<K...>) {
    return __builtin_shufflevector(v0, v1,
                                   (SrcVec<M>(J, K) == P0   ? SrcLane<M>(J, K)
                                    : SrcVec<M>(J, K) == P1 ? M::kL + SrcLane<M>(J, K)
                                                            : int(K))...);
}

// Later steps: lanes from input P replace their places in r.
template <typename M, typename V, int J, int P, size_t... K>
KERNEL_INLINE V TakeLanes(V r, V v, std::index_sequence<K...>) {
    return __builtin_shufflevector(r, v, (SrcVec<M>(J, K) == P ? M::kL + SrcLane<M>(J, K) : int(K))...);
}

template <typename M, typename V, int J, size_t... I>
KERNEL_INLINE V TakeRest(const V* pIn, V r, std::index_sequence<I...>) {
    (void)pIn;  // unused when the sequence is empty
    ((r = TakeLanes<M, V, J, UsedInput<M>(J, int(I) + 2)>(r, pIn[UsedInput<M>(J, int(I) + 2)],
                                                          std::make_index_sequence<M::kL>())),
     ...);
    return r;
}

template <typename M, typename V, int J>
KERNEL_INLINE V Gather(const V* pIn) {
    constexpr int kUsed = UsedCount<M>(J);
    constexpr int kP0 = UsedInput<M>(J, 0);
    constexpr int kP1 = kUsed > 1 ? UsedInput<M>(J, 1) : kP0;
    V r = FirstTwo<M, V, J, kP0, kP1>(pIn[kP0], pIn[kP1], std::make_index_sequence<M::kL>());
    return TakeRest<M, V, J>(pIn, r, std::make_index_sequence<(kUsed > 2 ? kUsed - 2 : 0)>());
}

template <typename M, typename V, size_t... J>
KERNEL_INLINE void GatherStore(const V* pIn, uint8_t* pDst, std::index_sequence<J...>) {
    (void)pIn;  // unused when the sequence is empty
    (void)pDst;
    ((StoreV(pDst + sizeof(V) * J, Gather<M, V, int(J)>(pIn))), ...);
}

template <typename V, size_t... I>
KERNEL_INLINE void LoadAll(const uint8_t* pSrc, V* pOut, std::index_sequence<I...>) {
    (void)pSrc;  // unused when the sequence is empty
    (void)pOut;
    ((pOut[I] = LoadV<V>(pSrc + sizeof(V) * I)), ...);
}

// Split of N-unit frames: the stream of Cnt units from unit Off of each frame. (Counts
// of 0 never reach Src; the guards keep the unused instances free of a division by 0.)
template <int L, int N, int Off, int Cnt>
struct SplitMap {
    static constexpr int kL = L;
    static constexpr int kCnt = Cnt > 0 ? Cnt : 1;
    static constexpr int Src(int j, int k) { return ((j * L + k) / kCnt) * N + Off + (j * L + k) % kCnt; }
};

// Merge into (A + B)-unit frames from A's vectors followed by B's.
template <int L, int A, int B>
struct MergeMap {
    static constexpr int kL = L;
    static constexpr int kN = A + B > 0 ? A + B : 1;
    static constexpr int Src(int j, int k) {
        return ((j * L + k) % kN) < A ? ((j * L + k) / kN) * A + (j * L + k) % kN
                                      : L * A + ((j * L + k) / kN) * B + (j * L + k) % kN - A;
    }
};

// Copies frames [f, f + n) of the Cnt samples at channel Off of N-sample frames.
template <uint32_t N, uint32_t Off, uint32_t Cnt>
KERNEL_INLINE void CopyFrames(const uint8_t* pSrc, uint8_t* pDst, uint32_t f, uint32_t n) {
    for (uint32_t i = f; i < f + n; i++) {
        std::memcpy(pDst + kSampleBytes * Cnt * i, pSrc + kSampleBytes * (N * i + Off), kSampleBytes * Cnt);
    }
}

// Copies frames [f, f + n) of Cnt-sample frames into channel Off of N-sample frames.
template <uint32_t N, uint32_t Off, uint32_t Cnt>
KERNEL_INLINE void PlaceFrames(const uint8_t* pSrc, uint8_t* pDst, uint32_t f, uint32_t n) {
    for (uint32_t i = f; i < f + n; i++) {
        std::memcpy(pDst + kSampleBytes * (N * i + Off), pSrc + kSampleBytes * Cnt * i, kSampleBytes * Cnt);
    }
}

template <uint32_t A, uint32_t B, int Bytes>
KERNEL_INLINE void SplitBody(const uint8_t* __restrict pSrc, uint8_t* __restrict pDstA,
                             uint8_t* __restrict pDstB, uint32_t u32Frames) {
    using U = UnitFor<A, B, Bytes>;
    using V = typename U::V;
    constexpr uint32_t N = A + B;
    constexpr int kA = int(A / U::kSamples);
    constexpr int kB = int(B / U::kSamples);
    using MapA = SplitMap<U::kLanes, kA + kB, 0, kA>;
    using MapB = SplitMap<U::kLanes, kA + kB, kA, kB>;
    constexpr bool kVectorA = VectorShape<U, A, B>() && MaxUsed<MapA>(kA) <= U::kMaxInputs;
    constexpr bool kVectorB = VectorShape<U, A, B>() && MaxUsed<MapB>(kB) <= U::kMaxInputs;
    constexpr uint32_t kChunk = U::kLanes;
    uint32_t f = 0;
    for (; f + kChunk <= u32Frames; f += kChunk) {
        V av[kA + kB > 0 ? kA + kB : 1];
        LoadAll(pSrc + kSampleBytes * N * f, av, std::make_index_sequence<kA + kB>());
        if (kVectorA) {
            GatherStore<MapA>(av, pDstA + kSampleBytes * A * f, std::make_index_sequence<kA>());
        } else {
            CopyFrames<N, 0, A>(pSrc, pDstA, f, kChunk);
        }
        if (kVectorB) {
            GatherStore<MapB>(av, pDstB + kSampleBytes * B * f, std::make_index_sequence<kB>());
        } else {
            CopyFrames<N, A, B>(pSrc, pDstB, f, kChunk);
        }
    }
    CopyFrames<N, 0, A>(pSrc, pDstA, f, u32Frames - f);
    CopyFrames<N, A, B>(pSrc, pDstB, f, u32Frames - f);
}

template <uint32_t A, uint32_t B, int Bytes>
KERNEL_INLINE void MergeBody(const uint8_t* __restrict pSrcA, const uint8_t* __restrict pSrcB,
                             uint8_t* __restrict pDst, uint32_t u32Frames) {
    using U = UnitFor<A, B, Bytes>;
    using V = typename U::V;
    constexpr uint32_t N = A + B;
    constexpr int kA = int(A / U::kSamples);
    constexpr int kB = int(B / U::kSamples);
    using Map = MergeMap<U::kLanes, kA, kB>;
    constexpr bool kVector = VectorShape<U, A, B>() && MaxUsed<Map>(kA + kB) <= U::kMaxInputs;
    constexpr uint32_t kChunk = U::kLanes;
    uint32_t f = 0;
    for (; kVector && f + kChunk <= u32Frames; f += kChunk) {
        V av[kA + kB > 0 ? kA + kB : 1];
        LoadAll(pSrcA + kSampleBytes * A * f, av, std::make_index_sequence<kA>());
        LoadAll(pSrcB + kSampleBytes * B * f, av + kA, std::make_index_sequence<kB>());
        GatherStore<Map>(av, pDst + kSampleBytes * N * f, std::make_index_sequence<kA + kB>());
    }
    PlaceFrames<N, 0, A>(pSrcA, pDst, f, u32Frames - f);
    PlaceFrames<N, A, B>(pSrcB, pDst, f, u32Frames - f);
}

template <uint32_t A, uint32_t B>
void SplitFixed(const uint8_t* pSrc, uint8_t* pDstA, uint8_t* pDstB, uint32_t u32Frames) {
    SplitBody<A, B, 16>(pSrc, pDstA, pDstB, u32Frames);
}

template <uint32_t A, uint32_t B>
void MergeFixed(const uint8_t* pSrcA, const uint8_t* pSrcB, uint8_t* pDst, uint32_t u32Frames) {
    MergeBody<A, B, 16>(pSrcA, pSrcB, pDst, u32Frames);
}

#if defined(__x86_64__)
// The same kernels with AVX2 (and the SSSE3 byte shuffles it includes) at the compiler's
// disposal for the gathers.
template <uint32_t A, uint32_t B>
__attribute__((target("avx2"))) void SplitFixedAvx2(const uint8_t* pSrc, uint8_t* pDstA, uint8_t* pDstB,
                                                    uint32_t u32Frames) {
    SplitBody<A, B, 32>(pSrc, pDstA, pDstB, u32Frames);
}

template <uint32_t A, uint32_t B>
__attribute__((target("avx2"))) void MergeFixedAvx2(const uint8_t* pSrcA, const uint8_t* pSrcB, uint8_t* pDst,
                                                    uint32_t u32Frames) {
    MergeBody<A, B, 32>(pSrcA, pSrcB, pDst, u32Frames);
}
#endif

// ---- Mixin ------------------------------------------------------------------------------
//
// Samples are addressed as 16-bit values of alignment 1, through non-overlapping
// pointers, so that the compiler vectorises the frame loop: the c loads of a frame become
// a de-interleave of the group and the quotient a multiply-high by the reciprocal of
// c + 1, which is the exact signed division truncating toward zero that the loop states.
typedef int16_t Sample __attribute__((aligned(1)));

template <uint32_t C, size_t... J>
inline __attribute__((always_inline)) int32_t FrameSum(const Sample* __restrict pGroup, size_t f,
                                                       std::index_sequence<J...>) {
    (void)pGroup;  // unused when the sequence is empty
    return (int32_t(0) + ... + int32_t(pGroup[C * f + J]));
}

template <uint32_t C>
inline __attribute__((always_inline)) void MixinLoop(Sample* __restrict pT, const Sample* __restrict pG,
                                                     size_t n) {
    for (size_t f = 0; f < n; f++) {
        const int32_t s32Sum = pT[f] + FrameSum<C>(pG, f, std::make_index_sequence<C>());
        pT[f] = static_cast<int16_t>(s32Sum / static_cast<int32_t>(C + 1));
    }
}

// Target and group do not overlap here, so the frames are independent.
template <uint32_t C>
void MixinFixed(uint8_t* pTarget, const uint8_t* pGroup, uint32_t u32Frames) {
    MixinLoop<C>(reinterpret_cast<Sample*>(pTarget), reinterpret_cast<const Sample*>(pGroup), u32Frames);
}

#if defined(__x86_64__)
typedef int32_t I8 __attribute__((vector_size(32)));

// Group sizes whose strided loads the vectoriser leaves scalar: each frame's c samples
// are read as one 16-byte row (samples past c weighted 0), pmaddwd adds them in pairs
// and two rounds of phaddd finish the rows, 8 frames per step. Rows read up to 16 bytes
// from the frame's start, so the frames whose row would pass the group's end take the
// loop above.
template <uint32_t C>
constexpr bool RowMixin() {
    return C >= 3 && C <= kFixedMax;
}

template <uint32_t C>
__attribute__((target("avx2"))) inline __m256i RowPair(const uint8_t* pGroup, size_t f, __m256i weights) {
    const __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pGroup + kSampleBytes * C * f));
    const __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pGroup + kSampleBytes * C * (f + 4)));
    return _mm256_madd_epi16(_mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1), weights);
}

template <uint32_t C>
__attribute__((target("avx2"))) size_t MixinRowsAvx2(uint8_t* pTarget, const uint8_t* pGroup, size_t n) {
    alignas(32) int16_t as16Weights[16];
    for (uint32_t j = 0; j < 16; j++) {
        as16Weights[j] = (j % 8) < C ? 1 : 0;
    }
    const __m256i weights = _mm256_load_si256(reinterpret_cast<const __m256i*>(as16Weights));
    size_t f = 0;
    for (; f + 8 <= n && C * (f + 7) + 8 <= C * n; f += 8) {
        // Lane 0 holds frames f..f+3, lane 1 frames f+4..f+7.
        const __m256i h01 =
            _mm256_hadd_epi32(RowPair<C>(pGroup, f, weights), RowPair<C>(pGroup, f + 1, weights));
        const __m256i h23 =
            _mm256_hadd_epi32(RowPair<C>(pGroup, f + 2, weights), RowPair<C>(pGroup, f + 3, weights));
        const __m128i target = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pTarget + kSampleBytes * f));
        const I8 sum = I8(_mm256_add_epi32(_mm256_hadd_epi32(h01, h23), _mm256_cvtepi16_epi32(target)));
        const __m256i quotient = __m256i(sum / static_cast<int32_t>(C + 1));
        // Quotients fit 16 bits, so the saturating pack keeps them; it packs per lane.
        const __m256i packed = _mm256_permute4x64_epi64(_mm256_packs_epi32(quotient, quotient), 0x08);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(pTarget + kSampleBytes * f),
                         _mm256_castsi256_si128(packed));
    }
    return f;
}

// Two channels: pmaddwd against ones sums each frame's pair straight from the group,
// 16 frames per step.
__attribute__((target("avx2"))) size_t MixinPairsAvx2(uint8_t* pTarget, const uint8_t* pGroup, size_t n) {
    const __m256i ones = _mm256_set1_epi16(1);
    size_t f = 0;
    for (; f + 16 <= n; f += 16) {
        const uint8_t* pG = pGroup + kSampleBytes * 2 * f;
        const uint8_t* pT = pTarget + kSampleBytes * f;
        const __m256i g0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pG));
        const __m256i g1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pG + 32));
        const __m128i t0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pT));
        const __m128i t1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pT + 16));
        const I8 s0 = I8(_mm256_add_epi32(_mm256_madd_epi16(g0, ones), _mm256_cvtepi16_epi32(t0)));
        const I8 s1 = I8(_mm256_add_epi32(_mm256_madd_epi16(g1, ones), _mm256_cvtepi16_epi32(t1)));
        // The pack interleaves the two per 128-bit lane; the permute restores frame order.
        const __m256i packed = _mm256_packs_epi32(__m256i(s0 / 3), __m256i(s1 / 3));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(pTarget + kSampleBytes * f),
                            _mm256_permute4x64_epi64(packed, 0xD8));
    }
    return f;
}

// The same in 256-bit vectors, run when the processor has AVX2.
template <uint32_t C>
__attribute__((target("avx2"))) void MixinFixedAvx2(uint8_t* pTarget, const uint8_t* pGroup,
                                                    uint32_t u32Frames) {
    const size_t f = C == 2          ? MixinPairsAvx2(pTarget, pGroup, u32Frames)
                     : RowMixin<C>() ? MixinRowsAvx2<C>(pTarget, pGroup, u32Frames)
                                     : 0;
    MixinLoop<C>(reinterpret_cast<Sample*>(pTarget + kSampleBytes * f),
                 reinterpret_cast<const Sample*>(pGroup + kSampleBytes * C * f), u32Frames - f);
}
#endif

using SplitFn = void (*)(const uint8_t*, uint8_t*, uint8_t*, uint32_t);
using MergeFn = void (*)(const uint8_t*, const uint8_t*, uint8_t*, uint32_t);
using MixinFn = void (*)(uint8_t*, const uint8_t*, uint32_t);

constexpr size_t kPairs = (kFixedMax + 1) * (kFixedMax + 1);

template <size_t... I>
constexpr std::array<SplitFn, sizeof...(I)> MakeSplitTable(std::index_sequence<I...>) {
    return {{&SplitFixed<I / (kFixedMax + 1), I % (kFixedMax + 1)>...}};
}

template <size_t... I>
constexpr std::array<MergeFn, sizeof...(I)> MakeMergeTable(std::index_sequence<I...>) {
    return {{&MergeFixed<I / (kFixedMax + 1), I % (kFixedMax + 1)>...}};
}

template <size_t... I>
constexpr std::array<MixinFn, sizeof...(I)> MakeMixinTable(std::index_sequence<I...>) {
    return {{&MixinFixed<I>...}};
}

#if defined(__x86_64__)
template <size_t... I>
constexpr std::array<SplitFn, sizeof...(I)> MakeSplitAvx2Table(std::index_sequence<I...>) {
    return {{&SplitFixedAvx2<I / (kFixedMax + 1), I % (kFixedMax + 1)>...}};
}

template <size_t... I>
constexpr std::array<MergeFn, sizeof...(I)> MakeMergeAvx2Table(std::index_sequence<I...>) {
    return {{&MergeFixedAvx2<I / (kFixedMax + 1), I % (kFixedMax + 1)>...}};
}

template <size_t... I>
constexpr std::array<MixinFn, sizeof...(I)> MakeMixinAvx2Table(std::index_sequence<I...>) {
    return {{&MixinFixedAvx2<I>...}};
}
#endif

// Indexed by a * (kFixedMax + 1) + b, and by c.
constexpr std::array<SplitFn, kPairs> kSplitTable = MakeSplitTable(std::make_index_sequence<kPairs>());
constexpr std::array<MergeFn, kPairs> kMergeTable = MakeMergeTable(std::make_index_sequence<kPairs>());
constexpr std::array<MixinFn, kFixedMax + 1> kMixinTable =
    MakeMixinTable(std::make_index_sequence<kFixedMax + 1>());
#if defined(__x86_64__)
constexpr std::array<SplitFn, kPairs> kSplitAvx2Table =
    MakeSplitAvx2Table(std::make_index_sequence<kPairs>());
constexpr std::array<MergeFn, kPairs> kMergeAvx2Table =
    MakeMergeAvx2Table(std::make_index_sequence<kPairs>());
constexpr std::array<MixinFn, kFixedMax + 1> kMixinAvx2Table =
    MakeMixinAvx2Table(std::make_index_sequence<kFixedMax + 1>());

bool HasAvx2() {
    static const bool bHas = [] {
        __builtin_cpu_init();
        return __builtin_cpu_supports("avx2") != 0;
    }();
    return bHas;
}
#endif

// The kernels for this processor.
const std::array<SplitFn, kPairs>& SplitTable() {
#if defined(__x86_64__)
    if (HasAvx2()) {
        return kSplitAvx2Table;
    }
#endif
    return kSplitTable;
}

const std::array<MergeFn, kPairs>& MergeTable() {
#if defined(__x86_64__)
    if (HasAvx2()) {
        return kMergeAvx2Table;
    }
#endif
    return kMergeTable;
}

const std::array<MixinFn, kFixedMax + 1>& MixinTable() {
#if defined(__x86_64__)
    if (HasAvx2()) {
        return kMixinAvx2Table;
    }
#endif
    return kMixinTable;
}

bool Overlap(const uint8_t* pA, size_t u32LenA, const uint8_t* pB, size_t u32LenB) {
    return pA < pB + u32LenB && pB < pA + u32LenA;
}

}  // namespace

void SplitFramesRef(const uint8_t* pSrc, uint8_t* pDstA, uint8_t* pDstB, uint32_t u32Frames, uint32_t u32CntA,
                    uint32_t u32CntB) {
    const size_t u32LenA = static_cast<size_t>(u32CntA) * kSampleBytes;
    const size_t u32LenB = static_cast<size_t>(u32CntB) * kSampleBytes;
    for (uint32_t f = 0; f < u32Frames; f++) {
        if (u32CntA > 0) {
            std::memcpy(pDstA, pSrc, u32LenA);
            pDstA += u32LenA;
            pSrc += u32LenA;
        }
        if (u32CntB > 0) {
            std::memcpy(pDstB, pSrc, u32LenB);
            pDstB += u32LenB;
            pSrc += u32LenB;
        }
    }
}

namespace {

void SplitWith(const std::array<SplitFn, kPairs>& table, const uint8_t* pSrc, uint8_t* pDstA, uint8_t* pDstB,
               uint32_t u32Frames, uint32_t u32CntA, uint32_t u32CntB) {
    if (u32CntA <= kFixedMax && u32CntB <= kFixedMax) {
        table[u32CntA * (kFixedMax + 1) + u32CntB](pSrc, pDstA, pDstB, u32Frames);
    } else {
        SplitFramesRef(pSrc, pDstA, pDstB, u32Frames, u32CntA, u32CntB);
    }
}

void MergeWith(const std::array<MergeFn, kPairs>& table, const uint8_t* pSrcA, const uint8_t* pSrcB,
               uint8_t* pDst, uint32_t u32Frames, uint32_t u32CntA, uint32_t u32CntB) {
    if (u32CntA <= kFixedMax && u32CntB <= kFixedMax) {
        table[u32CntA * (kFixedMax + 1) + u32CntB](pSrcA, pSrcB, pDst, u32Frames);
    } else {
        MergeFramesRef(pSrcA, pSrcB, pDst, u32Frames, u32CntA, u32CntB);
    }
}

}  // namespace

void SplitFrames(const uint8_t* pSrc, uint8_t* pDstA, uint8_t* pDstB, uint32_t u32Frames, uint32_t u32CntA,
                 uint32_t u32CntB) {
    SplitWith(SplitTable(), pSrc, pDstA, pDstB, u32Frames, u32CntA, u32CntB);
}

void SplitFramesPortable(const uint8_t* pSrc, uint8_t* pDstA, uint8_t* pDstB, uint32_t u32Frames,
                         uint32_t u32CntA, uint32_t u32CntB) {
    SplitWith(kSplitTable, pSrc, pDstA, pDstB, u32Frames, u32CntA, u32CntB);
}

void MergeFramesRef(const uint8_t* pSrcA, const uint8_t* pSrcB, uint8_t* pDst, uint32_t u32Frames,
                    uint32_t u32CntA, uint32_t u32CntB) {
    const size_t u32LenA = static_cast<size_t>(u32CntA) * kSampleBytes;
    const size_t u32LenB = static_cast<size_t>(u32CntB) * kSampleBytes;
    for (uint32_t f = 0; f < u32Frames; f++) {
        if (u32CntA > 0) {
            std::memcpy(pDst, pSrcA, u32LenA);
            pDst += u32LenA;
            pSrcA += u32LenA;
        }
        if (u32CntB > 0) {
            std::memcpy(pDst, pSrcB, u32LenB);
            pDst += u32LenB;
            pSrcB += u32LenB;
        }
    }
}

void MergeFrames(const uint8_t* pSrcA, const uint8_t* pSrcB, uint8_t* pDst, uint32_t u32Frames,
                 uint32_t u32CntA, uint32_t u32CntB) {
    MergeWith(MergeTable(), pSrcA, pSrcB, pDst, u32Frames, u32CntA, u32CntB);
}

void MergeFramesPortable(const uint8_t* pSrcA, const uint8_t* pSrcB, uint8_t* pDst, uint32_t u32Frames,
                         uint32_t u32CntA, uint32_t u32CntB) {
    MergeWith(kMergeTable, pSrcA, pSrcB, pDst, u32Frames, u32CntA, u32CntB);
}

void MixinFramesRef(uint8_t* pTarget, const uint8_t* pGroup, uint32_t u32Frames, uint32_t u32Cnt) {
    if (u32Cnt == 0) {
        return;
    }
    const int32_t s32Div = static_cast<int32_t>(u32Cnt) + 1;
    for (uint32_t f = 0; f < u32Frames; f++) {
        int32_t s32Sum = Load16(pTarget);
        for (uint32_t j = 0; j < u32Cnt; j++) {
            s32Sum += Load16(pGroup);
            pGroup += kSampleBytes;
        }
        Store16(pTarget, s32Sum / s32Div);
        pTarget += kSampleBytes;
    }
}

namespace {

void MixinWith(const std::array<MixinFn, kFixedMax + 1>& table, uint8_t* pTarget, const uint8_t* pGroup,
               uint32_t u32Frames, uint32_t u32Cnt) {
    const size_t u32TargetLen = static_cast<size_t>(u32Frames) * kSampleBytes;
    const size_t u32GroupLen = u32TargetLen * u32Cnt;
    if (u32Cnt == 0 || u32Cnt > kFixedMax || Overlap(pTarget, u32TargetLen, pGroup, u32GroupLen)) {
        MixinFramesRef(pTarget, pGroup, u32Frames, u32Cnt);
    } else {
        table[u32Cnt](pTarget, pGroup, u32Frames);
    }
}

}  // namespace

void MixinFramesPortable(uint8_t* pTarget, const uint8_t* pGroup, uint32_t u32Frames, uint32_t u32Cnt) {
    MixinWith(kMixinTable, pTarget, pGroup, u32Frames, u32Cnt);
}

void MixinFrames(uint8_t* pTarget, const uint8_t* pGroup, uint32_t u32Frames, uint32_t u32Cnt) {
    MixinWith(MixinTable(), pTarget, pGroup, u32Frames, u32Cnt);
}

bool CompleteGroupRewrite(uint8_t* pIn, uint8_t* pOut, uint32_t u32Offset, uint32_t u32Cnt, uint32_t u32Chn,
                          size_t u32Block) {
    const size_t u32GroupStart = u32Offset * u32Block;
    const size_t u32GroupEnd = (static_cast<size_t>(u32Offset) + u32Cnt) * u32Block;
    if (u32Cnt < (u32Chn >> 1)) {
        std::memcpy(pIn + u32GroupStart, pOut + u32GroupStart, u32GroupEnd - u32GroupStart);
        return true;
    }
    std::memcpy(pOut, pIn, u32GroupStart);
    std::memcpy(pOut + u32GroupEnd, pIn + u32GroupEnd, u32Chn * u32Block - u32GroupEnd);
    return false;
}

}  // namespace astream
}  // namespace audiomw
