// The dispatch of the channel kernels: the table of the best instruction set this
// processor runs, chosen once, and the reference loops for what no table covers.
#include "astream_channel_kernels.h"

#include <cstring>

#include "astream_channel_kernels_table.h"

namespace audiomw {
namespace astream {

namespace {

bool Overlap(const uint8_t* pA, size_t u32LenA, const uint8_t* pB, size_t u32LenB) {
    return pA < pB + u32LenB && pB < pA + u32LenA;
}

inline void SplitWith(const ChannelKernelTable& stTable, const uint8_t* pSrc, uint8_t* pDstA, uint8_t* pDstB,
                      uint32_t u32Frames, uint32_t u32CntA, uint32_t u32CntB) {
    if (u32CntA <= kFixedMax && u32CntB <= kFixedMax) {
        stTable.apfnSplit[u32CntA * (kFixedMax + 1) + u32CntB](pSrc, pDstA, pDstB, u32Frames);
    } else {
        SplitFramesRef(pSrc, pDstA, pDstB, u32Frames, u32CntA, u32CntB);
    }
}

inline void MergeWith(const ChannelKernelTable& stTable, const uint8_t* pSrcA, const uint8_t* pSrcB,
                      uint8_t* pDst, uint32_t u32Frames, uint32_t u32CntA, uint32_t u32CntB) {
    if (u32CntA <= kFixedMax && u32CntB <= kFixedMax) {
        stTable.apfnMerge[u32CntA * (kFixedMax + 1) + u32CntB](pSrcA, pSrcB, pDst, u32Frames);
    } else {
        MergeFramesRef(pSrcA, pSrcB, pDst, u32Frames, u32CntA, u32CntB);
    }
}

// The fixed kernels read the whole group before writing each target frame only when
// the two do not overlap; a target inside the group takes the reference's frame order.
inline void MixinWith(const ChannelKernelTable& stTable, uint8_t* pTarget, const uint8_t* pGroup,
                      uint32_t u32Frames, uint32_t u32Cnt) {
    const size_t u32TargetLen = static_cast<size_t>(u32Frames) * 2;
    if (u32Cnt == 0 || u32Cnt > kFixedMax || Overlap(pTarget, u32TargetLen, pGroup, u32TargetLen * u32Cnt)) {
        MixinFramesRef(pTarget, pGroup, u32Frames, u32Cnt);
    } else {
        stTable.apfnMixin[u32Cnt](pTarget, pGroup, u32Frames);
    }
}

template <const ChannelKernelTable& T>
void SplitSet(const uint8_t* pSrc, uint8_t* pDstA, uint8_t* pDstB, uint32_t u32Frames, uint32_t u32CntA,
              uint32_t u32CntB) {
    SplitWith(T, pSrc, pDstA, pDstB, u32Frames, u32CntA, u32CntB);
}

template <const ChannelKernelTable& T>
void MergeSet(const uint8_t* pSrcA, const uint8_t* pSrcB, uint8_t* pDst, uint32_t u32Frames, uint32_t u32CntA,
              uint32_t u32CntB) {
    MergeWith(T, pSrcA, pSrcB, pDst, u32Frames, u32CntA, u32CntB);
}

template <const ChannelKernelTable& T>
void MixinSet(uint8_t* pTarget, const uint8_t* pGroup, uint32_t u32Frames, uint32_t u32Cnt) {
    MixinWith(T, pTarget, pGroup, u32Frames, u32Cnt);
}

template <const ChannelKernelTable& T>
constexpr ChannelKernelSet MakeSet(const char* pcName) {
    return {pcName, &SplitSet<T>, &MergeSet<T>, &MixinSet<T>};
}

#if defined(__x86_64__)
bool HasAvx2() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") != 0;
}
#endif

struct Dispatch {
    ChannelKernelSet astSets[2];
    uint32_t u32Count;
    const ChannelKernelTable* pstActive;
};

Dispatch Choose() {
    Dispatch stD = {{MakeSet<kPortableChannelKernels>("portable")}, 1, &kPortableChannelKernels};
#if defined(__x86_64__)
    if (HasAvx2()) {
        stD.astSets[stD.u32Count++] = MakeSet<kAvx2ChannelKernels>("avx2");
        stD.pstActive = &kAvx2ChannelKernels;
    }
#elif defined(__aarch64__)
    stD.astSets[stD.u32Count++] = MakeSet<kNeonChannelKernels>("neon");
    stD.pstActive = &kNeonChannelKernels;
#endif
    return stD;
}

const Dispatch& TheDispatch() {
    static const Dispatch stDispatch = Choose();
    return stDispatch;
}

}  // namespace

const ChannelKernelSet* ChannelKernelSets(uint32_t* pu32Count) {
    *pu32Count = TheDispatch().u32Count;
    return TheDispatch().astSets;
}

void SplitFrames(const uint8_t* pSrc, uint8_t* pDstA, uint8_t* pDstB, uint32_t u32Frames, uint32_t u32CntA,
                 uint32_t u32CntB) {
    SplitWith(*TheDispatch().pstActive, pSrc, pDstA, pDstB, u32Frames, u32CntA, u32CntB);
}

void MergeFrames(const uint8_t* pSrcA, const uint8_t* pSrcB, uint8_t* pDst, uint32_t u32Frames,
                 uint32_t u32CntA, uint32_t u32CntB) {
    MergeWith(*TheDispatch().pstActive, pSrcA, pSrcB, pDst, u32Frames, u32CntA, u32CntB);
}

void MixinFrames(uint8_t* pTarget, const uint8_t* pGroup, uint32_t u32Frames, uint32_t u32Cnt) {
    MixinWith(*TheDispatch().pstActive, pTarget, pGroup, u32Frames, u32Cnt);
}

// Copies of no bytes are skipped: with small groups the calls cost as much as the copies.
bool CompleteGroupRewrite(uint8_t* pIn, uint8_t* pOut, uint32_t u32Offset, uint32_t u32Cnt, uint32_t u32Chn,
                          size_t u32Block) {
    const size_t u32GroupStart = u32Offset * u32Block;
    const size_t u32GroupEnd = (static_cast<size_t>(u32Offset) + u32Cnt) * u32Block;
    const size_t u32End = u32Chn * u32Block;
    if (u32Cnt < (u32Chn >> 1)) {
        std::memcpy(pIn + u32GroupStart, pOut + u32GroupStart, u32GroupEnd - u32GroupStart);
        return true;
    }
    if (u32GroupStart > 0) {
        std::memcpy(pOut, pIn, u32GroupStart);
    }
    if (u32GroupEnd < u32End) {
        std::memcpy(pOut + u32GroupEnd, pIn + u32GroupEnd, u32End - u32GroupEnd);
    }
    return false;
}

}  // namespace astream
}  // namespace audiomw
