// The AI slot table and the exported AUDIO_AI_* functions: id checks, the device class
// per type code, and every attribute change funnelled into the device's setCfg.
#include <cstring>
#include <new>

#include "ai_alsa_device.h"
#include "ai_combo_device.h"
#include "ai_file_device.h"
#include "audio_ai.h"
#include "audio_log.h"
#include "relaxed_atomic.h"

AI_DEVICE_S* gs_pAiHandler[AUDIO_AI_MAX_NUM] = {nullptr};

namespace {

bool IsValidId(int id) {
    return static_cast<unsigned int>(id) < AUDIO_AI_MAX_NUM;
}

// The device in slot id, or null for an invalid id or an empty slot.
AI_DEVICE_S* Device(int id) {
    return IsValidId(id) ? gs_pAiHandler[id] : nullptr;
}

// A new zeroed device of the class that serves eType, or null for a type without one.
AI_DEVICE_S* NewDevice(unsigned int eType, bool& bKnownType) {
    bKnownType = true;
    switch (eType) {
        case AI_DEV_TYPE_ALSA:
            return new (std::nothrow) AI_ALSA_DEVICE_S();
        case AI_DEV_TYPE_COMBO:
            return new (std::nothrow) AI_COMBO_DEVICE_S();
        case AI_DEV_TYPE_FILE:
            return new (std::nothrow) AI_FILE_DEVICE_S();
        default:
            bKnownType = false;
            return nullptr;
    }
}

}  // namespace

int AUDIO_AI_Create(int id, AI_ATTR_S* attr) {
    if (!IsValidId(id)) {
        AUDIO_LOGE("AI[%d] invalid id, valid ids are 0 to %d.", id, AUDIO_AI_MAX_NUM - 1);
        return -1;
    }
    if (gs_pAiHandler[id] != nullptr) {
        AUDIO_LOGE("AI[%d] has been used.", id);
        return -1;
    }
    if (attr == nullptr) {
        AUDIO_LOGE("AI[%d] attr is null.", id);
        return -1;
    }
    bool bKnownType = false;
    AI_DEVICE_S* pDev = NewDevice(attr->eType, bKnownType);
    if (!bKnownType) {
        AUDIO_LOGE("AI[%d] for %d not support yet.", id, static_cast<int>(attr->eType));
        return -1;
    }
    if (pDev == nullptr) {
        AUDIO_LOGE("AI[%d] handler malloc failed.", id);
        return -1;
    }
    std::memcpy(&pDev->stAttr, attr, sizeof(*attr));
    pDev->s32Id = id;
    if (pDev->stAttr.bEnable) {
        // The AI exists either way; AUDIO_AI_isInitd tells whether init worked.
        (void)pDev->init();
    }
    gs_pAiHandler[id] = pDev;
    AUDIO_LOGI("AI[%d] create success", id);
    return 0;
}

int AUDIO_AI_Destroy(int id) {
    AI_DEVICE_S* pDev = Device(id);
    if (pDev == nullptr) {
        return 0;
    }
    delete pDev;
    gs_pAiHandler[id] = nullptr;
    AUDIO_LOGI("AI[%d] destroy success", id);
    return 0;
}

int AUDIO_AI_Open(int id) {
    AI_DEVICE_S* pDev = Device(id);
    return pDev ? pDev->open() : AUDIO_ERR_UNAVAILABLE;
}

int AUDIO_AI_Close(int id) {
    AI_DEVICE_S* pDev = Device(id);
    return pDev ? pDev->close() : AUDIO_ERR_UNAVAILABLE;
}

int AUDIO_AI_Read(int id, unsigned char* pBuf, unsigned int u32Len, unsigned int& u32ReadLen,
                  unsigned long long& u64TimeStamp, int s32Timeout) {
    AI_DEVICE_S* pDev = Device(id);
    if (pDev == nullptr) {
        return AUDIO_ERR_UNAVAILABLE;
    }
    if (pBuf == nullptr) {
        AUDIO_LOGE("AI[%d] read buffer is null", id);
        return -1;
    }
    return pDev->readFrame(pBuf, u32Len, u32ReadLen, u64TimeStamp, s32Timeout);
}

int AUDIO_AI_SetAttr(int id, AI_ATTR_S* attr) {
    AI_DEVICE_S* pDev = Device(id);
    if (pDev == nullptr) {
        AUDIO_LOGE("AI[%d] not available", id);
        return -1;
    }
    if (attr == nullptr) {
        AUDIO_LOGE("AI[%d] attr is null.", id);
        return -1;
    }
    return pDev->setCfg(attr);
}

int AUDIO_AI_GetAttr(int id, AI_ATTR_S* attr) {
    AI_DEVICE_S* pDev = Device(id);
    if (pDev == nullptr) {
        return AUDIO_ERR_UNAVAILABLE;
    }
    if (attr == nullptr) {
        AUDIO_LOGE("AI[%d] attr is null.", id);
        return -1;
    }
    return pDev->getCfg(attr);
}

int AUDIO_AI_SetVolume(int id, int volume) {
    if (Device(id) == nullptr) {
        AUDIO_LOGE("AI[%d] not available", id);
        return -1;
    }
    AI_ATTR_S stAttr;
    int s32Ret = AUDIO_AI_GetAttr(id, &stAttr);
    if (s32Ret != 0) {
        return s32Ret;
    }
    stAttr.s32Volume = volume;
    return AUDIO_AI_SetAttr(id, &stAttr);
}

int AUDIO_AI_SetEnable(int id, tagZN_BOOL enable) {
    if (Device(id) == nullptr) {
        AUDIO_LOGE("AI[%d] not available", id);
        return -1;
    }
    AI_ATTR_S stAttr;
    int s32Ret = AUDIO_AI_GetAttr(id, &stAttr);
    if (s32Ret != 0) {
        return s32Ret;
    }
    stAttr.bEnable = enable;
    AUDIO_LOGI("AI[%d] %s", id, enable ? "Enable" : "Disable");
    return AUDIO_AI_SetAttr(id, &stAttr);
}

int AUDIO_AI_isEnabled(int id) {
    AI_DEVICE_S* pDev = Device(id);
    return pDev ? static_cast<int>(pDev->stAttr.bEnable) : 0;
}

int AUDIO_AI_isInitd(int id) {
    AI_DEVICE_S* pDev = Device(id);
    return pDev ? static_cast<int>(audiomw::LoadRelaxed(pDev->bHasInit)) : 0;
}

int AUDIO_AI_isOpen(int id) {
    AI_DEVICE_S* pDev = Device(id);
    return pDev ? static_cast<int>(audiomw::LoadRelaxed(pDev->bHasOpen)) : 0;
}

int AUDIO_AI_GetChannelChn(int id) {
    AI_DEVICE_S* pDev = Device(id);
    return pDev ? pDev->stAttr.s32Channel : -1;
}

int AUDIO_AI_GetRecommendReadBufferSize(int id) {
    AI_DEVICE_S* pDev = Device(id);
    if (pDev == nullptr) {
        return -1;
    }
    unsigned int u32Bytes = static_cast<unsigned int>(pDev->stAttr.s32Channel) *
                            static_cast<unsigned int>(pDev->stAttr.s32FrameLen) * 2u;
    return static_cast<int>(u32Bytes);
}

int AUDIO_AI_GetUnderRunState(int id) {
    AI_DEVICE_S* pDev = Device(id);
    return pDev ? pDev->getUnderRuns() : AUDIO_ERR_UNAVAILABLE;
}
