// The reference rematrix: the mapping rule, one sample at a time.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "rematrix_kernel.h"

namespace audiomw {

namespace {

constexpr size_t kSampleBytes = 2;

uint16_t Load16(const unsigned char* p) {
    uint16_t v;
    std::memcpy(&v, p, sizeof(v));
    return v;
}

void Store16(unsigned char* p, uint16_t v) {
    std::memcpy(p, &v, sizeof(v));
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

}  // namespace audiomw
