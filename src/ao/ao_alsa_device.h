// AO_ALSA_DEVICE_S: plays an output on an ALSA playback PCM through tinyalsa, converting
// the channel count (rematrix) and then the rate (resampler) where the card cannot take
// what the output's attributes ask for.
#ifndef AUDIOMW_SRC_AO_AO_ALSA_DEVICE_H
#define AUDIOMW_SRC_AO_AO_ALSA_DEVICE_H

#include "audio_ao.h"
#include "audio_rematrix.h"
#include "audio_resample.h"

struct pcm;

// Derived non-publicly: the registry holds it as its base and reaches it only through
// the virtual operations.
struct AO_ALSA_DEVICE_S : private AO_DEVICE_S {
    AO_ALSA_DEVICE_S();
    ~AO_ALSA_DEVICE_S() override;

    int init() override;
    int destroy() override;
    int hotApply() override;
    int sendFrame(unsigned char* data, int bytes) override;
    AUDIO_SET_ACTION_E calActionOnSetCfg(AO_ATTR_S* newAttr) override;
    int getUnderRuns() override;

    struct pcm* _mpPcm;
    tagZN_BOOL _mbResample;
    tagZN_BOOL _mbRematrix;
    RESAMPLE_HANDLER* _mpResample;
    REMATRIX_HANDLER* _mpRematrix;
    unsigned char* _mpResampleBuf;  // (channels x card period + 32) x 2 bytes
    unsigned char* _mpRematrixBuf;  // (card channels x s32FrameSize + 32) x 2 bytes

    friend int AUDIO_AO_Create(int id, AO_ATTR_S* attr);
};

#endif  // AUDIOMW_SRC_AO_AO_ALSA_DEVICE_H
