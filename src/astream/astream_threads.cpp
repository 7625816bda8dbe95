#include "astream_threads.h"

#include <time.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <utility>

#include "astream_node.h"
#include "audio_ai.h"
#include "audio_log.h"
#include "root_path.h"

namespace audiomw {
namespace astream {

namespace {

constexpr int kWaitTimedOut = -110;
constexpr int kWaitError = -1;
constexpr long kNsPerMs = 1000000L;
constexpr long kNsPerS = 1000000000L;

// Which ring entries of each stream slot are in a worker's hands: marked by the reader
// before it feeds an entry, cleared by the worker after its last touch of the entry's
// buffers. The pool's worker records show a job only once the worker has started it;
// this also covers an entry fed and not yet started, so the reader never refills a
// buffer that a worker has yet to read.
struct JobTrack {
    std::mutex mtx;
    std::condition_variable cvDone;
    bool abBusy[ASTREAM_JOB_MAX_NUM] = {};
};

JobTrack gs_astJobTrack[ASTREAM_MAX_NUM];

// Set while a worker runs a job, so that lifecycle calls made from inside a node (the
// frame callback) can tell they run on a worker of a stream.
thread_local int tls_s32WorkerStreamId = -1;

// The tracking slot of a ring entry, or null for a stream record outside the table.
JobTrack* TrackOf(const ASTREAM_HANDLER_S* pstHandler, int s32JobIdx) {
    const int s32Id = pstHandler->s32StreamId;
    if (s32Id < 0 || s32Id >= ASTREAM_MAX_NUM || s32JobIdx < 0 || s32JobIdx >= ASTREAM_JOB_MAX_NUM) {
        return nullptr;
    }
    return &gs_astJobTrack[s32Id];
}

void MarkJob(const ASTREAM_HANDLER_S* pstHandler, int s32JobIdx, bool bBusy) {
    JobTrack* pstTrack = TrackOf(pstHandler, s32JobIdx);
    if (pstTrack == nullptr) {
        return;
    }
    std::lock_guard<std::mutex> lk(pstTrack->mtx);
    pstTrack->abBusy[s32JobIdx] = bBusy;
    if (!bBusy) {
        pstTrack->cvDone.notify_all();
    }
}

bool JobBusy(const ASTREAM_HANDLER_S* pstHandler, int s32JobIdx) {
    JobTrack* pstTrack = TrackOf(pstHandler, s32JobIdx);
    if (pstTrack == nullptr) {
        return false;
    }
    std::lock_guard<std::mutex> lk(pstTrack->mtx);
    return pstTrack->abBusy[s32JobIdx];
}

// Waits up to s32TimeoutMs for the worker holding the entry to finish with it; true
// when the entry is free.
bool WaitJobDone(const ASTREAM_HANDLER_S* pstHandler, int s32JobIdx, int s32TimeoutMs) {
    JobTrack* pstTrack = TrackOf(pstHandler, s32JobIdx);
    if (pstTrack == nullptr) {
        return true;
    }
    std::unique_lock<std::mutex> lk(pstTrack->mtx);
    return pstTrack->cvDone.wait_for(lk, std::chrono::milliseconds(s32TimeoutMs),
                                     [&] { return !pstTrack->abBusy[s32JobIdx]; });
}

// True when a worker of the pool runs a job whose buffer A is pcBuf.
bool WorkerRunsBuffer(ZN_PF_HANDLER_S* pstPool, const char* pcBuf) {
    for (int i = 0; i < pstPool->s32WorkerNum; i++) {
        // The pool publishes the running job's argument atomically (release).
        auto* pstJob =
            static_cast<ASTREAM_JOB_S*>(__atomic_load_n(&pstPool->pstWorkers[i].pJobArg, __ATOMIC_ACQUIRE));
        if (pstJob != nullptr && pstJob->pBufA == pcBuf) {
            return true;
        }
    }
    return false;
}

// Decides whether the reader may fill ring entry s32JobIdx now. An entry whose buffer
// a worker is running a job on is reported; one fed to the pool and not yet started is
// not. In both cases the reader waits (at most kReaderWaitMs) for the job to finish with
// the entry; if it has not, the cycle is skipped and the next one tries the same entry
// again. The reader never writes a buffer that a worker may still read.
bool EntryFree(ASTREAM_HANDLER_S* pstHandler, int s32JobIdx) {
    const char* pcBuf = pstHandler->astJob[s32JobIdx].pBufA;
    if (WorkerRunsBuffer(pstHandler->pstWorkerPool, pcBuf)) {
        std::printf("%s-%d: ========== Data in use, read error =========== \n", "threadAudioProcessReader",
                    __LINE__);
        AUDIO_LOGE_OP("threadAudioProcessReader", "========== Data in use, read error =========== \n");
    } else if (!JobBusy(pstHandler, s32JobIdx)) {
        return true;
    }
    return WaitJobDone(pstHandler, s32JobIdx, kReaderWaitMs);
}

// The ring index of a job of the stream, -1 for a job outside its ring.
int RingIndex(const ASTREAM_HANDLER_S* pstHandler, const ASTREAM_JOB_S* pstJob) {
    for (int i = 0; i < ASTREAM_JOB_MAX_NUM; i++) {
        if (pstJob == &pstHandler->astJob[i]) {
            return i;
        }
    }
    return -1;
}

long ElapsedMs(const timespec& stStart, const timespec& stEnd) {
    long s64Ns = (stEnd.tv_sec - stStart.tv_sec) * kNsPerS + (stEnd.tv_nsec - stStart.tv_nsec);
    return s64Ns / kNsPerMs;
}

// Runs one enabled node over the job's buffers under the node's mutex.
void RunNode(ASTREAM_HANDLER_S* pstHandler, ASTREAM_NODE_S* pstNode, char*& pIn, char*& pOut,
             bool& bInPlace) {
    pthread_mutex_lock(&pstNode->_mMutex);
    timespec stStart;
    timespec stEnd;
    clock_gettime(CLOCK_REALTIME, &stStart);
    int s32Ret = pstNode->process(pIn, pOut, bInPlace);
    clock_gettime(CLOCK_REALTIME, &stEnd);
    long s64CostMs = ElapsedMs(stStart, stEnd);
    // Only a node that took a millisecond or more is reported: test the marker file then,
    // not once per node and frame.
    if (s64CostMs != 0 && audiomw::MarkerExists("/var/debugnodeprocess")) {
        std::printf("node process: type =%d cost %ldms \n", static_cast<int>(pstNode->_meType), s64CostMs);
    }
    if (s32Ret != 0) {
        std::printf("ASTREAM[%d] failed\n", pstHandler->s32StreamId);
    }
    if (!bInPlace) {
        std::swap(pIn, pOut);
    }
    pthread_mutex_unlock(&pstNode->_mMutex);
}

// One AI read into the entry's buffer A and, for a full period, the hand-over to the
// pool. Runs under the stream's read mutex.
void ReadAndFeed(ASTREAM_HANDLER_S* pstHandler, int s32JobIdx) {
    ASTREAM_JOB_S* pstJob = &pstHandler->astJob[s32JobIdx];
    unsigned int u32ReadLen = 0;
    unsigned long long u64TimeStamp = 0;
    AUDIO_AI_Read(pstHandler->s32AiId, reinterpret_cast<unsigned char*>(pstJob->pBufA), pstHandler->u32BufLen,
                  u32ReadLen, u64TimeStamp, -1);
    if (u32ReadLen != pstHandler->u32BufLen) {
        // The partial period is dropped; the next cycle refills the same entry.
        std::printf("ASTREAM[%d] read AI[%d] failed, except %u but get %u\n", pstHandler->s32StreamId,
                    pstHandler->s32AiId, pstHandler->u32BufLen, u32ReadLen);
        return;
    }
    MarkJob(pstHandler, s32JobIdx, true);
    if (UTIL_PF_Feed(pstHandler->pstWorkerPool, pstJob, -1) != 0) {
        MarkJob(pstHandler, s32JobIdx, false);
    }
    pstHandler->s32JobIdx = (s32JobIdx + 1) % pstHandler->pstWorkerPool->s32WorkerNum;
}

}  // namespace

int WorkerStreamId() {
    return tls_s32WorkerStreamId;
}

void ResetJobTrack(int s32StreamId) {
    if (s32StreamId < 0 || s32StreamId >= ASTREAM_MAX_NUM) {
        return;
    }
    JobTrack& stTrack = gs_astJobTrack[s32StreamId];
    std::lock_guard<std::mutex> lk(stTrack.mtx);
    for (bool& bBusy : stTrack.abBusy) {
        bBusy = false;
    }
}

}  // namespace astream
}  // namespace audiomw

