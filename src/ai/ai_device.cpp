// AI_DEVICE_S: the input device base. Its one piece of logic is setCfg, which turns a
// new attribute record into the steps the concrete device's verdict asks for.
#include <cstring>

#include "audio_ai.h"
#include "audio_log.h"
#include "relaxed_atomic.h"

using audiomw::LoadRelaxed;

AI_DEVICE_S::AI_DEVICE_S() : s32Id(-1), bHasInit(0), bHasOpen(0) {
    // An all-zero mutex is the statically initialised default mutex.
    std::memset(&stMutex, 0, sizeof(stMutex));
    std::memset(&stAttr, 0, sizeof(stAttr));
}

AI_DEVICE_S::~AI_DEVICE_S() {}

int AI_DEVICE_S::init() {
    return 0;
}
int AI_DEVICE_S::destroy() {
    return 0;
}
int AI_DEVICE_S::open() {
    return 0;
}
int AI_DEVICE_S::close() {
    return 0;
}
int AI_DEVICE_S::hotApply() {
    return 0;
}
AUDIO_SET_ACTION_E AI_DEVICE_S::calActionOnSetCfg(AI_ATTR_S*) {
    return AUDIO_SET_ACTION_E_NONE;
}
int AI_DEVICE_S::_readFrame(unsigned char*, unsigned int, unsigned int&, unsigned long long&, int) {
    return 0;
}
int AI_DEVICE_S::getUnderRuns() {
    return 0;
}

int AI_DEVICE_S::getCfg(AI_ATTR_S* attr) {
    std::memcpy(attr, &stAttr, sizeof(stAttr));
    return 0;
}

int AI_DEVICE_S::readFrame(unsigned char* pBuf, unsigned int u32Len, unsigned int& u32ReadLen,
                           unsigned long long& u64TimeStamp, int s32Timeout) {
    pthread_mutex_lock(&stMutex);
    int s32Ret = _readFrame(pBuf, u32Len, u32ReadLen, u64TimeStamp, s32Timeout);
    pthread_mutex_unlock(&stMutex);
    return s32Ret;
}

namespace {

// Close and reopen around the store. Not open: nothing is stored.
int ApplyNeedClose(AI_DEVICE_S* pDev, AI_ATTR_S* attr) {
    if (!LoadRelaxed(pDev->bHasOpen)) {
        return 0;
    }
    int s32Ret = pDev->close();
    if (s32Ret != 0) {
        return s32Ret;
    }
    std::memcpy(&pDev->stAttr, attr, sizeof(*attr));
    return pDev->open();
}

// Destroy and re-initialise around the store; an open device is closed first and
// reopened after, whatever the new enable flag says.
int ApplyNeedDestroy(AI_DEVICE_S* pDev, AI_ATTR_S* attr) {
    int s32Ret = 0;
    if (!LoadRelaxed(pDev->bHasOpen)) {
        if (LoadRelaxed(pDev->bHasInit) && (s32Ret = pDev->destroy()) != 0) {
            return s32Ret;
        }
        std::memcpy(&pDev->stAttr, attr, sizeof(*attr));
        return attr->bEnable ? pDev->init() : 0;
    }
    if ((s32Ret = pDev->close()) != 0 || (s32Ret = pDev->destroy()) != 0) {
        return s32Ret;
    }
    std::memcpy(&pDev->stAttr, attr, sizeof(*attr));
    if ((s32Ret = pDev->init()) != 0) {
        return s32Ret;
    }
    return pDev->open();
}

}  // namespace

int AI_DEVICE_S::setCfg(AI_ATTR_S* attr) {
    pthread_mutex_lock(&stMutex);
    int s32Ret = 0;
    switch (calActionOnSetCfg(attr)) {
        case AUDIO_SET_ACTION_E_HOT_UPDATE:
            AUDIO_LOGI("AI_DEVICE_S::setCfg, AUDIO_SET_ACTION_E_HOT_UPDATE\n");
            std::memcpy(&stAttr, attr, sizeof(*attr));
            s32Ret = hotApply();
            break;
        case AUDIO_SET_ACTION_E_NEED_CLOSE:
            AUDIO_LOGI("AI_DEVICE_S::setCfg, AUDIO_SET_ACTION_E_NEED_CLOSE, bHasOpen:%d\n",
                       LoadRelaxed(bHasOpen));
            s32Ret = ApplyNeedClose(this, attr);
            break;
        case AUDIO_SET_ACTION_E_NEED_DESTROY:
            AUDIO_LOGI("AI_DEVICE_S::setCfg, AUDIO_SET_ACTION_E_NEED_DESTROY, bHasOpen:%d\n",
                       LoadRelaxed(bHasOpen));
            s32Ret = ApplyNeedDestroy(this, attr);
            break;
        default:
            break;
    }
    pthread_mutex_unlock(&stMutex);
    return s32Ret;
}
