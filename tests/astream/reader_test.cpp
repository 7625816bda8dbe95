// The reader and the worker pool on a scripted AI: short reads dropped and the ring
// entry retried, the idle-wait time-out report, a ring entry still in a worker's hands
// never refilled, and jobs that outlive Stop.
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "astream_test_util.h"
#include "host_test.h"
#include "stream_probes.h"
#include "test_support.h"

namespace {

using astream_test::InstallScriptedAi;
using astream_test::ProbeNode;
using astream_test::ScriptedAi;

constexpr int kAi = 6;
constexpr int kChn = 2;
constexpr int kFrames = 16;
const std::string kInUse = "========== Data in use, read error =========== \n";

class ReaderTest : public audiomw_test::AudioTest {
  protected:
    void TearDown() override {
        AUDIO_ASTREAM_Destroy(0);
        AUDIO_AI_Destroy(kAi);
    }
    // A stream of `workers` on the scripted AI with a probe as its only node.
    ProbeNode* MakeStream(int workers) {
        ASTREAM_ATTR_S a;
        a.s32AiId = kAi;
        a.s32WorkerNum = workers;
        EXPECT_EQ(0, AUDIO_ASTREAM_Create(0, &a));
        return gs_AstreamHandler[0] ? astream_test::AddProbe(0) : nullptr;
    }
};

// Read 1 delivers half a period: it is reported and dropped, and read 2 goes into the
// same ring entry, so entries follow reads 0, 2, 3, 4 as 0, 1, 0, 1.
TEST_F(ReaderTest, ShortReadIsDroppedAndTheEntryRefilled) {
    ScriptedAi* ai = InstallScriptedAi(kAi, kChn, kFrames);
    ai->shortReads = {1};
    ProbeNode* probe = MakeStream(2);
    ASSERT_NE(nullptr, probe);
    audiomw_test::StdoutCapture out;
    ASSERT_EQ(0, AUDIO_ASTREAM_Start(0));
    ASSERT_TRUE(audiomw_test::WaitFor([&] { return probe->Count() >= 4; }));
    ASSERT_EQ(0, AUDIO_ASTREAM_Stop(0));
    std::string text = out.Stop();
    EXPECT_NE(std::string::npos, text.find("ASTREAM[0] read AI[6] failed, except 64 but get 32\n")) << text;
    std::set<std::pair<int, int>> seen;
    for (const auto& s : probe->Seen()) {
        seen.insert(s);
    }
    for (const auto& expected : std::vector<std::pair<int, int>>{{0, 0}, {2, 1}, {3, 0}, {4, 1}}) {
        EXPECT_EQ(1u, seen.count(expected)) << expected.first << "/" << expected.second;
    }
    for (const auto& s : seen) {
        EXPECT_NE(1, s.first) << "the short period was handed on";
    }
}

// One worker held by a job: the reader's idle wait runs out and says so.
TEST_F(ReaderTest, IdleWaitTimeOutIsReported) {
    InstallScriptedAi(kAi, kChn, kFrames);
    ProbeNode* probe = MakeStream(1);
    ASSERT_NE(nullptr, probe);
    probe->holdPeriod = 0;
    audiomw_test::StdoutCapture out;
    ASSERT_EQ(0, AUDIO_ASTREAM_Start(0));
    ASSERT_TRUE(probe->gate.WaitArrivals(1));
    EXPECT_TRUE(audiomw_test::WaitFor(
        [&] { return out.Peek().find("UTIL_PF_WaitWorkerIdle: -110 \n") != std::string::npos; }));
    probe->gate.Open();
    ASSERT_EQ(0, AUDIO_ASTREAM_Stop(0));
    std::string text = out.Stop();
    EXPECT_EQ(0u, text.find("threadAudioProcessReader-")) << text;
    EXPECT_EQ(1, probe->heldBufferKept.load());
}

// Entry 0 is held by worker 0 while worker 1, its node disabled, finishes entry 1: the
// reader comes back to entry 0, reports it in use and waits instead of reading into it,
// cycle after cycle, until the worker lets go.
TEST_F(ReaderTest, EntryInAWorkersHandsIsNeverRefilled) {
    ScriptedAi* ai = InstallScriptedAi(kAi, kChn, kFrames);
    ai->gateRead = 1;  // the second read waits until worker 0 holds entry 0
    ProbeNode* probe = MakeStream(2);
    ASSERT_NE(nullptr, probe);
    probe->holdPeriod = 0;
    audiomw_test::StdoutCapture out;
    ASSERT_EQ(0, AUDIO_ASTREAM_Start(0));
    ASSERT_TRUE(probe->gate.WaitArrivals(1));
    probe->SetEnable(false);
    ai->gate.Open();

    ASSERT_TRUE(audiomw_test::WaitFor([&] { return log.Count(3, kInUse) >= 2; }));
    EXPECT_EQ(2, ai->reads.load()) << "the reader read while entry 0 was held";
    EXPECT_EQ(0u, probe->Count()) << "the held job is the only one to reach the probe";
    probe->SetEnable(true);
    probe->gate.Open();
    ASSERT_TRUE(audiomw_test::WaitFor([&] { return ai->reads.load() >= 6 && probe->Count() >= 3; }));
    ASSERT_EQ(0, AUDIO_ASTREAM_Stop(0));
    EXPECT_EQ(1, probe->heldBufferKept.load());
    std::string text = out.Stop();
    EXPECT_NE(std::string::npos, text.find(": " + kInUse)) << text;
    EXPECT_EQ(0u, text.find("threadAudioProcessReader-")) << text;
}

// Stop ends the reader; the job a worker holds runs to its end afterwards.
TEST_F(ReaderTest, JobsOutliveStop) {
    InstallScriptedAi(kAi, kChn, kFrames);
    ProbeNode* probe = MakeStream(1);
    ASSERT_NE(nullptr, probe);
    probe->holdPeriod = 0;
    ASSERT_EQ(0, AUDIO_ASTREAM_Start(0));
    ASSERT_TRUE(probe->gate.WaitArrivals(1));
    ASSERT_EQ(0, AUDIO_ASTREAM_Stop(0));
    EXPECT_EQ(0, AUDIO_ASTREAM_isRunning(0));
    EXPECT_EQ(0u, probe->Count());
    probe->gate.Open();
    EXPECT_TRUE(audiomw_test::WaitFor([&] { return probe->Count() == 1; }));
    EXPECT_EQ(1, probe->heldBufferKept.load());
}

// Destroy while a job is held: it waits for the job, then frees everything.
TEST_F(ReaderTest, DestroyWaitsForTheHeldJob) {
    InstallScriptedAi(kAi, kChn, kFrames);
    ProbeNode* probe = MakeStream(1);
    ASSERT_NE(nullptr, probe);
    probe->holdPeriod = 0;
    ASSERT_EQ(0, AUDIO_ASTREAM_Start(0));
    ASSERT_TRUE(probe->gate.WaitArrivals(1));
    std::thread opener([&] {
        // Opens the gate once Destroy has taken the stream out of its slot.
        audiomw_test::WaitFor([&] { return log.IndexOf("ASTREAM[0] reader stopped\n") >= 0; });
        probe->gate.Open();
    });
    EXPECT_EQ(0, AUDIO_ASTREAM_Destroy(0));
    opener.join();
    EXPECT_EQ(nullptr, gs_AstreamHandler[0]);
    EXPECT_EQ(1, log.Count(6, "ASTREAM[0] destroyed\n"));
}

}  // namespace
