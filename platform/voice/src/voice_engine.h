// VoiceEngine: one instance of the PC voice-processing library. It cancels the echo of
// the reference in every microphone, suppresses noise and detects voice, on 10 ms chunks
// of webrtc's audio processing module, adapting the caller's frame length; it keeps the
// level of every microphone in the last frame.
#ifndef AUDIOMW_PLATFORM_VOICE_VOICE_ENGINE_H
#define AUDIOMW_PLATFORM_VOICE_VOICE_ENGINE_H

#include <memory>
#include <vector>

#include "chunk_adapter.h"
#include "qx_audio_alg.h"

namespace webrtc {
class AudioProcessing;
}

namespace audiomw {
namespace voice {

// Error codes QX_AudioAlgInit reports in *err.
enum VoiceInitError : int {
    kVoiceErrNullParam = 1,
    kVoiceErrRate = 2,
    kVoiceErrFrameLen = 3,
    kVoiceErrChannels = 4,
    kVoiceErrModule = 5,
};

// The version string, "V" then the version number, then the fix letter.
constexpr const char* kVoiceVersion = "V0301a";
// Most microphones handled, and the level of a silent microphone in dBFS.
constexpr int kVoiceMaxMics = 6;
constexpr float kVoiceFloorDbfs = -96.0f;

class VoiceEngine {
  public:
    // A new engine for the block's geometry, or null with the reason in *ps32Err.
    static VoiceEngine* Create(const QX_AUDIO_ALG_PARAM_S& stParam, int* ps32Err);
    ~VoiceEngine();
    VoiceEngine(const VoiceEngine&) = delete;
    VoiceEngine& operator=(const VoiceEngine&) = delete;

    // One frame: ps16Mic holds the microphone blocks (then the line-in blocks, which are
    // not processed), each s32FrameLen samples; ps16Ref one block. Writes the processed
    // first microphone to ps16Out and 1 (voice) or 0 to *ps16Result. 0, or the module's
    // error code.
    int Process(const short* ps16Mic, const short* ps16Ref, short* ps16Out, short* ps16Result);
    // Levels of the last frame in dBFS, one per microphone (at most six), and the loudest.
    float MicLevels(float* pfLevels) const;

  private:
    VoiceEngine(const QX_AUDIO_ALG_PARAM_S& stParam, webrtc::AudioProcessing* pApm);
    static bool ProcessChunk(void* pCtx, float* const* ppfChunk, float* pfOut);
    void MeasureLevels(const short* ps16Mic);

    int ms32Rate;
    int ms32FrameLen;
    int ms32MicCnt;
    std::unique_ptr<webrtc::AudioProcessing> mpApm;
    ChunkAdapter mAdapter;            // channels: the microphones, then the reference
    std::vector<const short*> mapIn;  // this frame's channel blocks
    std::vector<float> mafLevels;     // dBFS per microphone, last frame
    int ms32ChunkError;               // the first module error of the current frame
    short ms16LastVoice;              // kept when a frame completes no chunk
};

}  // namespace voice
}  // namespace audiomw

#endif  // AUDIOMW_PLATFORM_VOICE_VOICE_ENGINE_H
