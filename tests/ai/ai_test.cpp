// The AI slot table, setCfg's steps for each verdict on a scripted device, and the file
// input: lead-in, chunking, end of file, path handling, replay, failures and races.
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <thread>
#include <vector>

#include "ai/ai_file_device.h"
#include "test_support.h"

namespace {

using namespace audiomw_test;
using Bytes = std::vector<uint8_t>;
using Lines = std::vector<Logged>;

AI_ATTR_S FileAiAttr(const std::string& path, bool enable = true, int channels = 2, int frames = 160) {
    AI_ATTR_S a;
    std::memset(&a, 0, sizeof(a));
    a.eType = AI_DEV_TYPE_FILE;
    std::strncpy(a.acFilePath, path.c_str(), sizeof(a.acFilePath) - 1);
    a.bEnable = enable ? ZN_TRUE : ZN_FALSE;
    a.eSampleRate = AI_SAMPLE_RATE_16000;
    a.s32Channel = channels;
    a.s32FrameLen = frames;
    return a;
}

Bytes Slice(const Bytes& b, size_t from, size_t to) {
    return Bytes(b.begin() + from, b.begin() + to);
}

class AiTest : public AudioTest {
  protected:
    void TearDown() override {
        for (int i = 0; i < AUDIO_AI_MAX_NUM; i++) {
            AUDIO_AI_Close(i);
            AUDIO_AI_SetEnable(i, ZN_FALSE);
            AUDIO_AI_Destroy(i);
        }
    }
    std::string WriteInput(const Bytes& bytes) {
        WriteFileBytes(root.Path("/in.pcm"), bytes);
        return root.Path("/in.pcm");
    }
    // Creates AI 0 on `path`; a SetAttr takes the path over before the open.
    int CreateAndOpen(const std::string& path, bool takeOver = true) {
        AI_ATTR_S a = FileAiAttr(path);
        EXPECT_EQ(0, AUDIO_AI_Create(0, &a));
        EXPECT_EQ(0, takeOver ? AUDIO_AI_SetAttr(0, &a) : 0);
        return AUDIO_AI_Open(0);
    }
    // One read of `len` bytes into a buffer pre-filled with 0x11; `got` is the length read.
    Bytes Read(unsigned int len, unsigned int expectGot) {
        Bytes buf(len, 0x11);
        unsigned int got = 0xdead;
        unsigned long long ts = 0x0123456789abcdefULL;
        EXPECT_EQ(0, AUDIO_AI_Read(0, buf.data(), len, got, ts, -1));
        EXPECT_EQ(0x0123456789abcdefULL, ts) << "a file AI has no capture time";
        EXPECT_EQ(expectGot, got);
        return buf;
    }
    void ExpectFiller(unsigned int len, int blocks) {
        for (int i = 0; i < blocks; i++) {
            ASSERT_EQ(Bytes(len, 0xA5), Read(len, len)) << "block " << i;
        }
    }
};

TEST_F(AiTest, UnavailableIdsAndNullPointers) {
    AI_ATTR_S a = FileAiAttr("");
    unsigned char buf[8];
    unsigned int len = 5;
    unsigned long long ts = 0;
    for (int id : {-1, 8, 3}) {
        SCOPED_TRACE(id);
        log.Clear();
        const int u = AUDIO_ERR_UNAVAILABLE;
        EXPECT_EQ(
            std::vector<int>({u, u, u, u, u, 0, -1, -1, 0}),
            std::vector<int>({AUDIO_AI_GetAttr(id, &a), AUDIO_AI_Open(id), AUDIO_AI_Close(id),
                              AUDIO_AI_Read(id, buf, sizeof(buf), len, ts, -1), AUDIO_AI_GetUnderRunState(id),
                              AUDIO_AI_isEnabled(id) + AUDIO_AI_isInitd(id) + AUDIO_AI_isOpen(id),
                              AUDIO_AI_GetChannelChn(id), AUDIO_AI_GetRecommendReadBufferSize(id),
                              AUDIO_AI_Destroy(id)}));
        EXPECT_TRUE(log.Lines().empty());
        EXPECT_EQ(std::vector<int>(3, -1),
                  std::vector<int>({AUDIO_AI_SetAttr(id, &a), AUDIO_AI_SetVolume(id, 3),
                                    AUDIO_AI_SetEnable(id, ZN_TRUE)}));
        const std::string notAvailable = "AI[" + std::to_string(id) + "] not available";
        EXPECT_EQ(Lines({{3, "AUDIO_AI_SetAttr", notAvailable},
                         {3, "AUDIO_AI_SetVolume", notAvailable},
                         {3, "AUDIO_AI_SetEnable", notAvailable}}),
                  log.All());
    }
    ASSERT_EQ(0, AUDIO_AI_Create(0, &a));
    log.Clear();
    EXPECT_EQ(std::vector<int>(3, -1),
              std::vector<int>({AUDIO_AI_Read(0, nullptr, 16, len, ts, -1), AUDIO_AI_GetAttr(0, nullptr),
                                AUDIO_AI_SetAttr(0, nullptr)}));
    EXPECT_EQ(5u, len);
    EXPECT_EQ(Lines({{3, "AUDIO_AI_Read", "AI[0] read buffer is null"},
                     {3, "AUDIO_AI_GetAttr", "AI[0] attr is null."},
                     {3, "AUDIO_AI_SetAttr", "AI[0] attr is null."}}),
              log.All());
}

// The whole record is stored; a disabled create initialises nothing. Refusals leave the
// table as it was.
TEST_F(AiTest, CreateStoresTheRecordRefusalsLeaveTheSlotAndDestroyEmptiesIt) {
    AI_ATTR_S a = FileAiAttr("/nonexistent/in.pcm", false, 2, 320), got;
    a.s32Volume = 17;
    ASSERT_EQ(0, AUDIO_AI_Create(5, &a));
    std::memset(&got, 0xEE, sizeof(got));
    EXPECT_EQ(0, AUDIO_AI_GetAttr(5, &got));
    EXPECT_EQ(0, std::memcmp(&a, &got, sizeof(a)));
    EXPECT_EQ(0, AUDIO_AI_isInitd(5) + AUDIO_AI_isEnabled(5) + AUDIO_AI_GetUnderRunState(5));
    EXPECT_EQ(1280, AUDIO_AI_GetRecommendReadBufferSize(5));
    AI_DEVICE_S* kept = gs_pAiHandler[5];
    const struct {
        int id;
        unsigned int type;  // 1, 9: codes without a device class
        const char* line;
    } cases[] = {
        {-1, 2, "AI[-1] invalid id, valid ids are 0 to 7."},
        {8, 2, "AI[8] invalid id, valid ids are 0 to 7."},
        {0, 2, "AI[0] attr is null."},
        {5, 2, "AI[5] has been used."},
        {1, 9, "AI[1] for 9 not support yet."},
        {1, 0xFFFFFFFFu, "AI[1] for -1 not support yet."},
    };
    for (const auto& c : cases) {
        AI_ATTR_S other = FileAiAttr("", true, 6);
        other.eType = static_cast<tagAI_DEV_TYPE_E>(c.type);
        EXPECT_EQ(-1, AUDIO_AI_Create(c.id, c.id == 0 ? nullptr : &other));
        EXPECT_TRUE(log.Has({3, "AUDIO_AI_Create", c.line})) << log.Dump();
    }
    for (int i = 0; i < AUDIO_AI_MAX_NUM; i++) {
        EXPECT_EQ(i == 5 ? kept : nullptr, gs_pAiHandler[i]);
    }
    EXPECT_EQ(2, AUDIO_AI_GetChannelChn(5));
    EXPECT_EQ(0, AUDIO_AI_Destroy(5));
    EXPECT_EQ(nullptr, gs_pAiHandler[5]);
    EXPECT_EQ(Lines({{6, "AUDIO_AI_Create", "AI[5] create success"}}), Lines({log.All().front()}));
    EXPECT_EQ((Logged{6, "AUDIO_AI_Destroy", "AI[5] destroy success"}), log.All().back());
}

TEST_F(AiTest, SetEnableAndSetVolumeGoThroughSetCfg) {
    AI_ATTR_S a = FileAiAttr("", false), got;
    ASSERT_EQ(0, AUDIO_AI_Create(4, &a));
    log.Clear();
    EXPECT_EQ(0, AUDIO_AI_SetEnable(4, ZN_TRUE));
    // An empty path is a hot update: the flag is stored, nothing re-initialised.
    log.ExpectInOrder({{6, "AUDIO_AI_SetEnable", "AI[4] Enable"},
                       {6, "setCfg", "AI_DEVICE_S::setCfg, AUDIO_SET_ACTION_E_HOT_UPDATE\n"}});
    EXPECT_EQ(std::make_pair(1, 0), std::make_pair(AUDIO_AI_isEnabled(4), AUDIO_AI_isInitd(4)));
    log.Clear();
    EXPECT_EQ(0, AUDIO_AI_SetVolume(4, 42) + AUDIO_AI_GetAttr(4, &got));
    EXPECT_EQ(42, got.s32Volume);
    EXPECT_EQ(Lines({{6, "calActionOnSetCfg", "acFilePath:, len:0, access:-1\n"},
                     {6, "setCfg", "AI_DEVICE_S::setCfg, AUDIO_SET_ACTION_E_HOT_UPDATE\n"}}),
              log.All())
        << "no line of its own";
    EXPECT_EQ(0, AUDIO_AI_SetEnable(4, static_cast<tagZN_BOOL>(0)) + AUDIO_AI_isEnabled(4));
    EXPECT_TRUE(log.Has({6, "AUDIO_AI_SetEnable", "AI[4] Disable"}));
}

using Calls = std::vector<std::string>;

struct ScriptedDevice : public AI_DEVICE_S {
    AUDIO_SET_ACTION_E verdict = AUDIO_SET_ACTION_E_NONE;
    std::string failing;  // the operation that returns -7
    Calls calls;
    int lockState = 0;  // pthread_mutex_trylock result seen inside the device

