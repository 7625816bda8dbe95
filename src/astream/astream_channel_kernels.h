// Sample kernels of the channel nodes, separate from the node glue. Each has a reference
// version (the definition of the result, astream_channel_kernels_reference.cpp) and sets
// of versions specialised for small channel counts, one per instruction set: portable
// vectors that every processor runs, AVX2 and AVX-512 on x86-64 processors that have
// them, NEON on arm64. Each equals the reference byte for byte; the nodes run the best set this
// processor has (the dispatch, astream_channel_kernels.cpp).
//
// Buffers are bytes holding 16-bit little-endian samples with no alignment promise;
// frames counts are per channel block. Split and merge read one buffer and write
// another, which must not overlap, with one exception each that lets a node rewrite a
// group where it lies: split's pDstA may be pSrc itself (B still goes elsewhere), and
// merge's pDst may be pSrcB - a * frames * 2 (A taken from elsewhere). Both hold because
// the kernels move frames in increasing order and read each frame, or each vector of
// frames, before writing anything that lands on it; the output then never passes the
// input still to be read. Mixin works in place and may find its target block inside the
// group it averages.
#ifndef AUDIOMW_SRC_ASTREAM_ASTREAM_CHANNEL_KERNELS_H
#define AUDIOMW_SRC_ASTREAM_ASTREAM_CHANNEL_KERNELS_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "astream_channel_kernels_table.h"

