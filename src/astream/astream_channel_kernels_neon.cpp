// The channel kernels for arm64 processors, all of which have NEON (Advanced SIMD).
// Split and merge of up to 4 channels in all move frames with the structure loads and
// stores (LD2-LD4, ST2-ST4); wider frames run the fixed-count gathers with 16-bit shapes
// of any kind, which NEON's table lookups make cheap. Mixin de-interleaves small groups
// with the structure loads and sums wider frames as rows.
#include "astream_channel_kernels_fixed.h"

#if defined(__aarch64__)
#include "neon_channels.h"

namespace audiomw {
namespace astream {
namespace {

// The mixin quotient, truncated toward zero, of 4 sums below 2^24 in magnitude: they
// convert to float exactly and the reciprocal is rounded up, so a multiple of C + 1
// gives at least its quotient and no other sum reaches the next integer.
template <uint32_t C>
KERNEL_INLINE int32x4_t Quotient(int32x4_t sum) {
    constexpr float kReciprocal = 1.0f / float(C + 1);
    static_assert(double(kReciprocal) * (C + 1) >= 1.0, "the reciprocal must not be below 1 / (C + 1)");
    return vcvtq_s32_f32(vmulq_n_f32(vcvtq_f32_s32(sum), kReciprocal));
}

// The structure loads take 16-bit element pointers; they have no alignment requirement.
KERNEL_INLINE const int16_t* Samples(const uint8_t* p) {
    return reinterpret_cast<const int16_t*>(p);
}

// Group sums of 8 frames of C <= 4 samples, frames 0-3 in lo and 4-7 in hi.
template <uint32_t C>
KERNEL_INLINE void GroupSums8(const uint8_t* pG, int32x4_t& lo, int32x4_t& hi) {
    if constexpr (C == 1) {
        const int16x8_t v = vreinterpretq_s16_u8(vld1q_u8(pG));
        lo = vmovl_s16(vget_low_s16(v));
        hi = vmovl_high_s16(v);
    } else if constexpr (C == 2) {
        const int16x8x2_t v = vld2q_s16(Samples(pG));
        lo = vaddl_s16(vget_low_s16(v.val[0]), vget_low_s16(v.val[1]));
        hi = vaddl_high_s16(v.val[0], v.val[1]);
    } else if constexpr (C == 3) {
        const int16x8x3_t v = vld3q_s16(Samples(pG));
        lo = vaddw_s16(vaddl_s16(vget_low_s16(v.val[0]), vget_low_s16(v.val[1])), vget_low_s16(v.val[2]));
        hi = vaddw_high_s16(vaddl_high_s16(v.val[0], v.val[1]), v.val[2]);
    } else {
        const int16x8x4_t v = vld4q_s16(Samples(pG));
        lo = vaddq_s32(vaddl_s16(vget_low_s16(v.val[0]), vget_low_s16(v.val[1])),
                       vaddl_s16(vget_low_s16(v.val[2]), vget_low_s16(v.val[3])));
        hi = vaddq_s32(vaddl_high_s16(v.val[0], v.val[1]), vaddl_high_s16(v.val[2], v.val[3]));
    }
}

// Wider frames (5 to 8 samples): each frame's row of 8 samples from its start, the
// samples past C masked off, pairwise sums down to one per frame. Rows read 16 bytes,
// so they stop before a row would pass the group's end.
template <uint32_t C>
KERNEL_INLINE int32x4_t RowSums4(const uint8_t* pG, int16x8_t mask) {
    int32x4_t r[4];
    for (uint32_t k = 0; k < 4; k++) {
        const int16x8_t row = vandq_s16(vreinterpretq_s16_u8(vld1q_u8(pG + kSampleBytes * C * k)), mask);
        r[k] = vpaddlq_s16(row);
    }
    return vpaddq_s32(vpaddq_s32(r[0], r[1]), vpaddq_s32(r[2], r[3]));
}

// One channel: the halving add gives the floored half of t + g, which a negative odd
// sum raises by 1.
size_t MixinOneNeon(uint8_t* pTarget, const uint8_t* pGroup, size_t n) {
    size_t f = 0;
    for (; f + 8 <= n; f += 8) {
        const int16x8_t t = vreinterpretq_s16_u8(vld1q_u8(pTarget + kSampleBytes * f));
        const int16x8_t g = vreinterpretq_s16_u8(vld1q_u8(pGroup + kSampleBytes * f));
        const int16x8_t floor = vhaddq_s16(t, g);
        const int16x8_t raise =
            vandq_s16(veorq_s16(t, g), vreinterpretq_s16_u16(vshrq_n_u16(vreinterpretq_u16_s16(floor), 15)));
        vst1q_u8(pTarget + kSampleBytes * f, vreinterpretq_u8_s16(vaddq_s16(floor, raise)));
    }
    return f;
}

template <uint32_t C>
size_t MixinNeon(uint8_t* pTarget, const uint8_t* pGroup, size_t n) {
    int16_t as16Mask[8];
    for (uint32_t j = 0; j < 8; j++) {
        as16Mask[j] = j < C ? -1 : 0;
    }
    const int16x8_t mask = vld1q_s16(as16Mask);
    // Structure loads read exactly the 8 frames; rows read up to 16 bytes from the last
    // frame's start.
    constexpr size_t kOverRead = C <= 4 ? 0 : 8 - C;
    size_t f = 0;
    for (; f + 8 <= n && C * (f + 8) + kOverRead <= C * n; f += 8) {
        const uint8_t* pG = pGroup + kSampleBytes * C * f;
        uint8_t* pT = pTarget + kSampleBytes * f;
        int32x4_t lo;
        int32x4_t hi;
        if constexpr (C <= 4) {
            GroupSums8<C>(pG, lo, hi);
        } else {
            lo = RowSums4<C>(pG, mask);
            hi = RowSums4<C>(pG + kSampleBytes * C * 4, mask);
        }
        const int16x8_t t = vreinterpretq_s16_u8(vld1q_u8(pT));
        lo = vaddw_s16(lo, vget_low_s16(t));
        hi = vaddw_high_s16(hi, t);
        const int16x8_t q = vcombine_s16(vmovn_s32(Quotient<C>(lo)), vmovn_s32(Quotient<C>(hi)));
        vst1q_u8(pT, vreinterpretq_u8_s16(q));
    }
    return f;
}

// ---- Split and merge of up to 4 channels in all -----------------------------------------
//
// The structure loads de-interleave 8 frames of A + B <= 4 samples into one register per
// channel; the structure stores interleave A's and B's registers into their frames.
using neon::LoadChannels;
using neon::StoreChannels;

template <uint32_t A, uint32_t B>
void SplitStructured(const uint8_t* pSrc, uint8_t* pDstA, uint8_t* pDstB, uint32_t u32Frames) {
    size_t f = 0;
    for (; f + 8 <= u32Frames; f += 8) {
        uint16x8_t v[A + B];
        LoadChannels<A + B>(pSrc + kSampleBytes * (A + B) * f, v);
        StoreChannels<A>(pDstA + kSampleBytes * A * f, v);
        StoreChannels<B>(pDstB + kSampleBytes * B * f, v + A);
    }
    CopyFrames<A + B, A, B>(pSrc, pDstB, f, u32Frames - f);
    CopyFrames<A + B, 0, A>(pSrc, pDstA, f, u32Frames - f);
}

template <uint32_t A, uint32_t B>
void MergeStructured(const uint8_t* pSrcA, const uint8_t* pSrcB, uint8_t* pDst, uint32_t u32Frames) {
    size_t f = 0;
    for (; f + 8 <= u32Frames; f += 8) {
        uint16x8_t v[A + B];
        LoadChannels<A>(pSrcA + kSampleBytes * A * f, v);
        LoadChannels<B>(pSrcB + kSampleBytes * B * f, v + A);
        StoreChannels<A + B>(pDst + kSampleBytes * (A + B) * f, v);
    }
    PlaceFrames<A + B, A, B>(pSrcB, pDst, f, u32Frames - f);
    PlaceFrames<A + B, 0, A>(pSrcA, pDst, f, u32Frames - f);
}

template <uint32_t A, uint32_t B>
constexpr void UseStructured(ChannelKernelTable& stTable) {
    stTable.apfnSplit[A * (kFixedMax + 1) + B] = &SplitStructured<A, B>;
    stTable.apfnMerge[A * (kFixedMax + 1) + B] = &MergeStructured<A, B>;
}

struct NeonIsa {
    static constexpr int kBytes = 16;
    static constexpr bool kAny16 = true;
    static constexpr int kMaxInputs16 = 4;

    template <uint32_t C>
    static void Mixin(uint8_t* pTarget, const uint8_t* pGroup, uint32_t u32Frames) {
        size_t f = 0;
        if constexpr (C == 1) {
            f = MixinOneNeon(pTarget, pGroup, u32Frames);
        } else if constexpr (C >= 2) {
            f = MixinNeon<C>(pTarget, pGroup, u32Frames);
        }
        MixinLoop<C>(pTarget + kSampleBytes * f, pGroup + kSampleBytes * C * f, u32Frames - f);
    }
};

}  // namespace

namespace {

constexpr ChannelKernelTable MakeNeonTable() {
    ChannelKernelTable stTable = MakeTable<NeonIsa>();
    UseStructured<1, 1>(stTable);
    UseStructured<1, 2>(stTable);
    UseStructured<2, 1>(stTable);
    UseStructured<1, 3>(stTable);
    UseStructured<2, 2>(stTable);
    UseStructured<3, 1>(stTable);
    return stTable;
}

}  // namespace

constexpr ChannelKernelTable kNeonChannelKernels = MakeNeonTable();

}  // namespace astream
}  // namespace audiomw

#endif  // __aarch64__
