// The four functions of the voice-processing library, on VoiceEngine. Calls on one
// instance must not run at the same time (the algorithm node serialises them).
#include "qx_audio_alg.h"

#include <cstring>

#include "voice_engine.h"

using audiomw::voice::VoiceEngine;

extern "C" {

void* QX_AudioAlgInit(QX_AUDIO_ALG_PARAM_S* pstParam, int* ps32Err) {
    if (pstParam == nullptr) {
        if (ps32Err != nullptr) {
            *ps32Err = audiomw::voice::kVoiceErrNullParam;
        }
        return nullptr;
    }
    return VoiceEngine::Create(*pstParam, ps32Err);
}

int QX_AudioAlgFrmProc(void* pHandle, short* ps16Mic, short* ps16Ref, short* ps16Out, short* ps16Result) {
    if (pHandle == nullptr || ps16Mic == nullptr || ps16Ref == nullptr || ps16Out == nullptr) {
        return -1;
    }
    return static_cast<VoiceEngine*>(pHandle)->Process(ps16Mic, ps16Ref, ps16Out, ps16Result);
}

int QX_AudioAlgGetVersion(void* pHandle, char* pcBuf, int s32Size) {
    if (pHandle == nullptr || pcBuf == nullptr || s32Size <= 0) {
        return -1;
    }
    std::strncpy(pcBuf, audiomw::voice::kVoiceVersion, static_cast<size_t>(s32Size) - 1);
    pcBuf[s32Size - 1] = '\0';
    return 0;
}

float getMicVol(void* pHandle, float* pfLevels) {
    if (pHandle == nullptr) {
        return audiomw::voice::kVoiceFloorDbfs;
    }
    return static_cast<VoiceEngine*>(pHandle)->MicLevels(pfLevels);
}

}  // extern "C"
