// AO_DEVICE_S: the output device base. Its one piece of logic is setCfg, which turns a
// new attribute record into the steps the concrete device's verdict asks for.
#include <cstring>

#include "ao_attr_access.h"
#include "audio_ao.h"
#include "audio_log.h"

using audiomw::CopyAoAttr;

AO_DEVICE_S::AO_DEVICE_S() : s32Id(-1), bHasInit(ZN_FALSE), s32WriteFailCnt(0) {
    // An all-zero mutex is the statically initialised default mutex.
    std::memset(&stMutex, 0, sizeof(stMutex));
    std::memset(&stAttr, 0, sizeof(stAttr));
}

AO_DEVICE_S::~AO_DEVICE_S() {}

int AO_DEVICE_S::init() {
    return 0;
}
int AO_DEVICE_S::destroy() {
    return 0;
}
int AO_DEVICE_S::hotApply() {
    return 0;
}
int AO_DEVICE_S::sendFrame(unsigned char*, int) {
    return 0;
}
AUDIO_SET_ACTION_E AO_DEVICE_S::calActionOnSetCfg(AO_ATTR_S*) {
    return AUDIO_SET_ACTION_E_NONE;
}
int AO_DEVICE_S::getUnderRuns() {
    return 0;
}

int AO_DEVICE_S::getCfg(AO_ATTR_S* out) {
    CopyAoAttr(out, &stAttr);
    return 0;
}

namespace {

// Close (if open), store, and open again when the new record asks for it.
int Rebuild(AO_DEVICE_S* pDev, AO_ATTR_S* newAttr) {
    if (pDev->bHasInit) {
        int s32Ret = pDev->destroy();
        if (s32Ret != 0) {
            return s32Ret;
        }
    }
    CopyAoAttr(&pDev->stAttr, newAttr);
    return newAttr->bEnable ? pDev->init() : 0;
}

}  // namespace

int AO_DEVICE_S::setCfg(AO_ATTR_S* newAttr) {
    pthread_mutex_lock(&stMutex);
    int s32Ret = 0;
    switch (calActionOnSetCfg(newAttr)) {
        case AUDIO_SET_ACTION_E_HOT_UPDATE:
            CopyAoAttr(&stAttr, newAttr);
            s32Ret = hotApply();
            break;
        case AUDIO_SET_ACTION_E_NEED_CLOSE:
        case AUDIO_SET_ACTION_E_NEED_DESTROY:
            s32Ret = Rebuild(this, newAttr);
            break;
        default:
            AUDIO_LOGI("AO[%d] set cfg but do nothing", s32Id);
            break;
    }
    pthread_mutex_unlock(&stMutex);
    return s32Ret;
}
