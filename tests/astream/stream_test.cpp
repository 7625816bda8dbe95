// Running streams: lifecycle in every order, the reader's ring entries, stress; no thread left.
#include <dlfcn.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "astream_test_util.h"
#include "host_test.h"
#include "test_support.h"

// The pool's Feed and WaitWorkerIdle interposed: hold back one fed job, count idle waits.
namespace pool_hook {
std::atomic<bool> hold{false};
std::atomic<void*> held{nullptr};
std::atomic<int> idleWaits{0};
int RealFeed(ZN_PF_HANDLER_S* pPool, void* pJob, int s32Arg) {
    static const auto real = reinterpret_cast<int (*)(ZN_PF_HANDLER_S*, void*, int)>(
        dlsym(RTLD_NEXT, "_Z12UTIL_PF_FeedP15ZN_PF_HANDLER_SPvi"));
    return real(pPool, pJob, s32Arg);
}
}  // namespace pool_hook

int UTIL_PF_Feed(ZN_PF_HANDLER_S* pPool, void* pJob, int s32Arg) {
    void* none = nullptr;
    if (pool_hook::hold.load() && pool_hook::held.compare_exchange_strong(none, pJob))
        return 0;
    return pool_hook::RealFeed(pPool, pJob, s32Arg);
}

int UTIL_PF_WaitWorkerIdle(ZN_PF_HANDLER_S* pPool, int s32Timeout) {
    static const auto real = reinterpret_cast<int (*)(ZN_PF_HANDLER_S*, int)>(
        dlsym(RTLD_NEXT, "_Z22UTIL_PF_WaitWorkerIdleP15ZN_PF_HANDLER_Si"));
    pool_hook::idleWaits++;
    return real(pPool, s32Timeout);
}

namespace {

using namespace astream_test;
using audiomw_test::Logged;
using audiomw_test::WaitFor;
using Lines = std::vector<Logged>;

constexpr int kAi = 5;
const std::string kInUse = "========== Data in use, read error =========== \n";
std::atomic<int> heldBufferKept{-1};  // outlives the probe that sets it

Logged L(int level, const char* func, const std::string& m) {
    return {level, std::string("AUDIO_ASTREAM_") + func, m};
}
Logged PipelineDestroyed(int id) {
    return L(6, "DestroyPipeline", "ASTREAM[" + std::to_string(id) + "] pipeline destroyed");
}

// Pass() waits, with a deadline, until the test opens the gate.
struct Gate {
    std::atomic<int> arrived{0};
    std::atomic<bool> open{false};
    void Pass() {
        arrived++;
        WaitFor([&] { return open.load(); }, std::chrono::seconds(30));
    }
};

// An open AI of 2 x 16 samples: read n fills n; shortReads deliver half; gateRead waits.
struct ScriptedAi : public AI_DEVICE_S {
    ScriptedAi() {
        stAttr.eType = AI_DEV_TYPE_ALSA;
        stAttr.bEnable = ZN_TRUE;
        stAttr.eSampleRate = AI_SAMPLE_RATE_16000;
        stAttr.s32Channel = 2;
        stAttr.s32FrameLen = 16;
        s32Id = kAi;
        bHasInit = bHasOpen = 1;
    }
    int _readFrame(unsigned char* pBuf, unsigned int u32Len, unsigned int& u32ReadLen, unsigned long long&,
                   int) override {
        const int n = reads.load();
        if (n == gateRead)
            gate.Pass();
        u32ReadLen = shortReads.count(n) ? u32Len / 2 : u32Len;
        std::fill_n(reinterpret_cast<int16_t*>(pBuf), u32ReadLen / 2, static_cast<int16_t>(n));
        reads++;
        return 0;
    }
    std::atomic<int> reads{0};
    std::set<int> shortReads;
    int gateRead = -1;
    Gate gate;
};

// Records (period, ring entry) of every job; holdPeriod's job waits at `gate`.
struct ProbeNode : public ASTREAM_NODE_S {
    int init(void*) override { return 0; }
    int destroy() override { return 0; }
    int setCfg(ASTREAM_OUTPUT_ATTR_S) override { return 0; }
    int process(char* pIn, char*, bool& bInPlace) override {
        const int16_t period = *reinterpret_cast<int16_t*>(pIn);
        int entry = -1;
        for (int i = 0; i < ASTREAM_JOB_MAX_NUM; i++)
            entry = pIn == _mpHandler->astJob[i].pBufA ? i : entry;
        if (period == holdPeriod) {
            const std::vector<char> copy(pIn, pIn + _mpHandler->u32BufLen);
            gate.Pass();
            heldBufferKept = std::equal(copy.begin(), copy.end(), pIn) ? 1 : 0;
        }
        std::lock_guard<std::mutex> lk(mtx);
        seen.emplace_back(period, entry);
        bInPlace = true;
        return 0;
    }
    std::vector<std::pair<int, int>> Seen() {
        std::lock_guard<std::mutex> lk(mtx);
        return seen;
    }
    size_t Count() { return Seen().size(); }
    void SetEnable(bool on) { __atomic_store_n(&_mbEnable, on ? ZN_TRUE : ZN_FALSE, __ATOMIC_RELAXED); }

