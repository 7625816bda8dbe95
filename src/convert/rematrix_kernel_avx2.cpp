// The rematrix heads for x86-64 processors with AVX2: this file alone is compiled with
// -mavx2, and the dispatch calls it only where the processor has AVX2. Each head
// converts whole vectors of frames of its shape and returns how many; the portable
// loops do the rest.
#include "rematrix_kernel_heads.h"

#if defined(__x86_64__)
#include <immintrin.h>

namespace audiomw {

namespace {

size_t MonoToStereoAvx2(const unsigned char* in, unsigned char* out, size_t n) {
    size_t f = 0;
    for (; f + 16 <= n; f += 16) {
        __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + f * 2));
        __m256i lo = _mm256_unpacklo_epi16(x, x);  // frames 0-3 | 8-11, each sample twice
        __m256i hi = _mm256_unpackhi_epi16(x, x);  // frames 4-7 | 12-15
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + f * 4), _mm256_permute2x128_si256(lo, hi, 0x20));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + f * 4 + 32),
                            _mm256_permute2x128_si256(lo, hi, 0x31));
    }
    return f;
}

size_t StereoToMonoAvx2(const unsigned char* in, unsigned char* out, size_t n) {
    const __m256i low16 = _mm256_set1_epi32(0xFFFF);
    size_t f = 0;
    for (; f + 16 <= n; f += 16) {
        __m256i a = _mm256_and_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + f * 4)), low16);
        __m256i b =
            _mm256_and_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + f * 4 + 32)), low16);
        // Values fit 16 bits unsigned, so the saturating pack keeps them exactly; the pack
        // works per 128-bit lane, the permute puts the four quarters back in order.
        __m256i packed = _mm256_packus_epi32(a, b);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + f * 2), _mm256_permute4x64_epi64(packed, 0xD8));
    }
    return f;
}

size_t StereoToQuadAvx2(const unsigned char* in, unsigned char* out, size_t n) {
    size_t f = 0;
    for (; f + 8 <= n; f += 8) {
        __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + f * 4));
        __m256i lo = _mm256_unpacklo_epi32(x, x);  // frames 0-1 | 4-5, each pair twice
        __m256i hi = _mm256_unpackhi_epi32(x, x);  // frames 2-3 | 6-7
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + f * 8), _mm256_permute2x128_si256(lo, hi, 0x20));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + f * 8 + 32),
                            _mm256_permute2x128_si256(lo, hi, 0x31));
    }
    return f;
}

size_t QuadToStereoAvx2(const unsigned char* in, unsigned char* out, size_t n) {
    size_t f = 0;
    for (; f + 8 <= n; f += 8) {
        // Frames as 32-bit pairs: (01 23) per frame; keep every even pair. The float
        // shuffles only move bits.
        __m256 a = _mm256_loadu_ps(reinterpret_cast<const float*>(in + f * 8));
        __m256 b = _mm256_loadu_ps(reinterpret_cast<const float*>(in + f * 8 + 32));
        __m256 even = _mm256_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0));  // frames 0 1 4 5 | 2 3 6 7
        __m256d ordered = _mm256_permute4x64_pd(_mm256_castps_pd(even), 0xD8);
        _mm256_storeu_ps(reinterpret_cast<float*>(out + f * 4), _mm256_castpd_ps(ordered));
    }
    return f;
}

// 3 -> 4: four frames per step, their 24 input bytes in one 32-byte load (the steps stop
// while 8 more input bytes exist); a dword permute gives each 128-bit lane two frames, a
// byte shuffle repeats each frame's first sample after its third.
size_t ThreeToFourAvx2(const unsigned char* in, unsigned char* out, size_t n) {
    const __m256i lanes = _mm256_setr_epi32(0, 1, 2, 2, 3, 4, 5, 5);
    const __m256i repeat = _mm256_setr_epi8(0, 1, 2, 3, 4, 5, 0, 1, 6, 7, 8, 9, 10, 11, 6, 7, 0, 1, 2, 3, 4,
                                            5, 0, 1, 6, 7, 8, 9, 10, 11, 6, 7);
    size_t f = 0;
    for (; f + 6 <= n; f += 4) {
        const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + f * 6));
        const __m256i y = _mm256_shuffle_epi8(_mm256_permutevar8x32_epi32(x, lanes), repeat);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + f * 8), y);
    }
    return f;
}

}  // namespace

size_t RematrixHeadAvx2(const unsigned char* in, unsigned char* out, size_t n, int inChn, int outChn) {
    if (inChn == 1 && outChn == 2) {
        return MonoToStereoAvx2(in, out, n);
    }
    if (inChn == 2 && outChn == 1) {
        return StereoToMonoAvx2(in, out, n);
    }
    if (inChn == 2 && outChn == 4) {
        return StereoToQuadAvx2(in, out, n);
    }
    if (inChn == 4 && outChn == 2) {
        return QuadToStereoAvx2(in, out, n);
    }
    if (inChn == 3 && outChn == 4) {
        return ThreeToFourAvx2(in, out, n);
    }
    return 0;
}

}  // namespace audiomw

#endif  // __x86_64__
