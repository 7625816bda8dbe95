// Worker pool: every fed job runs once, the worker records show running jobs, idle waits
// and feeds time out while every worker is held, Destroy waits for the running job.
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <future>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "host_test.h"
#include "test_support.h"
#include "util.h"

namespace {

constexpr int kTimedOut = -110;

void* RecordArg(ZN_PF_HANDLER_S* pool, int i) {
    return __atomic_load_n(&pool->pstWorkers[i].pJobArg, __ATOMIC_ACQUIRE);
}

// Counts its runs, notes its thread and the most jobs seen running at once.
std::atomic<int> gs_active{0}, gs_maxActive{0};
struct CountJob {
    std::atomic<int> runs{0};
    char thread[16] = {0};
};

void RunCountJob(void* arg) {
    auto* job = static_cast<CountJob*>(arg);
    int now = ++gs_active;
    for (int max = gs_maxActive.load(); now > max && !gs_maxActive.compare_exchange_weak(max, now);) {
    }
    job->runs++;
    pthread_getname_np(pthread_self(), job->thread, sizeof(job->thread));
    std::this_thread::yield();
    gs_active--;
}

// Reports its start, then holds its worker until released (a second run would throw).
struct HeldJob {
    std::promise<void> started, release;
    std::future<void> startedF = started.get_future(), releaseF = release.get_future();
    std::atomic<bool> ended{false};
    bool Started() { return startedF.wait_for(std::chrono::seconds(10)) == std::future_status::ready; }
};

void RunHeldJob(void* arg) {
    auto* job = static_cast<HeldJob*>(arg);
    job->started.set_value();
    job->releaseF.wait();
    job->ended = true;
}

class PoolSizeTest : public ::testing::TestWithParam<int> {};

// Every other job is fed the reader's way, an idle wait then a feed that does not wait
// (it must find the worker the wait saw); Destroy right after the last feed still runs it.
TEST_P(PoolSizeTest, EveryFedJobRunsExactlyOnceOnAPoolWorker) {
    std::vector<CountJob> jobs(600);
    gs_maxActive = 0;
    ZN_PF_HANDLER_S* pool = UTIL_PF_Create(GetParam(), RunCountJob, nullptr);
    ASSERT_NE(pool, nullptr);
    ASSERT_EQ(pool->s32WorkerNum, GetParam());
    for (size_t i = 0; i < jobs.size(); i++) {
        if (i % 2 == 0) {
            ASSERT_EQ(UTIL_PF_Feed(pool, &jobs[i], -1), 0);
        } else {
            ASSERT_EQ(UTIL_PF_WaitWorkerIdle(pool, -1), 0);
            ASSERT_EQ(UTIL_PF_Feed(pool, &jobs[i], 0), 0);
        }
    }
    ASSERT_EQ(UTIL_PF_Destroy(pool, ZN_TRUE), 0);
    EXPECT_EQ(pool, nullptr);
    std::set<std::string> names;
    for (auto& job : jobs) {
        EXPECT_EQ(job.runs.load(), 1);
        names.insert(job.thread);
    }
    EXPECT_LE(gs_maxActive.load(), GetParam());
    for (const auto& name : names) {
        EXPECT_EQ(name.rfind("pf-worker-", 0), 0u) << name;
    }
}

INSTANTIATE_TEST_SUITE_P(Workers, PoolSizeTest, ::testing::Values(1, 2, 3, 4));

TEST(WorkerPoolTest, RecordsShowRunningJobsWaitsTimeOutAndDestroyWaitsForTheJob) {
    HeldJob a, b, c;
    ZN_PF_HANDLER_S* pool = UTIL_PF_Create(2, RunHeldJob, nullptr);
    ASSERT_NE(pool, nullptr);
    EXPECT_EQ(RecordArg(pool, 0), nullptr);
    EXPECT_EQ(RecordArg(pool, 1), nullptr);
    ASSERT_EQ(UTIL_PF_Feed(pool, &a, -1), 0);
    ASSERT_TRUE(a.Started());
    int slotA = RecordArg(pool, 0) == &a ? 0 : 1;
    EXPECT_EQ(RecordArg(pool, slotA), &a);
    EXPECT_EQ(RecordArg(pool, 1 - slotA), nullptr);
    EXPECT_EQ(UTIL_PF_WaitWorkerIdle(pool, 0), 0);

    ASSERT_EQ(UTIL_PF_Feed(pool, &b, -1), 0);
    EXPECT_EQ(UTIL_PF_WaitWorkerIdle(pool, 0), kTimedOut) << "a fed job holds its worker at once";
    EXPECT_EQ(UTIL_PF_Feed(pool, &c, 20), kTimedOut);
    ASSERT_TRUE(b.Started());
    EXPECT_EQ(RecordArg(pool, 1 - slotA), &b);
    EXPECT_EQ(UTIL_PF_WaitWorkerIdle(pool, 20), kTimedOut);

    std::thread waiter([&] { EXPECT_EQ(UTIL_PF_WaitWorkerIdle(pool, -1), 0); });
    a.release.set_value();
    waiter.join();
    EXPECT_EQ(RecordArg(pool, slotA), nullptr);
    EXPECT_EQ(RecordArg(pool, 1 - slotA), &b);

    std::atomic<bool> calling{false}, endedAtReturn{false};
    std::thread destroyer([&] {
        calling = true;
        EXPECT_EQ(UTIL_PF_Destroy(pool, ZN_TRUE), 0);
        endedAtReturn = b.ended.load();
    });
    ASSERT_TRUE(audiomw_test::WaitFor([&] { return calling.load(); }));
    b.release.set_value();
    c.release.set_value();
    destroyer.join();
    EXPECT_TRUE(endedAtReturn.load());
    EXPECT_EQ(pool, nullptr);
    EXPECT_EQ(c.startedF.wait_for(std::chrono::seconds(0)), std::future_status::timeout) << "C never fed";
}

}  // namespace
