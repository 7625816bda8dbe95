// The dispatch of the channel kernels: the table of the best instruction set this
// processor runs, chosen once when the library loads, and the kernel sets for tests.
#include "astream_channel_kernels.h"

#include "astream_channel_kernels_table.h"

namespace audiomw {
namespace astream {

namespace {

template <const ChannelKernelTable& T>
void SplitSet(const uint8_t* pSrc, uint8_t* pDstA, uint8_t* pDstB, uint32_t u32Frames, uint32_t u32CntA,
              uint32_t u32CntB) {
    SplitFramesWith(T, pSrc, pDstA, pDstB, u32Frames, u32CntA, u32CntB);
}

template <const ChannelKernelTable& T>
void MergeSet(const uint8_t* pSrcA, const uint8_t* pSrcB, uint8_t* pDst, uint32_t u32Frames, uint32_t u32CntA,
              uint32_t u32CntB) {
    MergeFramesWith(T, pSrcA, pSrcB, pDst, u32Frames, u32CntA, u32CntB);
}

template <const ChannelKernelTable& T>
void MixinSet(uint8_t* pTarget, const uint8_t* pGroup, uint32_t u32Frames, uint32_t u32Cnt) {
    MixinFramesWith(T, pTarget, pGroup, u32Frames, u32Cnt);
}

template <const ChannelKernelTable& T>
constexpr ChannelKernelSet MakeSet(const char* pcName) {
    return {pcName, &SplitSet<T>, &MergeSet<T>, &MixinSet<T>, T.pfnSwap};
}

#if defined(__x86_64__)
bool HasAvx2() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") != 0;
}

bool HasAvx512() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi") &&
           __builtin_cpu_supports("avx512vnni");
}
#endif

struct Dispatch {
    ChannelKernelSet astSets[3];
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
    if (HasAvx512()) {
        stD.astSets[stD.u32Count++] = MakeSet<kAvx512ChannelKernels>("avx512");
        stD.pstActive = &kAvx512ChannelKernels;
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

const ChannelKernelTable* const gpstActiveChannelKernels = TheDispatch().pstActive;

const ChannelKernelSet* ChannelKernelSets(uint32_t* pu32Count) {
    *pu32Count = TheDispatch().u32Count;
    return TheDispatch().astSets;
}

}  // namespace astream
}  // namespace audiomw
