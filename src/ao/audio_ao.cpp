// The AO slot table and the exported AUDIO_AO_* functions: id checks, the one device
// class (ALSA playback), and every attribute change funnelled into the device's setCfg.
#include <climits>
#include <cstring>
#include <new>

#include "ao_alsa_device.h"
#include "ao_attr_access.h"
#include "audio_ao.h"
#include "audio_log.h"

using audiomw::LoadRelaxed;

AO_DEVICE_S* gs_pAoHandler[AUDIO_AO_MAX_NUM] = {nullptr};

namespace {

// Device type code of ALSA playback, the only kind of output there is.
constexpr int kAoTypeAlsa = 0;

bool IsValidId(int id) {
    return static_cast<unsigned int>(id) < AUDIO_AO_MAX_NUM;
}

// The device in slot id, or null for an invalid id or an empty slot.
AO_DEVICE_S* Device(int id) {
    return IsValidId(id) ? gs_pAoHandler[id] : nullptr;
}

}  // namespace

int AUDIO_AO_GetNewId(void) {
    for (int id = 0; id < AUDIO_AO_MAX_NUM; ++id) {
        if (gs_pAoHandler[id] == nullptr) {
            return id;
        }
    }
    return -1;
}

int AUDIO_AO_Create(int id, AO_ATTR_S* attr) {
    if (!IsValidId(id)) {
        AUDIO_LOGE("AO[%d] invalid id, valid ids are 0 to %d.", id, AUDIO_AO_MAX_NUM - 1);
        return -1;
    }
    if (gs_pAoHandler[id] != nullptr) {
        AUDIO_LOGE("AO[%d] has been used.", id);
        return -1;
    }
    if (attr == nullptr) {
        AUDIO_LOGE("AO[%d] attr is null.", id);
        return -1;
    }
    if (attr->eType != kAoTypeAlsa) {
        AUDIO_LOGE("AO[%d] for %d not support yet.", id, attr->eType);
        return -1;
    }
    AO_ALSA_DEVICE_S* pAlsa = new (std::nothrow) AO_ALSA_DEVICE_S();
    if (pAlsa == nullptr) {
        AUDIO_LOGE("AO[%d] handler malloc failed.", id);
        return -1;
    }
    AO_DEVICE_S* pDev = pAlsa;
    pDev->s32Id = id;
    std::memcpy(&pDev->stAttr, attr, sizeof(*attr));
    // A new output is always created disabled: nothing is opened until it is enabled.
    pDev->stAttr.bEnable = ZN_FALSE;
    gs_pAoHandler[id] = pDev;
    AUDIO_LOGI("AO[%d] create success", id);
    return 0;
}

int AUDIO_AO_Destroy(int id) {
    AO_DEVICE_S* pDev = Device(id);
    if (pDev == nullptr) {
        return 0;
    }
    delete pDev;
    gs_pAoHandler[id] = nullptr;
    AUDIO_LOGI("AO[%d] destroy success", id);
    return 0;
}

int AUDIO_AO_GetAttr(int id, AO_ATTR_S* attr) {
    AO_DEVICE_S* pDev = Device(id);
    if (pDev == nullptr) {
        return AUDIO_ERR_UNAVAILABLE;
    }
    if (attr == nullptr) {
        AUDIO_LOGE("AO[%d] attr is null.", id);
        return -1;
    }
    return pDev->getCfg(attr);
}

int AUDIO_AO_SetAttr(int id, AO_ATTR_S* attr) {
    AO_DEVICE_S* pDev = Device(id);
    if (pDev == nullptr) {
        AUDIO_LOGE("AO[%d] not available", id);
        return -1;
    }
    if (attr == nullptr) {
        AUDIO_LOGE("AO[%d] attr is null.", id);
        return -1;
    }
    return pDev->setCfg(attr);
}

int AUDIO_AO_SetVolume(int id, int volume) {
    if (Device(id) == nullptr) {
        AUDIO_LOGE("AO[%d] not available", id);
        return -1;
    }
    AO_ATTR_S stAttr;
    std::memset(&stAttr, 0, sizeof(stAttr));
    int s32Ret = AUDIO_AO_GetAttr(id, &stAttr);
    if (s32Ret != 0) {
        return s32Ret;
    }
    if (stAttr.s32Volume == volume) {
        return 0;
    }
    AUDIO_LOGI("set AO[%d] Volume=%d", id, volume);
    stAttr.s32Volume = volume;
    return AUDIO_AO_SetAttr(id, &stAttr);
}

int AUDIO_AO_SetEnable(int id, tagZN_BOOL bEnable) {
    if (Device(id) == nullptr) {
        AUDIO_LOGE("AO[%d] not available", id);
        return -1;
    }
    AO_ATTR_S stAttr;
    std::memset(&stAttr, 0, sizeof(stAttr));
    int s32Ret = AUDIO_AO_GetAttr(id, &stAttr);
    if (s32Ret != 0) {
        return s32Ret;
    }
    if (stAttr.bEnable == bEnable) {
        return 0;
    }
    AUDIO_LOGI("set AO[%d] %s", id, bEnable ? "Enable" : "Disable");
    stAttr.bEnable = bEnable;
    return AUDIO_AO_SetAttr(id, &stAttr);
}

tagZN_BOOL AUDIO_AO_isEnabled(int id) {
    AO_DEVICE_S* pDev = Device(id);
    return pDev ? LoadRelaxed(pDev->stAttr.bEnable) : ZN_FALSE;
}

tagZN_BOOL AUDIO_AO_isReady(int id) {
    AO_DEVICE_S* pDev = Device(id);
    return pDev ? LoadRelaxed(pDev->bHasInit) : ZN_FALSE;
}

int AUDIO_AO_Write(int id, unsigned char* data, unsigned int bytes) {
    AO_DEVICE_S* pDev = Device(id);
    if (pDev == nullptr) {
        AUDIO_LOGW("AO[%d] not create", id);
        return -1;
    }
    if (LoadRelaxed(pDev->stAttr.bMute)) {
        return 0;
    }
    if (data == nullptr) {
        AUDIO_LOGE("AO[%d] write buffer is null", id);
        return -1;
    }
    if (bytes > static_cast<unsigned int>(INT_MAX)) {
        AUDIO_LOGE("AO[%d] write of %u bytes refused", id, bytes);
        return -1;
    }
    return pDev->sendFrame(data, static_cast<int>(bytes));
}

int AUDIO_AO_GetUnderRunState(int id) {
    AO_DEVICE_S* pDev = Device(id);
    return pDev ? pDev->getUnderRuns() : -1;
}
