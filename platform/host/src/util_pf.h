// The worker pool behind UTIL_PF_*: a fixed set of threads, each running one fed job at
// a time. Feeding hands a job to one idle worker, which then counts as busy until the
// job has returned.
#ifndef AUDIOMW_PLATFORM_HOST_SRC_UTIL_PF_H
#define AUDIOMW_PLATFORM_HOST_SRC_UTIL_PF_H

#include <pthread.h>

#include <condition_variable>
#include <mutex>

#include "util.h"

namespace audiomw_host {

struct PfPool;

// Private state of one worker, guarded by the pool mutex except where noted.
struct PfWorkerSlot {
    PfPool* pPool = nullptr;  // set before the thread starts, constant afterwards
    int s32Index = 0;
    pthread_t tid{};
    bool bIdle = true;           // neither running a job nor holding a handed-over one
    void* pHandedJob = nullptr;  // fed and not yet started
    std::condition_variable cvJob;
};

// The handle the users see is the first member, so the handle's address is the pool's.
struct PfPool {
    ZN_PF_HANDLER_S stHead{};
    unsigned int u32Magic = 0;
    void (*pfnWorker)(void*) = nullptr;
    void (*pfnAux)(void*) = nullptr;
    PfWorkerSlot* pstSlots = nullptr;
    std::mutex mtx;
    std::condition_variable cvState;  // a worker became idle or started, a reference dropped
    int s32IdleNum = 0;
    int s32StartedNum = 0;
    int s32Refs = 0;       // live worker threads plus calls in progress
    bool bStop = false;    // set once by Destroy
    bool bOrphan = false;  // destroyed without waiting: the last reference frees the pool

    static constexpr int kMaxWorkers = 64;

    PfPool();
    ~PfPool();
    PfPool(const PfPool&) = delete;
    PfPool& operator=(const PfPool&) = delete;

    static ZN_PF_HANDLER_S* Create(int s32Num, void (*pfnWorker)(void*), void (*pfnAux)(void*));
    // The pool behind a handle, null for null or for something that is not a live pool.
    static PfPool* FromHandle(ZN_PF_HANDLER_S* pHandle);

    int WaitIdle(int s32TimeoutMs);
    int Feed(void* pJob, int s32TimeoutMs);
    int Destroy(bool bWait);

  private:
    bool StartWorkers(int s32Num);
    bool IsOwnWorker() const;
    void RequestStop(std::unique_lock<std::mutex>& lk);
    void JoinStarted(int s32Started);
    // Drops one reference with mtx held; true when the caller must delete the pool
    // after unlocking.
    bool DropRef();
    // Waits on cvState for pred up to the time-out (negative: no limit); pred's value.
    template <typename Pred>
    bool WaitState(std::unique_lock<std::mutex>& lk, int s32TimeoutMs, Pred pred);
    static void* WorkerMain(void* pArg);
    void RunWorker(PfWorkerSlot& stSlot);
};

}  // namespace audiomw_host

#endif  // AUDIOMW_PLATFORM_HOST_SRC_UTIL_PF_H
