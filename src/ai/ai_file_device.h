// AI_FILE_DEVICE_S: plays a raw PCM file as a capture source. After 48 filler blocks it
// hands out the file's bytes once, in chunks of the caller's length, then filler for ever.
#ifndef AUDIOMW_SRC_AI_AI_FILE_DEVICE_H
#define AUDIOMW_SRC_AI_AI_FILE_DEVICE_H

#include <cstdint>

#include "audio_ai.h"

// Filler byte delivered before and after the file's contents.
#define AI_FILE_FILLER_BYTE 0xA5
// Filler blocks delivered after each destroy, before the file starts.
#define AI_FILE_LEAD_BLOCKS 48

struct AI_FILE_DEVICE_S : public AI_DEVICE_S {
    AI_FILE_DEVICE_S();
    ~AI_FILE_DEVICE_S() override;

    int init() override;
    int destroy() override;
    int open() override;
    int close() override;
    int hotApply() override;
    AUDIO_SET_ACTION_E calActionOnSetCfg(AI_ATTR_S* attr) override;
    int _readFrame(unsigned char* pBuf, unsigned int u32Len, unsigned int& u32ReadLen,
                   unsigned long long& u64TimeStamp, int s32Timeout) override;

    char _mFilePath[AUDIO_AI_FILE_PATH_LEN];
    int _ms32Fd;
    int64_t _ms64FileSize;
    int64_t _ms64Offset;
    int _ms32LeadBlocks;
    unsigned int _mbFileReady;
};

#endif  // AUDIOMW_SRC_AI_AI_FILE_DEVICE_H
