// Stream lifecycle: Create's refusals and log lines, Start / Stop / Destroy in every
// documented order, the AI left as each step promises, and no thread or pool left over.
#include <sys/stat.h>

#include <string>
#include <vector>

#include "astream_test_util.h"
#include "host_test.h"
#include "stream_probes.h"
#include "test_support.h"

namespace {

using astream_test::DropAi;
using astream_test::FileAi;
using astream_test::InstallScriptedAi;
using astream_test::NodeAttr;
using astream_test::SwapAttr;

constexpr int kAi = 5;

class LifecycleTest : public audiomw_test::AudioTest {
  protected:
    void SetUp() override {
        pools = UTIL_PF_GetLiveCount();
        threads = UTIL_THREAD_GetLiveCount();
    }
    void TearDown() override {
        for (int id = 0; id < ASTREAM_MAX_NUM; id++) {
            AUDIO_ASTREAM_Destroy(id);
        }
        AUDIO_AI_Destroy(kAi);
        DropAi(0);
        EXPECT_EQ(pools, UTIL_PF_GetLiveCount());
        EXPECT_EQ(threads, UTIL_THREAD_GetLiveCount());
    }
    static ASTREAM_ATTR_S Attr(int ai, int workers, std::initializer_list<ASTREAM_NODE_ATTR_S> nodes = {}) {
        ASTREAM_ATTR_S a;
        a.s32AiId = ai;
        a.s32WorkerNum = workers;
        a.lstNodeAttr = nodes;
        return a;
    }
    // A file AI in slot 0 playing a small file, created disabled.
    void MakeFileAi() {
        audiomw_test::WriteFileBytes(root.Dir() + "/in.pcm", audiomw_test::MakePattern(2, 64));
        AI_ATTR_S ai = FileAi(root.Dir() + "/in.pcm", 2, 16);
        ASSERT_EQ(0, AUDIO_AI_Create(0, &ai));
    }
    void ExpectInOrder(const std::vector<std::string>& messages) {
        int from = 0;
        for (const std::string& m : messages) {
            int index = log.IndexOf(m, from);
            EXPECT_GE(index, from) << "missing or out of order: " << m;
            from = index < 0 ? from : index + 1;
        }
    }
    int pools = 0;
    int threads = 0;
};

TEST_F(LifecycleTest, CreateRefusesWhatTheTableCannotHold) {
    InstallScriptedAi(kAi, 2, 16);
    struct {
        int id;
        int workers;
        bool nullAttr;
        const char* message;
    } const cases[] = {
        {-1, 1, false, "ASTREAM[-1] create failed, id out of range 0..1"},
        {2, 1, false, "ASTREAM[2] create failed, id out of range 0..1"},
        {0, 1, true, "ASTREAM[0] create failed, no attributes"},
        {0, 0, false, "ASTREAM[0] create failed, worker num 0 out of range 1..4"},
        {1, 5, false, "ASTREAM[1] create failed, worker num 5 out of range 1..4"},
        {1, -3, false, "ASTREAM[1] create failed, worker num -3 out of range 1..4"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.message);
        log.Clear();
        ASTREAM_ATTR_S a = Attr(kAi, c.workers);
        EXPECT_EQ(-1, AUDIO_ASTREAM_Create(c.id, c.nullAttr ? nullptr : &a));
        EXPECT_EQ(std::vector<std::string>{c.message}, log.Messages());
        EXPECT_EQ(1, log.Count(3, c.message));
    }
    EXPECT_EQ(nullptr, gs_AstreamHandler[0]);
    EXPECT_EQ(nullptr, gs_AstreamHandler[1]);
}

TEST_F(LifecycleTest, CreateWithMissingAiFailsAllocation) {
    ASTREAM_ATTR_S a = Attr(3, 1);
    EXPECT_EQ(-1, AUDIO_ASTREAM_Create(0, &a));
    EXPECT_EQ(1, log.Count(3, "ASTREAM[0] malloc failed"));
    EXPECT_EQ(nullptr, gs_AstreamHandler[0]);
    EXPECT_EQ(0, AUDIO_ASTREAM_isReady(0));
}

TEST_F(LifecycleTest, CreateWithUnsupportedNodeLeavesNothing) {
    InstallScriptedAi(kAi, 2, 16);
    ASTREAM_ATTR_S a = Attr(kAi, 2, {SwapAttr({1, 0}), NodeAttr(static_cast<ASTREAM_NODE_TYPE_E>(5))});
    EXPECT_EQ(-1, AUDIO_ASTREAM_Create(1, &a));
    EXPECT_EQ(nullptr, gs_AstreamHandler[1]);
    ExpectInOrder({"ASTREAM[1] bind AI[5] with 2 channels, buf len 64", "ASTREAM[1] add node type[1]",
                   "ASTREAM[1] pipeline node type[5] not support yet", "ASTREAM[1] create failed, destroy"});
    EXPECT_EQ(0, log.CountContaining("pipeline init ok"));
    EXPECT_EQ(0, log.CountContaining("worker pool"));
    EXPECT_EQ(pools, UTIL_PF_GetLiveCount());
}

TEST_F(LifecycleTest, PoolThatCannotStartUndoesTheCreate) {
    InstallScriptedAi(kAi, 2, 16);
    ASTREAM_ATTR_S a = Attr(kAi, 3, {SwapAttr({1, 0})});
    UTIL_SetThreadStartFault(1);  // the second worker does not start
    EXPECT_EQ(-1, AUDIO_ASTREAM_Create(0, &a));
    UTIL_SetThreadStartFault(-1);
    EXPECT_EQ(nullptr, gs_AstreamHandler[0]);
    ExpectInOrder({"ASTREAM[0] pipeline init ok", "ASTREAM[0] create worker thread pool failed",
                   "ASTREAM[0] pipeline destroyed"});
    EXPECT_EQ(1, log.Count(3, "ASTREAM[0] create worker thread pool failed"));
    EXPECT_EQ(0, log.CountContaining("ready for start"));
}

TEST_F(LifecycleTest, CreatePublishesAReadyStream) {
    InstallScriptedAi(kAi, 4, 64);
    ASTREAM_ATTR_S a = Attr(kAi, 2, {SwapAttr({1, 0, 3, 2})});
    ASSERT_EQ(0, AUDIO_ASTREAM_Create(0, &a));
    ExpectInOrder({"ASTREAM[0] bind AI[5] with 4 channels, buf len 512", "ASTREAM[0] add node type[1]",
                   "ASTREAM[0] pipeline init ok", "ASTREAM[0] worker pool init with 2 workers",
                   "ASTREAM[0] ready for start"});
    ASTREAM_HANDLER_S* h = gs_AstreamHandler[0];
    ASSERT_NE(nullptr, h);
    EXPECT_EQ(0, h->s32StreamId);
    EXPECT_EQ(ZN_TRUE, h->bReady);
    EXPECT_EQ(kAi, h->s32AiId);
    EXPECT_EQ(4, h->s32Chn);
    EXPECT_EQ(512u, h->u32BufLen);
    EXPECT_EQ(0, h->s32JobIdx);
    ASSERT_NE(nullptr, h->pstWorkerPool);
    EXPECT_EQ(2, h->pstWorkerPool->s32WorkerNum);
    for (int i = 0; i < ASTREAM_JOB_MAX_NUM; i++) {
        SCOPED_TRACE(i);
        EXPECT_EQ(i < 2, h->astJob[i].pBufA != nullptr);
        EXPECT_EQ(i < 2, h->astJob[i].pBufB != nullptr);
        EXPECT_EQ(i < 2 ? h : nullptr, h->astJob[i].pstHandler);
    }
    EXPECT_NE(h->astJob[0].pBufA, h->astJob[1].pBufA);
    EXPECT_EQ(1, AUDIO_ASTREAM_isReady(0));
    EXPECT_EQ(0, AUDIO_ASTREAM_isRunning(0));
    EXPECT_EQ(0, AUDIO_ASTREAM_isReady(1));

    // A second create on the slot fails and leaves the first stream alone.
    log.Clear();
    EXPECT_EQ(-1, AUDIO_ASTREAM_Create(0, &a));
    EXPECT_EQ((std::vector<std::string>{"ASTREAM[0] create failed, already in used"}), log.Messages());
    EXPECT_EQ(h, gs_AstreamHandler[0]);

    log.Clear();
    EXPECT_EQ(0, AUDIO_ASTREAM_Destroy(0));
    EXPECT_EQ((std::vector<std::string>{"ASTREAM[0] worker stopped\n", "ASTREAM[0] pipeline destroyed",
                                        "ASTREAM[0] destroyed\n"}),
              log.Messages());
    EXPECT_EQ(nullptr, gs_AstreamHandler[0]);
    EXPECT_EQ(0, AUDIO_ASTREAM_isReady(0));
}

TEST_F(LifecycleTest, StartAndStopNeedACreatedStream) {
    for (int id : {0, 1, -1, 2}) {
        log.Clear();
        EXPECT_EQ(-1, AUDIO_ASTREAM_Start(id));
        EXPECT_EQ(-1, AUDIO_ASTREAM_Stop(id));
        const std::string m = "ASTREAM[" + std::to_string(id) + "] not created";
        EXPECT_EQ(2, log.Count(3, m));
        EXPECT_EQ(0, AUDIO_ASTREAM_isRunning(id));
        EXPECT_EQ(0, AUDIO_ASTREAM_isReady(id));
        log.Clear();
        EXPECT_EQ(0, AUDIO_ASTREAM_Destroy(id));
        EXPECT_TRUE(log.Messages().empty());
    }
}

// A record whose bReady is 0 (only other code can publish one) is refused by Start and
// Stop alike.
TEST_F(LifecycleTest, RecordNotReadyIsRefused) {
    InstallScriptedAi(kAi, 2, 16);
    ASTREAM_ATTR_S a = Attr(kAi, 1);
    ASSERT_EQ(0, AUDIO_ASTREAM_Create(1, &a));
    gs_AstreamHandler[1]->bReady = ZN_FALSE;
    log.Clear();
    EXPECT_EQ(-1, AUDIO_ASTREAM_Start(1));
    EXPECT_EQ(-1, AUDIO_ASTREAM_Stop(1));
    EXPECT_EQ(2, log.Count(3, "ASTREAM[1] create but init failed. please recreate"));
    EXPECT_EQ(0, AUDIO_ASTREAM_isReady(1));
    EXPECT_EQ(0, AUDIO_ASTREAM_isRunning(1));
    gs_AstreamHandler[1]->bReady = ZN_TRUE;
}

// Create, Start, Start, Stop, Stop, Start, Destroy on a file AI created disabled.
TEST_F(LifecycleTest, StartStopAndDestroyInEveryOrder) {
    MakeFileAi();
    ASTREAM_ATTR_S a = Attr(0, 2, {SwapAttr({1, 0})});
    ASSERT_EQ(0, AUDIO_ASTREAM_Create(0, &a));

    log.Clear();
    ASSERT_EQ(0, AUDIO_ASTREAM_Start(0));
    EXPECT_EQ(1, AUDIO_ASTREAM_isRunning(0));
    EXPECT_EQ(1, AUDIO_AI_isEnabled(0));
    EXPECT_EQ(1, AUDIO_AI_isOpen(0));
    ExpectInOrder({"AI[0] Enable", "ASTREAM[0] start with AI[0]"});
    EXPECT_EQ(threads + 1, UTIL_THREAD_GetLiveCount());

    // A second start keeps the one reader.
    log.Clear();
    EXPECT_EQ(0, AUDIO_ASTREAM_Start(0));
    EXPECT_EQ((std::vector<std::string>{"ASTREAM[0] already running"}), log.Messages());
    EXPECT_EQ(1, log.Count(4, "ASTREAM[0] already running"));
    EXPECT_EQ(threads + 1, UTIL_THREAD_GetLiveCount());

    log.Clear();
    EXPECT_EQ(0, AUDIO_ASTREAM_Stop(0));
    EXPECT_EQ(0, AUDIO_ASTREAM_isRunning(0));
    EXPECT_EQ(1, AUDIO_ASTREAM_isReady(0));
    EXPECT_EQ(0, AUDIO_AI_isOpen(0));
    EXPECT_EQ(1, AUDIO_AI_isEnabled(0));
    EXPECT_EQ(1, log.Count(6, "ASTREAM[0] reader stopped"));
    EXPECT_EQ(1, log.Count(6, "ASTREAM[0] stopped"));
    EXPECT_EQ(threads, UTIL_THREAD_GetLiveCount());

    // Stop again: no reader to stop, the AI is closed again all the same.
    AUDIO_AI_Open(0);
    log.Clear();
    EXPECT_EQ(0, AUDIO_ASTREAM_Stop(0));
    EXPECT_EQ((std::vector<std::string>{"ASTREAM[0] stopped"}), log.Messages());
    EXPECT_EQ(0, AUDIO_AI_isOpen(0));

    log.Clear();
    ASSERT_EQ(0, AUDIO_ASTREAM_Start(0));
    EXPECT_EQ(0, log.CountContaining("AI[0] Enable"));  // already enabled: untouched
    EXPECT_EQ(1, AUDIO_ASTREAM_isRunning(0));

    // Destroy while running ends the reader and leaves the AI open.
    log.Clear();
    EXPECT_EQ(0, AUDIO_ASTREAM_Destroy(0));
    EXPECT_EQ(nullptr, gs_AstreamHandler[0]);
    EXPECT_EQ(0, AUDIO_ASTREAM_isRunning(0));
    ExpectInOrder({"ASTREAM[0] reader stopped\n", "ASTREAM[0] worker stopped\n",
                   "ASTREAM[0] pipeline destroyed", "ASTREAM[0] destroyed\n"});
    EXPECT_EQ(1, AUDIO_AI_isOpen(0));
    EXPECT_EQ(1, AUDIO_AI_isEnabled(0));
    EXPECT_EQ(threads, UTIL_THREAD_GetLiveCount());
}

// An AI that is enabled and open already is left as it is: no enable, no reopen.
TEST_F(LifecycleTest, StartLeavesAnOpenAiAlone) {
    MakeFileAi();
    ASSERT_EQ(0, AUDIO_AI_SetEnable(0, ZN_TRUE));
    ASSERT_EQ(0, AUDIO_AI_Open(0));
    ASTREAM_ATTR_S a = Attr(0, 1);
    ASSERT_EQ(0, AUDIO_ASTREAM_Create(0, &a));
    log.Clear();
    ASSERT_EQ(0, AUDIO_ASTREAM_Start(0));
    EXPECT_EQ(0, log.CountContaining("AI[0] Enable"));
    EXPECT_EQ(0, log.CountContaining("get stat size"));  // the file was not opened again
    EXPECT_EQ(1, log.Count(6, "ASTREAM[0] start with AI[0]"));
    EXPECT_EQ(0, AUDIO_ASTREAM_Stop(0));
}

TEST_F(LifecycleTest, StartReportsAnAiThatCannotBeEnabled) {
    InstallScriptedAi(kAi, 2, 16);
    ASTREAM_ATTR_S a = Attr(kAi, 1);
    ASSERT_EQ(0, AUDIO_ASTREAM_Create(0, &a));
    ASSERT_EQ(0, AUDIO_AI_Destroy(kAi));
    log.Clear();
    EXPECT_EQ(-1, AUDIO_ASTREAM_Start(0));
    EXPECT_EQ(1, log.Count(3, "ASTREAM[0] enable AI[5] failed"));
    EXPECT_EQ(0, AUDIO_ASTREAM_isRunning(0));
}

TEST_F(LifecycleTest, StartReportsAnAiThatCannotBeOpened) {
    // A directory exists, so the AI takes the path over, and cannot be opened read-write.
    const std::string dir = root.Dir() + "/dir";
    ASSERT_EQ(0, mkdir(dir.c_str(), 0755));
    AI_ATTR_S ai = FileAi(dir, 2, 16);
    ASSERT_EQ(0, AUDIO_AI_Create(0, &ai));
    ASTREAM_ATTR_S a = Attr(0, 1);
    ASSERT_EQ(0, AUDIO_ASTREAM_Create(0, &a));
    log.Clear();
    EXPECT_EQ(-1, AUDIO_ASTREAM_Start(0));
    ExpectInOrder({"AI[0] Enable", "open failed, file:" + dir + "\n", "ASTREAM[0] open AI[0] failed"});
    EXPECT_EQ(1, log.Count(3, "ASTREAM[0] open AI[0] failed"));
    EXPECT_EQ(0, AUDIO_ASTREAM_isRunning(0));
}

// A reader thread that cannot start: Start passes the helper's code on without a line.
TEST_F(LifecycleTest, StartPassesOnAReaderThatCannotStart) {
    InstallScriptedAi(kAi, 2, 16);
    ASTREAM_ATTR_S a = Attr(kAi, 1);
    ASSERT_EQ(0, AUDIO_ASTREAM_Create(0, &a));
    log.Clear();
    UTIL_SetThreadStartFault(0);
    EXPECT_EQ(-1, AUDIO_ASTREAM_Start(0));
    UTIL_SetThreadStartFault(-1);
    EXPECT_EQ(0, log.CountContaining("ASTREAM[0]"));
    EXPECT_EQ(0, AUDIO_ASTREAM_isRunning(0));
    EXPECT_EQ(0, AUDIO_ASTREAM_Start(0));
    EXPECT_EQ(1, AUDIO_ASTREAM_isRunning(0));
}

TEST_F(LifecycleTest, QueriesOutsideTheTableAnswerZero) {
    for (int id : {-1, 2, 100}) {
        EXPECT_EQ(0, AUDIO_ASTREAM_isReady(id));
        EXPECT_EQ(0, AUDIO_ASTREAM_isRunning(id));
    }
}

}  // namespace
