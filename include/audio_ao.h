// Audio output (AO): attribute record, device base class and the AUDIO_AO_* registry.
#ifndef AUDIOMW_AUDIO_AO_H
#define AUDIOMW_AUDIO_AO_H

#include <pthread.h>

#include <cstddef>

#include "audio_common.h"

#define AUDIO_AO_MAX_NUM 4

// Attributes of one output; every field is 32 bits wide.
struct AO_ATTR_S {
    int eType;                        // device type code: 0 is ALSA playback
    AUDIO_ALSA_DEV_S stAlsaDev;       // card and device; u32HwRate unused (0)
    tagZN_BOOL bEnable;               // output wanted open
    tagAI_SAMPLE_RATE_E eSampleRate;  // rate of the written data, Hz
    int s32Channel;                   // interleaved channels of the written data
    int s32FrameSize;                 // frames per write (one period)
    int s32Volume;                    // stored and compared, never applied to samples
    tagZN_BOOL bMute;                 // writes are accepted and dropped while set
};

static_assert(offsetof(AO_ATTR_S, eType) == 0, "AO_ATTR_S layout");
static_assert(offsetof(AO_ATTR_S, stAlsaDev) == 4, "AO_ATTR_S layout");
static_assert(offsetof(AO_ATTR_S, bEnable) == 16, "AO_ATTR_S layout");
static_assert(offsetof(AO_ATTR_S, eSampleRate) == 20, "AO_ATTR_S layout");
static_assert(offsetof(AO_ATTR_S, s32Channel) == 24, "AO_ATTR_S layout");
static_assert(offsetof(AO_ATTR_S, s32FrameSize) == 28, "AO_ATTR_S layout");
static_assert(offsetof(AO_ATTR_S, s32Volume) == 32, "AO_ATTR_S layout");
static_assert(offsetof(AO_ATTR_S, bMute) == 36, "AO_ATTR_S layout");
static_assert(sizeof(AO_ATTR_S) == 40, "AO_ATTR_S size");

// Base of every output device. setCfg turns a new record into the destroy / store /
// init sequence that the concrete device's verdict asks for; sendFrame plays one
// period. Both hold stMutex, so a write never meets a device being rebuilt.
struct AO_DEVICE_S {
    AO_DEVICE_S();
    virtual ~AO_DEVICE_S();

    virtual int init();
    virtual int destroy();
    virtual int hotApply();
    virtual int sendFrame(unsigned char* data, int bytes);
    virtual AUDIO_SET_ACTION_E calActionOnSetCfg(AO_ATTR_S* newAttr);
    virtual int getUnderRuns();

    int getCfg(AO_ATTR_S* out);
    int setCfg(AO_ATTR_S* newAttr);

    int s32Id;
    tagZN_BOOL bHasInit;
    pthread_mutex_t stMutex;
    int s32WriteFailCnt;
    AO_ATTR_S stAttr;
};

extern AO_DEVICE_S* gs_pAoHandler[AUDIO_AO_MAX_NUM];

int AUDIO_AO_GetNewId(void);
int AUDIO_AO_Create(int id, AO_ATTR_S* attr);
int AUDIO_AO_Destroy(int id);
int AUDIO_AO_GetAttr(int id, AO_ATTR_S* attr);
int AUDIO_AO_SetAttr(int id, AO_ATTR_S* attr);
int AUDIO_AO_SetVolume(int id, int volume);
int AUDIO_AO_SetEnable(int id, tagZN_BOOL bEnable);
tagZN_BOOL AUDIO_AO_isEnabled(int id);
tagZN_BOOL AUDIO_AO_isReady(int id);
int AUDIO_AO_Write(int id, unsigned char* data, unsigned int bytes);
int AUDIO_AO_GetUnderRunState(int id);

#endif  // AUDIOMW_AUDIO_AO_H
