// Thread helper: the routine runs cycle after cycle under the thread's name, Destory
// stops between two calls, clears the running flag and leaves nothing behind.
#include <pthread.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>

#include "gate.h"
#include "host_test.h"
#include "test_support.h"
#include "util.h"

namespace {

using audiomw_test::LogCapture;
using audiomw_test::WaitFor;
using host_test::Gate;

unsigned int Running(const tagPTHREAD_DATA_S& stThread) {
    return __atomic_load_n(&stThread.bRunning, __ATOMIC_ACQUIRE);
}

struct RoutineCtx {
    std::atomic<int> s32Calls{0};
    std::mutex mtx;
    std::string strName;  // the thread's name seen from inside the routine
    tagPTHREAD_DATA_S* pstThread = nullptr;
    int s32HoldCall = 0;      // this call waits until the stop has been requested
    int s32SelfStopCall = 0;  // this call stops its own thread
    std::atomic<int> s32SelfStopRet{1};
    std::atomic<bool> bHeldCallEnded{false};
    Gate* pGate = nullptr;  // when set, every call passes it
};

void Routine(void* pArg) {
    RoutineCtx* pCtx = static_cast<RoutineCtx*>(pArg);
    int s32Call = pCtx->s32Calls.fetch_add(1) + 1;
    if (s32Call == 1) {
        char acName[16] = {0};
        pthread_getname_np(pthread_self(), acName, sizeof(acName));
        std::lock_guard<std::mutex> lk(pCtx->mtx);
        pCtx->strName = acName;
    }
    if (pCtx->pGate != nullptr) {
        pCtx->pGate->Pass();
    }
    if (s32Call == pCtx->s32HoldCall) {
        WaitFor([&] { return __atomic_load_n(&pCtx->pstThread->bStopRequest, __ATOMIC_ACQUIRE) != 0; });
        pCtx->bHeldCallEnded.store(true);
    }
    if (s32Call == pCtx->s32SelfStopCall) {
        pCtx->s32SelfStopRet.store(UTIL_THREAD_Destory(pCtx->pstThread, ZN_TRUE));
    }
}

std::string NameSeen(RoutineCtx& stCtx) {
    std::lock_guard<std::mutex> lk(stCtx.mtx);
    return stCtx.strName;
}

class ThreadHelperTest : public ::testing::Test {
  protected:
    void SetUp() override {
        std::memset(&stThread, 0, sizeof(stThread));
        stCtx.pstThread = &stThread;
        s32Baseline = UTIL_THREAD_GetLiveCount();
    }
    void TearDown() override {
        UTIL_THREAD_Destory(&stThread, ZN_TRUE);
        UTIL_SetThreadStartFault(-1);
    }
    LogCapture log;
    tagPTHREAD_DATA_S stThread;
    RoutineCtx stCtx;
    int s32Baseline = 0;
};

TEST_F(ThreadHelperTest, RoutineRunsOverAndOverUnderTheThreadName) {
    char acName[16] = "ASTREAM[0:r]";
    ASSERT_EQ(UTIL_THREAD_InitData(&stThread, acName, Routine, &stCtx), 0);
    std::strcpy(acName, "overwritten");
    EXPECT_EQ(Running(stThread), 0u);
    ASSERT_EQ(UTIL_THREAD_Create(&stThread, nullptr), 0);
    EXPECT_EQ(Running(stThread), 1u);
    ASSERT_TRUE(WaitFor([&] { return stCtx.s32Calls.load() >= 5; }));

    EXPECT_EQ(UTIL_THREAD_Destory(&stThread, ZN_TRUE), 0);
    EXPECT_EQ(Running(stThread), 0u);
    EXPECT_EQ(UTIL_THREAD_GetLiveCount(), s32Baseline);
    EXPECT_EQ(NameSeen(stCtx), "ASTREAM[0:r]");
    EXPECT_STREQ(stThread.acName, "ASTREAM[0:r]");
}

TEST_F(ThreadHelperTest, LongNamesAreCutToFifteenCharacters) {
    char acName[] = "ABCDEFGHIJKLMNOPQRST";
    ASSERT_EQ(UTIL_THREAD_InitData(&stThread, acName, Routine, &stCtx), 0);
    EXPECT_STREQ(stThread.acName, "ABCDEFGHIJKLMNO");
    ASSERT_EQ(UTIL_THREAD_Create(&stThread, nullptr), 0);
    ASSERT_TRUE(WaitFor([&] { return stCtx.s32Calls.load() >= 1; }));
    EXPECT_EQ(UTIL_THREAD_Destory(&stThread, ZN_TRUE), 0);
    EXPECT_EQ(NameSeen(stCtx), "ABCDEFGHIJKLMNO");
}

// The third call holds until the stop is requested: Destory must wait for it to return
// and no fourth call may start.
TEST_F(ThreadHelperTest, DestoryStopsBetweenTwoCallsAndWaits) {
    char acName[] = "stopper";
    stCtx.s32HoldCall = 3;
    ASSERT_EQ(UTIL_THREAD_InitData(&stThread, acName, Routine, &stCtx), 0);
    ASSERT_EQ(UTIL_THREAD_Create(&stThread, nullptr), 0);
    ASSERT_TRUE(WaitFor([&] { return stCtx.s32Calls.load() == 3; }));

    EXPECT_EQ(UTIL_THREAD_Destory(&stThread, ZN_TRUE), 0);
    EXPECT_TRUE(stCtx.bHeldCallEnded.load());
    EXPECT_EQ(stCtx.s32Calls.load(), 3);
    EXPECT_EQ(Running(stThread), 0u);
    EXPECT_EQ(stThread.bStopRequest, 1u);
    EXPECT_EQ(UTIL_THREAD_GetLiveCount(), s32Baseline);
}

// Start, stop, start again on the same descriptor, as a stream does on Stop and Start.
TEST_F(ThreadHelperTest, DescriptorCanBeStartedAgainAfterDestory) {
    char acName[] = "again";
    for (int i = 0; i < 3; i++) {
        RoutineCtx stRound;
        ASSERT_EQ(UTIL_THREAD_InitData(&stThread, acName, Routine, &stRound), 0);
        EXPECT_EQ(stThread.bStopRequest, 0u);
        ASSERT_EQ(UTIL_THREAD_Create(&stThread, nullptr), 0);
        ASSERT_TRUE(WaitFor([&] { return stRound.s32Calls.load() >= 2; }));
        ASSERT_EQ(UTIL_THREAD_Destory(&stThread, ZN_TRUE), 0);
        EXPECT_EQ(Running(stThread), 0u);
    }
    EXPECT_EQ(UTIL_THREAD_GetLiveCount(), s32Baseline);
}

TEST_F(ThreadHelperTest, SecondCreateIsRefusedAndStartsNoThread) {
    char acName[] = "once";
    ASSERT_EQ(UTIL_THREAD_InitData(&stThread, acName, Routine, &stCtx), 0);
    ASSERT_EQ(UTIL_THREAD_Create(&stThread, nullptr), 0);
    EXPECT_EQ(UTIL_THREAD_Create(&stThread, nullptr), -1);
    EXPECT_EQ(log.Count(UTIL_LOG_ERR, "thread \"once\" already running"), 1);
    EXPECT_EQ(UTIL_THREAD_GetLiveCount(), s32Baseline + 1);
    EXPECT_EQ(UTIL_THREAD_InitData(&stThread, acName, Routine, &stCtx), -1);
    EXPECT_EQ(log.Count(UTIL_LOG_ERR, "thread \"once\" still running"), 1);
    EXPECT_EQ(Running(stThread), 1u);

    EXPECT_EQ(UTIL_THREAD_Destory(&stThread, ZN_TRUE), 0);
    EXPECT_EQ(UTIL_THREAD_GetLiveCount(), s32Baseline);
}

TEST_F(ThreadHelperTest, BadDescriptorsAreRefused) {
    char acName[] = "bad";
    EXPECT_EQ(UTIL_THREAD_InitData(nullptr, acName, Routine, &stCtx), -1);
    EXPECT_EQ(UTIL_THREAD_InitData(&stThread, acName, nullptr, &stCtx), -1);
    EXPECT_EQ(log.Count(UTIL_LOG_ERR, "null descriptor or routine"), 2);
    EXPECT_EQ(UTIL_THREAD_Create(nullptr, nullptr), -1);
    EXPECT_EQ(log.Count(UTIL_LOG_ERR, "null descriptor"), 1);
    // Zero-filled, never initialised: no routine to run.
    EXPECT_EQ(UTIL_THREAD_Create(&stThread, nullptr), -1);
    EXPECT_EQ(log.Count(UTIL_LOG_ERR, "thread \"\" has no routine"), 1);
    EXPECT_EQ(UTIL_THREAD_Destory(nullptr, ZN_TRUE), -1);
    // Never started: nothing to stop.
    EXPECT_EQ(UTIL_THREAD_Destory(&stThread, ZN_TRUE), 0);
    EXPECT_EQ(Running(stThread), 0u);
    EXPECT_EQ(UTIL_THREAD_GetLiveCount(), s32Baseline);
}

// Without waiting, the descriptor is released at once; the thread touches only its own
// state and frees it when its current call has returned.
TEST_F(ThreadHelperTest, DestoryWithoutWaitLetsTheDescriptorGo) {
    Gate stGate;
    auto pstHeap = std::make_unique<tagPTHREAD_DATA_S>();
    std::memset(pstHeap.get(), 0, sizeof(*pstHeap));
    char acName[] = "nowait";
    stCtx.pGate = &stGate;
    ASSERT_EQ(UTIL_THREAD_InitData(pstHeap.get(), acName, Routine, &stCtx), 0);
    ASSERT_EQ(UTIL_THREAD_Create(pstHeap.get(), nullptr), 0);
    ASSERT_TRUE(stGate.WaitArrivals(1));

    EXPECT_EQ(UTIL_THREAD_Destory(pstHeap.get(), ZN_FALSE), 0);
    EXPECT_EQ(Running(*pstHeap), 0u);
    pstHeap.reset();
    EXPECT_EQ(UTIL_THREAD_GetLiveCount(), s32Baseline + 1);

    stGate.Open();
    EXPECT_TRUE(WaitFor([&] { return UTIL_THREAD_GetLiveCount() == s32Baseline; }));
    EXPECT_EQ(stCtx.s32Calls.load(), 1);
}

TEST_F(ThreadHelperTest, RoutineCanStopItsOwnThread) {
    char acName[] = "self";
    stCtx.s32SelfStopCall = 2;
    ASSERT_EQ(UTIL_THREAD_InitData(&stThread, acName, Routine, &stCtx), 0);
    ASSERT_EQ(UTIL_THREAD_Create(&stThread, nullptr), 0);
    ASSERT_TRUE(WaitFor([&] { return UTIL_THREAD_GetLiveCount() == s32Baseline; }));
    EXPECT_EQ(stCtx.s32SelfStopRet.load(), 0);
    EXPECT_EQ(stCtx.s32Calls.load(), 2);
    EXPECT_EQ(Running(stThread), 0u);
}

TEST_F(ThreadHelperTest, FailedStartLeavesTheDescriptorStopped) {
    char acName[] = "nostart";
    ASSERT_EQ(UTIL_THREAD_InitData(&stThread, acName, Routine, &stCtx), 0);
    UTIL_SetThreadStartFault(0);
    EXPECT_EQ(UTIL_THREAD_Create(&stThread, nullptr), -1);
    EXPECT_EQ(log.Count(UTIL_LOG_ERR, "thread \"nostart\" start failed: Resource temporarily unavailable"),
              1);
    EXPECT_EQ(Running(stThread), 0u);
    EXPECT_EQ(UTIL_THREAD_GetLiveCount(), s32Baseline);

    ASSERT_EQ(UTIL_THREAD_Create(&stThread, nullptr), 0);
    ASSERT_TRUE(WaitFor([&] { return stCtx.s32Calls.load() >= 1; }));
    EXPECT_EQ(UTIL_THREAD_Destory(&stThread, ZN_TRUE), 0);
}

}  // namespace