    int Run(const char* op) {
        calls.push_back(op);
        return failing == op ? -7 : 0;
    }
    int init() override { return Run("init"); }
    int destroy() override { return Run("destroy"); }
    int open() override { return Run("open"); }
    int close() override { return Run("close"); }
    int hotApply() override { return Run("hotApply"); }
    AUDIO_SET_ACTION_E calActionOnSetCfg(AI_ATTR_S*) override {
        lockState = pthread_mutex_trylock(&stMutex);
        Run("verdict");
        return verdict;
    }
};

struct SetCfgCase {
    AUDIO_SET_ACTION_E verdict;
    unsigned int open, init;
    bool newEnable;
    const char* failing;
    int ret;
    bool stored;
    Calls calls;
    const char* line;  // after "AI_DEVICE_S::setCfg, AUDIO_SET_ACTION_E_", null for none
};

constexpr auto kHot = AUDIO_SET_ACTION_E_HOT_UPDATE;
constexpr auto kClose = AUDIO_SET_ACTION_E_NEED_CLOSE;
constexpr auto kDestroy = AUDIO_SET_ACTION_E_NEED_DESTROY;

// clang-format off
const SetCfgCase kSetCfgCases[] = {
    {AUDIO_SET_ACTION_E_NONE, 1, 1, true, "", 0, false, {"verdict"}, nullptr},
    {static_cast<AUDIO_SET_ACTION_E>(9), 1, 1, true, "", 0, false, {"verdict"}, nullptr},
    {kHot, 1, 1, true, "hotApply", -7, true, {"verdict", "hotApply"}, "HOT_UPDATE"},
    {kClose, 0, 1, true, "", 0, false, {"verdict"}, "NEED_CLOSE, bHasOpen:0"},
    {kClose, 1, 1, true, "open", -7, true, {"verdict", "close", "open"}, "NEED_CLOSE, bHasOpen:1"},
    {kClose, 1, 1, true, "close", -7, false, {"verdict", "close"}, "NEED_CLOSE, bHasOpen:1"},
    {kDestroy, 0, 1, true, "init", -7, true, {"verdict", "destroy", "init"}, "NEED_DESTROY, bHasOpen:0"},
    {kDestroy, 0, 0, false, "", 0, true, {"verdict"}, "NEED_DESTROY, bHasOpen:0"},
    {kDestroy, 0, 1, true, "destroy", -7, false, {"verdict", "destroy"}, "NEED_DESTROY, bHasOpen:0"},
    // Open: closed, destroyed, stored, re-initialised and reopened even when disabled.
    {kDestroy, 1, 1, false, "", 0, true, {"verdict", "close", "destroy", "init", "open"}, "NEED_DESTROY, bHasOpen:1"},
    {kDestroy, 1, 1, true, "close", -7, false, {"verdict", "close"}, "NEED_DESTROY, bHasOpen:1"},
    {kDestroy, 1, 1, true, "destroy", -7, false, {"verdict", "close", "destroy"}, "NEED_DESTROY, bHasOpen:1"},
    {kDestroy, 1, 1, true, "init", -7, true, {"verdict", "close", "destroy", "init"}, "NEED_DESTROY, bHasOpen:1"},
    {kDestroy, 1, 1, true, "open", -7, true, {"verdict", "close", "destroy", "init", "open"}, "NEED_DESTROY, bHasOpen:1"},
};
// clang-format on

TEST_F(AiTest, SetCfgRunsTheStepsOfEachVerdictAndStopsAtTheFirstFailure) {
    for (const SetCfgCase& c : kSetCfgCases) {
        SCOPED_TRACE(::testing::Message()
                     << c.verdict << " open " << c.open << " failing '" << c.failing << "'");
        log.Clear();
        ScriptedDevice dev;
        dev.stAttr = FileAiAttr("");
        dev.bHasOpen = c.open;
        dev.bHasInit = c.init;
        dev.verdict = c.verdict;
        dev.failing = c.failing;
        AI_ATTR_S next = FileAiAttr("", c.newEnable);
        next.s32Volume = 2;
        next.stAlsaDev.u32HwRate = 44100;  // the whole record is stored, compared fields or not
        EXPECT_EQ(c.ret, dev.setCfg(&next));
        EXPECT_EQ(c.calls, dev.calls);
        EXPECT_EQ(c.stored, std::memcmp(&next, &dev.stAttr, sizeof(next)) == 0);
        EXPECT_EQ(EBUSY, dev.lockState) << "the verdict is asked under the device lock";
        ASSERT_EQ(0, pthread_mutex_trylock(&dev.stMutex)) << "the lock is released on every path";
        pthread_mutex_unlock(&dev.stMutex);
        const std::string line =
            c.line ? std::string("AI_DEVICE_S::setCfg, AUDIO_SET_ACTION_E_") + c.line + "\n" : "";
        EXPECT_EQ(c.line ? Lines({{6, "setCfg", line}}) : Lines(), log.All());
    }
}

// Lead-in, the file in caller-sized chunks, filler for ever; close and open replay the
// file from its start without a new lead-in. A missing file at setCfg is a hot update: the
// current file plays on. A file that shrinks while open ends early, with a warning.
TEST_F(AiTest, FileLeadInChunksFillerReplayMissingAndShrinkingFile) {
    Bytes file = MakePattern(2, 250);  // 1000 bytes
    std::string path = WriteInput(file);
    ASSERT_EQ(0, CreateAndOpen(path));
    EXPECT_TRUE(log.Has({6, "open", "file:" + path + " get stat size:1000\n"})) << log.Dump();
    ExpectFiller(640, AI_FILE_LEAD_BLOCKS);
    const Logged start{6, "_readFrame", "file send start. size:0-1000\n"};
    const Logged over{6, "_readFrame", "file send over. size:1000-1000\n"};
    EXPECT_EQ(0, log.Count(start));
    EXPECT_EQ(Slice(file, 0, 640), Read(640, 640));
    EXPECT_EQ(1, log.Count(start));
    Bytes second = Read(640, 360);
    EXPECT_EQ(Slice(file, 640, 1000), Slice(second, 0, 360));
    EXPECT_EQ(Bytes(280, 0x11), Slice(second, 360, 640)) << "bytes past the short read";
    ExpectFiller(640, 3);
    EXPECT_EQ(std::make_pair(1, 1), std::make_pair(log.Count(start), log.Count(over)));
    ASSERT_EQ(0, AUDIO_AI_Close(0) + AUDIO_AI_isOpen(0));
    ExpectFiller(200, 1);
    ASSERT_EQ(0, AUDIO_AI_Open(0));
    EXPECT_EQ(Slice(file, 0, 200), Read(200, 200));
    EXPECT_EQ(2, log.Count(start));

    AI_ATTR_S missing = FileAiAttr(root.Path("/gone.pcm")), got;
    missing.s32Volume = 9;
    log.Clear();
    EXPECT_EQ(0, AUDIO_AI_SetAttr(0, &missing));
    log.ExpectInOrder({{6, "calActionOnSetCfg",
                        "acFilePath:" + root.Path("/gone.pcm") +
                            ", len:" + std::to_string(root.Dir().size() + 9) + ", access:-1\n"},
                       {6, "setCfg", "AI_DEVICE_S::setCfg, AUDIO_SET_ACTION_E_HOT_UPDATE\n"}});
    EXPECT_EQ(Slice(file, 200, 300), Read(100, 100));
    ASSERT_EQ(0, AUDIO_AI_GetAttr(0, &got));
    EXPECT_EQ(9, got.s32Volume);
    ASSERT_EQ(0, truncate(path.c_str(), 350));
    EXPECT_EQ(Slice(file, 300, 350), Slice(Read(100, 50), 0, 50));
    Read(100, 0);  // the end found early: nothing delivered, the block is dropped
    log.ExpectInOrder({{4, "_readFrame", "file:" + path + " ended early at 350 of 1000\n"},
                       {6, "_readFrame", "file send over. size:350-350\n"}});
    ExpectFiller(100, 1);
}

// An empty file, a directory (refused by the read-write open) and a path only given at
// create (not taken over) all read as an open device of filler only.
TEST_F(AiTest, FileUnusableInputsDeliverOnlyFiller) {
    ASSERT_EQ(0, mkdir(root.Path("/d").c_str(), 0755));
    const struct {
        const char* name;
        bool takeOver;
        int openRc;
    } rows[] = {{"/in.pcm", true, 0}, {"/d", true, -1}, {"/b.pcm", false, 0}};
    WriteInput({});
    WriteFileBytes(root.Path("/b.pcm"), MakePattern(2, 100));
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        log.Clear();
        EXPECT_EQ(row.openRc, CreateAndOpen(root.Path(row.name), row.takeOver));
        EXPECT_EQ(row.openRc == 0 ? 0 : 1,
                  log.Count({4, "open", "open failed, file:" + root.Path(row.name) + "\n"}));
        EXPECT_EQ(1, AUDIO_AI_isOpen(0));
        ExpectFiller(400, AI_FILE_LEAD_BLOCKS + 5);
        EXPECT_EQ(0, log.Count({6, "_readFrame", "file send start. size:0-0\n"}));
        EXPECT_STREQ(row.takeOver ? root.Path(row.name).c_str() : "",
                     static_cast<AI_FILE_DEVICE_S*>(gs_pAiHandler[0])->_mFilePath);
        TearDown();
    }
}

