// The rematrix heads for arm64 processors, all of which have NEON: the structure loads
// and stores (LD2, ST2) interleave and de-interleave 16-bit samples or 32-bit pairs as
// they move, 8 frames per step.
#include "rematrix_kernel_heads.h"

#if defined(__aarch64__)
#include <arm_neon.h>

#include <cstdint>

namespace audiomw {

namespace {

// The structure loads and stores take element pointers; they have no alignment
// requirement.
const uint16_t* In16(const unsigned char* p) {
    return reinterpret_cast<const uint16_t*>(p);
}

uint16_t* Out16(unsigned char* p) {
    return reinterpret_cast<uint16_t*>(p);
}

const uint32_t* In32(const unsigned char* p) {
    return reinterpret_cast<const uint32_t*>(p);
}

uint32_t* Out32(unsigned char* p) {
    return reinterpret_cast<uint32_t*>(p);
}

size_t MonoToStereoNeon(const unsigned char* in, unsigned char* out, size_t n) {
    size_t f = 0;
    for (; f + 8 <= n; f += 8) {
        const uint16x8_t v = vld1q_u16(In16(in + f * 2));
        vst2q_u16(Out16(out + f * 4), (uint16x8x2_t{{v, v}}));
    }
    return f;
}

size_t StereoToMonoNeon(const unsigned char* in, unsigned char* out, size_t n) {
    size_t f = 0;
    for (; f + 8 <= n; f += 8) {
        vst1q_u16(Out16(out + f * 2), vld2q_u16(In16(in + f * 4)).val[0]);
    }
    return f;
}

// Each frame's pair as one 32-bit element: repeated for 2 -> 4, every other kept for 4 -> 2.
size_t StereoToQuadNeon(const unsigned char* in, unsigned char* out, size_t n) {
    size_t f = 0;
    for (; f + 8 <= n; f += 8) {
        const uint32x4_t lo = vld1q_u32(In32(in + f * 4));
        const uint32x4_t hi = vld1q_u32(In32(in + f * 4 + 16));
        vst2q_u32(Out32(out + f * 8), (uint32x4x2_t{{lo, lo}}));
        vst2q_u32(Out32(out + f * 8 + 32), (uint32x4x2_t{{hi, hi}}));
    }
    return f;
}

size_t QuadToStereoNeon(const unsigned char* in, unsigned char* out, size_t n) {
    size_t f = 0;
    for (; f + 8 <= n; f += 8) {
        vst1q_u32(Out32(out + f * 4), vld2q_u32(In32(in + f * 8)).val[0]);
        vst1q_u32(Out32(out + f * 4 + 16), vld2q_u32(In32(in + f * 8 + 32)).val[0]);
    }
    return f;
}

}  // namespace

size_t RematrixHeadNeon(const unsigned char* in, unsigned char* out, size_t n, int inChn, int outChn) {
    if (inChn == 1 && outChn == 2) {
        return MonoToStereoNeon(in, out, n);
    }
    if (inChn == 2 && outChn == 1) {
        return StereoToMonoNeon(in, out, n);
    }
    if (inChn == 2 && outChn == 4) {
        return StereoToQuadNeon(in, out, n);
    }
    if (inChn == 4 && outChn == 2) {
        return QuadToStereoNeon(in, out, n);
    }
    return 0;
}

}  // namespace audiomw

#endif  // __aarch64__
