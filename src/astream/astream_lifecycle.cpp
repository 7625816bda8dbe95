#include "astream_lifecycle.h"

#include <cstdio>
#include <new>

#include "astream_pipeline.h"
#include "astream_threads.h"
#include "audio_ai.h"
#include "audio_log.h"

ASTREAM_HANDLER_S* gs_AstreamHandler[ASTREAM_MAX_NUM] = {nullptr};

namespace audiomw {
namespace astream {

namespace {

pthread_mutex_t gs_stSlotMutex = PTHREAD_MUTEX_INITIALIZER;
// Serialises the lifecycle calls' use of a slot's stream: Create, Start, Stop and the
// queries hold it throughout, Destroy while it takes the stream out of its slot. A frame
// callback may stop the other stream while the control thread destroys it; the stream
// Stop works on then stays alive until Stop returns. Taken before the slot lock, never
// inside it, and never held while waiting for workers.
pthread_mutex_t gs_stLifecycleMutex = PTHREAD_MUTEX_INITIALIZER;

class LifecycleGuard {
  public:
    LifecycleGuard() { pthread_mutex_lock(&gs_stLifecycleMutex); }
    ~LifecycleGuard() { pthread_mutex_unlock(&gs_stLifecycleMutex); }
    LifecycleGuard(const LifecycleGuard&) = delete;
    LifecycleGuard& operator=(const LifecycleGuard&) = delete;
};

bool ValidId(int s32StreamId) {
    return s32StreamId >= 0 && s32StreamId < ASTREAM_MAX_NUM;
}

void PublishSlot(int s32StreamId, ASTREAM_HANDLER_S* pstHandler) {
    LockSlots();
    gs_AstreamHandler[s32StreamId] = pstHandler;
    UnlockSlots();
}

bool ReaderRunning(const ASTREAM_HANDLER_S* pstHandler) {
    return __atomic_load_n(&pstHandler->stReaderThread.bRunning, __ATOMIC_ACQUIRE) != 0;
}

// A buffer of one frame period; a length of 0 or below cannot hold one and counts as a
// failed allocation, like a negative length that an unknown AI reports.
char* NewBuffer(int s32Len) {
    return s32Len > 0 ? new (std::nothrow) char[static_cast<size_t>(s32Len)]() : nullptr;
}

// Releases what Create allocated: ring buffers, the read mutex (when initialised) and
// the record. The pipeline and the pool are gone by then.
void FreeStream(ASTREAM_HANDLER_S* pstHandler, bool bMutexInit) {
    for (ASTREAM_JOB_S& stJob : pstHandler->astJob) {
        delete[] stJob.pBufA;
        delete[] stJob.pBufB;
        stJob.pBufA = nullptr;
        stJob.pBufB = nullptr;
    }
    if (bMutexInit) {
        pthread_mutex_destroy(&pstHandler->stReadMutex);
    }
    delete pstHandler;
}

// Refusals that the slot table itself makes: ids beyond the table, missing or
// out-of-range attributes. 0 when Create may go on.
int CheckCreateArgs(int s32StreamId, const ASTREAM_ATTR_S* pstAttr) {
    if (!ValidId(s32StreamId)) {
        AUDIO_LOGE_OP("AUDIO_ASTREAM_Create", "ASTREAM[%d] create failed, id out of range 0..%d", s32StreamId,
                      ASTREAM_MAX_NUM - 1);
        return -1;
    }
    if (pstAttr == nullptr) {
        AUDIO_LOGE_OP("AUDIO_ASTREAM_Create", "ASTREAM[%d] create failed, no attributes", s32StreamId);
        return -1;
    }
    if (pstAttr->s32WorkerNum < 1 || pstAttr->s32WorkerNum > ASTREAM_JOB_MAX_NUM) {
        AUDIO_LOGE_OP("AUDIO_ASTREAM_Create", "ASTREAM[%d] create failed, worker num %d out of range 1..%d",
                      s32StreamId, pstAttr->s32WorkerNum, ASTREAM_JOB_MAX_NUM);
        return -1;
    }
    return 0;
}

int AllocRing(ASTREAM_HANDLER_S* pstHandler, int s32WorkerNum, int s32BufLen) {
    for (int i = 0; i < s32WorkerNum; i++) {
        ASTREAM_JOB_S& stJob = pstHandler->astJob[i];
        stJob.pstHandler = pstHandler;
        stJob.pBufA = NewBuffer(s32BufLen);
        stJob.pBufB = NewBuffer(s32BufLen);
        if (stJob.pBufA == nullptr || stJob.pBufB == nullptr) {
            return -1;
        }
    }
    return 0;
}

// The stream of a slot for Start and Stop, or null after logging, for `pcOp`, why
// there is none.
ASTREAM_HANDLER_S* ReadyStream(int s32StreamId, const char* pcOp) {
    ASTREAM_HANDLER_S* pstHandler = ValidId(s32StreamId) ? gs_AstreamHandler[s32StreamId] : nullptr;
    if (pstHandler == nullptr) {
        AUDIO_LOGE_OP(pcOp, "ASTREAM[%d] not created", s32StreamId);
        return nullptr;
    }
    if (pstHandler->bReady == ZN_FALSE) {
        AUDIO_LOGE_OP(pcOp, "ASTREAM[%d] create but init failed. please recreate", s32StreamId);
        return nullptr;
    }
    return pstHandler;
}

// Enables and opens the stream's AI where it is not yet; 0 or the failing call's code.
int PrepareAi(const ASTREAM_HANDLER_S* pstHandler) {
    const int s32AiId = pstHandler->s32AiId;
    if (!AUDIO_AI_isEnabled(s32AiId)) {
        int s32Ret = AUDIO_AI_SetEnable(s32AiId, ZN_TRUE);
        if (s32Ret != 0) {
            AUDIO_LOGE_OP("AUDIO_ASTREAM_Start", "ASTREAM[%d] enable AI[%d] failed", pstHandler->s32StreamId,
                          s32AiId);
            return s32Ret;
        }
    }
    if (!AUDIO_AI_isOpen(s32AiId)) {
        int s32Ret = AUDIO_AI_Open(s32AiId);
        if (s32Ret != 0) {
            AUDIO_LOGE_OP("AUDIO_ASTREAM_Start", "ASTREAM[%d] open AI[%d] failed", pstHandler->s32StreamId,
                          s32AiId);
            return s32Ret;
        }
    }
    return 0;
}

// Takes the slot's stream out of the table for Destroy into *ppstHandler, so that
// nothing walking the table (nor a later Stop) meets it any more; null when the slot is
// empty. -1 after logging when called on a stream worker: a worker cannot wait for its
// own pool to end, and two workers destroying each other's streams would wait for each
// other.
int TakeForDestroy(int s32StreamId, ASTREAM_HANDLER_S** ppstHandler) {
    LifecycleGuard lk;
    ASTREAM_HANDLER_S* pstHandler = ValidId(s32StreamId) ? gs_AstreamHandler[s32StreamId] : nullptr;
    *ppstHandler = nullptr;
    if (pstHandler == nullptr) {
        return 0;
    }
    if (WorkerStreamId() >= 0) {
        AUDIO_LOGE_OP(
            "AUDIO_ASTREAM_Destroy",
            "ASTREAM[%d] destroy refused: called on a worker of ASTREAM[%d], call it from a control "
            "thread",
            s32StreamId, WorkerStreamId());
        return -1;
    }
    PublishSlot(s32StreamId, nullptr);
    *ppstHandler = pstHandler;
    return 0;
}

}  // namespace

void LockSlots() {
    pthread_mutex_lock(&gs_stSlotMutex);
}

void UnlockSlots() {
    pthread_mutex_unlock(&gs_stSlotMutex);
}

bool SlotHeld(int s32StreamId) {
    LifecycleGuard lk;
    return ValidId(s32StreamId) && gs_AstreamHandler[s32StreamId] != nullptr;
}

}  // namespace astream
}  // namespace audiomw