// An existing path at setCfg needs a destroy and says so; paths are kept up to 39
// characters, a 40th is cut (relative paths keep the names short and exact).
TEST_F(AiTest, FileExistingPathNeedsDestroyAndPathsAreCutAt39) {
    char cwd[512];
    ASSERT_NE(nullptr, getcwd(cwd, sizeof(cwd)));
    ASSERT_EQ(0, chdir(root.Dir().c_str()));
    std::string name39(39, 'a');
    WriteFileBytes(name39, MakePattern(1, 8));
    AI_ATTR_S a = FileAiAttr(name39);
    ASSERT_EQ(0, AUDIO_AI_Create(0, &a));
    log.Clear();
    ASSERT_EQ(0, AUDIO_AI_SetAttr(0, &a));
    EXPECT_EQ(Lines({{6, "calActionOnSetCfg", "acFilePath:" + name39 + ", len:39, access:0\n"},
                     {6, "calActionOnSetCfg", "_mFilePath:" + name39 + ", need Destroy..\n"},
                     {6, "setCfg", "AI_DEVICE_S::setCfg, AUDIO_SET_ACTION_E_NEED_DESTROY, bHasOpen:0\n"}}),
              log.All());
    EXPECT_EQ(1, AUDIO_AI_isInitd(0));
    auto* dev = static_cast<AI_FILE_DEVICE_S*>(gs_pAiHandler[0]);
    EXPECT_EQ(name39, std::string(dev->_mFilePath));
    std::memset(a.acFilePath, 'a', 40);  // 40 bytes without a terminator: cut to 39
    a.s32Volume = 1;
    log.Clear();
    ASSERT_EQ(0, AUDIO_AI_SetAttr(0, &a));
    EXPECT_EQ(name39, std::string(dev->_mFilePath));
    EXPECT_TRUE(log.Has({6, "calActionOnSetCfg", "acFilePath:" + name39 + ", len:39, access:0\n"}));
    ASSERT_EQ(0, chdir(cwd));
}

