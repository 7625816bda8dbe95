// The dispatch table of the channel kernels: one table per instruction set, each defined
// in the file compiled for that set, and the shape limits they share.
#ifndef AUDIOMW_SRC_ASTREAM_ASTREAM_CHANNEL_KERNELS_TABLE_H
#define AUDIOMW_SRC_ASTREAM_ASTREAM_CHANNEL_KERNELS_TABLE_H

#include <cstddef>
#include <cstdint>

namespace audiomw {
namespace astream {

// Channel counts up to this value have a kernel with the counts fixed at compile time;
// larger ones run the reference loops.
constexpr uint32_t kFixedMax = 8;
constexpr size_t kFixedPairs = (kFixedMax + 1) * (kFixedMax + 1);

using SplitFixedFn = void (*)(const uint8_t* pSrc, uint8_t* pDstA, uint8_t* pDstB, uint32_t u32Frames);
using MergeFixedFn = void (*)(const uint8_t* pSrcA, const uint8_t* pSrcB, uint8_t* pDst, uint32_t u32Frames);
using MixinFixedFn = void (*)(uint8_t* pTarget, const uint8_t* pGroup, uint32_t u32Frames);
using SwapBlocksFn = void (*)(const uint8_t* pIn, uint8_t* pOut, const int32_t* ps32Map, uint32_t u32Chn,
                              size_t u32Block);

// Split and merge of a + b channels at [a * (kFixedMax + 1) + b]; mixin of c channels at
// [c], target and group not overlapping; the block moves of a swap.
struct ChannelKernelTable {
    SplitFixedFn apfnSplit[kFixedPairs];
    MergeFixedFn apfnMerge[kFixedPairs];
    MixinFixedFn apfnMixin[kFixedMax + 1];
    SwapBlocksFn pfnSwap;
};

// Vectors of the compiler's generic form: SSE2 on any x86-64, NEON on any arm64.
extern const ChannelKernelTable kPortableChannelKernels;
#if defined(__x86_64__)
extern const ChannelKernelTable kAvx2ChannelKernels;    // only for processors with AVX2
extern const ChannelKernelTable kAvx512ChannelKernels;  // only with AVX-512 BW, VL, VBMI, VNNI
#endif
#if defined(__aarch64__)
extern const ChannelKernelTable kNeonChannelKernels;
#endif

}  // namespace astream
}  // namespace audiomw

#endif  // AUDIOMW_SRC_ASTREAM_ASTREAM_CHANNEL_KERNELS_TABLE_H