using namespace audiomw::astream;

int AUDIO_ASTREAM_Create(int s32StreamId, ASTREAM_ATTR_S* pstAttr) {
    LifecycleGuard lk;
    if (ValidId(s32StreamId) && gs_AstreamHandler[s32StreamId] != nullptr) {
        AUDIO_LOGE("ASTREAM[%d] create failed, already in used", s32StreamId);
        return -1;
    }
    if (CheckCreateArgs(s32StreamId, pstAttr) != 0) {
        return -1;
    }
    const int s32BufLen = AUDIO_AI_GetRecommendReadBufferSize(pstAttr->s32AiId);
    ASTREAM_HANDLER_S* pstHandler = new (std::nothrow) ASTREAM_HANDLER_S();
    if (pstHandler == nullptr) {
        AUDIO_LOGE("ASTREAM[%d] malloc failed", s32StreamId);
        return -1;
    }
    if (AllocRing(pstHandler, pstAttr->s32WorkerNum, s32BufLen) != 0) {
        AUDIO_LOGE("ASTREAM[%d] malloc failed", s32StreamId);
        FreeStream(pstHandler, false);
        return -1;
    }
    pstHandler->s32StreamId = s32StreamId;
    pstHandler->s32AiId = pstAttr->s32AiId;
    pstHandler->s32Chn = AUDIO_AI_GetChannelChn(pstAttr->s32AiId);
    pstHandler->u32BufLen = static_cast<unsigned int>(s32BufLen);
    pthread_mutex_init(&pstHandler->stReadMutex, nullptr);
    AUDIO_LOGI("ASTREAM[%d] bind AI[%d] with %d channels, buf len %d", s32StreamId, pstHandler->s32AiId,
               pstHandler->s32Chn, s32BufLen);

    if (AUDIO_ASTREAM_InitPipeline(pstHandler, pstAttr) != 0) {
        FreeStream(pstHandler, true);
        return -1;
    }
    AUDIO_LOGI("ASTREAM[%d] pipeline init ok", s32StreamId);

    pstHandler->pstWorkerPool = UTIL_PF_Create(pstAttr->s32WorkerNum, threadAudioProcessWorker, nullptr);
    if (pstHandler->pstWorkerPool == nullptr) {
        AUDIO_LOGE("ASTREAM[%d] create worker thread pool failed", s32StreamId);
        DestroyNodes(pstHandler);
        FreeStream(pstHandler, true);
        return -1;
    }
    AUDIO_LOGI("ASTREAM[%d] worker pool init with %d workers", s32StreamId, pstAttr->s32WorkerNum);

    pstHandler->bReady = ZN_TRUE;
    AUDIO_LOGI("ASTREAM[%d] ready for start", s32StreamId);
    ResetJobTrack(s32StreamId);
    PublishSlot(s32StreamId, pstHandler);
    return 0;
}

