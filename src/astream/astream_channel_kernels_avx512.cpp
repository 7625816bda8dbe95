// The channel kernels for x86-64 processors with AVX-512 (F, BW, VL, VBMI and VNNI):
// the fixed-count gathers in 64-byte vectors, where one two-source word permute
// (vpermt2w) gathers any 32 samples of two vectors, and mixin kernels at that width.
// This file alone is compiled for AVX-512, and the dispatch picks its table only where
// the processor has all five extensions. Like the AVX2 file, it uses nothing with
// external linkage from a header that another file could also instantiate, so no
// AVX-512 instruction reaches code that other processors run.
#include "astream_channel_kernels_fixed.h"

#if defined(__x86_64__)
#if defined(__GNUC__) && !defined(__clang__)
// GCC 12 takes the deliberately undefined pass-through operand inside the AVX-512
// conversion intrinsics for an uninitialised read.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>

namespace audiomw {
namespace astream {
namespace {

// ---- Mixin ----------------------------------------------------------------------------
//
// The quotient sum / (C + 1) truncated toward zero, for 16 sums below 2^24 in magnitude:
// exact through float for the reasons given with the AVX2 quotient; vpmovsdw then narrows
// the 16 quotients (which fit 16 bits) to 16 samples in frame order.
template <uint32_t C>
KERNEL_INLINE __m256i Quotient16(__m512i sum) {
    constexpr float kReciprocal = 1.0f / float(C + 1);
    static_assert(double(kReciprocal) * (C + 1) >= 1.0, "the reciprocal must not be below 1 / (C + 1)");
    const __m512 q = _mm512_mul_ps(_mm512_cvtepi32_ps(sum), _mm512_set1_ps(kReciprocal));
    return _mm512_cvtsepi32_epi16(_mm512_cvttps_epi32(q));
}

KERNEL_INLINE __m512i Targets16(const uint8_t* p) {
    return _mm512_cvtepi16_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)));
}

// One channel: (t + g) / 2 truncated toward zero without widening, as the AVX2 kernel
// does it, 32 frames per vector.
size_t MixinOne512(uint8_t* pTarget, const uint8_t* pGroup, size_t n) {
    size_t f = 0;
#pragma GCC unroll 2
    for (; f + 32 <= n; f += 32) {
        const __m512i t = _mm512_loadu_si512(pTarget + kSampleBytes * f);
        const __m512i g = _mm512_loadu_si512(pGroup + kSampleBytes * f);
        const __m512i odd = _mm512_xor_si512(t, g);
        const __m512i floor = _mm512_add_epi16(_mm512_and_si512(t, g), _mm512_srai_epi16(odd, 1));
        const __m512i raise = _mm512_and_si512(odd, _mm512_srli_epi16(floor, 15));
        _mm512_storeu_si512(pTarget + kSampleBytes * f, _mm512_add_epi16(floor, raise));
    }
    return f;
}

// Two channels: pmaddwd against ones sums each frame's pair, 16 frames per vector.
size_t MixinPairs512(uint8_t* pTarget, const uint8_t* pGroup, size_t n) {
    const __m512i ones = _mm512_set1_epi16(1);
    size_t f = 0;
#pragma GCC unroll 2
    for (; f + 16 <= n; f += 16) {
        uint8_t* pT = pTarget + kSampleBytes * f;
        const __m512i g = _mm512_loadu_si512(pGroup + kSampleBytes * 2 * f);
        const __m512i sum = _mm512_add_epi32(_mm512_madd_epi16(g, ones), Targets16(pT));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(pT), Quotient16<2>(sum));
    }
    return f;
}

// Slot k of frame r of 8 frames of C samples, as the word index of a two-vector
// permute whose first half takes slots 0-1 (P = 0) or 4-5 (P = 1) and whose second half
// takes slots 2-3 or 6-7. Slots from C up are zeroed by the permute's mask.
template <uint32_t C, int P>
constexpr uint32_t RowSlotWord(uint32_t w) {
    const uint32_t k = 4 * P + 2 * (w / 16) + w % 2;
    const uint32_t r = (w % 16) / 2;
    return k < C ? C * r + k : 0;
}

template <uint32_t C, int P>
constexpr uint32_t RowSlotMask() {
    uint32_t u32Mask = 0;
    for (uint32_t w = 0; w < 32; w++) {
        u32Mask |= (4 * P + 2 * (w / 16) + w % 2 < C ? 1u : 0u) << w;
    }
    return u32Mask;
}

