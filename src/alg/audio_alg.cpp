// The process-wide algorithm state and the exported AUDIO_ALG_* functions.
#include <pthread.h>

#include <cstdlib>
#include <cstring>

#include "alg_shared.h"
#include "audio_log.h"
#include "qx_audio_alg.h"

void* g_OrvaneAlgHandler = nullptr;
short* g_ptrEmptyRefIn = nullptr;
tagVOR_AUDIO_REF_IN_RES g_stRefInParam = {0, 0, 0, 0};

namespace {

pthread_mutex_t gs_stAlgInstMutex = PTHREAD_MUTEX_INITIALIZER;
audiomw::alg::AlgGeometry gs_stAlgGeometry = {0, 0, 0, 0};
uint8_t gs_u8RefInDbgLevel = 0;
FILE* gs_pRefInDumpFile = nullptr;
float gs_afMicTestState[AUDIO_ALG_MIC_STATE_NUM] = {0};

constexpr uint8_t kReportOnce = 1;

void StoreRefIn(tagVOR_AUDIO_REF_IN_RES stRefIn) {
    __atomic_store(&g_stRefInParam, &stRefIn, __ATOMIC_RELAXED);
}

bool AsciiLetter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

}  // namespace

namespace audiomw {
namespace alg {

void LockInstance() {
    pthread_mutex_lock(&gs_stAlgInstMutex);
}

void UnlockInstance() {
    pthread_mutex_unlock(&gs_stAlgInstMutex);
}

AlgGeometry& InstanceGeometry() {
    return gs_stAlgGeometry;
}

FILE*& RefInDumpFile() {
    return gs_pRefInDumpFile;
}

tagVOR_AUDIO_REF_IN_RES LoadRefIn() {
    tagVOR_AUDIO_REF_IN_RES stRefIn;
    __atomic_load(&g_stRefInParam, &stRefIn, __ATOMIC_RELAXED);
    return stRefIn;
}

uint8_t RefInDbgLevel() {
    return __atomic_load_n(&gs_u8RefInDbgLevel, __ATOMIC_RELAXED);
}

bool TakeOneShotReport() {
    uint8_t u8Expected = kReportOnce;
    return __atomic_compare_exchange_n(&gs_u8RefInDbgLevel, &u8Expected, 0, false, __ATOMIC_RELAXED,
                                       __ATOMIC_RELAXED);
}

}  // namespace alg
}  // namespace audiomw

int AUDIO_ALG_SetRefInParam(tagVOR_AUDIO_REF_IN_RES stRefIn) {
    const tagVOR_AUDIO_REF_IN_RES stOld = audiomw::alg::LoadRefIn();
    AUDIO_LOGD("Old Refin: Switch %d, Source %d; New Refin: %d, %d \n", stOld.u8Switch, stOld.u8Source,
               stRefIn.u8Switch, stRefIn.u8Source);
    AUDIO_LOGD("dbglevel %d \n", stRefIn.u8DbgLevel);
    if (stRefIn.u8DbgLevel == 0) {
        StoreRefIn(stRefIn);
    }
    __atomic_store_n(&gs_u8RefInDbgLevel, stRefIn.u8DbgLevel, __ATOMIC_RELAXED);
    return 0;
}

int AUDIO_ALG_GetVersion(unsigned int* pVer, unsigned int* pFix) {
    if (pVer == nullptr || pFix == nullptr) {
        return -1;
    }
    char acVer[AUDIO_ALG_VERSION_LEN] = {0};
    {
        audiomw::alg::InstanceGuard lk;
        if (g_OrvaneAlgHandler == nullptr) {
            return -1;
        }
        QX_AudioAlgGetVersion(g_OrvaneAlgHandler, acVer, AUDIO_ALG_VERSION_LEN);
    }
    acVer[AUDIO_ALG_VERSION_LEN - 1] = '\0';
    const size_t u32Len = std::strlen(acVer);
    if (u32Len == 0) {
        return -1;
    }
    *pVer = static_cast<unsigned int>(std::strtol(acVer + 1, nullptr, 10));
    *pFix = AsciiLetter(acVer[u32Len - 1]) ? static_cast<unsigned char>(acVer[u32Len - 1]) : ' ';
    AUDIO_LOGI("s32Ver: %d, s32Fix: %c \n", static_cast<int>(*pVer), static_cast<int>(*pFix));
    return 0;
}

int AUDIO_ALG_GetMicTestState(float** ppState, tagZN_BOOL bCheckChange) {
    if (ppState == nullptr) {
        return -1;
    }
    *ppState = gs_afMicTestState;
    audiomw::alg::InstanceGuard lk;
    if (g_OrvaneAlgHandler == nullptr) {
        return -1;
    }
    float afNew[AUDIO_ALG_MIC_STATE_NUM] = {0};
    afNew[0] = getMicVol(g_OrvaneAlgHandler, &afNew[1]);
    if (bCheckChange != ZN_FALSE && std::memcmp(afNew, gs_afMicTestState, sizeof(afNew)) == 0) {
        return -1;
    }
    std::memcpy(gs_afMicTestState, afNew, sizeof(afNew));
    return 0;
}