void threadAudioProcessReader(void* pArg) {
    ASTREAM_HANDLER_S* pstHandler = static_cast<ASTREAM_HANDLER_S*>(pArg);
    int s32Ret = UTIL_PF_WaitWorkerIdle(pstHandler->pstWorkerPool, audiomw::astream::kReaderWaitMs);
    if (s32Ret == audiomw::astream::kWaitTimedOut) {
        std::printf("%s-%d: UTIL_PF_WaitWorkerIdle: %d \n", __func__, __LINE__, s32Ret);
        return;
    }
    if (s32Ret == audiomw::astream::kWaitError) {
        AUDIO_LOGE("UTIL_PF_WaitWorkerIdle Error \n");
        std::printf("%s-%d: UTIL_PF_WaitWorkerIdle: %d \n", __func__, __LINE__, s32Ret);
        return;
    }
    const int s32JobIdx = pstHandler->s32JobIdx;
    if (!audiomw::astream::EntryFree(pstHandler, s32JobIdx)) {
        return;
    }
    pthread_mutex_lock(&pstHandler->stReadMutex);
    audiomw::astream::ReadAndFeed(pstHandler, s32JobIdx);
    pthread_mutex_unlock(&pstHandler->stReadMutex);
}

void threadAudioProcessWorker(void* pArg) {
    ASTREAM_JOB_S* pstJob = static_cast<ASTREAM_JOB_S*>(pArg);
    ASTREAM_HANDLER_S* pstHandler = pstJob->pstHandler;
    char* pIn = pstJob->pBufA;
    char* pOut = pstJob->pBufB;
    bool bInPlace = false;
    audiomw::astream::tls_s32WorkerStreamId = pstHandler->s32StreamId;
    for (ASTREAM_NODE_S* pstNode : pstHandler->lstNode) {
        if (audiomw::astream::NodeEnabled(pstNode)) {
            audiomw::astream::RunNode(pstHandler, pstNode, pIn, pOut, bInPlace);
        }
    }
    audiomw::astream::tls_s32WorkerStreamId = -1;
    audiomw::astream::MarkJob(pstHandler, audiomw::astream::RingIndex(pstHandler, pstJob), false);
}
