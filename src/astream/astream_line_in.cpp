// The line-in connect state shared by all output nodes, and the recording of what
// goes to AO 0.
#include <pthread.h>

#include <cstdio>

#include "astream_lifecycle.h"
#include "audio_astream.h"
#include "audio_log.h"
#include "relaxed_atomic.h"
#include "root_path.h"

tagZN_BOOL gs_bLineInConState = ZN_FALSE;
pthread_mutex_t gs_stLineInDectMutex = PTHREAD_MUTEX_INITIALIZER;

namespace {

// Output nodes of both streams may record AO 0 at once: the handle is only used under
// this lock, which is taken last (after node mutexes) and never held while taking another.
pthread_mutex_t gs_stRecordMutex = PTHREAD_MUTEX_INITIALIZER;
FILE* gs_pRecordFile = nullptr;

}  // namespace

int AUDIO_ASTREAM_SetLineInConnetState(tagZN_BOOL bConnectFlag) {
    if (bConnectFlag == audiomw::LoadRelaxed(gs_bLineInConState)) {
        return 0;
    }
    audiomw::StoreRelaxed(gs_bLineInConState, bConnectFlag);
    ASTREAM_OUTPUT_ATTR_S stAttr = {};
    stAttr.bLineInConnect = bConnectFlag;
    // Output nodes call this from workers too; the slot lock keeps a stream from being
    // taken out of its slot mid-walk. It is never held while taking a node mutex.
    audiomw::astream::LockSlots();
    for (ASTREAM_HANDLER_S* pstHandler : gs_AstreamHandler) {
        if (pstHandler == nullptr) {
            continue;
        }
        for (ASTREAM_NODE_S* pNode : pstHandler->lstNode) {
            if (pNode->_meType == ASTREAM_NODE_TYPE_E_OUTPUT) {
                pNode->setCfg(stAttr);
            }
        }
    }
    audiomw::astream::UnlockSlots();
    std::printf("%s-%d: bConnectFlag =%d \n", __func__, __LINE__, bConnectFlag);
    return 0;
}

tagZN_BOOL AUDIO_ASTREAM_GetLineInConnetState() {
    return audiomw::LoadRelaxed(gs_bLineInConState);
}

int AUDIO_ASTREAM_LineInDectMutexLock() {
    pthread_mutex_lock(&gs_stLineInDectMutex);
    return 0;
}

int AUDIO_ASTREAM_LineInDectMutexUnlock() {
    pthread_mutex_unlock(&gs_stLineInDectMutex);
    return 0;
}

void ASTREAM_RecordOutputData(char* pData, int s32Len) {
    bool bOn = audiomw::MarkerExists("/var/recordoutput");
    pthread_mutex_lock(&gs_stRecordMutex);
    if (!bOn) {
        if (gs_pRecordFile != nullptr) {
            std::fclose(gs_pRecordFile);
            gs_pRecordFile = nullptr;
        }
    } else {
        if (gs_pRecordFile == nullptr) {
            char acPath[audiomw::kRootPathMax];
            if (audiomw::RootPath("/var/I2sOutput.pcm", acPath, sizeof(acPath)) != nullptr) {
                gs_pRecordFile = std::fopen(acPath, "w");
            }
        }
        if (gs_pRecordFile != nullptr && pData != nullptr && s32Len > 0) {
            size_t u32Written = std::fwrite(pData, 1, static_cast<size_t>(s32Len), gs_pRecordFile);
            if (u32Written != static_cast<size_t>(s32Len)) {
                std::printf("%s-%d: write error. s32Ret =%d,s32Len =%d \n", __func__, __LINE__,
                            static_cast<int>(u32Written), s32Len);
            }
        }
    }
    pthread_mutex_unlock(&gs_stRecordMutex);
}