namespace audiomw {
namespace astream {

// Frames of (a + b) samples at pSrc become frames of a samples at pDstA and frames of
// b samples at pDstB.
void SplitFramesRef(const uint8_t* pSrc, uint8_t* pDstA, uint8_t* pDstB, uint32_t u32Frames, uint32_t u32CntA,
                    uint32_t u32CntB);

// Frames of a samples at pSrcA and of b samples at pSrcB become frames of (a + b)
// samples at pDst, A's samples first.
void MergeFramesRef(const uint8_t* pSrcA, const uint8_t* pSrcB, uint8_t* pDst, uint32_t u32Frames,
                    uint32_t u32CntA, uint32_t u32CntB);

// Per frame f, in increasing order: target[f] = (target[f] + the c samples of group
// frame f) / (c + 1), truncated toward zero. c = 0 leaves the target as it is.
void MixinFramesRef(uint8_t* pTarget, const uint8_t* pGroup, uint32_t u32Frames, uint32_t u32Cnt);

// Block i of pIn (u32Block bytes) to block ps32Map[i] of pOut, for i from 0 to u32Chn - 1
// in that order; every entry names a block of pOut, which does not overlap pIn.
void SwapBlocksRef(const uint8_t* pIn, uint8_t* pOut, const int32_t* ps32Map, uint32_t u32Chn,
                   size_t u32Block);

// One instruction set's kernels, with the reference loops for counts past its
// specialised range and for a mixin whose target lies in its group.
struct ChannelKernelSet {
    const char* pcName;
    void (*pfnSplit)(const uint8_t* pSrc, uint8_t* pDstA, uint8_t* pDstB, uint32_t u32Frames,
                     uint32_t u32CntA, uint32_t u32CntB);
    void (*pfnMerge)(const uint8_t* pSrcA, const uint8_t* pSrcB, uint8_t* pDst, uint32_t u32Frames,
                     uint32_t u32CntA, uint32_t u32CntB);
    void (*pfnMixin)(uint8_t* pTarget, const uint8_t* pGroup, uint32_t u32Frames, uint32_t u32Cnt);
    SwapBlocksFn pfnSwap;
};

// The sets this build holds that this processor runs: "portable" first, then "avx2" and
// "avx512", or "neon", where the processor has them; the last is the one SplitFrames, MergeFrames,
// MixinFrames and SwapBlocks run. *pu32Count receives their number.
const ChannelKernelSet* ChannelKernelSets(uint32_t* pu32Count);

// The table of the best instruction set this processor runs, chosen when the library
// loads.
extern const ChannelKernelTable* const gpstActiveChannelKernels;

// The kernels of `stTable` where it has one for the counts, the reference otherwise. The
// fixed mixin kernels read a frame's group before writing its target only when the two
// do not overlap; a target inside its group takes the reference's frame order.
inline void SplitFramesWith(const ChannelKernelTable& stTable, const uint8_t* pSrc, uint8_t* pDstA,
                            uint8_t* pDstB, uint32_t u32Frames, uint32_t u32CntA, uint32_t u32CntB) {
    if (u32CntA <= kFixedMax && u32CntB <= kFixedMax) {
        stTable.apfnSplit[u32CntA * (kFixedMax + 1) + u32CntB](pSrc, pDstA, pDstB, u32Frames);
    } else {
        SplitFramesRef(pSrc, pDstA, pDstB, u32Frames, u32CntA, u32CntB);
    }
}

inline void MergeFramesWith(const ChannelKernelTable& stTable, const uint8_t* pSrcA, const uint8_t* pSrcB,
                            uint8_t* pDst, uint32_t u32Frames, uint32_t u32CntA, uint32_t u32CntB) {
    if (u32CntA <= kFixedMax && u32CntB <= kFixedMax) {
        stTable.apfnMerge[u32CntA * (kFixedMax + 1) + u32CntB](pSrcA, pSrcB, pDst, u32Frames);
    } else {
        MergeFramesRef(pSrcA, pSrcB, pDst, u32Frames, u32CntA, u32CntB);
    }
}

inline void MixinFramesWith(const ChannelKernelTable& stTable, uint8_t* pTarget, const uint8_t* pGroup,
                            uint32_t u32Frames, uint32_t u32Cnt) {
    const size_t u32TargetLen = static_cast<size_t>(u32Frames) * 2;
    const bool bOverlap = pTarget < pGroup + u32TargetLen * u32Cnt && pGroup < pTarget + u32TargetLen;
    if (u32Cnt == 0 || u32Cnt > kFixedMax || bOverlap) {
        MixinFramesRef(pTarget, pGroup, u32Frames, u32Cnt);
    } else {
        stTable.apfnMixin[u32Cnt](pTarget, pGroup, u32Frames);
    }
}

// What the nodes run. Inline, so that a node's call reaches the kernel through one
// table lookup: with small groups the calls cost as much as the samples.
inline void SplitFrames(const uint8_t* pSrc, uint8_t* pDstA, uint8_t* pDstB, uint32_t u32Frames,
                        uint32_t u32CntA, uint32_t u32CntB) {
    SplitFramesWith(*gpstActiveChannelKernels, pSrc, pDstA, pDstB, u32Frames, u32CntA, u32CntB);
}

inline void MergeFrames(const uint8_t* pSrcA, const uint8_t* pSrcB, uint8_t* pDst, uint32_t u32Frames,
                        uint32_t u32CntA, uint32_t u32CntB) {
    MergeFramesWith(*gpstActiveChannelKernels, pSrcA, pSrcB, pDst, u32Frames, u32CntA, u32CntB);
}

inline void MixinFrames(uint8_t* pTarget, const uint8_t* pGroup, uint32_t u32Frames, uint32_t u32Cnt) {
    MixinFramesWith(*gpstActiveChannelKernels, pTarget, pGroup, u32Frames, u32Cnt);
}

inline void SwapBlocks(const uint8_t* pIn, uint8_t* pOut, const int32_t* ps32Map, uint32_t u32Chn,
                       size_t u32Block) {
    gpstActiveChannelKernels->pfnSwap(pIn, pOut, ps32Map, u32Chn, u32Block);
}

// Whether a split or merge of a group of u32Cnt of u32Chn blocks leaves the period in
// pIn (the group is rewritten where it lies) rather than in pOut (the rest is copied
// around the group): the cheaper copy, u32Cnt < u32Chn / 2.
inline bool GroupStaysInPlace(uint32_t u32Cnt, uint32_t u32Chn) {
    return u32Cnt < (u32Chn >> 1);
}

// A node wrote blocks [u32Offset, u32Offset + u32Cnt) of pOut from pIn; completes the
// frame period of u32Chn blocks of u32Block bytes in pOut by copying the blocks before
// and after the group from pIn. Copies of no bytes are skipped.
inline void CompleteAroundGroup(const uint8_t* pIn, uint8_t* pOut, uint32_t u32Offset, uint32_t u32Cnt,
                                uint32_t u32Chn, size_t u32Block) {
    const size_t u32GroupStart = u32Offset * u32Block;
    const size_t u32GroupEnd = (static_cast<size_t>(u32Offset) + u32Cnt) * u32Block;
    const size_t u32End = u32Chn * u32Block;
    if (u32GroupStart > 0) {
        std::memcpy(pOut, pIn, u32GroupStart);
    }
    if (u32GroupEnd < u32End) {
        std::memcpy(pOut + u32GroupEnd, pIn + u32GroupEnd, u32End - u32GroupEnd);
    }
}

}  // namespace astream
}  // namespace audiomw

#endif  // AUDIOMW_SRC_ASTREAM_ASTREAM_CHANNEL_KERNELS_H
