// ChunkAdapter: runs a processor that takes fixed chunks (10 ms) over frames of any
// length. Input samples queue per channel until a whole chunk is there; the processor's
// output queues until a whole frame can be handed back. Every sample goes through exactly
// once, in order: the output is the processed input delayed by Latency() samples, the
// least delay that never leaves a frame short (chunk - gcd(frame, chunk)).
#ifndef AUDIOMW_PLATFORM_VOICE_CHUNK_ADAPTER_H
#define AUDIOMW_PLATFORM_VOICE_CHUNK_ADAPTER_H

#include <vector>

namespace audiomw {
namespace voice {

class ChunkAdapter {
  public:
    // Processes one chunk of every channel in place (pointers to s32Chunk floats in
    // [-1, 1]) and writes the chunk's output (s32Chunk floats) to pfOut. True when the
    // chunk holds voice.
    using ChunkFn = bool (*)(void* pCtx, float* const* ppfChunk, float* pfOut);

    // All buffers are allocated here; Run allocates nothing.
    ChunkAdapter(int s32Channels, int s32FrameLen, int s32ChunkLen);

    static int Latency(int s32FrameLen, int s32ChunkLen);
    int Latency() const { return Latency(ms32FrameLen, ms32ChunkLen); }

    // Queues one frame (ppIn[k]: s32FrameLen samples of channel k), processes every whole
    // chunk and writes the oldest s32FrameLen output samples to ps16Out. Returns the
    // number of chunks processed; *pbVoice is true when one of them held voice.
    int Run(const short* const* ppIn, short* ps16Out, ChunkFn pfnChunk, void* pCtx, bool* pbVoice);

  private:
    int ms32Channels;
    int ms32FrameLen;
    int ms32ChunkLen;
    int ms32InCount;                // samples queued per input channel
    int ms32OutCount;               // output samples queued
    std::vector<float> mafIn;       // s32Channels queues of frame + chunk samples
    std::vector<float*> mapfChunk;  // the chunk views handed to the processor
    std::vector<float> mafChunk;    // s32Channels x chunk
    std::vector<float> mafOut;      // the output queue
};

}  // namespace voice
}  // namespace audiomw

#endif  // AUDIOMW_PLATFORM_VOICE_CHUNK_ADAPTER_H
