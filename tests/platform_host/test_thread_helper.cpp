// Thread helper, as the stream reader relies on it: Destory stops between two calls and
// clears the running flag, and the descriptor starts again.
#include <pthread.h>

#include <atomic>
#include <cstring>

#include "host_test.h"
#include "test_support.h"
#include "util.h"

namespace {

using audiomw_test::WaitFor;

tagPTHREAD_DATA_S gs_thread;  // zero-filled
std::atomic<int> gs_calls{0};
int gs_holdCall = 0;  // this call returns only once the stop has been requested
std::atomic<bool> gs_heldCallEnded{false};

void Routine(void* arg) {
    int call = ++*static_cast<std::atomic<int>*>(arg);
    if (call == gs_holdCall) {
        WaitFor([] { return __atomic_load_n(&gs_thread.bStopRequest, __ATOMIC_ACQUIRE) != 0; });
        gs_heldCallEnded = true;
    }
}

unsigned int Running() {
    return __atomic_load_n(&gs_thread.bRunning, __ATOMIC_ACQUIRE);
}

class ThreadHelperTest : public ::testing::Test {
  protected:
    void SetUp() override {
        std::memset(&gs_thread, 0, sizeof(gs_thread));
        gs_calls = 0;
        gs_holdCall = 0;
    }
    void TearDown() override { UTIL_THREAD_Destory(&gs_thread, ZN_TRUE); }
};

// The third call holds until the stop is requested: Destory waits for it and no fourth
// call starts. The descriptor then starts again, as a stream's Stop and Start do.
TEST_F(ThreadHelperTest, DestoryStopsBetweenTwoCallsAndTheDescriptorStartsAgain) {
    char name[] = "stopper";
    gs_holdCall = 3;
    ASSERT_EQ(UTIL_THREAD_InitData(&gs_thread, name, Routine, &gs_calls), 0);
    ASSERT_EQ(UTIL_THREAD_Create(&gs_thread, nullptr), 0);
    ASSERT_TRUE(WaitFor([] { return gs_calls.load() == 3; }));
    EXPECT_EQ(UTIL_THREAD_Destory(&gs_thread, ZN_TRUE), 0);
    EXPECT_TRUE(gs_heldCallEnded.load());
    EXPECT_EQ(gs_calls.load(), 3);
    EXPECT_EQ(Running(), 0u);

    ASSERT_EQ(UTIL_THREAD_InitData(&gs_thread, name, Routine, &gs_calls), 0);
    EXPECT_EQ(gs_thread.bStopRequest, 0u);
    ASSERT_EQ(UTIL_THREAD_Create(&gs_thread, nullptr), 0);
    ASSERT_TRUE(WaitFor([] { return gs_calls.load() >= 5; }));
    EXPECT_EQ(UTIL_THREAD_Destory(&gs_thread, ZN_TRUE), 0);
    EXPECT_EQ(UTIL_THREAD_GetLiveCount(), 0);
}

}  // namespace
