// Worker pool: UTIL_PF_Create, UTIL_PF_WaitWorkerIdle, UTIL_PF_Feed, UTIL_PF_Destroy.
#include "util_pf.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <type_traits>

#include "host_log.h"
#include "host_test.h"
#include "host_thread.h"

namespace audiomw_host {

namespace {

constexpr unsigned int kPoolMagic = 0x5046504fu;  // "OPFP"
constexpr int kTimeoutRet = -110;
constexpr size_t kRecordAlign = 64;  // one cache line, so records of busy workers do not share one

std::atomic<int> gs_s32LivePools{0};

}  // namespace

static_assert(std::is_standard_layout<PfPool>::value, "the handle must share the pool's address");
static_assert(offsetof(PfPool, stHead) == 0, "the handle is the pool's first member");

PfPool::PfPool() : u32Magic(kPoolMagic) {
    gs_s32LivePools.fetch_add(1);
}

PfPool::~PfPool() {
    u32Magic = 0;
    std::free(stHead.pstWorkers);
    delete[] pstSlots;
    gs_s32LivePools.fetch_sub(1);
}

ZN_PF_HANDLER_S* PfPool::Create(int s32Num, void (*pfnWorker)(void*), void (*pfnAux)(void*)) {
    if (s32Num < 1 || s32Num > kMaxWorkers) {
        HOST_LOGE("worker number %d out of range 1..%d", s32Num, kMaxWorkers);
        return nullptr;
    }
    if (pfnWorker == nullptr) {
        HOST_LOGE("no worker routine");
        return nullptr;
    }
    PfPool* pPool = new (std::nothrow) PfPool;
    void* pRecords = nullptr;
    size_t u32Bytes = sizeof(ZN_PF_WORKER_S) * static_cast<size_t>(s32Num);
    if (pPool == nullptr || posix_memalign(&pRecords, kRecordAlign, u32Bytes) != 0) {
        HOST_LOGE("pool of %d workers: out of memory", s32Num);
        delete pPool;
        return nullptr;
    }
    std::memset(pRecords, 0, u32Bytes);
    pPool->stHead.pstWorkers = static_cast<ZN_PF_WORKER_S*>(pRecords);
    pPool->pstSlots = new (std::nothrow) PfWorkerSlot[s32Num];
    if (pPool->pstSlots == nullptr) {
        HOST_LOGE("pool of %d workers: out of memory", s32Num);
        delete pPool;
        return nullptr;
    }
    pPool->stHead.s32WorkerNum = s32Num;
    pPool->pfnWorker = pfnWorker;
    pPool->pfnAux = pfnAux;
    pPool->s32IdleNum = s32Num;
    if (!pPool->StartWorkers(s32Num)) {
        delete pPool;
        return nullptr;
    }
    return &pPool->stHead;
}

PfPool* PfPool::FromHandle(ZN_PF_HANDLER_S* pHandle) {
    if (pHandle == nullptr) {
        return nullptr;
    }
    PfPool* pPool = reinterpret_cast<PfPool*>(pHandle);
    return pPool->u32Magic == kPoolMagic ? pPool : nullptr;
}

// Starts every worker and returns once each has run pfnAux and waits for jobs. On a
// failed start the workers already running are stopped and joined.
bool PfPool::StartWorkers(int s32Num) {
    std::unique_lock<std::mutex> lk(mtx);
    s32Refs = s32Num;
    lk.unlock();
    for (int i = 0; i < s32Num; i++) {
        pstSlots[i].pPool = this;
        pstSlots[i].s32Index = i;
        int s32Err = StartThread(&pstSlots[i].tid, nullptr, &PfPool::WorkerMain, &pstSlots[i]);
        if (s32Err != 0) {
            HOST_LOGE("start of worker %d failed: %s", i, std::strerror(s32Err));
            lk.lock();
            s32Refs -= s32Num - i;
            RequestStop(lk);
            lk.unlock();
            JoinStarted(i);
            return false;
        }
    }
    lk.lock();
    cvState.wait(lk, [&] { return s32StartedNum == s32Num; });
    return true;
}

void* PfPool::WorkerMain(void* pArg) {
    PfWorkerSlot* pstSlot = static_cast<PfWorkerSlot*>(pArg);
    pstSlot->pPool->RunWorker(*pstSlot);
    return nullptr;
}

void PfPool::RunWorker(PfWorkerSlot& stSlot) {
    char acName[16];
    std::snprintf(acName, sizeof(acName), "pf-worker-%d", stSlot.s32Index);
    pthread_setname_np(pthread_self(), acName);
    if (pfnAux != nullptr) {
        pfnAux(&stHead);
    }
    ZN_PF_WORKER_S& stRecord = stHead.pstWorkers[stSlot.s32Index];

    std::unique_lock<std::mutex> lk(mtx);
    s32StartedNum++;
    cvState.notify_all();
    for (;;) {
        // A job handed over before the stop still runs: a fed job always runs once.
        stSlot.cvJob.wait(lk, [&] { return stSlot.pHandedJob != nullptr || bStop; });
        void* pJob = stSlot.pHandedJob;
        if (pJob == nullptr) {
            break;
        }
        stSlot.pHandedJob = nullptr;
        __atomic_store_n(&stRecord.pJobArg, pJob, __ATOMIC_RELEASE);
        lk.unlock();
        pfnWorker(pJob);
        lk.lock();
        __atomic_store_n(&stRecord.pJobArg, nullptr, __ATOMIC_RELEASE);
        stSlot.bIdle = true;
        s32IdleNum++;
        cvState.notify_all();
    }
    bool bDelete = DropRef();
    lk.unlock();
    if (bDelete) {
        delete this;
    }
}

template <typename Pred>
bool PfPool::WaitState(std::unique_lock<std::mutex>& lk, int s32TimeoutMs, Pred pred) {
    if (s32TimeoutMs < 0) {
        cvState.wait(lk, pred);
        return true;
    }
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(s32TimeoutMs);
    return cvState.wait_until(lk, deadline, pred);
}

int PfPool::WaitIdle(int s32TimeoutMs) {
    std::unique_lock<std::mutex> lk(mtx);
    if (bStop) {
        return -1;
    }
    s32Refs++;
    bool bIdle = WaitState(lk, s32TimeoutMs, [&] { return s32IdleNum > 0 || bStop; });
    int s32Ret = bStop ? -1 : (bIdle ? 0 : kTimeoutRet);
    bool bDelete = DropRef();
    lk.unlock();
    if (bDelete) {
        delete this;
    }
    return s32Ret;
}

int PfPool::Feed(void* pJob, int s32TimeoutMs) {
    std::unique_lock<std::mutex> lk(mtx);
    if (bStop) {
        return -1;
    }
    s32Refs++;
    bool bIdle = WaitState(lk, s32TimeoutMs, [&] { return s32IdleNum > 0 || bStop; });
    int s32Ret = bStop ? -1 : (bIdle ? 0 : kTimeoutRet);
    if (s32Ret == 0) {
        // s32IdleNum > 0: some slot is idle.
        int i = 0;
        while (i < stHead.s32WorkerNum - 1 && !pstSlots[i].bIdle) {
            i++;
        }
        pstSlots[i].bIdle = false;
        pstSlots[i].pHandedJob = pJob;
        s32IdleNum--;
        pstSlots[i].cvJob.notify_one();
    }
    bool bDelete = DropRef();
    lk.unlock();
    if (bDelete) {
        delete this;
    }
    return s32Ret;
}

bool PfPool::IsOwnWorker() const {
    for (int i = 0; i < stHead.s32WorkerNum; i++) {
        if (pthread_equal(pstSlots[i].tid, pthread_self())) {
            return true;
        }
    }
    return false;
}

void PfPool::RequestStop(std::unique_lock<std::mutex>& lk) {
    (void)lk;  // held by the caller
    bStop = true;
    for (int i = 0; i < stHead.s32WorkerNum; i++) {
        pstSlots[i].cvJob.notify_all();
    }
    cvState.notify_all();
}

void PfPool::JoinStarted(int s32Started) {
    for (int i = 0; i < s32Started; i++) {
        pthread_join(pstSlots[i].tid, nullptr);
    }
}

bool PfPool::DropRef() {
    s32Refs--;
    if (s32Refs > 0) {
        return false;
    }
    if (bOrphan) {
        return true;
    }
    cvState.notify_all();
    return false;
}

// With bWait: stops the workers once their current and handed-over jobs have returned,
// joins them and frees the pool. Without: the workers are detached and the last of them
// (or of the calls still inside the pool) frees it when it leaves.
int PfPool::Destroy(bool bWait) {
    if (bWait && IsOwnWorker()) {
        HOST_LOGE("called from a job of the pool, which cannot wait for itself");
        return -1;
    }
    if (!bWait) {
        // Before the stop: no worker can have left yet, so every thread id is still valid.
        for (int i = 0; i < stHead.s32WorkerNum; i++) {
            pthread_detach(pstSlots[i].tid);
        }
    }
    std::unique_lock<std::mutex> lk(mtx);
    RequestStop(lk);
    if (!bWait) {
        bOrphan = true;
        bool bDelete = s32Refs == 0;
        lk.unlock();
        if (bDelete) {
            delete this;
        }
        return 0;
    }
    lk.unlock();
    JoinStarted(stHead.s32WorkerNum);
    lk.lock();
    cvState.wait(lk, [&] { return s32Refs == 0; });
    lk.unlock();
    delete this;
    return 0;
}

}  // namespace audiomw_host

