// The mixin kernels in AVX2 instructions, shared by the files compiled for AVX2 and
// for wider sets (which run them as they are, with the wider set's encodings). Included
// after astream_channel_kernels_fixed.h and <immintrin.h>; internal linkage like the
// rest of the fixed-count kernels.
#ifndef AUDIOMW_SRC_ASTREAM_ASTREAM_CHANNEL_KERNELS_MIXIN_AVX2_H
#define AUDIOMW_SRC_ASTREAM_ASTREAM_CHANNEL_KERNELS_MIXIN_AVX2_H

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

}  // namespace
}  // namespace astream
}  // namespace audiomw

#endif  // AUDIOMW_SRC_ASTREAM_ASTREAM_CHANNEL_KERNELS_MIXIN_AVX2_H
