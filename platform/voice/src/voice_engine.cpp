#include "voice_engine.h"

#include <webrtc/modules/audio_processing/include/audio_processing.h>

#include <algorithm>
#include <cmath>
#include <new>

namespace audiomw {
namespace voice {

namespace {

constexpr int kChunkMs = 10;
// Frames longer than a second are refused: nothing a voice device reads is that long.
constexpr int kMaxFrameMs = 1000;

bool NativeRate(int s32Rate) {
    return s32Rate == 8000 || s32Rate == 16000 || s32Rate == 32000 || s32Rate == 48000;
}

// Echo cancellation with the long filter (echo paths up to about 128 ms) and its own
// delay estimate, noise suppression, and voice detection on every 10 ms chunk.
webrtc::AudioProcessing* NewModule(int s32Rate, int s32MicCnt) {
    webrtc::Config stConfig;
    stConfig.Set<webrtc::ExtendedFilter>(new webrtc::ExtendedFilter(true));
    stConfig.Set<webrtc::DelayAgnostic>(new webrtc::DelayAgnostic(true));
    webrtc::AudioProcessing* pApm = webrtc::AudioProcessing::Create(stConfig);
    if (pApm == nullptr) {
        return nullptr;
    }
    webrtc::ProcessingConfig stProc = {{webrtc::StreamConfig(s32Rate, s32MicCnt),
                                        webrtc::StreamConfig(s32Rate, s32MicCnt),
                                        webrtc::StreamConfig(s32Rate, 1), webrtc::StreamConfig(s32Rate, 1)}};
    bool bOk =
        pApm->Initialize(stProc) == webrtc::AudioProcessing::kNoError &&
        pApm->high_pass_filter()->Enable(true) == 0 &&
        pApm->echo_cancellation()->enable_drift_compensation(false) == 0 &&
        pApm->echo_cancellation()->set_suppression_level(webrtc::EchoCancellation::kHighSuppression) == 0 &&
        pApm->echo_cancellation()->Enable(true) == 0 &&
        pApm->noise_suppression()->set_level(webrtc::NoiseSuppression::kHigh) == 0 &&
        pApm->noise_suppression()->Enable(true) == 0 &&
        pApm->voice_detection()->set_likelihood(webrtc::VoiceDetection::kLowLikelihood) == 0 &&
        pApm->voice_detection()->set_frame_size_ms(kChunkMs) == 0 &&
        pApm->voice_detection()->Enable(true) == 0;
    if (!bOk) {
        delete pApm;
        return nullptr;
    }
    return pApm;
}

float LevelDbfs(const short* ps16, int s32Len) {
    double dSum = 0.0;
    for (int i = 0; i < s32Len; i++) {
        dSum += static_cast<double>(ps16[i]) * ps16[i];
    }
    if (dSum <= 0.0 || s32Len <= 0) {
        return kVoiceFloorDbfs;
    }
    double dRms = std::sqrt(dSum / s32Len) / 32768.0;
    return std::max(kVoiceFloorDbfs, static_cast<float>(20.0 * std::log10(dRms)));
}

}  // namespace

VoiceEngine* VoiceEngine::Create(const QX_AUDIO_ALG_PARAM_S& stParam, int* ps32Err) {
    int s32Err = 0;
    if (!NativeRate(stParam.s32SampleRate)) {
        s32Err = kVoiceErrRate;
    } else if (stParam.s32FrameLen <= 0 || stParam.s32FrameLen > stParam.s32SampleRate / 1000 * kMaxFrameMs) {
        s32Err = kVoiceErrFrameLen;
    } else if (stParam.s32MicChnCnt < 1 || stParam.s32MicChnCnt > kVoiceMaxMics ||
               stParam.s32LineInChnCnt < 0) {
        s32Err = kVoiceErrChannels;
    }
    webrtc::AudioProcessing* pApm =
        s32Err == 0 ? NewModule(stParam.s32SampleRate, stParam.s32MicChnCnt) : nullptr;
    if (s32Err == 0 && pApm == nullptr) {
        s32Err = kVoiceErrModule;
    }
    if (s32Err != 0) {
        if (ps32Err != nullptr) {
            *ps32Err = s32Err;
        }
        return nullptr;
    }
    return new VoiceEngine(stParam, pApm);
}

VoiceEngine::VoiceEngine(const QX_AUDIO_ALG_PARAM_S& stParam, webrtc::AudioProcessing* pApm)
    : ms32Rate(stParam.s32SampleRate),
      ms32FrameLen(stParam.s32FrameLen),
      ms32MicCnt(stParam.s32MicChnCnt),
      mpApm(pApm),
      mAdapter(stParam.s32MicChnCnt + 1, stParam.s32FrameLen, stParam.s32SampleRate / 1000 * kChunkMs),
      mapIn(static_cast<size_t>(stParam.s32MicChnCnt) + 1, nullptr),
      mafLevels(static_cast<size_t>(stParam.s32MicChnCnt), kVoiceFloorDbfs),
      ms32ChunkError(0),
      ms16LastVoice(0) {}

VoiceEngine::~VoiceEngine() {}

bool VoiceEngine::ProcessChunk(void* pCtx, float* const* ppfChunk, float* pfOut) {
    VoiceEngine* pThis = static_cast<VoiceEngine*>(pCtx);
    webrtc::AudioProcessing* pApm = pThis->mpApm.get();
    const webrtc::StreamConfig stMics(pThis->ms32Rate, pThis->ms32MicCnt);
    const webrtc::StreamConfig stRef(pThis->ms32Rate, 1);
    float* const* ppfRef = ppfChunk + pThis->ms32MicCnt;
    int s32Ret = pApm->ProcessReverseStream(ppfRef, stRef, stRef, ppfRef);
    if (s32Ret == 0) {
        // Reference and microphones of one chunk are captured together.
        pApm->set_stream_delay_ms(0);
        s32Ret = pApm->ProcessStream(ppfChunk, stMics, stMics, ppfChunk);
    }
    const size_t u32Chunk = stMics.num_frames();
    if (s32Ret != 0) {
        if (pThis->ms32ChunkError == 0) {
            pThis->ms32ChunkError = s32Ret;
        }
        std::fill(pfOut, pfOut + u32Chunk, 0.0f);
        return false;
    }
    std::copy(ppfChunk[0], ppfChunk[0] + u32Chunk, pfOut);
    return pApm->voice_detection()->stream_has_voice();
}

void VoiceEngine::MeasureLevels(const short* ps16Mic) {
    for (int k = 0; k < ms32MicCnt; k++) {
        mafLevels[k] = LevelDbfs(ps16Mic + static_cast<size_t>(k) * ms32FrameLen, ms32FrameLen);
    }
}

int VoiceEngine::Process(const short* ps16Mic, const short* ps16Ref, short* ps16Out, short* ps16Result) {
    for (int k = 0; k < ms32MicCnt; k++) {
        mapIn[k] = ps16Mic + static_cast<size_t>(k) * ms32FrameLen;
    }
    mapIn[ms32MicCnt] = ps16Ref;
    MeasureLevels(ps16Mic);
    ms32ChunkError = 0;
    bool bVoice = false;
    int s32Chunks = mAdapter.Run(mapIn.data(), ps16Out, &VoiceEngine::ProcessChunk, this, &bVoice);
    if (s32Chunks > 0) {
        ms16LastVoice = bVoice ? 1 : 0;
    }
    if (ps16Result != nullptr) {
        *ps16Result = ms16LastVoice;
    }
    return ms32ChunkError;
}

float VoiceEngine::MicLevels(float* pfLevels) const {
    float fLoudest = kVoiceFloorDbfs;
    for (int k = 0; k < ms32MicCnt && k < kVoiceMaxMics; k++) {
        if (pfLevels != nullptr) {
            pfLevels[k] = mafLevels[k];
        }
        fLoudest = std::max(fLoudest, mafLevels[k]);
    }
    return fLoudest;
}

}  // namespace voice
}  // namespace audiomw