using audiomw_host::PfPool;

ZN_PF_HANDLER_S* UTIL_PF_Create(int s32Num, void (*pfnWorker)(void*), void (*pfnAux)(void*)) {
    return PfPool::Create(s32Num, pfnWorker, pfnAux);
}

int UTIL_PF_WaitWorkerIdle(ZN_PF_HANDLER_S* pPool, int s32Timeout) {
    PfPool* pstPool = PfPool::FromHandle(pPool);
    return pstPool == nullptr ? -1 : pstPool->WaitIdle(s32Timeout);
}

int UTIL_PF_Feed(ZN_PF_HANDLER_S* pPool, void* pJob, int s32Arg) {
    PfPool* pstPool = PfPool::FromHandle(pPool);
    if (pstPool == nullptr) {
        return -1;
    }
    if (pJob == nullptr) {
        // A running null job could not be told from an idle worker in the records.
        HOST_LOGE("null job refused");
        return -1;
    }
    return pstPool->Feed(pJob, s32Arg);
}

int UTIL_PF_Destroy(ZN_PF_HANDLER_S*& pPool, tagZN_BOOL bWait) {
    PfPool* pstPool = PfPool::FromHandle(pPool);
    if (pstPool == nullptr) {
        return -1;
    }
    int s32Ret = pstPool->Destroy(bWait != 0);
    if (s32Ret == 0) {
        pPool = nullptr;
    }
    return s32Ret;
}

extern "C" int UTIL_PF_GetLiveCount(void) {
    return audiomw_host::gs_s32LivePools.load();
}
