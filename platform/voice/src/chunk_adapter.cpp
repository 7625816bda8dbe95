#include "chunk_adapter.h"

#include <cmath>
#include <cstring>
#include <numeric>

namespace audiomw {
namespace voice {

namespace {

constexpr float kScale = 32768.0f;

short ToS16(float f) {
    float v = std::nearbyint(f * kScale);
    if (v > 32767.0f) {
        return 32767;
    }
    if (v < -32768.0f) {
        return -32768;
    }
    return static_cast<short>(v);
}

}  // namespace

ChunkAdapter::ChunkAdapter(int s32Channels, int s32FrameLen, int s32ChunkLen)
    : ms32Channels(s32Channels),
      ms32FrameLen(s32FrameLen),
      ms32ChunkLen(s32ChunkLen),
      ms32InCount(0),
      ms32OutCount(Latency(s32FrameLen, s32ChunkLen)),
      mafIn(static_cast<size_t>(s32Channels) * (s32FrameLen + s32ChunkLen), 0.0f),
      mapfChunk(static_cast<size_t>(s32Channels), nullptr),
      mafChunk(static_cast<size_t>(s32Channels) * s32ChunkLen, 0.0f),
      // The latency's zeros, at most one frame not yet handed back, one more chunk.
      mafOut(static_cast<size_t>(Latency(s32FrameLen, s32ChunkLen)) + s32FrameLen + s32ChunkLen, 0.0f) {
    for (int k = 0; k < s32Channels; k++) {
        mapfChunk[k] = &mafChunk[static_cast<size_t>(k) * s32ChunkLen];
    }
}

int ChunkAdapter::Latency(int s32FrameLen, int s32ChunkLen) {
    return s32ChunkLen - std::gcd(s32FrameLen, s32ChunkLen);
}

int ChunkAdapter::Run(const short* const* ppIn, short* ps16Out, ChunkFn pfnChunk, void* pCtx, bool* pbVoice) {
    const size_t u32Queue = static_cast<size_t>(ms32FrameLen) + ms32ChunkLen;
    for (int k = 0; k < ms32Channels; k++) {
        float* pfQueue = &mafIn[k * u32Queue] + ms32InCount;
        for (int i = 0; i < ms32FrameLen; i++) {
            pfQueue[i] = static_cast<float>(ppIn[k][i]) / kScale;
        }
    }
    ms32InCount += ms32FrameLen;
    int s32Chunks = 0;
    bool bVoice = false;
    int s32Taken = 0;
    while (ms32InCount - s32Taken >= ms32ChunkLen) {
        for (int k = 0; k < ms32Channels; k++) {
            std::memcpy(mapfChunk[k], &mafIn[k * u32Queue] + s32Taken, sizeof(float) * ms32ChunkLen);
        }
        bVoice = pfnChunk(pCtx, mapfChunk.data(), &mafOut[ms32OutCount]) || bVoice;
        ms32OutCount += ms32ChunkLen;
        s32Taken += ms32ChunkLen;
        s32Chunks++;
    }
    ms32InCount -= s32Taken;
    for (int k = 0; k < ms32Channels && s32Taken > 0; k++) {
        float* pfQueue = &mafIn[k * u32Queue];
        std::memmove(pfQueue, pfQueue + s32Taken, sizeof(float) * ms32InCount);
    }
    for (int i = 0; i < ms32FrameLen; i++) {
        ps16Out[i] = ToS16(mafOut[i]);
    }
    ms32OutCount -= ms32FrameLen;
    std::memmove(mafOut.data(), mafOut.data() + ms32FrameLen, sizeof(float) * ms32OutCount);
    *pbVoice = bVoice;
    return s32Chunks;
}

}  // namespace voice
}  // namespace audiomw
