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

class AiFileTest : public audiomw_test::AudioTest {
  protected:
    void TearDown() override {
        AUDIO_AI_Close(0);
        AUDIO_AI_SetEnable(0, ZN_FALSE);
        AUDIO_AI_Destroy(0);
    }

    std::string WriteInput(const Bytes& bytes, const char* name = "/in.pcm") {
        std::string path = root.Dir() + name;
        audiomw_test::WriteFileBytes(path, bytes);
        return path;
    }

    // Creates AI 0 on `path`, takes the path over with a SetAttr and opens it.
    void CreateAndOpen(const std::string& path) {
        AI_ATTR_S a = FileAiAttr(path);
        ASSERT_EQ(0, AUDIO_AI_Create(0, &a));
        ASSERT_EQ(0, AUDIO_AI_SetAttr(0, &a));
        ASSERT_EQ(0, AUDIO_AI_Open(0));
    }

    // One read of `len` bytes into a buffer pre-filled with 0x11.
    Bytes Read(unsigned int len, unsigned int* readLen = nullptr) {
        Bytes buf(len, 0x11);
        unsigned int got = 0xdead;
        unsigned long long ts = 0x0123456789abcdefULL;
        EXPECT_EQ(0, AUDIO_AI_Read(0, buf.data(), len, got, ts, -1));
        EXPECT_EQ(0x0123456789abcdefULL, ts) << "a file AI has no capture time";
        if (readLen) {
            *readLen = got;
        }
        return buf;
    }

    void SkipLeadIn(unsigned int len) {
        for (int i = 0; i < AI_FILE_LEAD_BLOCKS; i++) {
            unsigned int got = 0;
            ASSERT_EQ(Bytes(len, 0xA5), Read(len, &got)) << "lead block " << i;
            ASSERT_EQ(len, got);
        }
    }
};

TEST_F(AiFileTest, LeadInThenFileInCallerSizedChunksThenFillerForEver) {
    Bytes file = MakePattern(2, 250);  // 1000 bytes
    std::string path = WriteInput(file);
    CreateAndOpen(path);
    EXPECT_TRUE(log.Has({6, "open", "file:" + path + " get stat size:1000\n"})) << log.Dump();
    SkipLeadIn(640);
    const audiomw_test::Logged start{6, "_readFrame", "file send start. size:0-1000\n"};
    const audiomw_test::Logged over{6, "_readFrame", "file send over. size:1000-1000\n"};
    EXPECT_EQ(0, log.Count(start));

    unsigned int got = 0;
    Bytes first = Read(640, &got);
    EXPECT_EQ(640u, got);
    EXPECT_EQ(Bytes(file.begin(), file.begin() + 640), first);
    EXPECT_EQ(1, log.Count(start));

    Bytes second = Read(640, &got);
    EXPECT_EQ(360u, got);
    EXPECT_EQ(Bytes(file.begin() + 640, file.end()), Bytes(second.begin(), second.begin() + 360));
    EXPECT_EQ(Bytes(280, 0x11), Bytes(second.begin() + 360, second.end())) << "bytes past the short read";
    EXPECT_EQ(1, log.Count(over));

    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(Bytes(640, 0xA5), Read(640, &got));
        EXPECT_EQ(640u, got);
    }
    EXPECT_EQ(1, log.Count(start));
    EXPECT_EQ(1, log.Count(over));
}

