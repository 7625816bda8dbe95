// AI_ALSA_DEVICE_S: captures from an ALSA PCM through tinyalsa and delivers blocks in
// the shape the AI's attributes ask for, opening the card at the nearest channel count
// (then rematrixing) and at its highest rate (then resampling) when it cannot run the
// request. Cards 1 (line-in), 3 device 0 (32-bit slots) and 4 (USB) get their board
// handling: recordings, the line-in capture check and the USB device switch.
#ifndef AUDIOMW_SRC_AI_AI_ALSA_DEVICE_H
#define AUDIOMW_SRC_AI_AI_ALSA_DEVICE_H

#include "audio_ai.h"
#include "audio_rematrix.h"
#include "audio_resample.h"

struct pcm;

struct AI_ALSA_DEVICE_S : public AI_DEVICE_S {
    AI_ALSA_DEVICE_S();
    ~AI_ALSA_DEVICE_S() override;

    int init() override;
    int destroy() override;
    int open() override;
    int close() override;
    int hotApply() override;
    AUDIO_SET_ACTION_E calActionOnSetCfg(AI_ATTR_S* attr) override;
    int _readFrame(unsigned char* pBuf, unsigned int u32Len, unsigned int& u32ReadLen,
                   unsigned long long& u64TimeStamp, int s32Timeout) override;
    int getUnderRuns() override;

    unsigned int _mu32FrameBytes;  // one block for the caller: s32FrameLen x s32Channel x 2
    struct pcm* _mpPcm;
    unsigned int _mu32ReadFailCnt;     // consecutive failed reads
    unsigned int _mu32LineInCheckCnt;  // blocks seen by the line-in capture check
    unsigned int _mbResample;
    unsigned int _mbRematrix;
    RESAMPLE_HANDLER* _mpResample;
    REMATRIX_HANDLER* _mpRematrix;
    unsigned char* _mpPcmBuf;     // what the card delivers, when a conversion follows
    unsigned char* _mpMidBuf;     // between resampler and rematrix, when both run
    unsigned int _mu32PcmPeriod;  // frames read from the card per block
    unsigned int _mu32PcmBytes;   // bytes read from the card per block
};

#endif  // AUDIOMW_SRC_AI_AI_ALSA_DEVICE_H
