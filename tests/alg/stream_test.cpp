// Algorithm nodes in running streams: lifecycle calls from a worker, a pool that will not end.
#include <atomic>

#include "alg_test_util.h"
#include "test_support.h"

namespace {

using namespace alg_test;
using audiomw_test::WaitFor;

constexpr int kChn = 4;
constexpr int kFrames = 256;

struct Counter {
    std::atomic<int> frames{0}, lastResult{0}, stopRet{1}, destroyRet{1}, destroyOtherRet{1};
    bool lifecycle = false;  // stream 0's first callback calls Stop and Destroy
};

void CountFrame(void* arg, short result) {
    Counter* c = static_cast<Counter*>(arg);
    c->lastResult = result;
    if (c->lifecycle && c->frames == 0) {
        c->stopRet = AUDIO_ASTREAM_Stop(0);
        c->destroyRet = AUDIO_ASTREAM_Destroy(0);
        c->destroyOtherRet = AUDIO_ASTREAM_Destroy(1);
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
    // File AI `id` and stream `id` of two workers on it with one algorithm node.
    void StartStream(int id, Counter* c) {
        const std::string path = root.Dir() + "/in" + std::to_string(id) + ".pcm";
        audiomw_test::WriteFileBytes(path, Period(kChn, kFrames));
        AI_ATTR_S ai = astream_test::FileAi(path, kChn, kFrames);
        ASSERT_EQ(AUDIO_AI_Create(id, &ai), 0);
        ASTREAM_ATTR_S attr = astream_test::StreamAttr(id, 2, {AlgAttr(0, 2, 0, 2, 3, -1, &CountFrame, c)});
        ASSERT_EQ(AUDIO_ASTREAM_Create(id, &attr) + AUDIO_ASTREAM_Start(id), 0);
    }
};

// Stop and Destroy called from the callback on a worker are refused; both streams run on.
TEST_F(AlgStreamTest, StopAndDestroyFromTheCallbackAreRefused) {
    qx_script::g.recording = false;
    qx_script::g.procResult = -2;
    Counter c0, c1;
    c0.lifecycle = true;
    StartStream(1, &c1);  // stream 1 exists when stream 0's first callback runs
    StartStream(0, &c0);
    ASSERT_TRUE(WaitFor([&] { return c0.frames >= 5; }));
    EXPECT_EQ(c0.lastResult, -2);
    EXPECT_EQ((std::vector<int>{-1, -1, -1}),
              (std::vector<int>{c0.stopRet, c0.destroyRet, c0.destroyOtherRet}));
    const std::string tail = " called on a worker of ASTREAM[0], call it from a control thread";
    EXPECT_TRUE(log.Has(
        {3, "AUDIO_ASTREAM_Stop",
         "ASTREAM[0] stop refused: called on a worker of the stream, call it from a control thread"}));
    EXPECT_TRUE(log.Has({3, "AUDIO_ASTREAM_Destroy", "ASTREAM[0] destroy refused:" + tail}));
    EXPECT_TRUE(log.Has({3, "AUDIO_ASTREAM_Destroy", "ASTREAM[1] destroy refused:" + tail}));
    EXPECT_EQ(AUDIO_ASTREAM_isRunning(0) + AUDIO_ASTREAM_isRunning(1), 2);
    const int before = c1.frames;
    EXPECT_TRUE(WaitFor([&] { return c1.frames > before + 5; })) << "stream 1 keeps running";
    EXPECT_EQ(AUDIO_ASTREAM_Stop(0) + AUDIO_ASTREAM_Destroy(0) + AUDIO_ASTREAM_Destroy(1), 0);
    EXPECT_EQ(AUDIO_ASTREAM_isReady(0), 0);
    EXPECT_TRUE(log.Has({6, "destroy", "Orvane Audio Alg destroy ok"}));
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
