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
        std::vector<Period> got = Periods(ReadFileBytes(dump), total);
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