    int holdPeriod = -1;
    Gate gate;
    std::mutex mtx;
    std::vector<std::pair<int, int>> seen;
};

// Appends a probe to a created stream's pipeline; the stream frees it.
ProbeNode* AddProbe(int streamId) {
    auto* probe = new ProbeNode();
    probe->_meType = static_cast<ASTREAM_NODE_TYPE_E>(200);
    probe->_mbEnable = ZN_TRUE;
    probe->_mpHandler = gs_AstreamHandler[streamId];
    gs_AstreamHandler[streamId]->lstNode.push_back(probe);
    return probe;
}

class StreamTest : public audiomw_test::AudioTest {
  protected:
    void SetUp() override {
        AudioTest::SetUp();
        pool_hook::hold = false;
        pool_hook::held = nullptr;
    }
    void TearDown() override {
        for (int id : {0, 1}) {
            AUDIO_ASTREAM_Destroy(id);
            DropAi(id);
        }
        AUDIO_AI_Destroy(kAi);
        EXPECT_EQ(pools, UTIL_PF_GetLiveCount());
        EXPECT_EQ(threads, UTIL_THREAD_GetLiveCount());
    }
    // A scripted AI in slot kAi (the AI table owns it) and stream `id` of `workers` on it.
    void ScriptedStream(int id, int workers) {
        ai = static_cast<ScriptedAi*>(gs_pAiHandler[kAi] = new ScriptedAi());
        ASTREAM_ATTR_S a = StreamAttr(kAi, workers);
        ASSERT_EQ(0, AUDIO_ASTREAM_Create(id, &a));
    }
    ProbeNode* ProbedStream(int workers) {
        ScriptedStream(0, workers);
        return gs_AstreamHandler[0] ? AddProbe(0) : nullptr;
    }
    void MakeFileAi(int id, const std::string& path, int channels = 2) {
        audiomw_test::WriteFileBytes(path, audiomw_test::MakePattern(channels, 128, id + 1));
        AI_ATTR_S attr = FileAi(path, channels, 16);
        ASSERT_EQ(0, AUDIO_AI_Create(id, &attr));
    }
    // The lines logged since the last call, without the reader's "Data in use" reports: a
    // free-running file reader may lap the workers at any time while a stream runs.
    // With apiOnly, only the lines of the AUDIO_* functions.
    Lines Take(bool apiOnly = false) {
        Lines l;
        for (const auto& line : log.All())
            if (!(line.func == "threadAudioProcessReader" && line.message == kInUse) &&
                (!apiOnly || line.func.rfind("AUDIO_", 0) == 0))
                l.push_back(line);
        log.Clear();
        return l;
    }
    ScriptedAi* ai = nullptr;
    const int pools = UTIL_PF_GetLiveCount();
    const int threads = UTIL_THREAD_GetLiveCount();
};

// Every lifecycle call in turn: return code, the lines of the AUDIO_* functions, and the state
// (stream ready, running; AI enabled, open) or the live thread count where a row reads them.
TEST_F(StreamTest, LifecycleStepByStep) {
    MakeFileAi(0, root.Dir() + "/in.pcm");  // created disabled: Start enables it
    const std::string dir = root.Dir() + "/dir";
    ASSERT_EQ(0, mkdir(dir.c_str(), 0755));
    AI_ATTR_S dirAi = FileAi(dir, 2, 16);  // opening a directory fails
    gs_pAiHandler[kAi] = new ScriptedAi();
    using Call = std::function<int()>;
    auto create = [](int id, int ai, int workers, int extra = ASTREAM_NODE_TYPE_E_SWAP) {
        return [=] {
            ASTREAM_ATTR_S a =
                StreamAttr(ai, workers, {SwapAttr({1, 0}), NodeAttr(ASTREAM_NODE_TYPE_E(extra))});
            return AUDIO_ASTREAM_Create(id, workers == -99 ? nullptr : &a);
        };
    };
    auto start = [](int id) { return [=] { return AUDIO_ASTREAM_Start(id); }; };
    auto stop = [](int id) { return [=] { return AUDIO_ASTREAM_Stop(id); }; };
    auto destroy = [](int id) { return [=] { return AUDIO_ASTREAM_Destroy(id); }; };
    auto fault = [](int thread) { return [=] { return UTIL_SetThreadStartFault(thread), 0; }; };
    auto ready = [](int id, tagZN_BOOL on) { return [=] { return gs_AstreamHandler[id]->bReady = on, 0; }; };
    auto state = [](int id, int ai) {
        return [=] {
            return 1000 * AUDIO_ASTREAM_isReady(id) + 100 * AUDIO_ASTREAM_isRunning(id) +
                   10 * AUDIO_AI_isEnabled(ai) + AUDIO_AI_isOpen(ai);
        };
    };
    Call aiOpen = [] { return AUDIO_AI_Open(0); }, noAi = [] { return AUDIO_AI_Destroy(kAi); };
    Call dirAiCreate = [&] { return AUDIO_AI_Create(1, &dirAi); };
    Call threadsUp = [&] { return UTIL_THREAD_GetLiveCount() - threads; };
    const auto created = [](int id, int ai) {
        const std::string s = "ASTREAM[" + std::to_string(id) + "] ";
        return Lines{L(6, "Create", s + "bind AI[" + std::to_string(ai) + "] with 2 channels, buf len 64"),
                     L(6, "InitPipeline", s + "add node type[1]"),
                     L(6, "InitPipeline", s + "add node type[1]"),
                     L(6, "Create", s + "pipeline init ok"),
                     L(6, "Create", s + "worker pool init with 1 workers"),
                     L(6, "Create", s + "ready for start")};
    };
    const struct {
        Call call;
        int ret;
        Lines lines;
    } steps[] = {
        // clang-format off
        {create(-1, kAi, 1), -1, {L(3, "Create", "ASTREAM[-1] create failed, id out of range 0..1")}},
        {create(2, kAi, 1), -1, {L(3, "Create", "ASTREAM[2] create failed, id out of range 0..1")}},
        {create(0, kAi, -99), -1, {L(3, "Create", "ASTREAM[0] create failed, no attributes")}},  // a null record
        {create(0, kAi, 0), -1, {L(3, "Create", "ASTREAM[0] create failed, worker num 0 out of range 1..4")}},
        {create(1, kAi, 5), -1, {L(3, "Create", "ASTREAM[1] create failed, worker num 5 out of range 1..4")}},
        {create(1, kAi, -3), -1, {L(3, "Create", "ASTREAM[1] create failed, worker num -3 out of range 1..4")}},
        {create(0, 3, 1), -1, {L(3, "Create", "ASTREAM[0] malloc failed")}},  // AI 3 does not exist: no buffer length
        // A node type without a class, then a worker that cannot start: each create is undone.
        {create(1, kAi, 2, 5), -1, {L(6, "Create", "ASTREAM[1] bind AI[5] with 2 channels, buf len 64"),
          L(6, "InitPipeline", "ASTREAM[1] add node type[1]"), L(3, "InitPipeline", "ASTREAM[1] pipeline node type[5] not support yet"),
          L(4, "InitPipeline", "ASTREAM[1] create failed, destroy")}},
        {fault(1), 0, {}},
        {create(0, kAi, 3), -1, {L(6, "Create", "ASTREAM[0] bind AI[5] with 2 channels, buf len 64"),
          L(6, "InitPipeline", "ASTREAM[0] add node type[1]"), L(6, "InitPipeline", "ASTREAM[0] add node type[1]"),
          L(6, "Create", "ASTREAM[0] pipeline init ok"),
          L(3, "Create", "ASTREAM[0] create worker thread pool failed"), PipelineDestroyed(0)}},
        {fault(-1), 0, {}},
        {state(0, kAi), 11, {}}, {state(1, kAi), 11, {}},  // neither created
        // Start and Stop need a created, ready stream; Destroy of a free slot does nothing.
        {start(-1), -1, {L(3, "Start", "ASTREAM[-1] not created")}},
        {stop(2), -1, {L(3, "Stop", "ASTREAM[2] not created")}},
        {start(1), -1, {L(3, "Start", "ASTREAM[1] not created")}},
        {stop(0), -1, {L(3, "Stop", "ASTREAM[0] not created")}},
        {destroy(-1), 0, {}}, {destroy(2), 0, {}}, {destroy(0), 0, {}},
        {create(1, kAi, 1), 0, created(1, kAi)},
        {ready(1, ZN_FALSE), 0, {}},
        {start(1), -1, {L(3, "Start", "ASTREAM[1] create but init failed. please recreate")}},
        {stop(1), -1, {L(3, "Stop", "ASTREAM[1] create but init failed. please recreate")}},
        {state(1, kAi), 11, {}},
        {ready(1, ZN_TRUE), 0, {}},
        {destroy(1), 0, {L(6, "Destroy", "ASTREAM[1] worker stopped\n"), PipelineDestroyed(1), L(6, "Destroy", "ASTREAM[1] destroyed\n")}},
        // Create, Create, Start, Start, Stop, Stop, Start, Destroy on the disabled file AI.
        {create(0, 0, 1), 0, created(0, 0)},
        {state(0, 0), 1000, {}},
        {create(0, 0, 1), -1, {L(3, "Create", "ASTREAM[0] create failed, already in used")}},
        {start(0), 0, {{6, "AUDIO_AI_SetEnable", "AI[0] Enable"}, L(6, "Start", "ASTREAM[0] start with AI[0]")}},
        {start(0), 0, {L(4, "Start", "ASTREAM[0] already running")}},
        {state(0, 0), 1111, {}}, {threadsUp, 1, {}},  // one reader
        {stop(0), 0, {L(6, "Stop", "ASTREAM[0] reader stopped"), L(6, "Stop", "ASTREAM[0] stopped")}},
        {state(0, 0), 1010, {}}, {threadsUp, 0, {}},
        {aiOpen, 0, {}},  // a second Stop has no reader to stop and closes the AI all the same
        {stop(0), 0, {L(6, "Stop", "ASTREAM[0] stopped")}},
        {state(0, 0), 1010, {}},
        {aiOpen, 0, {}},  // enabled and open already: Start leaves it as it is
        {start(0), 0, {L(6, "Start", "ASTREAM[0] start with AI[0]")}},
        {destroy(0), 0, {L(6, "Destroy", "ASTREAM[0] reader stopped\n"), L(6, "Destroy", "ASTREAM[0] worker stopped\n"),
                         PipelineDestroyed(0), L(6, "Destroy", "ASTREAM[0] destroyed\n")}},
        {state(0, 0), 11, {}}, {threadsUp, 0, {}},  // the reader ended, the AI left open
        // Start fails on a reader that cannot start, an AI that cannot be enabled or opened.
        {create(0, kAi, 1), 0, created(0, kAi)},
        {fault(0), 0, {}}, {start(0), -1, {}}, {fault(-1), 0, {}},
        {start(0), 0, {L(6, "Start", "ASTREAM[0] start with AI[5]")}},
        {stop(0), 0, {L(6, "Stop", "ASTREAM[0] reader stopped"), L(6, "Stop", "ASTREAM[0] stopped")}},
        {noAi, 0, {{6, "AUDIO_AI_Destroy", "AI[5] destroy success"}}},
        {start(0), -1, {{3, "AUDIO_AI_SetEnable", "AI[5] not available"}, L(3, "Start", "ASTREAM[0] enable AI[5] failed")}},
        {dirAiCreate, 0, {{6, "AUDIO_AI_Create", "AI[1] create success"}}},
        {create(1, 1, 1), 0, created(1, 1)},
        {start(1), -1, {{6, "AUDIO_AI_SetEnable", "AI[1] Enable"}, L(3, "Start", "ASTREAM[1] open AI[1] failed")}},
        // clang-format on
    };
    Take();
    for (const auto& st : steps) {
        SCOPED_TRACE(testing::Message() << "step " << &st - steps);
        EXPECT_EQ(st.ret, st.call());
        EXPECT_EQ(st.lines, Take(true));
    }
}

// A short read 1 is dropped and its entry refilled: reads 0, 2, 3, 4 use entries 0, 1, 0, 1.
TEST_F(StreamTest, ShortReadIsDroppedAndTheEntryRefilled) {
    ProbeNode* probe = ProbedStream(2);
    ASSERT_NE(nullptr, probe);
    ai->shortReads = {1};
    audiomw_test::StdoutCapture out;
    ASSERT_EQ(0, AUDIO_ASTREAM_Start(0));
    ASSERT_TRUE(WaitFor([&] { return probe->Count() >= 4; }));
    ASSERT_EQ(0, AUDIO_ASTREAM_Stop(0));
    const std::string text = out.Stop();
    EXPECT_NE(std::string::npos, text.find("ASTREAM[0] read AI[5] failed, except 64 but get 32\n")) << text;
    const auto seen = probe->Seen();
    const std::set<std::pair<int, int>> got(seen.begin(), seen.end()), want{{0, 0}, {2, 1}, {3, 0}, {4, 1}};
    EXPECT_TRUE(std::includes(got.begin(), got.end(), want.begin(), want.end()));
    EXPECT_FALSE(std::any_of(seen.begin(), seen.end(), [](auto& s) { return s.first == 1; }))
        << "short period";
}

// A held worker: the idle wait times out and says so; Destroy waits for the held job.
TEST_F(StreamTest, IdleWaitTimesOutAndDestroyWaitsForTheHeldJob) {
    ProbeNode* probe = ProbedStream(1);
    ASSERT_NE(nullptr, probe);
    probe->holdPeriod = 0;
    audiomw_test::StdoutCapture out;
    ASSERT_EQ(0, AUDIO_ASTREAM_Start(0));
    ASSERT_TRUE(WaitFor([&] { return probe->gate.arrived == 1; }));
    EXPECT_TRUE(
        WaitFor([&] { return out.Peek().find("UTIL_PF_WaitWorkerIdle: -110 \n") != std::string::npos; }));
    std::thread opener([&] {  // once Destroy has taken the stream out of its slot
        WaitFor([&] { return log.Has(L(6, "Destroy", "ASTREAM[0] reader stopped\n")); });
        probe->gate.open = true;
    });
    EXPECT_EQ(0, AUDIO_ASTREAM_Destroy(0));
    opener.join();
    EXPECT_EQ(1, heldBufferKept.load());
    EXPECT_EQ(1, log.Count(L(6, "Destroy", "ASTREAM[0] destroyed\n")));
    EXPECT_EQ(0u, out.Stop().find("threadAudioProcessReader-"));
}

// Entry 0 held by a worker: the reader reports it in use and waits instead of refilling it.
TEST_F(StreamTest, EntryInAWorkersHandsIsNeverRefilled) {
    ProbeNode* probe = ProbedStream(2);
    ASSERT_NE(nullptr, probe);
    ai->gateRead = 1;  // the second read waits until worker 0 holds entry 0
    probe->holdPeriod = 0;
    audiomw_test::StdoutCapture out;
    ASSERT_EQ(0, AUDIO_ASTREAM_Start(0));
    ASSERT_TRUE(WaitFor([&] { return probe->gate.arrived == 1; }));
    probe->SetEnable(false);
    ai->gate.open = true;
    ASSERT_TRUE(WaitFor([&] { return log.Count({3, "threadAudioProcessReader", kInUse}) >= 2; }));
    EXPECT_EQ(2, ai->reads.load()) << "the reader read while entry 0 was held";
    EXPECT_EQ(0u, probe->Count()) << "the held job is the only one to reach the probe";
    probe->SetEnable(true);
    probe->gate.open = true;
    ASSERT_TRUE(WaitFor([&] { return ai->reads.load() >= 6 && probe->Count() >= 3; }));
    ASSERT_EQ(0, AUDIO_ASTREAM_Stop(0));
    EXPECT_EQ(1, heldBufferKept.load());
    const std::string text = out.Stop();
    EXPECT_NE(std::string::npos, text.find(": " + kInUse)) << text;
    EXPECT_EQ(0u, text.find("threadAudioProcessReader-")) << text;
}

// Entry 0 fed but not yet started: the reader waits for it silently, then goes on.
TEST_F(StreamTest, EntryFedButNotStartedIsWaitedForSilently) {
    ProbeNode* probe = ProbedStream(1);
    ASSERT_NE(nullptr, probe);
    pool_hook::hold = true;
    audiomw_test::StdoutCapture out;
    ASSERT_EQ(0, AUDIO_ASTREAM_Start(0));
    ASSERT_TRUE(WaitFor([&] { return pool_hook::held.load() != nullptr; }));
    const int waits = pool_hook::idleWaits.load();
    ASSERT_TRUE(WaitFor([&] { return pool_hook::idleWaits.load() >= waits + 3; }));
    EXPECT_EQ(1, ai->reads.load()) << "the reader read into an entry whose job has not run";
    EXPECT_EQ(0u, probe->Count());
    pool_hook::hold = false;
    ASSERT_EQ(0, pool_hook::RealFeed(gs_AstreamHandler[0]->pstWorkerPool, pool_hook::held.load(), -1));
    ASSERT_TRUE(WaitFor([&] { return probe->Count() >= 3; }));
    ASSERT_EQ(0, AUDIO_ASTREAM_Stop(0));
    EXPECT_EQ(0, log.Count({3, "threadAudioProcessReader", kInUse}));
    EXPECT_EQ(std::string::npos, out.Stop().find(kInUse));
}

// 1000 cycles (AUDIOMW_STREAM_STRESS_CYCLES) of two streams while dumps are switched elsewhere.
TEST_F(StreamTest, StressCyclesWithDumpsSwitchedFromAnotherThread) {
    const char* env = std::getenv("AUDIOMW_STREAM_STRESS_CYCLES");
    const int cycles = env != nullptr && std::atoi(env) > 0 ? std::atoi(env) : 1000;
    MakeFileAi(0, root.Dir() + "/i0.pcm");
    MakeFileAi(1, root.Dir() + "/i1.pcm", 4);
    std::atomic<bool> done{false};
    std::mutex probeMutex;  // the toggler walks node lists, the test appends its probes
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
    for (int c = 0; c < cycles; c++) {
        ASTREAM_ATTR_S a0 =
            StreamAttr(0, 1 + c % 4, {SwapAttr({1, 0}), DumpAttr(root.Dir() + "/d0.pcm", 0, 2)});
        ASTREAM_ATTR_S a1 = StreamAttr(1, 1 + (c / 4) % 4,
                                       {SplitAttr(0, 1, 3), MixinAttr(0, 1, 2),
                                        DumpAttr(root.Dir() + "/d1.pcm", 1, 3), MergeAttr(0, 1, 3)});
        ASSERT_EQ(0, AUDIO_ASTREAM_Create(0, &a0) + AUDIO_ASTREAM_Create(1, &a1)) << "cycle " << c;
        ProbeNode* probes[2];
        {
            std::lock_guard<std::mutex> lk(probeMutex);
            probes[0] = AddProbe(0);
            probes[1] = AddProbe(1);
        }
        ASSERT_EQ(0, AUDIO_ASTREAM_Start(0) + AUDIO_ASTREAM_Start(1));
        ASSERT_TRUE(WaitFor([&] { return probes[0]->Count() > 0 && probes[1]->Count() > 0; }))
            << "cycle " << c;
        ASSERT_EQ(0, (c % 2 == 0 ? AUDIO_ASTREAM_Stop(0) : 0) + AUDIO_ASTREAM_Stop(1));
        ASSERT_EQ(0, AUDIO_ASTREAM_Destroy(0) + AUDIO_ASTREAM_Destroy(1));
        if (c % 32 == 0)
            log.Clear();
    }
    done.store(true);
    toggler.join();
    out.Stop();
    EXPECT_EQ(nullptr, gs_AstreamHandler[0]);
    EXPECT_EQ(nullptr, gs_AstreamHandler[1]);
}

// File AI periods through channel nodes into a dump: exact with one worker, whole with four.
using Period = std::vector<int16_t>;

constexpr int kChn = 4;
constexpr int kFrames = 64;
constexpr size_t kPeriodSamples = kChn * kFrames;
constexpr size_t kPeriodBytes = kPeriodSamples * 2;
constexpr int kLeadPeriods = 48;  // filler the file AI plays before the file
constexpr int kFilePeriods = 20;

// Split (o, a, b) written from its definition; with split false, the merge that undoes it.
Period Regroup(const Period& in, int o, int a, int b, bool split) {
    Period out = in;
    for (int f = 0; f < kFrames; f++) {
        for (int j = 0; j < a + b; j++) {
            size_t from = o * kFrames + f * (a + b) + j;
            size_t to = j < a ? o * kFrames + f * a + j : (o + a) * kFrames + f * b + (j - a);
            out[split ? to : from] = in[split ? from : to];
        }
    }
    return out;
}

// The dump of these periods read, through swap 1:0:3:2, split 0/1/3, mixin of 2 channels at
// block 1 into block 0, merge 0/1/3.
std::vector<Period> Expect(const std::vector<Period>& reads) {
    std::vector<Period> dump;
    for (Period p : reads) {
        std::swap_ranges(p.begin(), p.begin() + kFrames, p.begin() + kFrames);
        std::swap_ranges(p.begin() + 2 * kFrames, p.begin() + 3 * kFrames, p.begin() + 3 * kFrames);
        p = Regroup(p, 0, 1, 3, true);
        for (int f = 0; f < kFrames; f++)
            p[f] = static_cast<int16_t>((p[f] + p[kFrames + 2 * f] + p[kFrames + 2 * f + 1]) / 3);
        dump.push_back(Regroup(p, 0, 1, 3, false));
    }
    return dump;
}

std::vector<Period> Periods(const std::vector<uint8_t>& bytes, size_t count) {
    std::vector<Period> out;
    std::vector<int16_t> s = audiomw_test::ToSamples(bytes);
    for (size_t i = 0; i < count && (i + 1) * kPeriodSamples <= s.size(); i++)
        out.emplace_back(s.begin() + i * kPeriodSamples, s.begin() + (i + 1) * kPeriodSamples);
    return out;
}

long FileSize(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? static_cast<long>(st.st_size) : -1;
}

// One worker: filler, the file transformed, filler, byte for byte; four: each period once, whole.
TEST(StreamDataTest, DumpHoldsEveryPeriodTransformed) {
    const Period kFiller = audiomw_test::ToSamples(std::vector<uint8_t>(kPeriodBytes, 0xA5));
    for (int workers : {1, 4}) {
        SCOPED_TRACE(workers);
        audiomw_test::ScratchRoot root;
        const std::string in = root.Dir() + "/in.pcm", dump = root.Dir() + "/d.pcm";
        const std::vector<uint8_t> file = audiomw_test::MakePattern(kChn, kFilePeriods * kFrames, 5);
        audiomw_test::WriteFileBytes(in, file);
        AI_ATTR_S ai = FileAi(in, kChn, kFrames);
        ASSERT_EQ(0, AUDIO_AI_Create(0, &ai));
        ASTREAM_ATTR_S a = StreamAttr(0, workers,
                                      {SwapAttr({1, 0, 3, 2}), SplitAttr(0, 1, 3), MixinAttr(0, 1, 2),
                                       MergeAttr(0, 1, 3), DumpAttr(dump, 0, kChn)});
        ASSERT_EQ(0, AUDIO_ASTREAM_Create(0, &a));
        ASSERT_EQ(0, AUDIO_ASTREAM_enableDumpNode(0, ZN_TRUE) + AUDIO_ASTREAM_Start(0));
        const size_t total = kLeadPeriods + kFilePeriods + (workers == 1 ? 4 : 16);
        ASSERT_TRUE(audiomw_test::WaitFor([&] { return FileSize(dump) >= long(total * kPeriodBytes); },
                                          std::chrono::seconds(30)));
        ASSERT_EQ(0, AUDIO_ASTREAM_Destroy(0));
        DropAi(0);
        std::vector<Period> got = Periods(audiomw_test::ReadFileBytes(dump), total);
        std::vector<Period> played(kLeadPeriods, kFiller), reads = Periods(file, kFilePeriods);
        played.insert(played.end(), reads.begin(), reads.end());
        played.resize(total, kFiller);
        played = Expect(played);
        if (workers == 4) {  // the order of periods is the workers'
            std::sort(played.begin(), played.end());
            std::sort(got.begin(), got.end());
        }
        EXPECT_EQ(played, got);
    }
}

}  // namespace
