// The channel kernels for x86-64 processors with AVX2: this file alone is compiled with
// -mavx2, and the dispatch picks its table only where the processor has AVX2. It uses
// nothing with external linkage from a header that another file could also instantiate,
// so no AVX2 instruction reaches code that other processors run.
#include "astream_channel_kernels_fixed.h"

#if defined(__x86_64__)
#include <immintrin.h>

namespace audiomw {
namespace astream {
namespace {

// The mixin quotient sum / (C + 1), truncated toward zero, for the 8 sums of `sum`. Sums
// stay below 2^24 in magnitude, so they convert to float exactly; the reciprocal is
// rounded up, so a sum that is a multiple of C + 1 gives at least its quotient, and the
// error stays far below the 1 / (C + 1) that separates other sums from the next integer.
template <uint32_t C>
KERNEL_INLINE __m256i Quotient(__m256i sum) {
    constexpr float kReciprocal = 1.0f / float(C + 1);
    static_assert(double(kReciprocal) * (C + 1) >= 1.0, "the reciprocal must not be below 1 / (C + 1)");
    return _mm256_cvttps_epi32(_mm256_mul_ps(_mm256_cvtepi32_ps(sum), _mm256_set1_ps(kReciprocal)));
}

KERNEL_INLINE __m256i Load256(const uint8_t* p) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}

KERNEL_INLINE __m256i Targets8(const uint8_t* p) {
    return _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}

// Quotients of frames [0, 8) in q0 and [8, 16) in q1 (each in frame order) to 16 samples.
KERNEL_INLINE void Store16Frames(uint8_t* pTarget, __m256i q0, __m256i q1) {
    // Quotients fit 16 bits, so the saturating pack keeps them; it packs per 128-bit
    // lane, the permute restores frame order.
    const __m256i packed = _mm256_packs_epi32(q0, q1);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(pTarget), _mm256_permute4x64_epi64(packed, 0xD8));
}

// One channel: (t + g) / 2 truncated toward zero, in 16-bit lanes without widening:
// (t & g) + ((t ^ g) >> 1) is the floored half of the sum, which a negative odd sum
// raises by 1. 16 frames per step.
size_t MixinOne(uint8_t* pTarget, const uint8_t* pGroup, size_t n) {
    size_t f = 0;
#pragma GCC unroll 2
    for (; f + 16 <= n; f += 16) {
        const __m256i t = Load256(pTarget + kSampleBytes * f);
        const __m256i g = Load256(pGroup + kSampleBytes * f);
        const __m256i odd = _mm256_xor_si256(t, g);
        const __m256i floor = _mm256_add_epi16(_mm256_and_si256(t, g), _mm256_srai_epi16(odd, 1));
        const __m256i raise = _mm256_and_si256(odd, _mm256_srli_epi16(floor, 15));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(pTarget + kSampleBytes * f),
                            _mm256_add_epi16(floor, raise));
    }
    return f;
}

// Two channels: pmaddwd against ones sums each frame's pair straight from the group,
// 16 frames per step.
size_t MixinPairs(uint8_t* pTarget, const uint8_t* pGroup, size_t n) {
    const __m256i ones = _mm256_set1_epi16(1);
    size_t f = 0;
#pragma GCC unroll 2
    for (; f + 16 <= n; f += 16) {
        const uint8_t* pG = pGroup + kSampleBytes * 2 * f;
        uint8_t* pT = pTarget + kSampleBytes * f;
        const __m256i s0 = _mm256_add_epi32(_mm256_madd_epi16(Load256(pG), ones), Targets8(pT));
        const __m256i s1 = _mm256_add_epi32(_mm256_madd_epi16(Load256(pG + 32), ones), Targets8(pT + 16));
        Store16Frames(pT, Quotient<2>(s0), Quotient<2>(s1));
    }
    return f;
}

// Four channels: pmaddwd sums each frame's two pairs, phaddd the pairs of pairs; 16
// frames per step.
size_t MixinQuads(uint8_t* pTarget, const uint8_t* pGroup, size_t n) {
    const __m256i ones = _mm256_set1_epi16(1);
    size_t f = 0;
#pragma GCC unroll 2
    for (; f + 16 <= n; f += 16) {
        const uint8_t* pG = pGroup + kSampleBytes * 4 * f;
        uint8_t* pT = pTarget + kSampleBytes * f;
        __m256i sums[2];
        for (int h = 0; h < 2; h++) {
            const __m256i m0 = _mm256_madd_epi16(Load256(pG + 64 * h), ones);       // frames 0-1 | 2-3
            const __m256i m1 = _mm256_madd_epi16(Load256(pG + 64 * h + 32), ones);  // frames 4-5 | 6-7
            // hadd gives frames 0 1 4 5 | 2 3 6 7; the permute puts them in order.
            const __m256i s = _mm256_permute4x64_epi64(_mm256_hadd_epi32(m0, m1), 0xD8);
            sums[h] = _mm256_add_epi32(s, Targets8(pT + 16 * h));
        }
        Store16Frames(pT, Quotient<4>(sums[0]), Quotient<4>(sums[1]));
    }
    return f;
}

