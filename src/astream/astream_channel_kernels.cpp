#include "astream_channel_kernels.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <type_traits>
#include <utility>

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "samples are little-endian and copied as they lie");

namespace audiomw {
namespace astream {

namespace {

constexpr uint32_t kSampleBytes = 2;

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
// frames as a 16-byte vector has lanes is a whole number of vectors for any channel
// count, so each output vector of a chunk is a fixed gather of lanes from the chunk's
// input vectors. The gather is a chain of two-input shuffles, one per input vector that
// contributes lanes, every index computed at compile time; the compiler turns the chain
// into the target's permutes. Lanes are moved as they are, so the result equals the
// reference bit for bit. Frames past the last whole chunk take the scalar copies.
//
// Which shapes take the vector path is a measured choice. On x86-64 with its SSE2
// baseline, 32-bit lane permutes are cheap, while 16-bit ones are cheap only as the
// even/odd selections of 1 + 1 channels (and of mixin's planar sums over 1 or 2
// channels); other 16-bit shapes, and outputs gathered from more inputs than kMaxInputs,
// run faster as per-frame copies of constant size.

struct Unit16 {
    typedef int16_t V __attribute__((vector_size(16)));
    static constexpr int kLanes = 8;
    static constexpr uint32_t kSamples = 1;
    static constexpr int kMaxInputs = 3;  // beyond, lane inserts cost more than scalar copies
};

struct Unit32 {
    typedef int32_t V __attribute__((vector_size(16)));
    static constexpr int kLanes = 4;
    static constexpr uint32_t kSamples = 2;
    static constexpr int kMaxInputs = 4;
};

template <uint32_t A, uint32_t B>
using UnitFor = typename std::conditional<A % 2 == 0 && B % 2 == 0, Unit32, Unit16>::type;

// Whether a split or merge of A + B channels in unit U uses the vector path at all.
template <typename U, uint32_t A, uint32_t B>
constexpr bool VectorShape() {
    return std::is_same<U, Unit32>::value || (A == 1 && B == 1);
}

constexpr bool VectorMixin(uint32_t u32Cnt) {
    return u32Cnt >= 1 && u32Cnt <= 2;
}

template <typename V>
inline V LoadV(const uint8_t* p) {
    V v;
    std::memcpy(&v, p, sizeof(v));
    return v;
}

template <typename V>
inline void StoreV(uint8_t* p, V v) {
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
inline V FirstTwo(V v0, V v1, std::index_sequence<K...>) {
    return __builtin_shufflevector(v0, v1,
                                   (SrcVec<M>(J, K) == P0   ? SrcLane<M>(J, K)
                                    : SrcVec<M>(J, K) == P1 ? M::kL + SrcLane<M>(J, K)
                                                            : int(K))...);
}

// Later steps: lanes from input P replace their places in r.
template <typename M, typename V, int J, int P, size_t... K>
inline V TakeLanes(V r, V v, std::index_sequence<K...>) {
    return __builtin_shufflevector(r, v, (SrcVec<M>(J, K) == P ? M::kL + SrcLane<M>(J, K) : int(K))...);
}

template <typename M, typename V, int J, size_t... I>
inline V TakeRest(const V* pIn, V r, std::index_sequence<I...>) {
    (void)pIn;  // unused when the sequence is empty
    ((r = TakeLanes<M, V, J, UsedInput<M>(J, int(I) + 2)>(r, pIn[UsedInput<M>(J, int(I) + 2)],
                                                          std::make_index_sequence<M::kL>())),
     ...);
    return r;
}

template <typename M, typename V, int J>
inline V Gather(const V* pIn) {
    constexpr int kUsed = UsedCount<M>(J);
    constexpr int kP0 = UsedInput<M>(J, 0);
    constexpr int kP1 = kUsed > 1 ? UsedInput<M>(J, 1) : kP0;
    V r = FirstTwo<M, V, J, kP0, kP1>(pIn[kP0], pIn[kP1], std::make_index_sequence<M::kL>());
    return TakeRest<M, V, J>(pIn, r, std::make_index_sequence<(kUsed > 2 ? kUsed - 2 : 0)>());
}

template <typename M, typename V, size_t... J>
inline void GatherStore(const V* pIn, uint8_t* pDst, std::index_sequence<J...>) {
    (void)pIn;  // unused when the sequence is empty
    (void)pDst;
    ((StoreV(pDst + sizeof(V) * J, Gather<M, V, int(J)>(pIn))), ...);
}

template <typename M, typename V, size_t... J>
inline void GatherTo(const V* pIn, V* pOut, std::index_sequence<J...>) {
    (void)pIn;  // unused when the sequence is empty
    (void)pOut;
    ((pOut[J] = Gather<M, V, int(J)>(pIn)), ...);
}

template <typename V, size_t... I>
inline void LoadAll(const uint8_t* pSrc, V* pOut, std::index_sequence<I...>) {
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

// Channel j of C-sample frames, as one vector of 8 frames.
template <int C>
struct PlanarMap {
    static constexpr int kL = Unit16::kLanes;
    static constexpr int Src(int j, int k) { return k * C + j; }
};

// Copies frames [f, f + n) of the Cnt samples at channel Off of N-sample frames.
template <uint32_t N, uint32_t Off, uint32_t Cnt>
inline void CopyFrames(const uint8_t* pSrc, uint8_t* pDst, uint32_t f, uint32_t n) {
    for (uint32_t i = f; i < f + n; i++) {
        std::memcpy(pDst + kSampleBytes * Cnt * i, pSrc + kSampleBytes * (N * i + Off), kSampleBytes * Cnt);
    }
}

// Copies frames [f, f + n) of Cnt-sample frames into channel Off of N-sample frames.
template <uint32_t N, uint32_t Off, uint32_t Cnt>
inline void PlaceFrames(const uint8_t* pSrc, uint8_t* pDst, uint32_t f, uint32_t n) {
    for (uint32_t i = f; i < f + n; i++) {
        std::memcpy(pDst + kSampleBytes * (N * i + Off), pSrc + kSampleBytes * Cnt * i, kSampleBytes * Cnt);
    }
}

template <uint32_t A, uint32_t B>
void SplitFixed(const uint8_t* __restrict pSrc, uint8_t* __restrict pDstA, uint8_t* __restrict pDstB,
                uint32_t u32Frames) {
    using U = UnitFor<A, B>;
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

template <uint32_t A, uint32_t B>
void MergeFixed(const uint8_t* __restrict pSrcA, const uint8_t* __restrict pSrcB, uint8_t* __restrict pDst,
                uint32_t u32Frames) {
    using U = UnitFor<A, B>;
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

typedef Unit16::V V8;
typedef float F4 __attribute__((vector_size(16)));
typedef int32_t I4 __attribute__((vector_size(16)));

inline F4 ToFloat(V8 v, bool bHigh) {
    I4 i4 = bHigh ? I4{v[4], v[5], v[6], v[7]} : I4{v[0], v[1], v[2], v[3]};
    return __builtin_convertvector(i4, F4);
}

template <size_t... J>
inline void SumPlanar(const V8* pPlanar, F4& lo, F4& hi, std::index_sequence<J...>) {
    (void)pPlanar;  // unused when the sequence is empty
    ((lo += ToFloat(pPlanar[J], false), hi += ToFloat(pPlanar[J], true)), ...);
}

// The division by c + 1 as a multiplication by 1 / (c + 1) rounded up, truncated: exact
// for every sum of up to 21 16-bit samples (|sum| < 2^20 is exact in a float, and the
// product's error stays far below the 1 / (c + 1) gap to the next integer). The tests
// check every reachable sum against the integer division.
template <int C>
inline float Reciprocal() {
    return std::nextafter(1.0f / float(C + 1), 2.0f);
}

// Target and group do not overlap here, so the frames are independent.
template <uint32_t C>
void MixinFixed(uint8_t* __restrict pTarget, const uint8_t* __restrict pGroup, uint32_t u32Frames) {
    constexpr int kLanes = Unit16::kLanes;
    const float fScale = Reciprocal<int(C)>();
    uint32_t f = 0;
    for (; VectorMixin(C) && f + kLanes <= u32Frames; f += kLanes) {
        V8 av[C > 0 ? C : 1];
        V8 planar[C > 0 ? C : 1];
        LoadAll(pGroup + kSampleBytes * C * f, av, std::make_index_sequence<C>());
        GatherTo<PlanarMap<int(C)>>(av, planar, std::make_index_sequence<C>());
        V8 target = LoadV<V8>(pTarget + kSampleBytes * f);
        F4 lo = ToFloat(target, false);
        F4 hi = ToFloat(target, true);
        SumPlanar(planar, lo, hi, std::make_index_sequence<C>());
        I4 qlo = __builtin_convertvector(lo * fScale, I4);
        I4 qhi = __builtin_convertvector(hi * fScale, I4);
        V8 q = {int16_t(qlo[0]), int16_t(qlo[1]), int16_t(qlo[2]), int16_t(qlo[3]),
                int16_t(qhi[0]), int16_t(qhi[1]), int16_t(qhi[2]), int16_t(qhi[3])};
        StoreV(pTarget + kSampleBytes * f, q);
    }
    for (; f < u32Frames; f++) {
        int32_t s32Sum = Load16(pTarget + kSampleBytes * f);
        for (uint32_t j = 0; j < C; j++) {
            s32Sum += Load16(pGroup + kSampleBytes * (C * f + j));
        }
        Store16(pTarget + kSampleBytes * f, s32Sum / static_cast<int32_t>(C + 1));
    }
}

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

// Indexed by a * (kFixedMax + 1) + b, and by c.
constexpr std::array<SplitFn, kPairs> kSplitTable = MakeSplitTable(std::make_index_sequence<kPairs>());
constexpr std::array<MergeFn, kPairs> kMergeTable = MakeMergeTable(std::make_index_sequence<kPairs>());
constexpr std::array<MixinFn, kFixedMax + 1> kMixinTable =
    MakeMixinTable(std::make_index_sequence<kFixedMax + 1>());

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

void SplitFrames(const uint8_t* pSrc, uint8_t* pDstA, uint8_t* pDstB, uint32_t u32Frames, uint32_t u32CntA,
                 uint32_t u32CntB) {
    if (u32CntA <= kFixedMax && u32CntB <= kFixedMax) {
        kSplitTable[u32CntA * (kFixedMax + 1) + u32CntB](pSrc, pDstA, pDstB, u32Frames);
    } else {
        SplitFramesRef(pSrc, pDstA, pDstB, u32Frames, u32CntA, u32CntB);
    }
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
    if (u32CntA <= kFixedMax && u32CntB <= kFixedMax) {
        kMergeTable[u32CntA * (kFixedMax + 1) + u32CntB](pSrcA, pSrcB, pDst, u32Frames);
    } else {
        MergeFramesRef(pSrcA, pSrcB, pDst, u32Frames, u32CntA, u32CntB);
    }
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

void MixinFrames(uint8_t* pTarget, const uint8_t* pGroup, uint32_t u32Frames, uint32_t u32Cnt) {
    const size_t u32TargetLen = static_cast<size_t>(u32Frames) * kSampleBytes;
    const size_t u32GroupLen = u32TargetLen * u32Cnt;
    if (u32Cnt == 0 || u32Cnt > kFixedMax || Overlap(pTarget, u32TargetLen, pGroup, u32GroupLen)) {
        MixinFramesRef(pTarget, pGroup, u32Frames, u32Cnt);
    } else {
        kMixinTable[u32Cnt](pTarget, pGroup, u32Frames);
    }
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
