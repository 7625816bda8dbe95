// Audio input (AI): attribute record, device base class and the AUDIO_AI_* registry.
#ifndef AUDIOMW_AUDIO_AI_H
#define AUDIOMW_AUDIO_AI_H

#include <pthread.h>

#include <cstddef>

#include "audio_common.h"

#define AUDIO_AI_MAX_NUM 8
#define AUDIO_AI_COMBO_MAX_NUM 4
#define AUDIO_AI_FILE_PATH_LEN 40

enum tagAI_DEV_TYPE_E : unsigned int {
    AI_DEV_TYPE_ALSA = 0,
    AI_DEV_TYPE_COMBO = 10,
    AI_DEV_TYPE_FILE = 11,
};
typedef enum tagAI_DEV_TYPE_E AI_DEV_TYPE_E;

// Member inputs of a combo AI, in reading order.
struct AUDIO_COMBO_DEV_S {
    int as32AiId[AUDIO_AI_COMBO_MAX_NUM];
    int s32AiCnt;
};

struct AI_ATTR_S {
    tagAI_DEV_TYPE_E eType;
    union {
        AUDIO_ALSA_DEV_S stAlsaDev;
        AUDIO_COMBO_DEV_S stComboDev;
        char acFilePath[AUDIO_AI_FILE_PATH_LEN];
    };
    tagZN_BOOL bEnable;
    tagAI_SAMPLE_RATE_E eSampleRate;
    int s32Channel;
    int s32FrameLen;
    int s32Volume;
    tagZN_BOOL bLineInConnect;
};

static_assert(sizeof(AI_DEV_TYPE_E) == 4, "device type code is 32 bits");
static_assert(offsetof(AUDIO_COMBO_DEV_S, as32AiId) == 0, "AUDIO_COMBO_DEV_S layout");
static_assert(offsetof(AUDIO_COMBO_DEV_S, s32AiCnt) == 16, "AUDIO_COMBO_DEV_S layout");
static_assert(sizeof(AUDIO_COMBO_DEV_S) == 20, "AUDIO_COMBO_DEV_S layout");
static_assert(offsetof(AI_ATTR_S, eType) == 0, "AI_ATTR_S layout");
static_assert(offsetof(AI_ATTR_S, stAlsaDev) == 4, "AI_ATTR_S union offset");
static_assert(offsetof(AI_ATTR_S, stComboDev) == 4, "AI_ATTR_S union offset");
static_assert(offsetof(AI_ATTR_S, acFilePath) == 4, "AI_ATTR_S union offset");
static_assert(offsetof(AI_ATTR_S, bEnable) == 44, "AI_ATTR_S union is 40 bytes");
static_assert(offsetof(AI_ATTR_S, eSampleRate) == 48, "AI_ATTR_S layout");
static_assert(offsetof(AI_ATTR_S, s32Channel) == 52, "AI_ATTR_S layout");
static_assert(offsetof(AI_ATTR_S, s32FrameLen) == 56, "AI_ATTR_S layout");
static_assert(offsetof(AI_ATTR_S, s32Volume) == 60, "AI_ATTR_S layout");
static_assert(offsetof(AI_ATTR_S, bLineInConnect) == 64, "AI_ATTR_S layout");
static_assert(sizeof(AI_ATTR_S) == 68, "AI_ATTR_S size");

// Base of every input device. setCfg turns a new record into the close / destroy /
// store / init / open sequence that the concrete device's verdict asks for.
struct AI_DEVICE_S {
    AI_DEVICE_S();
    virtual ~AI_DEVICE_S();

    virtual int init();
    virtual int destroy();
    virtual int open();
    virtual int close();
    virtual int hotApply();
    virtual AUDIO_SET_ACTION_E calActionOnSetCfg(AI_ATTR_S* attr);
    virtual int _readFrame(unsigned char* pBuf, unsigned int u32Len, unsigned int& u32ReadLen,
                           unsigned long long& u64TimeStamp, int s32Timeout);
    virtual int getUnderRuns();

    int getCfg(AI_ATTR_S* attr);
    int setCfg(AI_ATTR_S* attr);
    int readFrame(unsigned char* pBuf, unsigned int u32Len, unsigned int& u32ReadLen,
                  unsigned long long& u64TimeStamp, int s32Timeout);

    int s32Id;
    unsigned int bHasInit;
    unsigned int bHasOpen;
    pthread_mutex_t stMutex;
    AI_ATTR_S stAttr;
};

// The device classes are exported and extended by derived classes whose fields follow
// these. A pthread mutex is 40 bytes on x86-64 and 48 on arm64, so what follows it is
// stated relative to it. The class is not standard-layout (it has a vtable), for which
// offsetof is conditionally supported; GCC and Clang support it here.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
static_assert(offsetof(AI_DEVICE_S, s32Id) == 8, "AI_DEVICE_S: vtable pointer first");
static_assert(offsetof(AI_DEVICE_S, bHasInit) == 12, "AI_DEVICE_S layout");
static_assert(offsetof(AI_DEVICE_S, bHasOpen) == 16, "AI_DEVICE_S layout");
static_assert(offsetof(AI_DEVICE_S, stMutex) == 24, "AI_DEVICE_S layout");
static_assert(offsetof(AI_DEVICE_S, stAttr) == 24 + sizeof(pthread_mutex_t), "AI_DEVICE_S layout");
static_assert(sizeof(AI_DEVICE_S) == 24 + sizeof(pthread_mutex_t) + 72,
              "AI_DEVICE_S size (4 bytes of tail padding)");
#pragma GCC diagnostic pop

extern AI_DEVICE_S* gs_pAiHandler[AUDIO_AI_MAX_NUM];

int AUDIO_AI_Create(int id, AI_ATTR_S* attr);
int AUDIO_AI_Destroy(int id);
int AUDIO_AI_Open(int id);
int AUDIO_AI_Close(int id);
int AUDIO_AI_Read(int id, unsigned char* pBuf, unsigned int u32Len, unsigned int& u32ReadLen,
                  unsigned long long& u64TimeStamp, int s32Timeout);
int AUDIO_AI_SetAttr(int id, AI_ATTR_S* attr);
int AUDIO_AI_GetAttr(int id, AI_ATTR_S* attr);
int AUDIO_AI_SetVolume(int id, int volume);
int AUDIO_AI_SetEnable(int id, tagZN_BOOL enable);
int AUDIO_AI_isEnabled(int id);
int AUDIO_AI_isInitd(int id);
int AUDIO_AI_isOpen(int id);
int AUDIO_AI_GetChannelChn(int id);
int AUDIO_AI_GetRecommendReadBufferSize(int id);
int AUDIO_AI_GetUnderRunState(int id);

#endif  // AUDIOMW_AUDIO_AI_H