TEST_F(AiTest, FileReaderAndReconfigurationOnTwoThreadsNeverTearABlock) {
    std::string path = WriteInput(MakePattern(2, 64 * 200));
    ASSERT_EQ(0, CreateAndOpen(path));
    std::atomic<bool> stop{false};
    std::atomic<int> reads{0};
    std::thread reader([&] {
        while (!stop.load()) {
            Read(256, 256);
            reads++;
        }
    });
    for (int i = 0; i < 200; i++) {
        ASSERT_EQ(0, AUDIO_AI_SetVolume(0, i));
        AI_ATTR_S a = FileAiAttr(path);  // the same file again: destroy and re-init under the lock
        a.s32Volume = i;
        ASSERT_EQ(0, AUDIO_AI_SetAttr(0, &a));
    }
    EXPECT_TRUE(WaitFor([&] { return reads.load() > 100; }));
    stop = true;
    reader.join();
    EXPECT_EQ(2, AUDIO_AI_isOpen(0) + AUDIO_AI_isInitd(0));
}

// The state queries take no lock: one thread polls them while another opens, closes,
// disables and enables the AI. Every answer is 0 or 1, both states are seen.
TEST_F(AiTest, StateQueriesRaceOpenCloseAndEnable) {
    std::string path = WriteInput(MakePattern(2, 160));
    ASSERT_EQ(0, CreateAndOpen(path));
    std::atomic<bool> stop{false};
    std::atomic<int> seen[2][2] = {};  // [isInitd][isOpen] answers, counted
    std::atomic<int> odd{0};
    std::thread poller([&] {
        while (!stop.load()) {
            const int init = AUDIO_AI_isInitd(0), open = AUDIO_AI_isOpen(0);
            if ((init | open) > 1 || init < 0 || open < 0) {
                odd++;
            } else {
                seen[init][open]++;
            }
        }
    });
    auto sawAll = [&] { return seen[1][1] > 0 && seen[1][0] > 0 && seen[0][0] > 0; };
    for (int i = 0; i < 100000 && !sawAll(); i++) {
        ASSERT_EQ(0, AUDIO_AI_Close(0));
        ASSERT_EQ(0, AUDIO_AI_SetEnable(0, ZN_FALSE));  // closed: destroyed
        ASSERT_EQ(0, AUDIO_AI_SetEnable(0, ZN_TRUE));
        ASSERT_EQ(0, AUDIO_AI_Open(0));
    }
    EXPECT_TRUE(WaitFor(sawAll));
    stop = true;
    poller.join();
    EXPECT_EQ(0, odd.load());
    EXPECT_EQ(2, AUDIO_AI_isOpen(0) + AUDIO_AI_isInitd(0));
}

}  // namespace
