// The rematrix heads for arm64 processors, all of which have NEON: for up to 4 channels
// each way, the structure loads (LD1-LD4) de-interleave 8 frames into one register per
// channel and the structure stores (ST1-ST4) interleave the output channels' registers.
#include "rematrix_kernel_heads.h"

#if defined(__aarch64__)
#include "neon_channels.h"

#include <cstdint>
#include <utility>

namespace audiomw {

namespace {

using neon::LoadChannels;
using neon::StoreChannels;

// I input channels to O output channels, both at most 4: 8 frames per step, one register
// per channel, output channel c from input channel c mod I (c itself when narrowing).
template <int I, int O>
size_t Rematrix(const unsigned char* in, unsigned char* out, size_t n) {
    size_t f = 0;
    for (; f + 8 <= n; f += 8) {
        uint16x8_t vin[I];
        uint16x8_t vout[O];
        LoadChannels<I>(in + f * 2 * I, vin);
        for (int c = 0; c < O; c++) {
            vout[c] = vin[c % I];
        }
        StoreChannels<O>(out + f * 2 * O, vout);
    }
    return f;
}

using HeadFn = size_t (*)(const unsigned char* in, unsigned char* out, size_t n);

template <size_t... K>
constexpr HeadFn kHeads[] = {&Rematrix<int(K / 4) + 1, int(K % 4) + 1>...};

template <size_t... K>
constexpr const HeadFn* Heads(std::index_sequence<K...>) {
    return kHeads<K...>;
}

}  // namespace

// Every shape of 1 to 4 channels each way, equal counts included (a plain copy).
size_t RematrixHeadNeon(const unsigned char* in, unsigned char* out, size_t n, int inChn, int outChn) {
    if (inChn < 1 || inChn > 4 || outChn < 1 || outChn > 4) {
        return 0;
    }
    return Heads(std::make_index_sequence<16>())[(inChn - 1) * 4 + (outChn - 1)](in, out, n);
}

}  // namespace audiomw

#endif  // __aarch64__
