// The file input: lead-in, chunking, end of file, path handling, replay, failures.
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "ai/ai_file_device.h"
#include "ai_test_util.h"
#include "test_support.h"

namespace {

using audiomw_test::FileAiAttr;
using audiomw_test::MakePattern;
using Bytes = std::vector<uint8_t>;

Bytes Slice(const Bytes& b, size_t from, size_t to) {
    return Bytes(b.begin() + from, b.begin() + to);
}

class AiFileTest : public audiomw_test::AudioTest {
  protected:
    void TearDown() override {
        AUDIO_AI_Close(0);
        AUDIO_AI_SetEnable(0, ZN_FALSE);
        AUDIO_AI_Destroy(0);
    }
    std::string WriteInput(const Bytes& bytes) {
        audiomw_test::WriteFileBytes(root.Path("/in.pcm"), bytes);
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

// Lead-in, the file in caller-sized chunks, filler for ever; close and open replay the
// file from its start without a new lead-in.
TEST_F(AiFileTest, LeadInFileFillerAndReplay) {
    Bytes file = MakePattern(2, 250);  // 1000 bytes
    std::string path = WriteInput(file);
    ASSERT_EQ(0, CreateAndOpen(path));
    EXPECT_TRUE(log.Has({6, "open", "file:" + path + " get stat size:1000\n"})) << log.Dump();
    ExpectFiller(640, AI_FILE_LEAD_BLOCKS);
    const audiomw_test::Logged start{6, "_readFrame", "file send start. size:0-1000\n"};
    const audiomw_test::Logged over{6, "_readFrame", "file send over. size:1000-1000\n"};
    EXPECT_EQ(0, log.Count(start));
    EXPECT_EQ(Slice(file, 0, 640), Read(640, 640));
    EXPECT_EQ(1, log.Count(start));
    Bytes second = Read(640, 360);
    EXPECT_EQ(Slice(file, 640, 1000), Slice(second, 0, 360));
    EXPECT_EQ(Bytes(280, 0x11), Slice(second, 360, 640)) << "bytes past the short read";
    EXPECT_EQ(1, log.Count(over));
    ExpectFiller(640, 3);
    EXPECT_EQ(1, log.Count(start));
    EXPECT_EQ(1, log.Count(over));

    ASSERT_EQ(0, AUDIO_AI_Close(0));
    EXPECT_EQ(0, AUDIO_AI_isOpen(0));
    ExpectFiller(200, 1);
    ASSERT_EQ(0, AUDIO_AI_Open(0));
    EXPECT_EQ(Slice(file, 0, 200), Read(200, 200));
    EXPECT_EQ(2, log.Count(start));
}

// An empty file, a directory (refused by the read-write open) and a path only given at
// create (not taken over) all read as an open device of filler only.
TEST_F(AiFileTest, UnusableInputsDeliverOnlyFiller) {
    ASSERT_EQ(0, mkdir(root.Path("/d").c_str(), 0755));
    const struct {
        const char* name;
        bool takeOver;
        int openRc;
    } rows[] = {{"/in.pcm", true, 0}, {"/d", true, -1}, {"/b.pcm", false, 0}};
    WriteInput({});
    audiomw_test::WriteFileBytes(root.Path("/b.pcm"), MakePattern(2, 100));
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

TEST_F(AiFileTest, ExistingPathAtSetCfgNeedsDestroyAndLogsIt) {
    std::string path = WriteInput(MakePattern(2, 10));
    AI_ATTR_S a = FileAiAttr(path);
    ASSERT_EQ(0, AUDIO_AI_Create(0, &a));
    log.Clear();
    ASSERT_EQ(0, AUDIO_AI_SetAttr(0, &a));
    std::string len = std::to_string(path.size());
    EXPECT_EQ((std::vector<audiomw_test::Logged>{
                  {6, "calActionOnSetCfg", "acFilePath:" + path + ", len:" + len + ", access:0\n"},
                  {6, "calActionOnSetCfg", "_mFilePath:" + path + ", need Destroy..\n"},
                  {6, "setCfg", "AI_DEVICE_S::setCfg, AUDIO_SET_ACTION_E_NEED_DESTROY, bHasOpen:0\n"}}),
              log.All());
    EXPECT_EQ(1, AUDIO_AI_isInitd(0));
}

// A missing file at setCfg is a hot update: the current file plays on. A file that
// shrinks while open ends early, with a warning, then filler.
TEST_F(AiFileTest, MissingNewFileAndShrinkingFile) {
    Bytes file = MakePattern(2, 100);  // 400 bytes
    std::string path = WriteInput(file);
    ASSERT_EQ(0, CreateAndOpen(path));
    ExpectFiller(100, AI_FILE_LEAD_BLOCKS);
    EXPECT_EQ(Slice(file, 0, 100), Read(100, 100));

    AI_ATTR_S missing = FileAiAttr(root.Path("/gone.pcm"));
    missing.s32Volume = 9;
    log.Clear();
    EXPECT_EQ(0, AUDIO_AI_SetAttr(0, &missing));
    log.ExpectInOrder({{6, "calActionOnSetCfg",
                        "acFilePath:" + root.Path("/gone.pcm") +
                            ", len:" + std::to_string(root.Dir().size() + 9) + ", access:-1\n"},
                       {6, "setCfg", "AI_DEVICE_S::setCfg, AUDIO_SET_ACTION_E_HOT_UPDATE\n"}});
    EXPECT_EQ(Slice(file, 100, 200), Read(100, 100));
    AI_ATTR_S got;
    ASSERT_EQ(0, AUDIO_AI_GetAttr(0, &got));
    EXPECT_EQ(9, got.s32Volume);

    ASSERT_EQ(0, truncate(path.c_str(), 250));
    EXPECT_EQ(Slice(file, 200, 250), Slice(Read(100, 50), 0, 50));
    Read(100, 0);  // the end found early: nothing delivered, the block is dropped
    log.ExpectInOrder({{4, "_readFrame", "file:" + path + " ended early at 250 of 400\n"},
                       {6, "_readFrame", "file send over. size:250-250\n"}});
    ExpectFiller(100, 1);
}

TEST_F(AiFileTest, PathsAreKeptUpTo39CharactersAndCutAt39) {
    // Paths relative to the working directory keep the names short and exact.
    char cwd[512];
    ASSERT_NE(nullptr, getcwd(cwd, sizeof(cwd)));
    ASSERT_EQ(0, chdir(root.Dir().c_str()));
    std::string name39(39, 'a');
    audiomw_test::WriteFileBytes(name39, MakePattern(1, 8));
    AI_ATTR_S a = FileAiAttr(name39);
    ASSERT_EQ(0, AUDIO_AI_Create(0, &a));
    ASSERT_EQ(0, AUDIO_AI_SetAttr(0, &a));
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

TEST_F(AiFileTest, ReaderAndReconfigurationOnTwoThreadsNeverTearABlock) {
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
    EXPECT_TRUE(audiomw_test::WaitFor([&] { return reads.load() > 100; }));
    stop = true;
    reader.join();
    EXPECT_EQ(2, AUDIO_AI_isOpen(0) + AUDIO_AI_isInitd(0));
}

}  // namespace
