// Many create / start / stop / destroy cycles of two streams on two file AIs while a
// third thread keeps switching their dump nodes: every cycle moves data, nothing leaks
// (ASan), nothing races (TSan), nothing hangs, and no thread or pool is left behind.
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <random>
#include <string>
#include <thread>

#include "astream_test_util.h"
#include "host_test.h"
#include "stream_probes.h"
#include "test_support.h"

namespace {

using astream_test::CountNode;
using astream_test::DropAi;
using astream_test::DumpAttr;
using astream_test::FileAi;
using astream_test::MergeAttr;
using astream_test::MixinAttr;
using astream_test::SplitAttr;
using astream_test::SwapAttr;

// 1000 by default; AUDIOMW_STREAM_STRESS_CYCLES may lower it for slow instrumented runs.
int Cycles() {
    const char* env = std::getenv("AUDIOMW_STREAM_STRESS_CYCLES");
    int n = env != nullptr ? std::atoi(env) : 0;
    return n > 0 ? n : 1000;
}

class StreamStressTest : public audiomw_test::AudioTest {
  protected:
    void TearDown() override {
        AUDIO_ASTREAM_Destroy(0);
        AUDIO_ASTREAM_Destroy(1);
        DropAi(0);
        DropAi(1);
    }
};

TEST_F(StreamStressTest, CyclesOfTwoStreamsWithDumpsSwitchedFromAnotherThread) {
    const int pools = UTIL_PF_GetLiveCount();
    const int threads = UTIL_THREAD_GetLiveCount();
    audiomw_test::WriteFileBytes(root.Dir() + "/i0.pcm", audiomw_test::MakePattern(2, 32 * 8, 1));
    audiomw_test::WriteFileBytes(root.Dir() + "/i1.pcm", audiomw_test::MakePattern(4, 16 * 8, 2));
    AI_ATTR_S ai0 = FileAi(root.Dir() + "/i0.pcm", 2, 32);
    AI_ATTR_S ai1 = FileAi(root.Dir() + "/i1.pcm", 4, 16);
    ASSERT_EQ(0, AUDIO_AI_Create(0, &ai0));
    ASSERT_EQ(0, AUDIO_AI_Create(1, &ai1));

    std::atomic<bool> done{false};
    // Held by the toggler around each call and by the test while it appends its counting
    // nodes, a change of a node list that only the test makes.
    std::mutex probeMutex;
    std::thread toggler([&] {
        std::mt19937 rng(3);
        while (!done.load()) {
            {
                std::lock_guard<std::mutex> lk(probeMutex);
                AUDIO_ASTREAM_enableDumpNode(static_cast<int>(rng() % 3), rng() % 2 ? ZN_TRUE : ZN_FALSE);
            }
            std::this_thread::yield();
        }
    });

    audiomw_test::StdoutCapture out;  // "Data in use" reports of free-running streams
    const int cycles = Cycles();
    for (int c = 0; c < cycles; c++) {
        ASTREAM_ATTR_S a0;
        a0.s32AiId = 0;
        a0.s32WorkerNum = 1 + c % 4;
        a0.lstNodeAttr = {SwapAttr({1, 0}), DumpAttr(root.Dir() + "/d0.pcm", 0, 2)};
        ASTREAM_ATTR_S a1;
        a1.s32AiId = 1;
        a1.s32WorkerNum = 1 + (c / 4) % 4;
        a1.lstNodeAttr = {SplitAttr(0, 1, 3), MixinAttr(0, 1, 2), DumpAttr(root.Dir() + "/d1.pcm", 1, 3),
                          MergeAttr(0, 1, 3)};
        ASSERT_EQ(0, AUDIO_ASTREAM_Create(0, &a0)) << "cycle " << c;
        ASSERT_EQ(0, AUDIO_ASTREAM_Create(1, &a1)) << "cycle " << c;
        CountNode* n0 = nullptr;
        CountNode* n1 = nullptr;
        {
            std::lock_guard<std::mutex> lk(probeMutex);
            n0 = astream_test::AddProbe<CountNode>(0);
            n1 = astream_test::AddProbe<CountNode>(1);
        }
        ASSERT_EQ(0, AUDIO_ASTREAM_Start(0));
        ASSERT_EQ(0, AUDIO_ASTREAM_Start(1));
        ASSERT_TRUE(audiomw_test::WaitFor([&] { return n0->count.load() > 0 && n1->count.load() > 0; }))
            << "cycle " << c;
        // Every other cycle destroys a running stream without stopping it first.
        if (c % 2 == 0) {
            ASSERT_EQ(0, AUDIO_ASTREAM_Stop(0));
        }
        ASSERT_EQ(0, AUDIO_ASTREAM_Stop(1));
        ASSERT_EQ(0, AUDIO_ASTREAM_Destroy(0));
        ASSERT_EQ(0, AUDIO_ASTREAM_Destroy(1));
        if (c % 32 == 0) {
            log.Clear();
        }
    }
    done.store(true);
    toggler.join();
    out.Stop();
    EXPECT_EQ(nullptr, gs_AstreamHandler[0]);
    EXPECT_EQ(nullptr, gs_AstreamHandler[1]);
    EXPECT_EQ(pools, UTIL_PF_GetLiveCount());
    EXPECT_EQ(threads, UTIL_THREAD_GetLiveCount());
}

}  // namespace
