// NEON structure loads and stores of 8 interleaved frames of N <= 4 16-bit channels:
// LD1-LD4 de-interleave them into one register per channel, ST1-ST4 interleave the
// registers back into frames. They take element pointers and need no alignment. Shared
// by the arm64 channel and rematrix kernels; include only in code built for arm64.
#ifndef AUDIOMW_SRC_COMMON_NEON_CHANNELS_H
#define AUDIOMW_SRC_COMMON_NEON_CHANNELS_H

#include <arm_neon.h>

#include <cstdint>

namespace audiomw {
namespace neon {

template <uint32_t N>
inline __attribute__((always_inline)) void LoadChannels(const uint8_t* p, uint16x8_t* v) {
    static_assert(N >= 1 && N <= 4, "structure loads take 1 to 4 channels");
    const uint16_t* s = reinterpret_cast<const uint16_t*>(p);
    if constexpr (N == 1) {
        v[0] = vld1q_u16(s);
    } else if constexpr (N == 2) {
        const uint16x8x2_t x = vld2q_u16(s);
        v[0] = x.val[0];
        v[1] = x.val[1];
    } else if constexpr (N == 3) {
        const uint16x8x3_t x = vld3q_u16(s);
        v[0] = x.val[0];
        v[1] = x.val[1];
        v[2] = x.val[2];
    } else {
        const uint16x8x4_t x = vld4q_u16(s);
        v[0] = x.val[0];
        v[1] = x.val[1];
        v[2] = x.val[2];
        v[3] = x.val[3];
    }
}

template <uint32_t N>
inline __attribute__((always_inline)) void StoreChannels(uint8_t* p, const uint16x8_t* v) {
    static_assert(N >= 1 && N <= 4, "structure stores take 1 to 4 channels");
    uint16_t* d = reinterpret_cast<uint16_t*>(p);
    if constexpr (N == 1) {
        vst1q_u16(d, v[0]);
    } else if constexpr (N == 2) {
        vst2q_u16(d, (uint16x8x2_t{{v[0], v[1]}}));
    } else if constexpr (N == 3) {
        vst3q_u16(d, (uint16x8x3_t{{v[0], v[1], v[2]}}));
    } else {
        vst4q_u16(d, (uint16x8x4_t{{v[0], v[1], v[2], v[3]}}));
    }
}

}  // namespace neon
}  // namespace audiomw

#endif  // AUDIOMW_SRC_COMMON_NEON_CHANNELS_H