// Other group sizes from 3 up: each frame's c samples are read as one 16-byte row
// (samples past c weighted 0), pmaddwd adds them in pairs and two rounds of phaddd
// finish the rows, 8 frames per step. Rows read up to 16 bytes from the frame's start,
// so the frames whose row would pass the group's end take the plain loop.
template <uint32_t C>
KERNEL_INLINE __m256i RowPair(const uint8_t* pGroup, size_t f, __m256i weights) {
    const __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pGroup + kSampleBytes * C * f));
    const __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pGroup + kSampleBytes * C * (f + 4)));
    return _mm256_madd_epi16(_mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1), weights);
}

template <uint32_t C>
KERNEL_INLINE __m256i RowSums(const uint8_t* pGroup, size_t f, __m256i weights) {
    // Lane 0 holds frames f..f+3, lane 1 frames f+4..f+7.
    const __m256i h01 = _mm256_hadd_epi32(RowPair<C>(pGroup, f, weights), RowPair<C>(pGroup, f + 1, weights));
    const __m256i h23 =
        _mm256_hadd_epi32(RowPair<C>(pGroup, f + 2, weights), RowPair<C>(pGroup, f + 3, weights));
    return _mm256_hadd_epi32(h01, h23);
}

template <uint32_t C>
size_t MixinRows(uint8_t* pTarget, const uint8_t* pGroup, size_t n) {
    alignas(32) int16_t as16Weights[16];
    for (uint32_t j = 0; j < 16; j++) {
        as16Weights[j] = (j % 8) < C ? 1 : 0;
    }
    const __m256i weights = _mm256_load_si256(reinterpret_cast<const __m256i*>(as16Weights));
    size_t f = 0;
    for (; f + 16 <= n && C * (f + 15) + 8 <= C * n; f += 16) {
        uint8_t* pT = pTarget + kSampleBytes * f;
        const __m256i s0 = _mm256_add_epi32(RowSums<C>(pGroup, f, weights), Targets8(pT));
        const __m256i s1 = _mm256_add_epi32(RowSums<C>(pGroup, f + 8, weights), Targets8(pT + 16));
        Store16Frames(pT, Quotient<C>(s0), Quotient<C>(s1));
    }
    return f;
}

// Mixin of C channels: the vector kernel for C's shape, the plain loop for the frames
// after its last whole step.
template <uint32_t C>
KERNEL_INLINE void MixinAvx2(uint8_t* pTarget, const uint8_t* pGroup, uint32_t u32Frames) {
    size_t f = 0;
    if constexpr (C == 1) {
        f = MixinOne(pTarget, pGroup, u32Frames);
    } else if constexpr (C == 2) {
        f = MixinPairs(pTarget, pGroup, u32Frames);
    } else if constexpr (C == 4) {
        f = MixinQuads(pTarget, pGroup, u32Frames);
    } else if constexpr (C >= 3) {
        f = MixinRows<C>(pTarget, pGroup, u32Frames);
    }
    MixinLoop<C>(pTarget + kSampleBytes * f, pGroup + kSampleBytes * C * f, u32Frames - f);
}

// ---- Split and merge of 1 + 3 channels ----------------------------------------------
//
// A frame is one 64-bit word: channel A is its first sample, B the other three. 16 frames
// per step; the steps stop 2 frames before the end, so the one 32-byte access per 4
// frames that reaches 8 bytes past its 24 bytes of B stays inside B's buffer (the next
// step or the exact copies after the loop rewrite those bytes).
constexpr uint32_t kOneThreeStep = 16;
constexpr uint32_t kOneThreeSlack = 2;

