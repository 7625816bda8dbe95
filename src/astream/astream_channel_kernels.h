// Sample kernels of the channel nodes, separate from the node glue. Each has a reference
// version (the definition of the result, astream_channel_kernels_reference.cpp) and sets
// of versions specialised for small channel counts, one per instruction set: portable
// vectors that every processor runs, AVX2 on x86-64 processors that have it, NEON on
// arm64. Each equals the reference byte for byte; the nodes run the best set this
// processor has (the dispatch, astream_channel_kernels.cpp).
//
// Buffers are bytes holding 16-bit little-endian samples with no alignment promise;
// frames counts are per channel block. Split and merge read one buffer and write
// another, which must not overlap. Mixin works in place and may find its target block
// inside the group it averages.
#ifndef AUDIOMW_SRC_ASTREAM_ASTREAM_CHANNEL_KERNELS_H
#define AUDIOMW_SRC_ASTREAM_ASTREAM_CHANNEL_KERNELS_H

#include <cstddef>
#include <cstdint>

namespace audiomw {
namespace astream {

// Frames of (a + b) samples at pSrc become frames of a samples at pDstA and frames of
// b samples at pDstB.
void SplitFramesRef(const uint8_t* pSrc, uint8_t* pDstA, uint8_t* pDstB, uint32_t u32Frames, uint32_t u32CntA,
                    uint32_t u32CntB);
void SplitFrames(const uint8_t* pSrc, uint8_t* pDstA, uint8_t* pDstB, uint32_t u32Frames, uint32_t u32CntA,
                 uint32_t u32CntB);

// Frames of a samples at pSrcA and of b samples at pSrcB become frames of (a + b)
// samples at pDst, A's samples first.
void MergeFramesRef(const uint8_t* pSrcA, const uint8_t* pSrcB, uint8_t* pDst, uint32_t u32Frames,
                    uint32_t u32CntA, uint32_t u32CntB);
void MergeFrames(const uint8_t* pSrcA, const uint8_t* pSrcB, uint8_t* pDst, uint32_t u32Frames,
                 uint32_t u32CntA, uint32_t u32CntB);

// Per frame f, in increasing order: target[f] = (target[f] + the c samples of group
// frame f) / (c + 1), truncated toward zero. c = 0 leaves the target as it is.
void MixinFramesRef(uint8_t* pTarget, const uint8_t* pGroup, uint32_t u32Frames, uint32_t u32Cnt);
void MixinFrames(uint8_t* pTarget, const uint8_t* pGroup, uint32_t u32Frames, uint32_t u32Cnt);

// One instruction set's kernels, with the reference loops for counts past its
// specialised range and for a mixin whose target lies in its group.
struct ChannelKernelSet {
    const char* pcName;
    void (*pfnSplit)(const uint8_t* pSrc, uint8_t* pDstA, uint8_t* pDstB, uint32_t u32Frames,
                     uint32_t u32CntA, uint32_t u32CntB);
    void (*pfnMerge)(const uint8_t* pSrcA, const uint8_t* pSrcB, uint8_t* pDst, uint32_t u32Frames,
                     uint32_t u32CntA, uint32_t u32CntB);
    void (*pfnMixin)(uint8_t* pTarget, const uint8_t* pGroup, uint32_t u32Frames, uint32_t u32Cnt);
};

// The sets this build holds that this processor runs: "portable" first, then "avx2" or
// "neon" where there is one; the last is the one SplitFrames, MergeFrames and
// MixinFrames run. *pu32Count receives their number.
const ChannelKernelSet* ChannelKernelSets(uint32_t* pu32Count);

// A node rewrote blocks [u32Offset, u32Offset + u32Cnt) of pOut from pIn; completes the
// frame period of u32Chn blocks of u32Block bytes in whichever buffer needs the smaller
// copy. When u32Cnt < u32Chn / 2 the group goes back into pIn and the result is true (the
// data is in pIn); otherwise the blocks before and after the group go from pIn into
// pOut and the result is false (the data is in pOut).
bool CompleteGroupRewrite(uint8_t* pIn, uint8_t* pOut, uint32_t u32Offset, uint32_t u32Cnt, uint32_t u32Chn,
                          size_t u32Block);

}  // namespace astream
}  // namespace audiomw

#endif  // AUDIOMW_SRC_ASTREAM_ASTREAM_CHANNEL_KERNELS_H
