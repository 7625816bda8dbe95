// The reference channel kernels: the definition of each result, one sample at a time.
#include <cstddef>
#include <cstring>

#include "astream_channel_kernels.h"

namespace audiomw {
namespace astream {

namespace {

constexpr size_t kSampleBytes = 2;

int32_t Load16(const uint8_t* p) {
    int16_t s16;
    std::memcpy(&s16, p, sizeof(s16));
    return s16;
}

void Store16(uint8_t* p, int32_t s32) {
    const int16_t s16 = static_cast<int16_t>(s32);
    std::memcpy(p, &s16, sizeof(s16));
}

}  // namespace

void SplitFramesRef(const uint8_t* pSrc, uint8_t* pDstA, uint8_t* pDstB, uint32_t u32Frames, uint32_t u32CntA,
                    uint32_t u32CntB) {
    const size_t u32LenA = static_cast<size_t>(u32CntA) * kSampleBytes;
    const size_t u32LenB = static_cast<size_t>(u32CntB) * kSampleBytes;
    for (uint32_t f = 0; f < u32Frames; f++) {
        if (u32CntA > 0) {
            std::memmove(pDstA, pSrc, u32LenA);
            pDstA += u32LenA;
            pSrc += u32LenA;
        }
        if (u32CntB > 0) {
            std::memmove(pDstB, pSrc, u32LenB);
            pDstB += u32LenB;
            pSrc += u32LenB;
        }
    }
}

void MergeFramesRef(const uint8_t* pSrcA, const uint8_t* pSrcB, uint8_t* pDst, uint32_t u32Frames,
                    uint32_t u32CntA, uint32_t u32CntB) {
    const size_t u32LenA = static_cast<size_t>(u32CntA) * kSampleBytes;
    const size_t u32LenB = static_cast<size_t>(u32CntB) * kSampleBytes;
    for (uint32_t f = 0; f < u32Frames; f++) {
        if (u32CntA > 0) {
            std::memmove(pDst, pSrcA, u32LenA);
            pDst += u32LenA;
            pSrcA += u32LenA;
        }
        if (u32CntB > 0) {
            std::memmove(pDst, pSrcB, u32LenB);
            pDst += u32LenB;
            pSrcB += u32LenB;
        }
    }
}

void MixinFramesRef(uint8_t* pTarget, const uint8_t* pGroup, uint32_t u32Frames, uint32_t u32Cnt) {
    if (u32Cnt == 0) {
        return;
    }
    const int32_t s32Div = static_cast<int32_t>(u32Cnt) + 1;
    for (uint32_t f = 0; f < u32Frames; f++) {
        int32_t s32Sum = Load16(pTarget);
        for (uint32_t j = 0; j < u32Cnt; j++) {
            s32Sum += Load16(pGroup);
            pGroup += kSampleBytes;
        }
        Store16(pTarget, s32Sum / s32Div);
        pTarget += kSampleBytes;
    }
}

void SwapBlocksRef(const uint8_t* pIn, uint8_t* pOut, const int32_t* ps32Map, uint32_t u32Chn,
                   size_t u32Block) {
    for (uint32_t i = 0; i < u32Chn; i++) {
        std::memcpy(pOut + static_cast<size_t>(ps32Map[i]) * u32Block, pIn + i * u32Block, u32Block);
    }
}

}  // namespace astream
}  // namespace audiomw
