// The closed voice-processing library the algorithm node drives.
#ifndef AUDIOMW_HOST_QX_AUDIO_ALG_H
#define AUDIOMW_HOST_QX_AUDIO_ALG_H

#include <cstddef>

// Initialisation block, 136 bytes, little-endian.
struct QX_AUDIO_ALG_PARAM_S {
    int s32SampleRate;
    int s32FrameLen;
    int s32MicChnCnt;
    int s32LineInChnCnt;
    unsigned char au8Reserved[120];
};
static_assert(sizeof(QX_AUDIO_ALG_PARAM_S) == 136, "initialisation block is 136 bytes");
static_assert(offsetof(QX_AUDIO_ALG_PARAM_S, s32LineInChnCnt) == 12, "initialisation block layout");

extern "C" {
// A new instance, or null with an error code in *ps32Err.
void* QX_AudioAlgInit(QX_AUDIO_ALG_PARAM_S* pstParam, int* ps32Err);
// Processes one frame period; 0 on success. May set *ps16Result.
int QX_AudioAlgFrmProc(void* pHandle, short* ps16Mic, short* ps16Ref, short* ps16Out, short* ps16Result);
// Writes a NUL-terminated version string of at most s32Size bytes.
int QX_AudioAlgGetVersion(void* pHandle, char* pcBuf, int s32Size);
// Fills up to six microphone levels and returns one more.
float getMicVol(void* pHandle, float* pfLevels);
}

#endif  // AUDIOMW_HOST_QX_AUDIO_ALG_H
