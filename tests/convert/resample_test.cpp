// Resampler: creation checks and their printed lines, zero-order-hold output, the sine
// check, error paths and the no-allocation data path.
#include <gtest/gtest.h>
#include <samplerate.h>

#include <cmath>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "alloc/alloc_counter.h"
#include "audio_resample.h"
#include "printed_lines.h"
#include "test_support.h"

namespace {

using audiomw_test::MakePattern;
using audiomw_test::StdoutCapture;
using audiomw_test::ToBytes;
using audiomw_test::ToSamples;
using convert_test::PrintedMessages;

using Strings = std::vector<std::string>;

// The text libsamplerate gives for a ratio outside its range, from the library itself.
std::string BadRatioText() {
    int error = 0;
    SRC_STATE* state = src_new(SRC_ZERO_ORDER_HOLD, 1, &error);
    float in[1] = {0};
    float out[1] = {0};
    SRC_DATA data = {in, out, 1, 1, 0, 0, 0, 1000.0};
    error = src_process(state, &data);
    src_delete(state);
    return src_strerror(error);
}

struct CreateCase {
    const char* name;
    RESAMPLE_ATTR_S attr;
    bool created;
    Strings printed;  // messages of RESAMPLE_CreateHandler, prefix removed
};

void PrintTo(const CreateCase& c, std::ostream* os) {
    *os << c.name;
}

const std::string kBadRatio = "src_set_ratio err=" + BadRatioText();

const CreateCase kCreateCases[] = {
    {"up_16k_48k", {16000, 1, 320, 48000, 1, 960}, true, {}},
    {"down_48k_16k", {48000, 1, 960, 16000, 1, 320}, true, {}},
    {"up_32k_48k_stereo", {32000, 2, 512, 48000, 2, 768}, true, {}},
    {"up_8k_48k", {8000, 2, 160, 48000, 2, 960}, true, {}},
    {"period_101_refused", {32000, 1, 101, 48000, 1, 151}, false, {"period_size should match convert rate!"}},
    {"period_off_by_one", {16000, 1, 321, 48000, 1, 960}, false, {"period_size should match convert rate!"}},
    {"channels_differ", {16000, 2, 320, 48000, 1, 960}, false, {"channel of input and output must be same!"}},
    {"channels_checked_first",
     {32000, 2, 101, 48000, 1, 151},
     false,
     {"channel of input and output must be same!"}},
    {"zero_channels",
     {16000, 0, 320, 48000, 0, 960},
     false,
     {"channel 0 or period_size 320=>960 out of range!"}},
    {"negative_channels",
     {16000, -2, 320, 48000, -2, 960},
     false,
     {"channel -2 or period_size 320=>960 out of range!"}},
    {"negative_periods",
     {16000, 1, -320, 48000, 1, -960},
     false,
     {"channel 1 or period_size -320=>-960 out of range!"}},
    {"period_beyond_int_samples",
     {48000, 4, 1 << 29, 48000, 4, 1 << 29},
     false,
     {"channel 4 or period_size 536870912=>536870912 out of range!"}},
    {"zero_periods", {16000, 1, 0, 48000, 1, 0}, true, {}},
    {"wide_product_exact", {48000, 1, 150000, 16000, 1, 50000}, true, {}},
    {"out_rate_zero_period_refused",
     {16000, 1, 320, 0, 1, 960},
     false,
     {"period_size should match convert rate!"}},
    {"out_rate_zero_bad_ratio", {16000, 1, 0, 0, 1, 960}, true, {kBadRatio}},
    {"ratio_above_256", {100, 1, 1, 48000, 1, 480}, true, {kBadRatio}},
};

class ResampleCreate : public ::testing::TestWithParam<CreateCase> {};

TEST_P(ResampleCreate, CreatesOrRefusesWithItsLine) {
    const CreateCase& c = GetParam();
    RESAMPLE_ATTR_S attr = c.attr;
    StdoutCapture capture;
    RESAMPLE_HANDLER* handler = RESAMPLE_CreateHandler(&attr);
    std::string out = capture.Stop();
    EXPECT_EQ(PrintedMessages(out, "RESAMPLE_CreateHandler"), c.printed);
    ASSERT_EQ(handler != nullptr, c.created);
    if (handler != nullptr) {
        const RESAMPLE_ATTR_S& a = handler->stAttr;
        EXPECT_EQ(a.s32InRate, c.attr.s32InRate);
        EXPECT_EQ(a.s32InChn, c.attr.s32InChn);
        EXPECT_EQ(a.s32InPeriodSize, c.attr.s32InPeriodSize);
        EXPECT_EQ(a.s32OutRate, c.attr.s32OutRate);
        EXPECT_EQ(a.s32OutChn, c.attr.s32OutChn);
        EXPECT_EQ(a.s32OutPeriodSize, c.attr.s32OutPeriodSize);
        EXPECT_NE(handler->pState, nullptr);
        EXPECT_NE(handler->stData.data_in, nullptr);
        EXPECT_NE(handler->stData.data_out, nullptr);
        EXPECT_EQ(handler->stData.input_frames, c.attr.s32InPeriodSize);
        EXPECT_EQ(handler->stData.output_frames, c.attr.s32OutPeriodSize);
        EXPECT_EQ(handler->stData.end_of_input, 0);
        EXPECT_EQ(handler->stData.src_ratio, double(c.attr.s32OutRate) / double(c.attr.s32InRate));
    }
    EXPECT_EQ(RESAMPLE_Destroy(&handler), 0);
    EXPECT_EQ(handler, nullptr);
}

INSTANTIATE_TEST_SUITE_P(Vectors, ResampleCreate, ::testing::ValuesIn(kCreateCases),
                         [](const ::testing::TestParamInfo<CreateCase>& info) { return info.param.name; });

std::vector<CreateCase> RefusedCases() {
    std::vector<CreateCase> refused;
    for (const CreateCase& c : kCreateCases) {
        if (!c.created) {
            refused.push_back(c);
        }
    }
    return refused;
}

class ResampleRefused : public ::testing::TestWithParam<CreateCase> {};

// The checks come before anything is made: no C++ allocation (and ASan sees no leak).
TEST_P(ResampleRefused, AllocatesNothing) {
    RESAMPLE_ATTR_S attr = GetParam().attr;
    StdoutCapture capture;
    audiomw_test::AllocCounterArm();
    RESAMPLE_HANDLER* handler = RESAMPLE_CreateHandler(&attr);
    audiomw_test::AllocCounterDisarm();
    capture.Stop();
    EXPECT_EQ(handler, nullptr);
    EXPECT_EQ(0, audiomw_test::AllocCount())
        << "first allocation of " << audiomw_test::AllocFirstSize() << " bytes";
}

INSTANTIATE_TEST_SUITE_P(Vectors, ResampleRefused, ::testing::ValuesIn(RefusedCases()),
                         [](const ::testing::TestParamInfo<CreateCase>& info) { return info.param.name; });

TEST(ResampleCreateArgs, NullAttrRefused) {
    StdoutCapture capture;
    EXPECT_EQ(RESAMPLE_CreateHandler(nullptr), nullptr);
    EXPECT_EQ(PrintedMessages(capture.Stop(), "RESAMPLE_CreateHandler"), Strings{"attr is null!"});
}

// Runs `periods` consecutive periods of `in` (a whole number of input periods) through a
// new handler; returns the frames each call reported, concatenated, and every result.
struct RunResult {
    std::vector<int16_t> out;
    std::vector<int> results;
};

RunResult RunPeriods(RESAMPLE_ATTR_S attr, const std::vector<int16_t>& in) {
    RunResult r;
    RESAMPLE_HANDLER* handler = RESAMPLE_CreateHandler(&attr);
    EXPECT_NE(handler, nullptr);
    if (handler == nullptr) {
        return r;
    }
    const size_t inSamples = size_t(attr.s32InPeriodSize) * attr.s32InChn;
    const size_t outSamples = size_t(attr.s32OutPeriodSize) * attr.s32OutChn;
    std::vector<uint8_t> outBytes(outSamples * 2);
    for (size_t pos = 0; pos + inSamples <= in.size(); pos += inSamples) {
        std::vector<uint8_t> inBytes =
            ToBytes(std::vector<int16_t>(in.begin() + pos, in.begin() + pos + inSamples));
        int n = RESAMPLE_Process(handler, inBytes.data(), attr.s32InPeriodSize, outBytes.data(),
                                 attr.s32OutPeriodSize);
        r.results.push_back(n);
        std::vector<int16_t> samples = ToSamples(outBytes);
        r.out.insert(r.out.end(), samples.begin(), samples.begin() + std::max(n, 0) * attr.s32OutChn);
    }
    RESAMPLE_Destroy(&handler);
    return r;
}

// Channel `ch` of interleaved `samples`.
std::vector<int16_t> Channel(const std::vector<int16_t>& samples, int channels, int ch) {
    std::vector<int16_t> out;
    for (size_t i = ch; i < samples.size(); i += channels) {
        out.push_back(samples[i]);
    }
    return out;
}

// Output delay, in output frames, for which out[k] == in[(k - delay) * num / den] over the
// whole output after the delay, or -1 when no delay up to 6 fits.
int HoldDelay(const std::vector<int16_t>& in, const std::vector<int16_t>& out, int num, int den) {
    for (int delay = 0; delay <= 6; delay++) {
        bool fits = out.size() > size_t(delay);
        for (size_t k = delay; fits && k < out.size(); k++) {
            size_t src = (k - delay) * num / den;
            fits = src < in.size() && out[k] == in[src];
        }
        if (fits) {
            return delay;
        }
    }
    return -1;
}

TEST(ResampleProcess, UpsampleHoldsEachSampleThreeTimes) {
    const int periods = 6;
    std::vector<int16_t> in = ToSamples(MakePattern(1, 320 * periods, 7));
    RunResult r = RunPeriods({16000, 1, 320, 48000, 1, 960}, in);
    ASSERT_EQ(r.results.size(), size_t(periods));
    for (int n : r.results) {
        EXPECT_GT(n, 0);
        EXPECT_LE(n, 960);
    }
    int delay = HoldDelay(in, r.out, 1, 3);
    EXPECT_GE(delay, 0);
    EXPECT_LE(delay, 3);
    // Periods join without a seam: the held input runs to the last period's end.
    EXPECT_GE(r.out.size(), size_t(960 * periods - 3));
}

TEST(ResampleProcess, StereoChannelsStayApart) {
    std::vector<int16_t> in = ToSamples(MakePattern(2, 320 * 4, 11));
    RunResult r = RunPeriods({16000, 2, 320, 48000, 2, 960}, in);
    for (int ch = 0; ch < 2; ch++) {
        int delay = HoldDelay(Channel(in, 2, ch), Channel(r.out, 2, ch), 1, 3);
        EXPECT_GE(delay, 0) << "channel " << ch;
        EXPECT_LE(delay, 3) << "channel " << ch;
    }
}

TEST(ResampleProcess, DownsampleKeepsEveryThirdSample) {
    std::vector<int16_t> in = ToSamples(MakePattern(1, 960 * 4, 5));
    RunResult r = RunPeriods({48000, 1, 960, 16000, 1, 320}, in);
    ASSERT_EQ(r.results.size(), 4u);
    for (int n : r.results) {
        EXPECT_GT(n, 0);
        EXPECT_LE(n, 320);
    }
    // After the converter's first held value, output k is input 3k - 1.
    ASSERT_GT(r.out.size(), 300u);
    for (size_t k = 1; k < r.out.size(); k++) {
        ASSERT_EQ(r.out[k], in[3 * k - 1]) << "output frame " << k;
    }
}

TEST(ResampleProcess, SineKeepsFrequencyAndLevel) {
    const double kPi = std::acos(-1.0);
    const double freq = 1000.0;
    const double amplitude = 16000.0;
    const int periods = 50;
    std::vector<int16_t> in(320 * periods);
    for (size_t i = 0; i < in.size(); i++) {
        in[i] = int16_t(std::lrint(amplitude * std::sin(2 * kPi * freq * double(i) / 16000.0)));
    }
    RunResult r = RunPeriods({16000, 1, 320, 48000, 1, 960}, in);
    // Skip the first period: the converter's start-up.
    std::vector<double> y(r.out.begin() + 960, r.out.end());
    ASSERT_GT(y.size(), 48000u * 9 / 10);

    double firstCross = -1;
    double lastCross = -1;
    int crossings = 0;
    double energy = 0;
    for (size_t k = 1; k < y.size(); k++) {
        if (y[k - 1] < 0 && y[k] >= 0) {
            double t = double(k - 1) + (-y[k - 1]) / (y[k] - y[k - 1]);
            firstCross = firstCross < 0 ? t : firstCross;
            lastCross = t;
            crossings++;
        }
        energy += y[k] * y[k];
    }
    ASSERT_GT(crossings, 100);
    double measuredFreq = (crossings - 1) / ((lastCross - firstCross) / 48000.0);
    EXPECT_NEAR(measuredFreq, freq, freq * 0.01);

    double inEnergy = 0;
    for (size_t i = 320; i < in.size(); i++) {
        inEnergy += double(in[i]) * in[i];
    }
    double inRms = std::sqrt(inEnergy / double(in.size() - 320));
    double outRms = std::sqrt(energy / double(y.size() - 1));
    EXPECT_NEAR(20 * std::log10(outRms / inRms), 0.0, 1.0);
}

TEST(ResampleProcess, InFramesAndOutFramesAreIgnored) {
    RESAMPLE_ATTR_S attr = {16000, 1, 320, 48000, 1, 960};
    RESAMPLE_HANDLER* a = RESAMPLE_CreateHandler(&attr);
    RESAMPLE_HANDLER* b = RESAMPLE_CreateHandler(&attr);
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    std::vector<uint8_t> in = MakePattern(1, 320, 3);
    std::vector<uint8_t> outA(960 * 2);
    std::vector<uint8_t> outB(960 * 2);
    for (int call = 0; call < 3; call++) {
        int na = RESAMPLE_Process(a, in.data(), 10, outA.data(), 0);
        int nb = RESAMPLE_Process(b, in.data(), 320, outB.data(), 962);
        EXPECT_EQ(na, nb);
        EXPECT_EQ(outA, outB);
    }
    // The last frames of the output come from the end of the 320-frame period.
    std::vector<int16_t> inSamples = ToSamples(in);
    std::vector<int16_t> outSamples = ToSamples(outA);
    EXPECT_EQ(outSamples[959], inSamples[318]);
    RESAMPLE_Destroy(&a);
    RESAMPLE_Destroy(&b);
}

TEST(ResampleProcess, WritesExactlyOneOutputPeriod) {
    RESAMPLE_ATTR_S attr = {32000, 2, 512, 48000, 2, 768};
    RESAMPLE_HANDLER* handler = RESAMPLE_CreateHandler(&attr);
    ASSERT_NE(handler, nullptr);
    std::vector<uint8_t> in = MakePattern(2, 512, 9);
    const size_t periodBytes = 768 * 2 * 2;
    std::vector<uint8_t> out(periodBytes + 64, 0xA5);
    int n = RESAMPLE_Process(handler, in.data(), 512, out.data(), 768);
    EXPECT_GT(n, 0);
    EXPECT_LE(n, 768);
    for (size_t i = periodBytes; i < out.size(); i++) {
        ASSERT_EQ(out[i], 0xA5) << "byte " << i << " past the period";
    }
    // The generated frames carry input samples, channel for channel.
    std::vector<int16_t> inSamples = ToSamples(in);
    std::vector<int16_t> outSamples = ToSamples(std::vector<uint8_t>(out.begin(), out.begin() + periodBytes));
    EXPECT_EQ(outSamples[2 * (n - 1)], inSamples[2 * 510]);
    EXPECT_EQ(outSamples[2 * (n - 1) + 1], inSamples[2 * 510 + 1]);
    RESAMPLE_Destroy(&handler);
}

TEST(ResampleProcess, ZeroPeriodsProduceNothing) {
    RESAMPLE_ATTR_S attr = {16000, 1, 0, 48000, 1, 0};
    RESAMPLE_HANDLER* handler = RESAMPLE_CreateHandler(&attr);
    ASSERT_NE(handler, nullptr);
    uint8_t in[4] = {1, 2, 3, 4};
    uint8_t out[4] = {9, 9, 9, 9};
    EXPECT_EQ(RESAMPLE_Process(handler, in, 0, out, 0), 0);
    EXPECT_EQ(out[0], 9);
    EXPECT_EQ(out[3], 9);
    RESAMPLE_Destroy(&handler);
}

TEST(ResampleProcess, ConverterErrorPrintsAndReturnsZero) {
    RESAMPLE_ATTR_S attr = {100, 1, 1, 48000, 1, 480};
    StdoutCapture capture;
    RESAMPLE_HANDLER* handler = RESAMPLE_CreateHandler(&attr);
    capture.Stop();
    ASSERT_NE(handler, nullptr);
    std::vector<uint8_t> in = {0x34, 0x12};
    std::vector<uint8_t> out(480 * 2, 0x5A);
    StdoutCapture processCapture;
    EXPECT_EQ(RESAMPLE_Process(handler, in.data(), 1, out.data(), 480), 0);
    EXPECT_EQ(PrintedMessages(processCapture.Stop(), "RESAMPLE_Process"),
              Strings{"src_process err=" + BadRatioText()});
    EXPECT_EQ(out, std::vector<uint8_t>(480 * 2, 0x5A));
    RESAMPLE_Destroy(&handler);
}

TEST(ResampleProcess, AllocatesNothing) {
    RESAMPLE_ATTR_S attr = {16000, 2, 320, 48000, 2, 960};
    RESAMPLE_HANDLER* handler = RESAMPLE_CreateHandler(&attr);
    ASSERT_NE(handler, nullptr);
    std::vector<uint8_t> in = MakePattern(2, 320, 1);
    std::vector<uint8_t> out(960 * 2 * 2);
    audiomw_test::AllocCounterArm();
    int total = 0;
    for (int i = 0; i < 20; i++) {
        total += RESAMPLE_Process(handler, in.data(), 320, out.data(), 960);
    }
    audiomw_test::AllocCounterDisarm();
    EXPECT_EQ(0, audiomw_test::AllocCount())
        << "first allocation of " << audiomw_test::AllocFirstSize() << " bytes";
    EXPECT_GT(total, 0);
    RESAMPLE_Destroy(&handler);
}

TEST(ResampleArgs, NullHandlerIsMinusOneSilently) {
    uint8_t buf[4] = {0};
    StdoutCapture capture;
    EXPECT_EQ(RESAMPLE_Process(nullptr, buf, 1, buf, 1), -1);
    EXPECT_EQ(capture.Stop(), "");
}

TEST(ResampleArgs, NullBuffersRefused) {
    RESAMPLE_ATTR_S attr = {16000, 1, 320, 48000, 1, 960};
    RESAMPLE_HANDLER* handler = RESAMPLE_CreateHandler(&attr);
    ASSERT_NE(handler, nullptr);
    std::vector<uint8_t> buf(960 * 2);
    StdoutCapture capture;
    EXPECT_EQ(RESAMPLE_Process(handler, nullptr, 320, buf.data(), 960), -1);
    EXPECT_EQ(RESAMPLE_Process(handler, buf.data(), 320, nullptr, 960), -1);
    EXPECT_EQ(PrintedMessages(capture.Stop(), "RESAMPLE_Process"),
              (Strings{"in or out buffer is null!", "in or out buffer is null!"}));
    RESAMPLE_Destroy(&handler);
}

TEST(ResampleArgs, HandlerWithoutConverterOrBuffersRefused) {
    std::vector<uint8_t> buf(960 * 2);
    RESAMPLE_HANDLER empty = {};
    RESAMPLE_HANDLER noBuffers = {};
    noBuffers.stAttr = {16000, 1, 320, 48000, 1, 960};
    int error = 0;
    noBuffers.pState = src_new(SRC_ZERO_ORDER_HOLD, 1, &error);
    ASSERT_NE(noBuffers.pState, nullptr);
    StdoutCapture capture;
    EXPECT_EQ(RESAMPLE_Process(&empty, buf.data(), 320, buf.data(), 960), -1);
    EXPECT_EQ(RESAMPLE_Process(&noBuffers, buf.data(), 320, buf.data(), 960), -1);
    EXPECT_EQ(PrintedMessages(capture.Stop(), "RESAMPLE_Process"),
              (Strings{"handler is not usable!", "handler is not usable!"}));
    src_delete(noBuffers.pState);
}

TEST(ResampleArgs, DestroyNullForms) {
    EXPECT_EQ(RESAMPLE_Destroy(nullptr), 0);
    RESAMPLE_HANDLER* none = nullptr;
    EXPECT_EQ(RESAMPLE_Destroy(&none), 0);
    EXPECT_EQ(none, nullptr);
}

}  // namespace
