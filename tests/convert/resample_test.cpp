// Resampler: creation checks and their printed lines, zero-order-hold output without
// allocation, the sine check, and argument and converter errors.
#include <gtest/gtest.h>
#include <samplerate.h>

#include <cmath>
#include <cstring>
#include <regex>

#include "alloc/alloc_counter.h"
#include "audio_resample.h"
#include "test_support.h"

namespace {

using namespace audiomw_test;

// What was printed, with the source line taken out of each "[function:line] " prefix.
std::string Printed(StdoutCapture& capture) {
    return std::regex_replace(capture.Stop(), std::regex("\\[(\\w+):[0-9]+\\] "), "[$1] ");
}

// libsamplerate's own text for a ratio outside its range.
std::string BadRatioText() {
    int error = 0;
    SRC_STATE* state = src_new(SRC_ZERO_ORDER_HOLD, 1, &error);
    float in[1] = {0}, out[1] = {0};
    SRC_DATA data = {in, out, 1, 1, 0, 0, 0, 1000.0};
    error = src_process(state, &data);
    src_delete(state);
    return src_strerror(error);
}
const std::string kBadRatio = "src_set_ratio err=" + BadRatioText();
const char* const kChannels = "channel of input and output must be same!";
const char* const kPeriod = "period_size should match convert rate!";

struct CreateCase {
    const char* name;
    RESAMPLE_ATTR_S attr;
    bool created;
    std::string printed;  // the one message printed, or ""
};

// clang-format off
const CreateCase kCreateCases[] = {
    {"up_16k_48k", {16000, 1, 320, 48000, 1, 960}, true, ""},
    {"down_48k_16k", {48000, 1, 960, 16000, 1, 320}, true, ""},
    {"zero_periods", {16000, 1, 0, 48000, 1, 0}, true, ""},
    {"wide_product_exact", {48000, 1, 150000, 16000, 1, 50000}, true, ""},
    {"period_101_refused", {32000, 1, 101, 48000, 1, 151}, false, kPeriod},
    {"out_rate_zero", {16000, 1, 320, 0, 1, 960}, false, kPeriod},
    {"channels_differ", {16000, 2, 320, 48000, 1, 960}, false, kChannels},
    {"channels_first", {32000, 2, 101, 48000, 1, 151}, false, kChannels},
    {"zero_channels", {16000, 0, 320, 48000, 0, 960}, false,
     "channel 0 or period_size 320=>960 out of range!"},
    {"negative_periods", {16000, 1, -320, 48000, 1, -960}, false,
     "channel 1 or period_size -320=>-960 out of range!"},
    {"beyond_int_samples", {48000, 4, 1 << 29, 48000, 4, 1 << 29}, false,
     "channel 4 or period_size 536870912=>536870912 out of range!"},
    {"out_rate_zero_bad_ratio", {16000, 1, 0, 0, 1, 960}, true, kBadRatio},
    {"ratio_above_256", {100, 1, 1, 48000, 1, 480}, true, kBadRatio},
};
// clang-format on

class ResampleCreate : public ::testing::TestWithParam<CreateCase> {};

// A refusal comes before anything is allocated.
TEST_P(ResampleCreate, CreatesOrRefusesWithItsLine) {
    const CreateCase& c = GetParam();
    RESAMPLE_ATTR_S attr = c.attr;
    StdoutCapture capture;
    AllocCounterArm();
    RESAMPLE_HANDLER* handler = RESAMPLE_CreateHandler(&attr);
    AllocCounterDisarm();
    EXPECT_EQ(c.printed.empty() ? "" : "[RESAMPLE_CreateHandler] " + c.printed + "\n", Printed(capture));
    ASSERT_EQ(c.created, handler != nullptr);
    if (handler == nullptr) {
        EXPECT_EQ(0, AllocCount()) << "first allocation of " << AllocFirstSize() << " bytes";
        return;
    }
    EXPECT_EQ(0, std::memcmp(&c.attr, &handler->stAttr, sizeof(attr)));
    EXPECT_EQ(0, handler->stData.end_of_input);  // consecutive periods are one stream
    EXPECT_EQ(static_cast<double>(attr.s32OutRate) / attr.s32InRate, handler->stData.src_ratio);
    EXPECT_EQ(0, RESAMPLE_Destroy(&handler));
    EXPECT_EQ(nullptr, handler);
}

INSTANTIATE_TEST_SUITE_P(Vectors, ResampleCreate, ::testing::ValuesIn(kCreateCases),
                         [](const ::testing::TestParamInfo<CreateCase>& i) { return i.param.name; });

// Consecutive input periods of `in` through one handler, each call told 0 frames in and
// out (the counts are ignored) and given exactly one output period of room (ASan checks
// it is not overrun): the frames each call reported, concatenated, every result, and
// the allocations the calls made.
struct RunResult {
    std::vector<int16_t> out;
    std::vector<int> results;
    long allocations = 0;
};

RunResult RunPeriods(RESAMPLE_ATTR_S attr, const std::vector<int16_t>& in) {
    RunResult r;
    RESAMPLE_HANDLER* handler = RESAMPLE_CreateHandler(&attr);
    EXPECT_NE(nullptr, handler);
    const size_t inSamples = static_cast<size_t>(attr.s32InPeriodSize) * attr.s32InChn;
    std::vector<uint8_t> inBytes = ToBytes(in), outBytes(attr.s32OutPeriodSize * attr.s32OutChn * 2);
    for (size_t pos = 0; handler != nullptr && pos + inSamples <= in.size(); pos += inSamples) {
        AllocCounterArm();
        int n = RESAMPLE_Process(handler, &inBytes[pos * 2], 0, outBytes.data(), 0);
        AllocCounterDisarm();
        r.allocations += AllocCount();
        r.results.push_back(n);
        std::vector<int16_t> samples = ToSamples(outBytes);
        r.out.insert(r.out.end(), samples.begin(), samples.begin() + std::max(n, 0) * attr.s32OutChn);
    }
    RESAMPLE_Destroy(&handler);
    return r;
}

// The hold: the offset o in 0..6 for which output frame k is input frame (k * num - o) / den
// over the whole output, channel for channel; -1 when there is none.
int HoldOffset(const std::vector<int16_t>& in, const std::vector<int16_t>& out, int chn, int num, int den) {
    for (size_t o = 0; o <= 6; o++) {
        bool fits = true;
        for (size_t k = (o + num - 1) / num; fits && (k + 1) * chn <= out.size(); k++) {
            const size_t src = (k * num - o) / den;
            for (int c = 0; fits && c < chn; c++) {
                fits = (src + 1) * chn <= in.size() && out[k * chn + c] == in[src * chn + c];
            }
        }
        if (fits) {
            return static_cast<int>(o);
        }
    }
    return -1;
}

TEST(ResampleProcess, HoldsEachSampleAcrossPeriodsWithoutAllocating) {
    const struct {
        RESAMPLE_ATTR_S attr;
        int num, den;
    } kCases[] = {{{16000, 2, 320, 48000, 2, 960}, 1, 3}, {{48000, 1, 960, 16000, 1, 320}, 3, 1}};
    for (const auto& c : kCases) {
        const int periods = 6, chn = c.attr.s32InChn, outPeriod = c.attr.s32OutPeriodSize;
        std::vector<int16_t> in = ToSamples(MakePattern(chn, c.attr.s32InPeriodSize * periods, 7));
        RunResult r = RunPeriods(c.attr, in);
        ASSERT_EQ(static_cast<size_t>(periods), r.results.size());
        for (int n : r.results) {
            EXPECT_GT(n, 0);
            EXPECT_LE(n, outPeriod);
        }
        // Periods join without a seam: the held input runs to the last period's end.
        EXPECT_GE(r.out.size(), static_cast<size_t>((outPeriod * periods - 3) * chn));
        const int offset = HoldOffset(in, r.out, chn, c.num, c.den);
        EXPECT_GE(offset, 0) << c.attr.s32InRate << "=>" << c.attr.s32OutRate;
        EXPECT_LE(offset, 3);
        EXPECT_EQ(0, r.allocations);
    }
}

TEST(ResampleProcess, ConverterErrorPrintsAndReturnsZero) {
    RESAMPLE_ATTR_S attr = {100, 1, 1, 48000, 1, 480};
    StdoutCapture createCapture;
    RESAMPLE_HANDLER* handler = RESAMPLE_CreateHandler(&attr);
    createCapture.Stop();
    ASSERT_NE(nullptr, handler);
    std::vector<uint8_t> in = {0x34, 0x12}, out(480 * 2, 0x5A);
    StdoutCapture capture;
    EXPECT_EQ(0, RESAMPLE_Process(handler, in.data(), 1, out.data(), 480));
    EXPECT_EQ("[RESAMPLE_Process] src_process err=" + BadRatioText() + "\n", Printed(capture));
    EXPECT_EQ(std::vector<uint8_t>(480 * 2, 0x5A), out);
    RESAMPLE_Destroy(&handler);
}

TEST(ResampleArgs, NullAndUnusableArgumentsAreRefused) {
    std::vector<uint8_t> buf(960 * 2, 9);
    RESAMPLE_ATTR_S attr = {16000, 1, 320, 48000, 1, 960}, none = {16000, 1, 0, 48000, 1, 0};
    RESAMPLE_HANDLER *handler = RESAMPLE_CreateHandler(&attr), *empty = RESAMPLE_CreateHandler(&none);
    RESAMPLE_HANDLER unusable = {}, noBuffers = {};
    noBuffers.stAttr = attr;
    int error = 0;
    noBuffers.pState = src_new(SRC_ZERO_ORDER_HOLD, 1, &error);
    StdoutCapture capture;
    EXPECT_EQ(nullptr, RESAMPLE_CreateHandler(nullptr));
    EXPECT_EQ(-1, RESAMPLE_Process(nullptr, buf.data(), 320, buf.data(), 960));
    EXPECT_EQ(-1, RESAMPLE_Process(handler, nullptr, 320, buf.data(), 960));
    EXPECT_EQ(-1, RESAMPLE_Process(handler, buf.data(), 320, nullptr, 960));
    EXPECT_EQ(-1, RESAMPLE_Process(&unusable, buf.data(), 320, buf.data(), 960));
    EXPECT_EQ(-1, RESAMPLE_Process(&noBuffers, buf.data(), 320, buf.data(), 960));
    // Zero periods convert and write nothing.
    EXPECT_EQ(0, RESAMPLE_Process(empty, buf.data(), 0, buf.data(), 0));
    EXPECT_EQ(std::vector<uint8_t>(960 * 2, 9), buf);
    EXPECT_EQ(
        "[RESAMPLE_CreateHandler] attr is null!\n[RESAMPLE_Process] in or out buffer is null!\n"
        "[RESAMPLE_Process] in or out buffer is null!\n[RESAMPLE_Process] handler is not usable!\n"
        "[RESAMPLE_Process] handler is not usable!\n",
        Printed(capture));
    src_delete(noBuffers.pState);
    EXPECT_EQ(0, RESAMPLE_Destroy(&handler));
    EXPECT_EQ(0, RESAMPLE_Destroy(&empty));
    EXPECT_EQ(0, RESAMPLE_Destroy(&empty));
    EXPECT_EQ(nullptr, empty);
    EXPECT_EQ(0, RESAMPLE_Destroy(nullptr));
}

}  // namespace
