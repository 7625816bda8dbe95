// The data path allocates nothing: every allocation of the process is counted while a
// running stream moves frame periods from a file AI through channel and dump nodes.
// Allocating is allowed up to the return of AUDIO_ASTREAM_Start, not after.
// In sanitizer builds counting starts at the first delivered period (see below).
#include <sys/stat.h>
#include <time.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "audio_ai.h"
#include "audio_astream.h"
#include "../astream/astream_test_util.h"
#include "alloc/alloc_counter.h"
#include "test_support.h"

namespace {

constexpr int kChn = 4;
constexpr int kFrames = 64;
constexpr long kPeriodBytes = kChn * kFrames * 2;

long FileSize(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? static_cast<long>(st.st_size) : -1;
}

// Polls with nanosleep and stat only, so that waiting allocates nothing itself.
bool WaitForSize(const std::string& path, long bytes) {
    for (int i = 0; i < 30000; i++) {
        if (FileSize(path) >= bytes) {
            return true;
        }
        timespec ts = {0, 1000000};
        nanosleep(&ts, nullptr);
    }
    return false;
}

// No log capture here: its sink stores lines in strings. Log lines go to standard error.
class AllocTest : public ::testing::Test {
  protected:
    void TearDown() override {
        audiomw_test::AllocCounterDisarm();
        AUDIO_ASTREAM_Destroy(0);
        astream_test::DropAi(0);
    }

    // Runs a stream of `workers` until its dump holds `periods` periods, counting every
    // allocation from the return of Start on.
    long CountWhileRunning(int workers, long periods) {
        const std::string in = root.Dir() + "/in.pcm";
        const std::string dump = root.Dir() + "/d.pcm";
        audiomw_test::WriteFileBytes(in, audiomw_test::MakePattern(kChn, 100 * kFrames));
        AI_ATTR_S ai = astream_test::FileAi(in, kChn, kFrames);
        EXPECT_EQ(0, AUDIO_AI_Create(0, &ai));
        ASTREAM_ATTR_S attr =
            astream_test::StreamAttr(0, workers,
                                     {astream_test::SwapAttr({3, 2, 1, 0}), astream_test::SplitAttr(0, 2, 2),
                                      astream_test::MixinAttr(0, 1, 2), astream_test::MergeAttr(0, 2, 2),
                                      astream_test::DumpAttr(dump, 0, kChn)});
        EXPECT_EQ(0, AUDIO_ASTREAM_Create(0, &attr));
        EXPECT_EQ(0, AUDIO_ASTREAM_enableDumpNode(0, ZN_TRUE));
        root.SetMarker("/var/debugnodeprocess");  // the per-node marker test runs too

        EXPECT_EQ(0, AUDIO_ASTREAM_Start(0));
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        // A sanitizer runtime allocates its own records as the reader thread starts, which
        // may run after Start has returned: count from the first delivered period on.
        EXPECT_TRUE(WaitForSize(dump, kPeriodBytes));
#endif
        audiomw_test::AllocCounterArm();
        bool bReached = WaitForSize(dump, periods * kPeriodBytes);
        audiomw_test::AllocCounterDisarm();
        EXPECT_TRUE(bReached);
        EXPECT_EQ(0, AUDIO_ASTREAM_Stop(0));
        return audiomw_test::AllocCount();
    }

    audiomw_test::ScratchRoot root;
};

// The counter itself: allocations on another thread while armed are seen.
TEST_F(AllocTest, CounterSeesAllocationsOnOtherThreads) {
    audiomw_test::AllocCounterArm();
    std::thread t([] {
        void* volatile p = std::malloc(48);
        std::free(p);
        delete new std::vector<int>(3);
    });
    t.join();
    audiomw_test::AllocCounterDisarm();
    EXPECT_GE(audiomw_test::AllocCount(), 2);
}

// 48 filler periods, the 100 file periods and filler after them, with one worker.
TEST_F(AllocTest, OneWorkerAllocatesNothingAfterStart) {
    EXPECT_EQ(0, CountWhileRunning(1, 200))
        << "first allocation of " << audiomw_test::AllocFirstSize() << " bytes";
}

// Four workers, with ring entries met while still in a worker's hands.
TEST_F(AllocTest, FourWorkersAllocateNothingAfterStart) {
    EXPECT_EQ(0, CountWhileRunning(4, 200))
        << "first allocation of " << audiomw_test::AllocFirstSize() << " bytes";
}

}  // namespace
