// Worker pool: every fed job runs once, the worker records show running jobs, idle waits
// and feeds time out while every worker is held, Destroy waits for jobs and frees.
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "gate.h"
#include "host_test.h"
#include "test_support.h"
#include "util.h"

namespace {

using audiomw_test::LogCapture;
using audiomw_test::WaitFor;
using host_test::Gate;

constexpr int kTimedOut = -110;

void* RecordArg(ZN_PF_HANDLER_S* pPool, int i) {
    return __atomic_load_n(&pPool->pstWorkers[i].pJobArg, __ATOMIC_ACQUIRE);
}

int CountRecordsHolding(ZN_PF_HANDLER_S* pPool, void* pJob) {
    int n = 0;
    for (int i = 0; i < pPool->s32WorkerNum; i++) {
        n += RecordArg(pPool, i) == pJob ? 1 : 0;
    }
    return n;
}

std::string CurrentThreadName() {
    char acName[16] = {0};
    pthread_getname_np(pthread_self(), acName, sizeof(acName));
    return acName;
}

// ---- Counting jobs -------------------------------------------------------------------

struct CountShared {
    std::atomic<int> s32Active{0};
    std::atomic<int> s32MaxActive{0};
    std::atomic<int> s32Done{0};
};

struct CountJob {
    CountShared* pShared = nullptr;
    std::atomic<int> s32Runs{0};
    std::string strThread;
};

void RunCountJob(void* pArg) {
    CountJob* pJob = static_cast<CountJob*>(pArg);
    CountShared* pShared = pJob->pShared;
    int s32Now = pShared->s32Active.fetch_add(1) + 1;
    int s32Max = pShared->s32MaxActive.load();
    while (s32Now > s32Max && !pShared->s32MaxActive.compare_exchange_weak(s32Max, s32Now)) {
    }
    pJob->s32Runs.fetch_add(1);
    pJob->strThread = CurrentThreadName();
    std::this_thread::yield();
    pShared->s32Active.fetch_sub(1);
    pShared->s32Done.fetch_add(1);
}

// ---- Jobs held at a gate -------------------------------------------------------------

struct HeldJob {
    Gate* pEnter = nullptr;  // counts the jobs that have started
    Gate stRelease;
    std::atomic<bool> bEnded{false};
    std::atomic<int> s32Runs{0};
};

void RunHeldJob(void* pArg) {
    HeldJob* pJob = static_cast<HeldJob*>(pArg);
    pJob->s32Runs.fetch_add(1);
    pJob->pEnter->Arrive();
    pJob->stRelease.Pass();
    pJob->bEnded.store(true);
}

class WorkerPoolTest : public ::testing::Test {
  protected:
    void TearDown() override {
        if (pPool != nullptr) {
            UTIL_PF_Destroy(pPool, ZN_TRUE);
        }
    }
    LogCapture log;
    ZN_PF_HANDLER_S* pPool = nullptr;
};

class WorkerPoolSizeTest : public WorkerPoolTest, public ::testing::WithParamInterface<int> {};

TEST_P(WorkerPoolSizeTest, EveryFedJobRunsExactlyOnceOnAPoolWorker) {
    const int s32Workers = GetParam();
    constexpr int kJobs = 600;
    CountShared stShared;
    std::vector<CountJob> vecJobs(kJobs);
    pPool = UTIL_PF_Create(s32Workers, RunCountJob, nullptr);
    ASSERT_NE(pPool, nullptr);
    ASSERT_EQ(pPool->s32WorkerNum, s32Workers);

    for (auto& stJob : vecJobs) {
        stJob.pShared = &stShared;
        ASSERT_EQ(UTIL_PF_Feed(pPool, &stJob, -1), 0);
    }
    ASSERT_TRUE(WaitFor([&] { return stShared.s32Done.load() == kJobs; }));
    ASSERT_EQ(UTIL_PF_Destroy(pPool, ZN_TRUE), 0);
    EXPECT_EQ(pPool, nullptr);

    std::set<std::string> setThreads;
    for (auto& stJob : vecJobs) {
        EXPECT_EQ(stJob.s32Runs.load(), 1);
        setThreads.insert(stJob.strThread);
    }
    EXPECT_LE(stShared.s32MaxActive.load(), s32Workers);
    EXPECT_LE(static_cast<int>(setThreads.size()), s32Workers);
    for (const auto& strName : setThreads) {
        EXPECT_EQ(strName.rfind("pf-worker-", 0), 0u) << strName;
    }
}

// The reader's pattern: wait for an idle worker, then feed without waiting. With one
// feeder the feed must always find the worker the wait saw.
TEST_P(WorkerPoolSizeTest, FeedAfterIdleWaitNeverTimesOut) {
    constexpr int kJobs = 300;
    CountShared stShared;
    std::vector<CountJob> vecJobs(kJobs);
    pPool = UTIL_PF_Create(GetParam(), RunCountJob, nullptr);
    ASSERT_NE(pPool, nullptr);
    for (auto& stJob : vecJobs) {
        stJob.pShared = &stShared;
        ASSERT_EQ(UTIL_PF_WaitWorkerIdle(pPool, -1), 0);
        ASSERT_EQ(UTIL_PF_Feed(pPool, &stJob, 0), 0);
    }
    ASSERT_EQ(UTIL_PF_Destroy(pPool, ZN_TRUE), 0);
    EXPECT_EQ(stShared.s32Done.load(), kJobs);
}

INSTANTIATE_TEST_SUITE_P(Workers, WorkerPoolSizeTest, ::testing::Values(1, 2, 3, 4));

TEST_F(WorkerPoolTest, RecordShowsTheRunningJobAndIsClearedAfterIt) {
    Gate stEnter;
    HeldJob stA, stB, stC;
    stA.pEnter = stB.pEnter = stC.pEnter = &stEnter;
    pPool = UTIL_PF_Create(2, RunHeldJob, nullptr);
    ASSERT_NE(pPool, nullptr);
    ASSERT_EQ(pPool->s32WorkerNum, 2);
    EXPECT_EQ(CountRecordsHolding(pPool, nullptr), 2);

    ASSERT_EQ(UTIL_PF_Feed(pPool, &stA, -1), 0);
    ASSERT_TRUE(stEnter.WaitArrivals(1));
    EXPECT_EQ(CountRecordsHolding(pPool, &stA), 1);
    EXPECT_EQ(CountRecordsHolding(pPool, nullptr), 1);
    int s32SlotA = RecordArg(pPool, 0) == &stA ? 0 : 1;
    EXPECT_EQ(UTIL_PF_WaitWorkerIdle(pPool, 0), 0);

    ASSERT_EQ(UTIL_PF_Feed(pPool, &stB, -1), 0);
    ASSERT_TRUE(stEnter.WaitArrivals(2));
    EXPECT_EQ(RecordArg(pPool, 1 - s32SlotA), &stB);
    EXPECT_EQ(UTIL_PF_WaitWorkerIdle(pPool, 20), kTimedOut);
    EXPECT_EQ(UTIL_PF_Feed(pPool, &stC, 20), kTimedOut);

    stA.stRelease.Open();
    ASSERT_EQ(UTIL_PF_WaitWorkerIdle(pPool, -1), 0);
    EXPECT_EQ(RecordArg(pPool, s32SlotA), nullptr);
    EXPECT_EQ(RecordArg(pPool, 1 - s32SlotA), &stB);

    stB.stRelease.Open();
    ASSERT_EQ(UTIL_PF_Destroy(pPool, ZN_TRUE), 0);
    EXPECT_EQ(stC.s32Runs.load(), 0);
}

TEST_F(WorkerPoolTest, IdleWaitTimesOutWhileAllWorkersAreHeldAndReturnsOnRelease) {
    Gate stEnter;
    std::vector<std::unique_ptr<HeldJob>> vecJobs;
    pPool = UTIL_PF_Create(3, RunHeldJob, nullptr);
    ASSERT_NE(pPool, nullptr);
    for (int i = 0; i < 3; i++) {
        vecJobs.push_back(std::make_unique<HeldJob>());
        vecJobs.back()->pEnter = &stEnter;
        ASSERT_EQ(UTIL_PF_Feed(pPool, vecJobs.back().get(), -1), 0);
    }
    ASSERT_TRUE(stEnter.WaitArrivals(3));
    EXPECT_EQ(UTIL_PF_WaitWorkerIdle(pPool, 0), kTimedOut);
    EXPECT_EQ(UTIL_PF_WaitWorkerIdle(pPool, 30), kTimedOut);

    std::atomic<int> s32Waited{1};
    std::thread thWaiter([&] { s32Waited.store(UTIL_PF_WaitWorkerIdle(pPool, -1)); });
    vecJobs[1]->stRelease.Open();
    thWaiter.join();
    EXPECT_EQ(s32Waited.load(), 0);
    EXPECT_EQ(CountRecordsHolding(pPool, vecJobs[1].get()), 0);

    vecJobs[0]->stRelease.Open();
    vecJobs[2]->stRelease.Open();
    ASSERT_EQ(UTIL_PF_Destroy(pPool, ZN_TRUE), 0);
}

// A fed job holds its worker from the feed on, before the worker has even started it.
TEST_F(WorkerPoolTest, FedJobMakesItsWorkerBusyAtOnce) {
    Gate stEnter;
    HeldJob stJob;
    stJob.pEnter = &stEnter;
    pPool = UTIL_PF_Create(1, RunHeldJob, nullptr);
    ASSERT_NE(pPool, nullptr);
    ASSERT_EQ(UTIL_PF_Feed(pPool, &stJob, -1), 0);
    EXPECT_EQ(UTIL_PF_WaitWorkerIdle(pPool, 0), kTimedOut);
    EXPECT_EQ(UTIL_PF_Feed(pPool, &stJob, 0), kTimedOut);
    stJob.stRelease.Open();
    ASSERT_EQ(UTIL_PF_Destroy(pPool, ZN_TRUE), 0);
    EXPECT_EQ(stJob.s32Runs.load(), 1);
}

TEST_F(WorkerPoolTest, DestroyReturnsOnlyAfterTheRunningJobEnded) {
    Gate stEnter;
    HeldJob stJob;
    stJob.pEnter = &stEnter;
    pPool = UTIL_PF_Create(2, RunHeldJob, nullptr);
    ASSERT_NE(pPool, nullptr);
    ASSERT_EQ(UTIL_PF_Feed(pPool, &stJob, -1), 0);
    ASSERT_TRUE(stEnter.WaitArrivals(1));

    std::atomic<bool> bCalling{false};
    std::atomic<bool> bEndedAtReturn{false};
    std::atomic<int> s32Ret{1};
    std::thread thDestroyer([&] {
        bCalling.store(true);
        s32Ret.store(UTIL_PF_Destroy(pPool, ZN_TRUE));
        bEndedAtReturn.store(stJob.bEnded.load());
    });
    ASSERT_TRUE(WaitFor([&] { return bCalling.load(); }));
    stJob.stRelease.Open();
    thDestroyer.join();
    EXPECT_EQ(s32Ret.load(), 0);
    EXPECT_TRUE(bEndedAtReturn.load());
    EXPECT_EQ(pPool, nullptr);
}

TEST_F(WorkerPoolTest, JobFedJustBeforeDestroyStillRunsOnce) {
    for (int i = 0; i < 30; i++) {
        CountShared stShared;
        CountJob stJob;
        stJob.pShared = &stShared;
        pPool = UTIL_PF_Create(1, RunCountJob, nullptr);
        ASSERT_NE(pPool, nullptr);
        ASSERT_EQ(UTIL_PF_Feed(pPool, &stJob, -1), 0);
        ASSERT_EQ(UTIL_PF_Destroy(pPool, ZN_TRUE), 0);
        ASSERT_EQ(stJob.s32Runs.load(), 1) << "round " << i;
    }
}

TEST_F(WorkerPoolTest, DestroyWithoutWaitReturnsAtOnceAndTheLastWorkerFreesThePool) {
    const int s32Baseline = UTIL_PF_GetLiveCount();
    Gate stEnter;
    HeldJob stJob;
    stJob.pEnter = &stEnter;
    pPool = UTIL_PF_Create(2, RunHeldJob, nullptr);
    ASSERT_NE(pPool, nullptr);
    ASSERT_EQ(UTIL_PF_Feed(pPool, &stJob, -1), 0);
    ASSERT_TRUE(stEnter.WaitArrivals(1));

    ASSERT_EQ(UTIL_PF_Destroy(pPool, ZN_FALSE), 0);
    EXPECT_EQ(pPool, nullptr);
    EXPECT_FALSE(stJob.bEnded.load());
    EXPECT_EQ(UTIL_PF_GetLiveCount(), s32Baseline + 1);

    stJob.stRelease.Open();
    EXPECT_TRUE(WaitFor([&] { return UTIL_PF_GetLiveCount() == s32Baseline; }));
    EXPECT_EQ(stJob.s32Runs.load(), 1);
    EXPECT_TRUE(stJob.bEnded.load());
}

struct SelfDestroyJob {
    ZN_PF_HANDLER_S* pPool = nullptr;
    std::atomic<int> s32Ret{1};
    std::atomic<bool> bPoolKept{false};
};

void RunSelfDestroyJob(void* pArg) {
    SelfDestroyJob* pJob = static_cast<SelfDestroyJob*>(pArg);
    ZN_PF_HANDLER_S* pPool = pJob->pPool;
    pJob->s32Ret.store(UTIL_PF_Destroy(pPool, ZN_TRUE));
    pJob->bPoolKept.store(pPool == pJob->pPool);
}

TEST_F(WorkerPoolTest, WaitingDestroyFromAJobOfThePoolIsRefused) {
    SelfDestroyJob stJob;
    pPool = UTIL_PF_Create(1, RunSelfDestroyJob, nullptr);
    ASSERT_NE(pPool, nullptr);
    stJob.pPool = pPool;
    ASSERT_EQ(UTIL_PF_Feed(pPool, &stJob, -1), 0);
    ASSERT_EQ(UTIL_PF_WaitWorkerIdle(pPool, -1), 0);
    EXPECT_EQ(stJob.s32Ret.load(), -1);
    EXPECT_TRUE(stJob.bPoolKept.load());
    EXPECT_EQ(log.Count(UTIL_LOG_ERR, "called from a job of the pool, which cannot wait for itself"), 1);
    ASSERT_EQ(UTIL_PF_Destroy(pPool, ZN_TRUE), 0);
}

// ---- Per-thread start routine ----------------------------------------------------------

std::mutex gs_mtxAux;
std::vector<std::string> gs_vecAuxNames;
std::vector<void*> gs_vecAuxArgs;

void RecordAux(void* pArg) {
    std::lock_guard<std::mutex> lk(gs_mtxAux);
    gs_vecAuxNames.push_back(CurrentThreadName());
    gs_vecAuxArgs.push_back(pArg);
}

TEST_F(WorkerPoolTest, AuxRunsOnceOnEachNamedWorkerBeforeCreateReturns) {
    {
        std::lock_guard<std::mutex> lk(gs_mtxAux);
        gs_vecAuxNames.clear();
        gs_vecAuxArgs.clear();
    }
    pPool = UTIL_PF_Create(3, RunCountJob, RecordAux);
    ASSERT_NE(pPool, nullptr);
    std::lock_guard<std::mutex> lk(gs_mtxAux);
    std::vector<std::string> vecNames = gs_vecAuxNames;
    std::sort(vecNames.begin(), vecNames.end());
    EXPECT_EQ(vecNames, (std::vector<std::string>{"pf-worker-0", "pf-worker-1", "pf-worker-2"}));
    EXPECT_EQ(gs_vecAuxArgs, (std::vector<void*>(3, pPool)));
}

// ---- Refusals and failures -----------------------------------------------------------

TEST_F(WorkerPoolTest, CreateRefusesBadArguments) {
    struct Case {
        int s32Num;
        void (*pfnWorker)(void*);
        const char* pcMessage;
    };
    const Case astCases[] = {
        {0, RunCountJob, "worker number 0 out of range 1..64"},
        {-1, RunCountJob, "worker number -1 out of range 1..64"},
        {65, RunCountJob, "worker number 65 out of range 1..64"},
        {1, nullptr, "no worker routine"},
    };
    const int s32Baseline = UTIL_PF_GetLiveCount();
    for (const auto& stCase : astCases) {
        log.Clear();
        EXPECT_EQ(UTIL_PF_Create(stCase.s32Num, stCase.pfnWorker, nullptr), nullptr) << stCase.pcMessage;
        EXPECT_EQ(log.Count(UTIL_LOG_ERR, stCase.pcMessage), 1) << stCase.pcMessage;
    }
    EXPECT_EQ(UTIL_PF_GetLiveCount(), s32Baseline);
}

TEST_F(WorkerPoolTest, CallsOnNullPoolOrWithNullJobFail) {
    int s32Job = 0;
    ZN_PF_HANDLER_S* pNull = nullptr;
    EXPECT_EQ(UTIL_PF_WaitWorkerIdle(nullptr, 0), -1);
    EXPECT_EQ(UTIL_PF_WaitWorkerIdle(nullptr, -1), -1);
    EXPECT_EQ(UTIL_PF_Feed(nullptr, &s32Job, 0), -1);
    EXPECT_EQ(UTIL_PF_Destroy(pNull, ZN_TRUE), -1);

    pPool = UTIL_PF_Create(1, RunCountJob, nullptr);
    ASSERT_NE(pPool, nullptr);
    EXPECT_EQ(UTIL_PF_Feed(pPool, nullptr, 0), -1);
    EXPECT_EQ(log.Count(UTIL_LOG_ERR, "null job refused"), 1);
    EXPECT_EQ(UTIL_PF_WaitWorkerIdle(pPool, 0), 0);
}

TEST_F(WorkerPoolTest, FailedWorkerStartUndoesTheCreate) {
    const int s32Baseline = UTIL_PF_GetLiveCount();
    UTIL_SetThreadStartFault(1);
    EXPECT_EQ(UTIL_PF_Create(3, RunCountJob, nullptr), nullptr);
    EXPECT_EQ(log.Count(UTIL_LOG_ERR, "start of worker 1 failed: Resource temporarily unavailable"), 1);
    EXPECT_EQ(UTIL_PF_GetLiveCount(), s32Baseline);

    pPool = UTIL_PF_Create(3, RunCountJob, nullptr);
    EXPECT_NE(pPool, nullptr);
    UTIL_SetThreadStartFault(-1);
}

}  // namespace
