// The channel kernels for x86-64 processors with AVX2: this file alone is compiled with
// -mavx2, and the dispatch picks its table only where the processor has AVX2. It uses
// nothing with external linkage from a header that another file could also instantiate,
// so no AVX2 instruction reaches code that other processors run.
#include "astream_channel_kernels_fixed.h"

#if defined(__x86_64__)
#include <immintrin.h>

#include "astream_channel_kernels_mixin_avx2.h"

namespace audiomw {
namespace astream {
namespace {

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

constexpr ChannelKernelTable MakeAvx2Table() {
    ChannelKernelTable stTable = MakeTable<Avx2Isa>();
    stTable.apfnSplit[1 * (kFixedMax + 1) + 3] = &SplitOneThree;
    stTable.apfnMerge[1 * (kFixedMax + 1) + 3] = &MergeOneThree;
    return stTable;
}

}  // namespace

constexpr ChannelKernelTable kAvx2ChannelKernels = MakeAvx2Table();

}  // namespace astream
}  // namespace audiomw

#endif  // __x86_64__
