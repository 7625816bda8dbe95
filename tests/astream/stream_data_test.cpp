// File AI periods through channel nodes into dumps: exact with one worker, whole with four.
#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "astream_test_util.h"
#include "test_support.h"

namespace {

using namespace astream_test;
using audiomw_test::ReadFileBytes;
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
            if (!split) {
                std::swap(from, to);
            }
            out[to] = in[from];
        }
    }
    return out;
}

// The full dump and the group dump of these periods read, through swap 1:0:3:2, split
// 0/1/3 (group dump: blocks 1..2), mixin of 2 channels at block 1 into block 0, merge 0/1/3.
std::pair<std::vector<Period>, std::vector<Period>> Expect(const std::vector<Period>& reads) {
    std::pair<std::vector<Period>, std::vector<Period>> dumps;
    for (Period p : reads) {
        std::swap_ranges(p.begin(), p.begin() + kFrames, p.begin() + kFrames);
        std::swap_ranges(p.begin() + 2 * kFrames, p.begin() + 3 * kFrames, p.begin() + 3 * kFrames);
        p = Regroup(p, 0, 1, 3, true);
        dumps.second.emplace_back(p.begin() + kFrames, p.begin() + 3 * kFrames);
        for (int f = 0; f < kFrames; f++) {
            p[f] = static_cast<int16_t>((p[f] + p[kFrames + 2 * f] + p[kFrames + 2 * f + 1]) / 3);
        }
        dumps.first.push_back(Regroup(p, 0, 1, 3, false));
    }
    return dumps;
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

// The periods other than filler, sorted.
std::vector<Period> Sorted(std::vector<Period> got, const Period& filler) {
    got.erase(std::remove(got.begin(), got.end(), filler), got.end());
    std::sort(got.begin(), got.end());
    return got;
}

// One worker: filler, the file transformed, filler, byte for byte; four: each period once, whole.
TEST(StreamDataTest, DumpsHoldEveryPeriodTransformed) {
    const Period kFiller = audiomw_test::ToSamples(std::vector<uint8_t>(kPeriodBytes, 0xA5));
    for (int workers : {1, 4}) {
        SCOPED_TRACE(workers);
        audiomw_test::ScratchRoot root;
        const std::string in = root.Dir() + "/in.pcm", full = root.Dir() + "/full.pcm",
                          group = root.Dir() + "/g.pcm";
        const std::vector<uint8_t> file = audiomw_test::MakePattern(kChn, kFilePeriods * kFrames, 5);
        const std::vector<Period> reads = Periods(file, kPeriodSamples, kFilePeriods);
        audiomw_test::WriteFileBytes(in, file);
        AI_ATTR_S ai = FileAi(in, kChn, kFrames);
        ASSERT_EQ(0, AUDIO_AI_Create(0, &ai));
        ASTREAM_ATTR_S a = StreamAttr(0, workers,
                                      {SwapAttr({1, 0, 3, 2}), SplitAttr(0, 1, 3), DumpAttr(group, 1, 2),
                                       MixinAttr(0, 1, 2), MergeAttr(0, 1, 3), DumpAttr(full, 0, kChn)});
        ASSERT_EQ(0, AUDIO_ASTREAM_Create(0, &a));
        ASSERT_EQ(0, AUDIO_ASTREAM_enableDumpNode(0, ZN_TRUE) + AUDIO_ASTREAM_Start(0));
        const size_t total = kLeadPeriods + kFilePeriods + (workers == 1 ? 4 : 16);
        ASSERT_TRUE(
            audiomw_test::WaitFor([&] { return FileSize(full) >= static_cast<long>(total * kPeriodBytes); },
                                  std::chrono::seconds(30)));
        ASSERT_EQ(0, AUDIO_ASTREAM_Destroy(0));
        DropAi(0);
        const std::vector<Period> gotFull = Periods(ReadFileBytes(full), kPeriodSamples, total);
        const std::vector<Period> gotGroup = Periods(ReadFileBytes(group), kPeriodSamples / 2, total);
        if (workers == 1) {
            std::vector<Period> played(kLeadPeriods, kFiller);
            played.insert(played.end(), reads.begin(), reads.end());
            played.resize(total, kFiller);
            EXPECT_EQ(Expect(played).first, gotFull);
            EXPECT_EQ(Expect(played).second, gotGroup);
        } else {
            const Period filler = Expect({kFiller}).second[0];
            ASSERT_EQ(total, gotFull.size());
            EXPECT_EQ(Sorted(Expect(reads).first, kFiller), Sorted(gotFull, kFiller));
            EXPECT_EQ(Sorted(Expect(reads).second, filler), Sorted(gotGroup, filler));
        }
    }
}

}  // namespace
