// Frame periods from a file AI through swap, split, mixin and merge nodes into dump
// files: exact bytes with one worker, every period intact with four, and a file tail
// shorter than a period dropped.
#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "astream_test_util.h"
#include "test_support.h"

namespace {

using astream_test::DropAi;
using astream_test::DumpAttr;
using astream_test::FileAi;
using astream_test::MergeAttr;
using astream_test::MixinAttr;
using astream_test::SplitAttr;
using astream_test::SwapAttr;
using Period = std::vector<int16_t>;

constexpr int kChn = 4;
constexpr int kFrames = 64;
constexpr size_t kPeriodBytes = kChn * kFrames * 2;
constexpr int kLeadPeriods = 48;
constexpr int kFilePeriods = 20;

// ---- The pipeline's transforms, written from their definitions ----------------------

Period Swap(const Period& in, const std::vector<int>& map) {
    Period out(in.size());
    for (int i = 0; i < kChn; i++) {
        std::copy_n(in.begin() + i * kFrames, kFrames, out.begin() + map[i] * kFrames);
    }
    return out;
}

Period Split(const Period& in, int o, int a, int b) {
    Period out = in;
    for (int f = 0; f < kFrames; f++) {
        for (int j = 0; j < a + b; j++) {
            int16_t s = in[o * kFrames + f * (a + b) + j];
            if (j < a) {
                out[o * kFrames + f * a + j] = s;
            } else {
                out[(o + a) * kFrames + f * b + (j - a)] = s;
            }
        }
    }
    return out;
}

Period Merge(const Period& in, int o, int a, int b) {
    Period out = in;
    for (int f = 0; f < kFrames; f++) {
        for (int j = 0; j < a + b; j++) {
            out[o * kFrames + f * (a + b) + j] =
                j < a ? in[o * kFrames + f * a + j] : in[(o + a) * kFrames + f * b + (j - a)];
        }
    }
    return out;
}

Period Mixin(const Period& in, int t, int o, int c) {
    Period out = in;
    for (int f = 0; f < kFrames; f++) {
        int sum = out[t * kFrames + f];
        for (int j = 0; j < c; j++) {
            sum += out[o * kFrames + f * c + j];
        }
        out[t * kFrames + f] = static_cast<int16_t>(sum / (c + 1));
    }
    return out;
}

Period Group(const Period& p, int o, int c) {
    return Period(p.begin() + o * kFrames, p.begin() + (o + c) * kFrames);
}

std::vector<Period> Periods(const std::vector<uint8_t>& bytes, size_t periodSamples, size_t count) {
    std::vector<Period> out;
    std::vector<int16_t> s = audiomw_test::ToSamples(bytes);
    for (size_t i = 0; i < count && (i + 1) * periodSamples <= s.size(); i++) {
        out.emplace_back(s.begin() + i * periodSamples, s.begin() + (i + 1) * periodSamples);
    }
    return out;
}

long FileSize(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? static_cast<long>(st.st_size) : -1;
}

class StreamDataTest : public audiomw_test::AudioTest {
  protected:
    void TearDown() override {
        AUDIO_ASTREAM_Destroy(0);
        DropAi(0);
    }

    // File AI 0 playing `fileBytes`; stream 0 with `workers` workers running swap, split,
    // a dump of the split's second group, mixin, merge and a dump of the whole period.
    void Run(int workers, const std::vector<uint8_t>& fileBytes, size_t periodsWanted) {
        audiomw_test::WriteFileBytes(root.Dir() + "/in.pcm", fileBytes);
        AI_ATTR_S ai = FileAi(root.Dir() + "/in.pcm", kChn, kFrames);
        ASSERT_EQ(0, AUDIO_AI_Create(0, &ai));
        ASTREAM_ATTR_S a;
        a.s32AiId = 0;
        a.s32WorkerNum = workers;
        a.lstNodeAttr = {SwapAttr({1, 0, 3, 2}), SplitAttr(0, 1, 3), DumpAttr(GroupDump(), 1, 2),
                         MixinAttr(0, 1, 2),     MergeAttr(0, 1, 3), DumpAttr(FullDump(), 0, kChn)};
        ASSERT_EQ(0, AUDIO_ASTREAM_Create(0, &a));
        ASSERT_EQ(0, AUDIO_ASTREAM_enableDumpNode(0, ZN_TRUE));
        ASSERT_EQ(0, AUDIO_ASTREAM_Start(0));
        const long want = static_cast<long>(periodsWanted * kPeriodBytes);
        ASSERT_TRUE(
            audiomw_test::WaitFor([&] { return FileSize(FullDump()) >= want; }, std::chrono::seconds(30)));
        ASSERT_EQ(0, AUDIO_ASTREAM_Stop(0));
    }

    // What the full dump and the group dump hold for one period read from the AI.
    static void Expect(const Period& read, Period* full, Period* group) {
        Period p = Split(Swap(read, {1, 0, 3, 2}), 0, 1, 3);
        *group = Group(p, 1, 2);
        *full = Merge(Mixin(p, 0, 1, 2), 0, 1, 3);
    }