int AUDIO_ASTREAM_Destroy(int s32StreamId) {
    ASTREAM_HANDLER_S* pstHandler = nullptr;
    if (TakeForDestroy(s32StreamId, &pstHandler) != 0) {
        return -1;
    }
    if (pstHandler == nullptr) {
        return 0;
    }
    const bool bRunning = ReaderRunning(pstHandler);
    if (bRunning) {
        UTIL_THREAD_Destory(&pstHandler->stReaderThread, ZN_TRUE);
        AUDIO_LOGI("ASTREAM[%d] reader stopped\n", s32StreamId);
    }
    if (UTIL_PF_Destroy(pstHandler->pstWorkerPool, ZN_TRUE) != 0) {
        // Workers may still run the pipeline: nothing is freed, and the stopped stream
        // goes back into its slot (unless a new one took it meanwhile) so that a later
        // Destroy can end it.
        AUDIO_LOGE("ASTREAM[%d] worker pool not stopped, stream kept", s32StreamId);
        LifecycleGuard lk;
        if (gs_AstreamHandler[s32StreamId] == nullptr) {
            PublishSlot(s32StreamId, pstHandler);
        }
        return -1;
    }
    AUDIO_LOGI("ASTREAM[%d] worker stopped\n", s32StreamId);
    DestroyNodes(pstHandler);
    FreeStream(pstHandler, true);
    AUDIO_LOGI("ASTREAM[%d] destroyed\n", s32StreamId);
    return 0;
}

int AUDIO_ASTREAM_Start(int s32StreamId) {
    LifecycleGuard lk;
    ASTREAM_HANDLER_S* pstHandler = ReadyStream(s32StreamId, __func__);
    if (pstHandler == nullptr) {
        return -1;
    }
    if (ReaderRunning(pstHandler)) {
        // One reader per stream: its descriptor is in use.
        AUDIO_LOGW("ASTREAM[%d] already running", s32StreamId);
        return 0;
    }
    int s32Ret = PrepareAi(pstHandler);
    if (s32Ret != 0) {
        return s32Ret;
    }
    char acName[16] = {0};
    std::snprintf(acName, sizeof(acName), "ASTREAM[%d:r]", s32StreamId);
    s32Ret = UTIL_THREAD_InitData(&pstHandler->stReaderThread, acName, threadAudioProcessReader, pstHandler);
    if (s32Ret != 0) {
        return s32Ret;
    }
    s32Ret = UTIL_THREAD_Create(&pstHandler->stReaderThread, nullptr);
    if (s32Ret != 0) {
        return s32Ret;
    }
    AUDIO_LOGI("ASTREAM[%d] start with AI[%d]", s32StreamId, pstHandler->s32AiId);
    return 0;
}

int AUDIO_ASTREAM_Stop(int s32StreamId) {
    LifecycleGuard lk;
    ASTREAM_HANDLER_S* pstHandler = ReadyStream(s32StreamId, __func__);
    if (pstHandler == nullptr) {
        return -1;
    }
    if (WorkerStreamId() == s32StreamId) {
        AUDIO_LOGE(
            "ASTREAM[%d] stop refused: called on a worker of the stream, call it from a control thread",
            s32StreamId);
        return -1;
    }
    if (ReaderRunning(pstHandler)) {
        UTIL_THREAD_Destory(&pstHandler->stReaderThread, ZN_TRUE);
        AUDIO_LOGI("ASTREAM[%d] reader stopped", s32StreamId);
    }
    AUDIO_AI_Close(pstHandler->s32AiId);
    AUDIO_LOGI("ASTREAM[%d] stopped", s32StreamId);
    return 0;
}

int AUDIO_ASTREAM_isReady(int s32StreamId) {
    LifecycleGuard lk;
    const ASTREAM_HANDLER_S* pstHandler = ValidId(s32StreamId) ? gs_AstreamHandler[s32StreamId] : nullptr;
    return pstHandler != nullptr && pstHandler->bReady != ZN_FALSE ? 1 : 0;
}

int AUDIO_ASTREAM_isRunning(int s32StreamId) {
    LifecycleGuard lk;
    const ASTREAM_HANDLER_S* pstHandler = ValidId(s32StreamId) ? gs_AstreamHandler[s32StreamId] : nullptr;
    return pstHandler != nullptr && ReaderRunning(pstHandler) ? 1 : 0;
}
