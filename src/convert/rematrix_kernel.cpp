#include "rematrix_kernel.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace audiomw {

namespace {

constexpr size_t kSampleBytes = 2;

// Samples are moved as raw bytes: no alignment is assumed and no value is changed.
inline uint16_t Load16(const unsigned char* p) {
    uint16_t v;
    std::memcpy(&v, p, sizeof(v));
    return v;
}

inline void Store16(unsigned char* p, uint16_t v) {
    std::memcpy(p, &v, sizeof(v));
}

inline uint32_t Load32(const unsigned char* p) {
    uint32_t v;
    std::memcpy(&v, p, sizeof(v));
    return v;
}

inline void Store32(unsigned char* p, uint32_t v) {
    std::memcpy(p, &v, sizeof(v));
}

void MonoToStereo(const unsigned char* __restrict in, unsigned char* __restrict out, size_t frames) {
    for (size_t f = 0; f < frames; f++) {
        uint32_t s = Load16(in + f * 2);
        Store32(out + f * 4, s | (s << 16));
    }
}

void MonoToMany(const unsigned char* __restrict in, unsigned char* __restrict out, size_t frames,
                size_t outChn) {
    for (size_t f = 0; f < frames; f++) {
        uint16_t s = Load16(in + f * 2);
        for (size_t c = 0; c < outChn; c++) {
            Store16(out + (f * outChn + c) * kSampleBytes, s);
        }
    }
}

// Two input channels into an even number of output channels: the pair repeats.
void PairRepeat(const unsigned char* __restrict in, unsigned char* __restrict out, size_t frames,
                size_t outChn) {
    const size_t pairs = outChn / 2;
    for (size_t f = 0; f < frames; f++) {
        uint32_t pair = Load32(in + f * 4);
        for (size_t k = 0; k < pairs; k++) {
            Store32(out + (f * pairs + k) * 4, pair);
        }
    }
}

void WidenGeneric(const unsigned char* __restrict in, unsigned char* __restrict out, size_t frames,
                  size_t inChn, size_t outChn) {
    for (size_t f = 0; f < frames; f++) {
        const unsigned char* src = in + f * inChn * kSampleBytes;
        unsigned char* dst = out + f * outChn * kSampleBytes;
        size_t j = 0;
        for (size_t c = 0; c < outChn; c++) {
            Store16(dst + c * kSampleBytes, Load16(src + j * kSampleBytes));
            if (++j == inChn) {
                j = 0;
            }
        }
    }
}

// Widening with both counts fixed: output channel c of a frame is input channel c % I,
// every offset a constant, so each frame is a short run of 16-bit moves.
template <size_t I, size_t O>
void WidenFixed(const unsigned char* __restrict in, unsigned char* __restrict out, size_t frames) {
    for (size_t f = 0; f < frames; f++) {
        for (size_t c = 0; c < O; c++) {
            Store16(out + (f * O + c) * kSampleBytes, Load16(in + (f * I + c % I) * kSampleBytes));
        }
    }
}

using WidenFn = void (*)(const unsigned char*, unsigned char*, size_t);

// Widening shapes with a fixed kernel: I in 1..kWidenMax, O in I+1..kWidenMax.
constexpr size_t kWidenMax = 8;
constexpr size_t kWidenShapes = kWidenMax * kWidenMax;

template <size_t... K>
constexpr std::array<WidenFn, sizeof...(K)> MakeWidenTable(std::index_sequence<K...>) {
    // Entry K is shape (K / kWidenMax + 1) -> (K % kWidenMax + 1); entries that do not widen
    // are never called and hold the equal-count kernel.
    return {{&WidenFixed<K / kWidenMax + 1,
                         (K % kWidenMax >= K / kWidenMax ? K % kWidenMax + 1 : K / kWidenMax + 1)>...}};
}

constexpr std::array<WidenFn, kWidenShapes> kWidenTable =
    MakeWidenTable(std::make_index_sequence<kWidenShapes>());

void PickFirst(const unsigned char* __restrict in, unsigned char* __restrict out, size_t frames,
               size_t inChn) {
    for (size_t f = 0; f < frames; f++) {
        Store16(out + f * 2, Load16(in + f * inChn * kSampleBytes));
    }
}

void PickPair(const unsigned char* __restrict in, unsigned char* __restrict out, size_t frames,
              size_t inChn) {
    for (size_t f = 0; f < frames; f++) {
        Store32(out + f * 4, Load32(in + f * inChn * kSampleBytes));
    }
}

void NarrowGeneric(const unsigned char* __restrict in, unsigned char* __restrict out, size_t frames,
                   size_t inChn, size_t outChn) {
    for (size_t f = 0; f < frames; f++) {
        std::memcpy(out + f * outChn * kSampleBytes, in + f * inChn * kSampleBytes, outChn * kSampleBytes);
    }
}

}  // namespace

