// Algorithm nodes in running streams: results reach the callback, two streams run their
// nodes while another thread changes the reference selection, and lifecycle calls made
// from the callback on a worker are refused without a deadlock.
#include <atomic>
#include <thread>

#include "alg_test_util.h"
#include "test_support.h"

namespace {

using namespace alg_test;
using astream_test::StreamAttr;
using audiomw_test::WaitFor;

constexpr int kChn = 4;
constexpr int kFrames = 256;

struct Counter {
    std::atomic<int> frames{0};
    std::atomic<int> lastResult{0};
    std::atomic<int> stopRet{1}, destroyRet{1}, destroyOtherRet{1};
    int self = 0, other = 1;
    bool lifecycle = false;
};

void CountFrame(void* arg, short result) {
    Counter* c = static_cast<Counter*>(arg);
    c->lastResult = result;
    if (c->lifecycle && c->frames == 0) {
        c->stopRet = AUDIO_ASTREAM_Stop(c->self);
        c->destroyRet = AUDIO_ASTREAM_Destroy(c->self);
        c->destroyOtherRet = AUDIO_ASTREAM_Destroy(c->other);
    }
    c->frames++;
}

class AlgStreamTest : public audiomw_test::AudioTest {
  protected:
    void SetUp() override { qx_script::Reset(); }
    void TearDown() override {
        for (int id : {0, 1}) {
            AUDIO_ASTREAM_Destroy(id);
            astream_test::DropAi(id);
        }
    }

    // A file AI of kChn channels in slot `ai` and a stream on it with one algorithm node.
    void StartStream(int id, Counter* c, int workers = 2) {
        const std::string path = root.Dir() + "/in" + std::to_string(id) + ".pcm";
        audiomw_test::WriteFileBytes(path, Period(kChn, kFrames));
        AI_ATTR_S ai = astream_test::FileAi(path, kChn, kFrames);
        ASSERT_EQ(AUDIO_AI_Create(id, &ai), 0);
        ASTREAM_ATTR_S attr = StreamAttr(id, workers, {AlgAttr(0, 2, 0, 2, 3, -1, &CountFrame, c)});
        ASSERT_EQ(AUDIO_ASTREAM_Create(id, &attr), 0);
        ASSERT_EQ(AUDIO_ASTREAM_Start(id), 0);
    }
};

TEST_F(AlgStreamTest, ResultsReachTheCallbackEveryFrame) {
    qx_script::SetRecording(false);
    qx_script::SetProc(0, -2);
    Counter c;
    StartStream(0, &c);
    ASSERT_TRUE(WaitFor([&] { return c.frames >= 20; }));
    EXPECT_EQ(c.lastResult, -2);
    EXPECT_EQ(AUDIO_ASTREAM_Stop(0), 0);
    EXPECT_EQ(AUDIO_ASTREAM_Destroy(0), 0);
    EXPECT_TRUE(log.Has({6, "destroy", "Orvane Audio Alg destroy ok"}));
    EXPECT_GE(qx_script::ProcCount(), 20);
}

TEST_F(AlgStreamTest, TwoStreamsRunWhileTheSelectionChanges) {
    qx_script::SetRecording(false);
    Counter c0, c1;
    StartStream(0, &c0, 2);
    StartStream(1, &c1, 3);
    std::atomic<bool> stop{false};
    std::thread selector([&] {
        for (uint8_t i = 0; !stop; i++) {
            AUDIO_ALG_SetRefInParam(RefIn(i & 1, static_cast<uint8_t>(i % 3), (i % 7 == 0) ? 1 : 0));
            std::this_thread::yield();
        }
    });
    const bool ran = WaitFor([&] { return c0.frames >= 100 && c1.frames >= 100; });
    stop = true;
    selector.join();
    EXPECT_TRUE(ran);
    EXPECT_EQ(qx_script::MaxConcurrentProc(), 1);
    EXPECT_EQ(AUDIO_ASTREAM_Destroy(0), 0);
    EXPECT_EQ(AUDIO_ASTREAM_Destroy(1), 0);
}

TEST_F(AlgStreamTest, StopAndDestroyFromTheCallbackAreRefused) {
    qx_script::SetRecording(false);
    Counter c0, c1;
    c0.lifecycle = true;
    StartStream(1, &c1);  // stream 1 exists when stream 0's first callback runs
    StartStream(0, &c0);
    ASSERT_TRUE(WaitFor([&] { return c0.frames >= 5; }));
    EXPECT_EQ(c0.stopRet, -1);
    EXPECT_EQ(c0.destroyRet, -1);
    EXPECT_EQ(c0.destroyOtherRet, -1);
    EXPECT_TRUE(log.Has(
        {3, "AUDIO_ASTREAM_Stop",
         "ASTREAM[0] stop refused: called on a worker of the stream, call it from a control thread"}));
    EXPECT_TRUE(log.Has(
        {3, "AUDIO_ASTREAM_Destroy",
         "ASTREAM[0] destroy refused: called on a worker of ASTREAM[0], call it from a control thread"}));
    EXPECT_TRUE(log.Has(
        {3, "AUDIO_ASTREAM_Destroy",
         "ASTREAM[1] destroy refused: called on a worker of ASTREAM[0], call it from a control thread"}));
    EXPECT_EQ(AUDIO_ASTREAM_isRunning(0), 1);
    EXPECT_EQ(AUDIO_ASTREAM_isRunning(1), 1);
    const int before = c1.frames;
    EXPECT_TRUE(WaitFor([&] { return c1.frames > before + 5; })) << "stream 1 keeps running";
    EXPECT_EQ(AUDIO_ASTREAM_Stop(0), 0);
    EXPECT_EQ(AUDIO_ASTREAM_Destroy(0), 0);
    EXPECT_EQ(AUDIO_ASTREAM_Destroy(1), 0);
    EXPECT_EQ(AUDIO_ASTREAM_isReady(0), 0);
}

TEST_F(AlgStreamTest, DestroyKeepsTheStreamWhenThePoolRefusesToEnd) {
    Counter c;
    StartStream(0, &c);
    ASSERT_TRUE(WaitFor([&] { return c.frames >= 2; }));
    ASSERT_EQ(AUDIO_ASTREAM_Stop(0), 0);  // the reader uses the pool
    ASTREAM_HANDLER_S* h = gs_AstreamHandler[0];
    ZN_PF_HANDLER_S* pool = h->pstWorkerPool;
    h->pstWorkerPool = nullptr;  // a pool the host refuses to destroy
    EXPECT_EQ(AUDIO_ASTREAM_Destroy(0), -1);
    EXPECT_TRUE(log.Has({3, "AUDIO_ASTREAM_Destroy", "ASTREAM[0] worker pool not stopped, stream kept"}));
    EXPECT_FALSE(log.Has({6, "AUDIO_ASTREAM_Destroy", "ASTREAM[0] destroyed\n"}));
    ASSERT_EQ(gs_AstreamHandler[0], h) << "back in its slot, stopped";
    EXPECT_EQ(AUDIO_ASTREAM_isRunning(0), 0);
    h->pstWorkerPool = pool;
    EXPECT_EQ(AUDIO_ASTREAM_Destroy(0), 0);
    EXPECT_TRUE(log.Has({6, "AUDIO_ASTREAM_Destroy", "ASTREAM[0] destroyed\n"}));
}

}  // namespace
