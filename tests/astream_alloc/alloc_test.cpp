// A running stream allocates nothing after Start (sanitizers: after the first period).
#include <sys/stat.h>
#include <time.h>

#include <atomic>
#include <string>
#include <thread>

#include "../astream/astream_test_util.h"
#include "alloc/alloc_counter.h"

namespace {

using namespace astream_test;

constexpr int kChn = 4, kFrames = 64;
constexpr long kPeriodBytes = kChn * kFrames * 2;

// Polls with nanosleep and stat only, so that waiting allocates nothing itself.
bool WaitForSize(const std::string& path, long bytes) {
    struct stat st;
    timespec ms = {0, 1000000};
    for (int i = 0; i < 30000 && !(stat(path.c_str(), &st) == 0 && st.st_size >= bytes); i++)
        nanosleep(&ms, nullptr);
    return stat(path.c_str(), &st) == 0 && st.st_size >= bytes;
}

// No log capture (it allocates). One worker, then four (entries still in a worker's hands).
TEST(AllocTest, RunningStreamAllocatesNothingAfterStart) {
    std::atomic<bool> go{false};  // the counter sees allocations on other threads
    std::thread t([&] {
        while (!go)
            std::this_thread::yield();
        int* volatile p = new int(3);  // volatile: the pair is not elided
        delete p;
    });
    audiomw_test::AllocCounterArm();
    go = true;
    t.join();
    audiomw_test::AllocCounterDisarm();
    ASSERT_GE(audiomw_test::AllocCount(), 1);
    for (int workers : {1, 4}) {
        SCOPED_TRACE(workers);
        audiomw_test::ScratchRoot root;
        const std::string in = root.Dir() + "/in.pcm", dump = root.Dir() + "/d.pcm";
        audiomw_test::WriteFileBytes(in, audiomw_test::MakePattern(kChn, 100 * kFrames));
        AI_ATTR_S ai = FileAi(in, kChn, kFrames);
        ASTREAM_ATTR_S attr = StreamAttr(0, workers,
                                         {SwapAttr({3, 2, 1, 0}), SplitAttr(0, 2, 2), MixinAttr(0, 1, 2),
                                          MergeAttr(0, 2, 2), DumpAttr(dump, 0, kChn)});
        ASSERT_EQ(0, AUDIO_AI_Create(0, &ai) + AUDIO_ASTREAM_Create(0, &attr) +
                         AUDIO_ASTREAM_enableDumpNode(0, ZN_TRUE));
        root.SetMarker("/var/debugnodeprocess");  // the per-node timing runs too
        ASSERT_EQ(0, AUDIO_ASTREAM_Start(0));
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        EXPECT_TRUE(WaitForSize(dump, kPeriodBytes));
#endif
        audiomw_test::AllocCounterArm();
        const bool reached = WaitForSize(dump, 200 * kPeriodBytes);
        audiomw_test::AllocCounterDisarm();
        EXPECT_TRUE(reached);
        EXPECT_EQ(0, audiomw_test::AllocCount()) << "first allocation of " << audiomw_test::AllocFirstSize();
        EXPECT_EQ(0, AUDIO_ASTREAM_Destroy(0));
        DropAi(0);
    }
}

}  // namespace
