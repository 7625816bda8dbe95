// Channel kernels with the channel counts fixed at compile time, written once over an
// instruction set's traits and included by the file of each instruction set, which
// compiles them for its set and fills its dispatch table with them
// (astream_channel_kernels_table.h). Everything here has internal linkage, so that each
// of those files keeps its own copy, built with its own instructions.
#ifndef AUDIOMW_SRC_ASTREAM_ASTREAM_CHANNEL_KERNELS_FIXED_H
#define AUDIOMW_SRC_ASTREAM_ASTREAM_CHANNEL_KERNELS_FIXED_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

#include "astream_channel_kernels_table.h"

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "samples are little-endian and copied as they lie");

// The helpers also take vectors wider than the baseline's; they are always inlined into
// kernels of the same instruction set, so the calling convention GCC warns about for
// such arguments is never used.
#pragma GCC diagnostic ignored "-Wpsabi"

namespace audiomw {
namespace astream {
namespace {

constexpr uint32_t kSampleBytes = 2;

// Always inlined, so that a kernel compiled for a wider instruction set carries its
// helpers in that set too.
#define KERNEL_INLINE inline __attribute__((always_inline))

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
// Which shapes take the vector path is a measured choice per instruction set, given by
// its traits (`Isa` below: kBytes, the vector width; kAny16, whether 16-bit gathers of
// any shape beat per-frame copies; kMaxInputs16, the most input vectors one 16-bit
// output may draw from). With the SSE2 baseline, 32-bit lane permutes are cheap, while
// 16-bit ones are cheap only as the even/odd selections of 1 + 1 channels; other 16-bit
// shapes, and outputs gathered from more than 3 inputs, run faster as per-frame copies
// of constant size. AVX2's byte shuffles and NEON's table lookups make every 16-bit
// gather cheaper than the copies.
template <typename Isa>
struct Unit16 {
    typedef int16_t V __attribute__((vector_size(Isa::kBytes)));
    static constexpr int kLanes = Isa::kBytes / 2;
    static constexpr uint32_t kSamples = 1;
    static constexpr bool kAnyShape = Isa::kAny16;
    static constexpr int kMaxInputs = Isa::kMaxInputs16;
};

template <typename Isa>
struct Unit32 {
    typedef int32_t V __attribute__((vector_size(Isa::kBytes)));
    static constexpr int kLanes = Isa::kBytes / 4;
    static constexpr uint32_t kSamples = 2;
    static constexpr bool kAnyShape = true;
    static constexpr int kMaxInputs = 4;
};

// Units of the instruction set's vectors for frames of A + B channels.
template <uint32_t A, uint32_t B, typename Isa>
using UnitFor = typename std::conditional<A % 2 == 0 && B % 2 == 0, Unit32<Isa>, Unit16<Isa>>::type;

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

// Copies frames [f, f + n) of the Cnt samples at channel Off of N-sample frames. In
// frame order, each frame as one move: in place, a frame may land over bytes it was read
// from.
template <uint32_t N, uint32_t Off, uint32_t Cnt>
KERNEL_INLINE void CopyFrames(const uint8_t* pSrc, uint8_t* pDst, size_t f, size_t n) {
    for (size_t i = f; i < f + n; i++) {
        std::memmove(pDst + kSampleBytes * Cnt * i, pSrc + kSampleBytes * (N * i + Off), kSampleBytes * Cnt);
    }
}

// Copies frames [f, f + n) of Cnt-sample frames into channel Off of N-sample frames, in
// frame order, each frame as one move.
template <uint32_t N, uint32_t Off, uint32_t Cnt>
KERNEL_INLINE void PlaceFrames(const uint8_t* pSrc, uint8_t* pDst, size_t f, size_t n) {
    for (size_t i = f; i < f + n; i++) {
        std::memmove(pDst + kSampleBytes * (N * i + Off), pSrc + kSampleBytes * Cnt * i, kSampleBytes * Cnt);
    }
}

template <uint32_t A, uint32_t B, typename Isa>
KERNEL_INLINE void SplitBody(const uint8_t* pSrc, uint8_t* pDstA, uint8_t* pDstB, uint32_t u32Frames) {
    using U = UnitFor<A, B, Isa>;
    using V = typename U::V;
    constexpr uint32_t N = A + B;
    constexpr int kA = int(A / U::kSamples);
    constexpr int kB = int(B / U::kSamples);
    using MapA = SplitMap<U::kLanes, kA + kB, 0, kA>;
    using MapB = SplitMap<U::kLanes, kA + kB, kA, kB>;
    constexpr bool kVectorA = VectorShape<U, A, B>() && MaxUsed<MapA>(kA) <= U::kMaxInputs;
    constexpr bool kVectorB = VectorShape<U, A, B>() && MaxUsed<MapB>(kB) <= U::kMaxInputs;
    constexpr uint32_t kChunk = U::kLanes;
    size_t f = 0;
    // Two chunks per pass: with small groups the loop's own work weighs as much as the
    // moves.
#pragma GCC unroll 2
    for (; f + kChunk <= u32Frames; f += kChunk) {
        V av[kA + kB > 0 ? kA + kB : 1];
        LoadAll(pSrc + kSampleBytes * N * f, av, std::make_index_sequence<kA + kB>());
        // B's copies from memory come first: in place, A's stores land on this chunk.
        if (!kVectorB) {
            CopyFrames<N, A, B>(pSrc, pDstB, f, kChunk);
        }
        if (kVectorA) {
            GatherStore<MapA>(av, pDstA + kSampleBytes * A * f, std::make_index_sequence<kA>());
        } else {
            CopyFrames<N, 0, A>(pSrc, pDstA, f, kChunk);
        }
        if (kVectorB) {
            GatherStore<MapB>(av, pDstB + kSampleBytes * B * f, std::make_index_sequence<kB>());
        }
    }
    // B's frames first here too, and in every kernel's tail: in place, A's frames land
    // on B's samples.
    CopyFrames<N, A, B>(pSrc, pDstB, f, u32Frames - f);
    CopyFrames<N, 0, A>(pSrc, pDstA, f, u32Frames - f);
}

template <uint32_t A, uint32_t B, typename Isa>
KERNEL_INLINE void MergeBody(const uint8_t* pSrcA, const uint8_t* pSrcB, uint8_t* pDst, uint32_t u32Frames) {
    using U = UnitFor<A, B, Isa>;
    using V = typename U::V;
    constexpr uint32_t N = A + B;
    constexpr int kA = int(A / U::kSamples);
    constexpr int kB = int(B / U::kSamples);
    using Map = MergeMap<U::kLanes, kA, kB>;
    constexpr bool kVector = VectorShape<U, A, B>() && MaxUsed<Map>(kA + kB) <= U::kMaxInputs;
    constexpr uint32_t kChunk = U::kLanes;
    size_t f = 0;
#pragma GCC unroll 2
    for (; kVector && f + kChunk <= u32Frames; f += kChunk) {
        V av[kA + kB > 0 ? kA + kB : 1];
        LoadAll(pSrcA + kSampleBytes * A * f, av, std::make_index_sequence<kA>());
        LoadAll(pSrcB + kSampleBytes * B * f, av + kA, std::make_index_sequence<kB>());
        GatherStore<Map>(av, pDst + kSampleBytes * N * f, std::make_index_sequence<kA + kB>());
    }
    // B's frames first, in every kernel's tail: in place, the frames land on B's blocks.
    PlaceFrames<N, A, B>(pSrcB, pDst, f, u32Frames - f);
    PlaceFrames<N, 0, A>(pSrcA, pDst, f, u32Frames - f);
}

// ---- Mixin ------------------------------------------------------------------------------
//
// Samples are addressed as 16-bit values of alignment 1, through non-overlapping
// pointers, so that the compiler vectorises the frame loop: the c loads of a frame become
// a de-interleave of the group and the quotient a multiply-high by the reciprocal of
// c + 1, which is the exact signed division truncating toward zero that the loop states.
typedef int16_t Sample __attribute__((aligned(1)));

template <uint32_t C, size_t... J>
KERNEL_INLINE int32_t FrameSum(const Sample* __restrict pGroup, size_t f, std::index_sequence<J...>) {
    (void)pGroup;  // unused when the sequence is empty
    return (int32_t(0) + ... + int32_t(pGroup[C * f + J]));
}

// Frames [0, n) of a target and a group that do not overlap.
template <uint32_t C>
KERNEL_INLINE void MixinLoop(uint8_t* pTarget, const uint8_t* pGroup, size_t n) {
    Sample* __restrict pT = reinterpret_cast<Sample*>(pTarget);
    const Sample* __restrict pG = reinterpret_cast<const Sample*>(pGroup);
    for (size_t f = 0; f < n; f++) {
        const int32_t s32Sum = pT[f] + FrameSum<C>(pG, f, std::make_index_sequence<C>());
        pT[f] = static_cast<int16_t>(s32Sum / static_cast<int32_t>(C + 1));
    }
}

// ---- Swap ---------------------------------------------------------------------------------
//
// Block i of pIn to block map[i] of pOut, in increasing i, each block copied inline:
// with small blocks a library call per block costs as much as its bytes. Steps of 64
// bytes (as many vectors as that takes); the last step ends at the block's end,
// overlapping the one before. Blocks shorter than one step take a plain copy.
// (The vector type lives in a class: a vector typedef local to a function template
// loses its attribute when it is passed on as a template argument.)
template <typename Isa>
struct ByteVector {
    typedef uint8_t V __attribute__((vector_size(Isa::kBytes)));
};

constexpr size_t kCopyStep = 64;

template <typename V, size_t... K>
KERNEL_INLINE void CopyStep(uint8_t* pDst, const uint8_t* pSrc, std::index_sequence<K...>) {
    V av[sizeof...(K)];
    ((av[K] = LoadV<V>(pSrc + sizeof(V) * K)), ...);
    ((StoreV(pDst + sizeof(V) * K, av[K])), ...);
}

template <typename Isa>
KERNEL_INLINE void CopyBlock(uint8_t* pDst, const uint8_t* pSrc, size_t n) {
    using V = typename ByteVector<Isa>::V;
    using Vectors = std::make_index_sequence<kCopyStep / sizeof(V)>;
    if (n < kCopyStep) {
        std::memcpy(pDst, pSrc, n);
        return;
    }
    for (size_t i = 0; i + kCopyStep < n; i += kCopyStep) {
        CopyStep<V>(pDst + i, pSrc + i, Vectors());
    }
    CopyStep<V>(pDst + n - kCopyStep, pSrc + n - kCopyStep, Vectors());
}

template <typename Isa>
void SwapBlocks(const uint8_t* pIn, uint8_t* pOut, const int32_t* ps32Map, uint32_t u32Chn, size_t u32Block) {
    for (uint32_t i = 0; i < u32Chn; i++) {
        CopyBlock<Isa>(pOut + static_cast<size_t>(ps32Map[i]) * u32Block, pIn + i * u32Block, u32Block);
    }
}

template <typename Isa, uint32_t A, uint32_t B>
void SplitFixed(const uint8_t* pSrc, uint8_t* pDstA, uint8_t* pDstB, uint32_t u32Frames) {
    SplitBody<A, B, Isa>(pSrc, pDstA, pDstB, u32Frames);
}

template <typename Isa, uint32_t A, uint32_t B>
void MergeFixed(const uint8_t* pSrcA, const uint8_t* pSrcB, uint8_t* pDst, uint32_t u32Frames) {
    MergeBody<A, B, Isa>(pSrcA, pSrcB, pDst, u32Frames);
}

// The table of an instruction set: split, merge and swap from the bodies above, mixin
// from Isa::Mixin<C>.
template <typename Isa, size_t... I, size_t... C>
constexpr ChannelKernelTable MakeTable(std::index_sequence<I...>, std::index_sequence<C...>) {
    return {{&SplitFixed<Isa, I / (kFixedMax + 1), I % (kFixedMax + 1)>...},
            {&MergeFixed<Isa, I / (kFixedMax + 1), I % (kFixedMax + 1)>...},
            {&Isa::template Mixin<C>...},
            &SwapBlocks<Isa>};
}

template <typename Isa>
constexpr ChannelKernelTable MakeTable() {
    return MakeTable<Isa>(std::make_index_sequence<kFixedPairs>(), std::make_index_sequence<kFixedMax + 1>());
}

}  // namespace
}  // namespace astream
}  // namespace audiomw

#endif  // AUDIOMW_SRC_ASTREAM_ASTREAM_CHANNEL_KERNELS_FIXED_H