void SplitOneThree(const uint8_t* pSrc, uint8_t* pDstA, uint8_t* pDstB, uint32_t u32Frames) {
    const __m256i first = _mm256_set1_epi64x(0xFFFF);
    // Per 128-bit lane of two frames: their B samples to bytes 0-11.
    const __m256i rest = _mm256_setr_epi8(2, 3, 4, 5, 6, 7, 10, 11, 12, 13, 14, 15, -1, -1, -1, -1, 2, 3, 4,
                                          5, 6, 7, 10, 11, 12, 13, 14, 15, -1, -1, -1, -1);
    const __m256i joinLanes = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 7, 7);
    const __m256i pairOrder = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    size_t f = 0;
    for (; f + kOneThreeStep + kOneThreeSlack <= u32Frames; f += kOneThreeStep) {
        __m256i x[4];
        for (int k = 0; k < 4; k++) {
            x[k] = Load256(pSrc + 8 * (f + 4 * k));
            const __m256i b = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(x[k], rest), joinLanes);
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(pDstB + 6 * (f + 4 * k)), b);
        }
        // Each frame's first sample, zero-extended, packed twice: frames 0 1 4 5 8 9 12 13 |
        // 2 3 6 7 10 11 14 15; the permute of sample pairs restores the order.
        const __m256i p01 = _mm256_packus_epi32(_mm256_and_si256(x[0], first), _mm256_and_si256(x[1], first));
        const __m256i p23 = _mm256_packus_epi32(_mm256_and_si256(x[2], first), _mm256_and_si256(x[3], first));
        const __m256i a = _mm256_permutevar8x32_epi32(_mm256_packus_epi32(p01, p23), pairOrder);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(pDstA + 2 * f), a);
    }
    CopyFrames<4, 1, 3>(pSrc, pDstB, f, u32Frames - f);
    CopyFrames<4, 0, 1>(pSrc, pDstA, f, u32Frames - f);
}

void MergeOneThree(const uint8_t* pSrcA, const uint8_t* pSrcB, uint8_t* pDst, uint32_t u32Frames) {
    // Two frames' B samples (12 bytes) per 128-bit lane, then to words 1-3 of each frame.
    const __m256i spread = _mm256_setr_epi32(0, 1, 2, 7, 3, 4, 5, 7);
    const __m256i place = _mm256_setr_epi8(-1, -1, 0, 1, 2, 3, 4, 5, -1, -1, 6, 7, 8, 9, 10, 11, -1, -1, 0, 1,
                                           2, 3, 4, 5, -1, -1, 6, 7, 8, 9, 10, 11);
    size_t f = 0;
    for (; f + kOneThreeStep + kOneThreeSlack <= u32Frames; f += kOneThreeStep) {
        for (int k = 0; k < 4; k++) {
            const size_t g = f + 4 * k;
            const __m256i b =
                _mm256_shuffle_epi8(_mm256_permutevar8x32_epi32(Load256(pSrcB + 6 * g), spread), place);
            const __m256i a =
                _mm256_cvtepu16_epi64(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(pSrcA + 2 * g)));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(pDst + 8 * g), _mm256_or_si256(a, b));
        }
    }
    PlaceFrames<4, 1, 3>(pSrcB, pDst, f, u32Frames - f);
    PlaceFrames<4, 0, 1>(pSrcA, pDst, f, u32Frames - f);
}

struct Avx2Isa {
    static constexpr int kBytes = 32;
    static constexpr bool kAny16 = true;
    static constexpr int kMaxInputs16 = 8;

    template <uint32_t C>
    static void Mixin(uint8_t* pTarget, const uint8_t* pGroup, uint32_t u32Frames) {
        MixinAvx2<C>(pTarget, pGroup, u32Frames);
    }
};

}  // namespace

namespace {

// The same gathers in 16-byte vectors, with AVX2's byte shuffles: for 3 + 5 and 5 + 3
// channels, whose 32-byte gathers need long chains of cross-lane permutes, the
// in-lane shuffles of 16-byte vectors (two per output vector, and an or) are faster.
struct Avx2NarrowIsa {
    static constexpr int kBytes = 16;
    static constexpr bool kAny16 = true;
    static constexpr int kMaxInputs16 = 8;
};

template <uint32_t A, uint32_t B>
constexpr void UseNarrow(ChannelKernelTable& stTable) {
    stTable.apfnSplit[A * (kFixedMax + 1) + B] = &SplitFixed<Avx2NarrowIsa, A, B>;
    stTable.apfnMerge[A * (kFixedMax + 1) + B] = &MergeFixed<Avx2NarrowIsa, A, B>;
}

constexpr ChannelKernelTable MakeAvx2Table() {
    ChannelKernelTable stTable = MakeTable<Avx2Isa>();
    UseNarrow<3, 5>(stTable);
    UseNarrow<5, 3>(stTable);
    stTable.apfnSplit[1 * (kFixedMax + 1) + 3] = &SplitOneThree;
    stTable.apfnMerge[1 * (kFixedMax + 1) + 3] = &MergeOneThree;
    return stTable;
}

}  // namespace

constexpr ChannelKernelTable kAvx2ChannelKernels = MakeAvx2Table();

}  // namespace astream
}  // namespace audiomw

#endif  // __x86_64__