// The load mask of the first u32Words of 32 words.
constexpr __mmask32 WordMask(uint32_t u32Words) {
    return u32Words >= 32 ? ~__mmask32(0) : __mmask32((1u << u32Words) - 1);
}

template <uint32_t C, int P, size_t... W>
KERNEL_INLINE __m512i RowSlotIndex(std::index_sequence<W...>) {
    alignas(64) static constexpr int16_t kIndex[] = {int16_t(RowSlotWord<C, P>(W))...};
    return _mm512_load_si512(kIndex);
}

// Group sums of 8 frames of C samples (3 <= C <= 8), frames in dwords 0-7 and again,
// partly, in 8-15: two masked loads (no byte past the 8 frames is read), two permutes
// that lay the slots out in pairs, one pmaddwd and one vpdpwssd.
template <uint32_t C>
KERNEL_INLINE __m512i RowHalves(const uint8_t* pG, __m512i idx0, __m512i idx1, __m512i ones) {
    constexpr uint32_t kWords = 8 * C;
    constexpr __mmask32 kLow = WordMask(kWords);
    constexpr __mmask32 kHigh = WordMask(kWords > 32 ? kWords - 32 : 0);
    const __m512i lo = _mm512_maskz_loadu_epi16(kLow, pG);
    const __m512i hi = _mm512_maskz_loadu_epi16(kHigh, pG + 64);
    const __m512i s01 = _mm512_maskz_permutex2var_epi16(RowSlotMask<C, 0>(), lo, idx0, hi);
    const __m512i s45 = _mm512_maskz_permutex2var_epi16(RowSlotMask<C, 1>(), lo, idx1, hi);
    return _mm512_dpwssd_epi32(_mm512_madd_epi16(s01, ones), s45, ones);
}

// Other group sizes from 3 up: 16 frames per step, each half of the step's rows summed
// by RowHalves; the two halves of each result add to the frame sums.
template <uint32_t C>
size_t MixinRows512(uint8_t* pTarget, const uint8_t* pGroup, size_t n) {
    const __m512i ones = _mm512_set1_epi16(1);
    const __m512i idx0 = RowSlotIndex<C, 0>(std::make_index_sequence<32>());
    const __m512i idx1 = RowSlotIndex<C, 1>(std::make_index_sequence<32>());
    size_t f = 0;
    for (; f + 16 <= n; f += 16) {
        const uint8_t* pG = pGroup + kSampleBytes * C * f;
        uint8_t* pT = pTarget + kSampleBytes * f;
        const __m512i x = RowHalves<C>(pG, idx0, idx1, ones);
        const __m512i y = RowHalves<C>(pG + kSampleBytes * C * 8, idx0, idx1, ones);
        const __m512i sum =
            _mm512_add_epi32(_mm512_shuffle_i64x2(x, y, 0x44), _mm512_shuffle_i64x2(x, y, 0xEE));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(pT),
                            Quotient16<C>(_mm512_add_epi32(sum, Targets16(pT))));
    }
    return f;
}

struct Avx512Isa {
    static constexpr int kBytes = 64;
    static constexpr bool kAny16 = true;
    static constexpr int kMaxInputs16 = 8;

    template <uint32_t C>
    static void Mixin(uint8_t* pTarget, const uint8_t* pGroup, uint32_t u32Frames) {
        size_t f = 0;
        if constexpr (C == 1) {
            f = MixinOne512(pTarget, pGroup, u32Frames);
        } else if constexpr (C == 2) {
            f = MixinPairs512(pTarget, pGroup, u32Frames);
        } else if constexpr (C >= 3) {
            f = MixinRows512<C>(pTarget, pGroup, u32Frames);
        }
        MixinLoop<C>(pTarget + kSampleBytes * f, pGroup + kSampleBytes * C * f, u32Frames - f);
    }
};

// ---- Split and merge of 1 + 1 channels ---------------------------------------------------
//
// 32 frames per step: two vectors of frames, one word permute per channel. The last
// step takes the remaining frames through masked loads and stores, which touch no byte
// past them, so no frame takes a scalar path. Each step loads before it stores, which
// keeps the kernels right in place.
KERNEL_INLINE __m512i EvenOddIndex(int s32Odd) {
    alignas(64) int16_t as16Index[32];
    for (int i = 0; i < 32; i++) {
        as16Index[i] = static_cast<int16_t>(2 * i + s32Odd);
    }
    return _mm512_load_si512(as16Index);
}

