// AI_COMBO_DEVICE_S: one AI made of up to four member AIs, driven through the exported
// AUDIO_AI_* functions like any application would. A read fills one buffer with the
// members' blocks one after the other; the combo's channel count is their sum.
#ifndef AUDIOMW_SRC_AI_AI_COMBO_DEVICE_H
#define AUDIOMW_SRC_AI_AI_COMBO_DEVICE_H

#include "audio_ai.h"

struct AI_COMBO_DEVICE_S : public AI_DEVICE_S {
    AI_COMBO_DEVICE_S();
    ~AI_COMBO_DEVICE_S() override;

    int init() override;
    int destroy() override;
    int open() override;
    int close() override;
    int hotApply() override;
    AUDIO_SET_ACTION_E calActionOnSetCfg(AI_ATTR_S* attr) override;
    int _readFrame(unsigned char* pBuf, unsigned int u32Len, unsigned int& u32ReadLen,
                   unsigned long long& u64TimeStamp, int s32Timeout) override;
};

#endif  // AUDIOMW_SRC_AI_AI_COMBO_DEVICE_H
