// The portable rematrix: loops specialised by shape, written for the compiler to
// vectorise, run by every processor and for the frames the vector heads leave.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "rematrix_kernel.h"

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

}  // namespace audiomw