void RematrixReference(const unsigned char* in, unsigned char* out, int frames, int inChn, int outChn) {
    const size_t inFrame = static_cast<size_t>(inChn) * kSampleBytes;
    const size_t outFrame = static_cast<size_t>(outChn) * kSampleBytes;
    if (inChn <= outChn) {
        for (int f = frames - 1; f >= 0; f--) {
            for (int c = outChn - 1; c >= 0; c--) {
                uint16_t s = Load16(in + f * inFrame + static_cast<size_t>(c % inChn) * kSampleBytes);
                Store16(out + f * outFrame + static_cast<size_t>(c) * kSampleBytes, s);
            }
        }
        return;
    }
    for (int f = 0; f < frames; f++) {
        for (int c = 0; c < outChn; c++) {
            uint16_t s = Load16(in + f * inFrame + static_cast<size_t>(c) * kSampleBytes);
            Store16(out + f * outFrame + static_cast<size_t>(c) * kSampleBytes, s);
        }
    }
}

void RematrixPortable(const unsigned char* in, unsigned char* out, int frames, int inChn, int outChn) {
    const size_t n = static_cast<size_t>(frames);
    const size_t ic = static_cast<size_t>(inChn);
    const size_t oc = static_cast<size_t>(outChn);
    if (oc == 0) {
        return;
    }
    if (ic == oc) {
        std::memcpy(out, in, n * ic * kSampleBytes);
    } else if (ic < oc) {
        if (ic == 1 && oc == 2) {
            MonoToStereo(in, out, n);
        } else if (ic == 1) {
            MonoToMany(in, out, n, oc);
        } else if (ic == 2 && oc % 2 == 0) {
            PairRepeat(in, out, n, oc);
        } else if (oc <= kWidenMax) {
            kWidenTable[(ic - 1) * kWidenMax + (oc - 1)](in, out, n);
        } else {
            WidenGeneric(in, out, n, ic, oc);
        }
    } else if (oc == 1) {
        PickFirst(in, out, n, ic);
    } else if (oc == 2) {
        PickPair(in, out, n, ic);
    } else {
        NarrowGeneric(in, out, n, ic, oc);
    }
}

#if defined(__x86_64__)

namespace {

// 16 frames per step; the rest goes through the portable loop.
__attribute__((target("avx2"))) void MonoToStereoAvx2(const unsigned char* in, unsigned char* out, size_t n) {
    size_t f = 0;
    for (; f + 16 <= n; f += 16) {
        __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + f * 2));
        __m256i lo = _mm256_unpacklo_epi16(x, x);  // frames 0-3 | 8-11, each sample twice
        __m256i hi = _mm256_unpackhi_epi16(x, x);  // frames 4-7 | 12-15
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + f * 4), _mm256_permute2x128_si256(lo, hi, 0x20));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + f * 4 + 32),
                            _mm256_permute2x128_si256(lo, hi, 0x31));
    }
    MonoToStereo(in + f * 2, out + f * 4, n - f);
}

__attribute__((target("avx2"))) void StereoToMonoAvx2(const unsigned char* in, unsigned char* out, size_t n) {
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
    PickFirst(in + f * 4, out + f * 2, n - f, 2);
}

__attribute__((target("avx2"))) void StereoToQuadAvx2(const unsigned char* in, unsigned char* out, size_t n) {
    size_t f = 0;
    for (; f + 8 <= n; f += 8) {
        __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + f * 4));
        __m256i lo = _mm256_unpacklo_epi32(x, x);  // frames 0-1 | 4-5, each pair twice
        __m256i hi = _mm256_unpackhi_epi32(x, x);  // frames 2-3 | 6-7
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + f * 8), _mm256_permute2x128_si256(lo, hi, 0x20));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + f * 8 + 32),
                            _mm256_permute2x128_si256(lo, hi, 0x31));
    }
    PairRepeat(in + f * 4, out + f * 8, n - f, 4);
}

__attribute__((target("avx2"))) void QuadToStereoAvx2(const unsigned char* in, unsigned char* out, size_t n) {
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
    PickPair(in + f * 8, out + f * 4, n - f, 4);
}

}  // namespace

bool RematrixHasAvx2() {
    static const bool has = [] {
        __builtin_cpu_init();
        return __builtin_cpu_supports("avx2") != 0;
    }();
    return has;
}

bool RematrixAvx2(const unsigned char* in, unsigned char* out, int frames, int inChn, int outChn) {
    const size_t n = static_cast<size_t>(frames);
    if (inChn == 1 && outChn == 2) {
        MonoToStereoAvx2(in, out, n);
    } else if (inChn == 2 && outChn == 1) {
        StereoToMonoAvx2(in, out, n);
    } else if (inChn == 2 && outChn == 4) {
        StereoToQuadAvx2(in, out, n);
    } else if (inChn == 4 && outChn == 2) {
        QuadToStereoAvx2(in, out, n);
    } else {
        return false;
    }
    return true;
}

#endif  // __x86_64__

void RematrixFast(const unsigned char* in, unsigned char* out, int frames, int inChn, int outChn) {
#if defined(__x86_64__)
    if (RematrixHasAvx2() && RematrixAvx2(in, out, frames, inChn, outChn)) {
        return;
    }
#endif
    RematrixPortable(in, out, frames, inChn, outChn);
}

}  // namespace audiomw