TEST_F(AiFileTest, EmptyFileAndPathNotTakenOverDeliverOnlyFiller) {
    CreateAndOpen(WriteInput({}));
    for (int i = 0; i < AI_FILE_LEAD_BLOCKS + 5; i++) {
        EXPECT_EQ(Bytes(64, 0xA5), Read(64));
    }
    EXPECT_EQ(0, log.Count({6, "_readFrame", "file send start. size:0-0\n"}));
    TearDown();

    // A path in the create record is only taken over by a later attribute change.
    std::string path = WriteInput(MakePattern(2, 100), "/b.pcm");
    AI_ATTR_S a = FileAiAttr(path);
    ASSERT_EQ(0, AUDIO_AI_Create(0, &a));
    ASSERT_EQ(0, AUDIO_AI_Open(0));
    EXPECT_EQ(1, AUDIO_AI_isOpen(0));
    for (int i = 0; i < AI_FILE_LEAD_BLOCKS + 10; i++) {
        EXPECT_EQ(Bytes(400, 0xA5), Read(400));
    }
    EXPECT_STREQ("", static_cast<AI_FILE_DEVICE_S*>(gs_pAiHandler[0])->_mFilePath);
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

TEST_F(AiFileTest, DirectoryAsInputFailsOpen) {
    // Opening a directory read-write fails: the device refuses it like an unwritable file.
    std::string dir = root.Dir() + "/d";
    ASSERT_EQ(0, mkdir(dir.c_str(), 0755));
    AI_ATTR_S a = FileAiAttr(dir);
    ASSERT_EQ(0, AUDIO_AI_Create(0, &a));
    ASSERT_EQ(0, AUDIO_AI_SetAttr(0, &a));
    EXPECT_EQ(-1, AUDIO_AI_Open(0));
    EXPECT_TRUE(log.Has({4, "open", "open failed, file:" + dir + "\n"})) << log.Dump();
    EXPECT_EQ(1, AUDIO_AI_isOpen(0)) << "a failed open still reads, filler only";
    for (int i = 0; i < AI_FILE_LEAD_BLOCKS + 2; i++) {
        EXPECT_EQ(Bytes(40, 0xA5), Read(40));
    }
}

TEST_F(AiFileTest, MissingFileAtSetCfgKeepsTheCurrentFilePlaying) {
    Bytes file = MakePattern(2, 100);  // 400 bytes
    std::string path = WriteInput(file);
    CreateAndOpen(path);
    SkipLeadIn(100);
    EXPECT_EQ(Bytes(file.begin(), file.begin() + 100), Read(100));

    AI_ATTR_S missing = FileAiAttr(root.Dir() + "/gone.pcm");
    missing.s32Volume = 9;
    log.Clear();
    EXPECT_EQ(0, AUDIO_AI_SetAttr(0, &missing));
    log.ExpectInOrder({{6, "calActionOnSetCfg",
                        "acFilePath:" + root.Dir() +
                            "/gone.pcm, len:" + std::to_string(root.Dir().size() + 9) + ", access:-1\n"},
                       {6, "setCfg", "AI_DEVICE_S::setCfg, AUDIO_SET_ACTION_E_HOT_UPDATE\n"}});
    EXPECT_EQ(Bytes(file.begin() + 100, file.begin() + 200), Read(100));
    AI_ATTR_S got;
    ASSERT_EQ(0, AUDIO_AI_GetAttr(0, &got));
    EXPECT_EQ(9, got.s32Volume);
}

TEST_F(AiFileTest, CloseAndOpenReplayTheFileWithoutNewLeadIn) {
    Bytes file = MakePattern(2, 50);  // 200 bytes
    CreateAndOpen(WriteInput(file));
    SkipLeadIn(200);
    EXPECT_EQ(file, Read(200));
    EXPECT_EQ(Bytes(200, 0xA5), Read(200));
    ASSERT_EQ(0, AUDIO_AI_Close(0));
    EXPECT_EQ(0, AUDIO_AI_isOpen(0));
    EXPECT_EQ(Bytes(200, 0xA5), Read(200)) << "closed device delivers filler";
    ASSERT_EQ(0, AUDIO_AI_Open(0));
    EXPECT_EQ(file, Read(200));
    EXPECT_EQ(2, log.Count({6, "_readFrame", "file send start. size:0-200\n"}));
}

TEST_F(AiFileTest, PathsAreKeptUpTo39CharactersAndCutAt39) {
    // Paths relative to the working directory keep the names short and exact.
    char cwd[512];
    ASSERT_NE(nullptr, getcwd(cwd, sizeof(cwd)));
    ASSERT_EQ(0, chdir(root.Dir().c_str()));
    std::string name39(39, 'a');
    audiomw_test::WriteFileBytes(name39, MakePattern(1, 8));

    AI_ATTR_S a = FileAiAttr("");
    std::memcpy(a.acFilePath, name39.c_str(), 40);
    ASSERT_EQ(0, AUDIO_AI_Create(0, &a));
    ASSERT_EQ(0, AUDIO_AI_SetAttr(0, &a));
    auto* dev = static_cast<AI_FILE_DEVICE_S*>(gs_pAiHandler[0]);
    EXPECT_EQ(name39, std::string(dev->_mFilePath));

    // 40 bytes without a terminator: cut to the first 39.
    std::memset(a.acFilePath, 'a', 40);
    a.s32Volume = 1;
    log.Clear();
    ASSERT_EQ(0, AUDIO_AI_SetAttr(0, &a));
    EXPECT_EQ(name39, std::string(dev->_mFilePath));
    EXPECT_TRUE(log.Has({6, "calActionOnSetCfg", "acFilePath:" + name39 + ", len:39, access:0\n"}));
    ASSERT_EQ(0, chdir(cwd));
}

TEST_F(AiFileTest, FileThatShrinksWhileOpenEndsWithFiller) {
    Bytes file = MakePattern(2, 100);  // 400 bytes
    std::string path = WriteInput(file);
    CreateAndOpen(path);
    SkipLeadIn(100);
    EXPECT_EQ(Bytes(file.begin(), file.begin() + 100), Read(100));
    ASSERT_EQ(0, truncate(path.c_str(), 150));
    unsigned int got = 0;
    Bytes part = Read(100, &got);
    ASSERT_EQ(50u, got);
    EXPECT_EQ(Bytes(file.begin() + 100, file.begin() + 150), Bytes(part.begin(), part.begin() + 50));
    // The next read finds the end early: nothing delivered, the block is dropped.
    Read(100, &got);
    EXPECT_EQ(0u, got);
    log.ExpectInOrder({{4, "_readFrame", "file:" + path + " ended early at 150 of 400\n"},
                       {6, "_readFrame", "file send over. size:150-150\n"}});
    EXPECT_EQ(Bytes(100, 0xA5), Read(100, &got));
    EXPECT_EQ(100u, got);
}

TEST_F(AiFileTest, ReaderAndReconfigurationOnTwoThreadsNeverTearABlock) {
    Bytes file = MakePattern(2, 64 * 200);
    std::string path = WriteInput(file);
    CreateAndOpen(path);
    std::atomic<bool> stop{false};
    std::atomic<int> reads{0};
    std::thread reader([&] {
        Bytes buf(256);
        while (!stop.load()) {
            unsigned int got = 0;
            unsigned long long ts = 0;
            ASSERT_EQ(0, AUDIO_AI_Read(0, buf.data(), 256, got, ts, -1));
            ASSERT_EQ(256u, got);
            reads++;
        }
    });
    for (int i = 0; i < 200; i++) {
        ASSERT_EQ(0, AUDIO_AI_SetVolume(0, i));
        // Same file again: a destroy/re-init under the device lock.
        AI_ATTR_S a = FileAiAttr(path);
        a.s32Volume = i;
        ASSERT_EQ(0, AUDIO_AI_SetAttr(0, &a));
    }
    EXPECT_TRUE(audiomw_test::WaitFor([&] { return reads.load() > 100; }));
    stop = true;
    reader.join();
    EXPECT_EQ(1, AUDIO_AI_isOpen(0));
    EXPECT_EQ(1, AUDIO_AI_isInitd(0));
}

}  // namespace