    std::string FullDump() const { return root.Dir() + "/full.pcm"; }
    std::string GroupDump() const { return root.Dir() + "/group.pcm"; }
};

std::vector<uint8_t> FileBytes(size_t bytes) {
    std::vector<uint8_t> b = audiomw_test::MakePattern(kChn, (bytes + kPeriodBytes - 1) / (kChn * 2), 5);
    b.resize(bytes);
    return b;
}

Period FillerPeriod() {
    return audiomw_test::ToSamples(std::vector<uint8_t>(kPeriodBytes, 0xA5));
}

// One worker: 48 filler periods, the 20 file periods transformed, then filler, byte for
// byte, in both dumps.
TEST_F(StreamDataTest, OneWorkerDumpsExactBytes) {
    const std::vector<uint8_t> file = FileBytes(kFilePeriods * kPeriodBytes);
    const size_t total = kLeadPeriods + kFilePeriods + 4;
    Run(1, file, total);
    std::vector<Period> reads = Periods(file, kPeriodBytes / 2, kFilePeriods);
    std::vector<Period> expectFull, expectGroup;
    for (size_t i = 0; i < total; i++) {
        bool fromFile = i >= kLeadPeriods && i < kLeadPeriods + kFilePeriods;
        Period full, group;
        Expect(fromFile ? reads[i - kLeadPeriods] : FillerPeriod(), &full, &group);
        expectFull.push_back(full);
        expectGroup.push_back(group);
    }
    // Filler passes every node unchanged.
    EXPECT_EQ(FillerPeriod(), expectFull[0]);
    EXPECT_EQ(expectFull, Periods(audiomw_test::ReadFileBytes(FullDump()), kPeriodBytes / 2, total));
    EXPECT_EQ(expectGroup, Periods(audiomw_test::ReadFileBytes(GroupDump()), kPeriodBytes / 4, total));
    EXPECT_EQ(0, log.CountContaining("Data in use"));
}

// Four workers may finish periods out of order, but every period arrives whole and once.
TEST_F(StreamDataTest, FourWorkersKeepEveryPeriodWhole) {
    const std::vector<uint8_t> file = FileBytes(kFilePeriods * kPeriodBytes);
    const size_t total = kLeadPeriods + kFilePeriods + 16;
    Run(4, file, total);
    std::vector<Period> expectFull, expectGroup;
    for (const Period& read : Periods(file, kPeriodBytes / 2, kFilePeriods)) {
        Period full, group;
        Expect(read, &full, &group);
        expectFull.push_back(full);
        expectGroup.push_back(group);
    }
    auto dataPeriods = [](std::vector<Period> got, const Period& filler) {
        got.erase(std::remove(got.begin(), got.end(), filler), got.end());
        std::sort(got.begin(), got.end());
        return got;
    };
    std::sort(expectFull.begin(), expectFull.end());
    std::sort(expectGroup.begin(), expectGroup.end());
    std::vector<Period> full = Periods(audiomw_test::ReadFileBytes(FullDump()), kPeriodBytes / 2, total);
    std::vector<Period> group = Periods(audiomw_test::ReadFileBytes(GroupDump()), kPeriodBytes / 4, total);
    ASSERT_EQ(total, full.size());
    EXPECT_EQ(expectFull, dataPeriods(full, FillerPeriod()));
    EXPECT_EQ(expectGroup, dataPeriods(group, Group(FillerPeriod(), 1, 2)));
}

// A file of 20.5 periods: the last read is half a period, reported and dropped.
TEST_F(StreamDataTest, FileTailShorterThanAPeriodIsDropped) {
    const std::vector<uint8_t> file = FileBytes(kFilePeriods * kPeriodBytes + kPeriodBytes / 2);
    const size_t total = kLeadPeriods + kFilePeriods + 4;
    audiomw_test::StdoutCapture out;
    Run(1, file, total);
    EXPECT_NE(std::string::npos, out.Stop().find("ASTREAM[0] read AI[0] failed, except 512 but get 256\n"));
    std::vector<Period> got = Periods(audiomw_test::ReadFileBytes(FullDump()), kPeriodBytes / 2, total);
    ASSERT_EQ(total, got.size());
    std::vector<Period> reads = Periods(file, kPeriodBytes / 2, kFilePeriods);
    for (size_t i = 0; i < total; i++) {
        SCOPED_TRACE(i);
        bool fromFile = i >= kLeadPeriods && i < kLeadPeriods + kFilePeriods;
        Period full, group;
        Expect(fromFile ? reads[i - kLeadPeriods] : FillerPeriod(), &full, &group);
        EXPECT_EQ(full, got[i]);
    }
}

// Without enableDumpNode the dump files exist and stay empty while periods flow.
TEST_F(StreamDataTest, DumpStaysEmptyUntilEnabled) {
    audiomw_test::WriteFileBytes(root.Dir() + "/in.pcm", FileBytes(kPeriodBytes));
    AI_ATTR_S ai = FileAi(root.Dir() + "/in.pcm", kChn, kFrames);
    ASSERT_EQ(0, AUDIO_AI_Create(0, &ai));
    ASTREAM_ATTR_S a;
    a.s32AiId = 0;
    a.s32WorkerNum = 2;
    a.lstNodeAttr = {DumpAttr(FullDump(), 0, kChn), DumpAttr(GroupDump(), 1, 1)};
    ASSERT_EQ(0, AUDIO_ASTREAM_Create(0, &a));
    ASSERT_EQ(0, AUDIO_ASTREAM_Start(0));
    // The file AI's lead-in has been read once the file itself starts.
    ASSERT_TRUE(audiomw_test::WaitFor([&] { return log.CountContaining("file send over") > 0; }));
    ASSERT_EQ(0, AUDIO_ASTREAM_Stop(0));
    EXPECT_TRUE(audiomw_test::FileExists(FullDump()));
    EXPECT_EQ(0, FileSize(FullDump()));
    EXPECT_EQ(0, FileSize(GroupDump()));
}

}  // namespace