KERNEL_INLINE __m512i InterleaveIndex() {
    alignas(64) int16_t as16Index[32];
    for (int i = 0; i < 32; i++) {
        as16Index[i] = static_cast<int16_t>(i / 2 + (i % 2) * 32);
    }
    return _mm512_load_si512(as16Index);
}

// Masks of the first n words of 64 (lo: words 0-31, hi: 32-63).
KERNEL_INLINE __mmask32 LowWords(size_t n) {
    return n >= 32 ? ~__mmask32(0) : static_cast<__mmask32>((uint64_t(1) << n) - 1);
}

KERNEL_INLINE __mmask32 HighWords(size_t n) {
    return n <= 32 ? 0 : LowWords(n - 32);
}

void SplitOneOne(const uint8_t* pSrc, uint8_t* pDstA, uint8_t* pDstB, uint32_t u32Frames) {
    const __m512i even = EvenOddIndex(0);
    const __m512i odd = EvenOddIndex(1);
    size_t f = 0;
    for (; f + 32 <= u32Frames; f += 32) {
        const __m512i x0 = _mm512_loadu_si512(pSrc + 4 * f);
        const __m512i x1 = _mm512_loadu_si512(pSrc + 4 * f + 64);
        _mm512_storeu_si512(pDstA + 2 * f, _mm512_permutex2var_epi16(x0, even, x1));
        _mm512_storeu_si512(pDstB + 2 * f, _mm512_permutex2var_epi16(x0, odd, x1));
    }
    const size_t n = u32Frames - f;
    if (n > 0) {
        const __m512i x0 = _mm512_maskz_loadu_epi16(LowWords(2 * n), pSrc + 4 * f);
        const __m512i x1 = _mm512_maskz_loadu_epi16(HighWords(2 * n), pSrc + 4 * f + 64);
        _mm512_mask_storeu_epi16(pDstA + 2 * f, LowWords(n), _mm512_permutex2var_epi16(x0, even, x1));
        _mm512_mask_storeu_epi16(pDstB + 2 * f, LowWords(n), _mm512_permutex2var_epi16(x0, odd, x1));
    }
}

void MergeOneOne(const uint8_t* pSrcA, const uint8_t* pSrcB, uint8_t* pDst, uint32_t u32Frames) {
    const __m512i lo = InterleaveIndex();
    const __m512i hi = _mm512_add_epi16(lo, _mm512_set1_epi16(16));
    size_t f = 0;
    for (; f + 32 <= u32Frames; f += 32) {
        const __m512i a = _mm512_loadu_si512(pSrcA + 2 * f);
        const __m512i b = _mm512_loadu_si512(pSrcB + 2 * f);
        _mm512_storeu_si512(pDst + 4 * f, _mm512_permutex2var_epi16(a, lo, b));
        _mm512_storeu_si512(pDst + 4 * f + 64, _mm512_permutex2var_epi16(a, hi, b));
    }
    const size_t n = u32Frames - f;
    if (n > 0) {
        const __m512i a = _mm512_maskz_loadu_epi16(LowWords(n), pSrcA + 2 * f);
        const __m512i b = _mm512_maskz_loadu_epi16(LowWords(n), pSrcB + 2 * f);
        _mm512_mask_storeu_epi16(pDst + 4 * f, LowWords(2 * n), _mm512_permutex2var_epi16(a, lo, b));
        _mm512_mask_storeu_epi16(pDst + 4 * f + 64, HighWords(2 * n), _mm512_permutex2var_epi16(a, hi, b));
    }
}

constexpr ChannelKernelTable MakeAvx512Table() {
    ChannelKernelTable stTable = MakeTable<Avx512Isa>();
    stTable.apfnSplit[1 * (kFixedMax + 1) + 1] = &SplitOneOne;
    stTable.apfnMerge[1 * (kFixedMax + 1) + 1] = &MergeOneOne;
    return stTable;
}

}  // namespace

constexpr ChannelKernelTable kAvx512ChannelKernels = MakeAvx512Table();

}  // namespace astream
}  // namespace audiomw

#endif  // __x86_64__
