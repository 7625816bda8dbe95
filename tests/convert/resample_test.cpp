// Resampler: creation checks and their printed lines, zero-order-hold output across
// periods without allocation, refusals, and handlers on several threads at once.
#include <gtest/gtest.h>
#include <samplerate.h>

#include <cstring>
#include <regex>
#include <thread>

#include "alloc/alloc_counter.h"
#include "audio_rematrix.h"
#include "audio_resample.h"
#include "test_support.h"

namespace {

using namespace audiomw_test;
using Bytes = std::vector<uint8_t>;

// What was printed, with the source line taken out of each "[function:line] " prefix.
std::string Printed(StdoutCapture& capture) {
    return std::regex_replace(capture.Stop(), std::regex(":[0-9]+\\] "), "] ");
}

// libsamplerate's own text for a ratio outside its range.
std::string BadRatioText() {
    int error = 0;
    SRC_STATE* state = src_new(SRC_ZERO_ORDER_HOLD, 1, &error);
    std::string text = src_strerror(src_set_ratio(state, 1000.0));
    src_delete(state);
    return text;
}

// A refusal comes before anything is allocated.
TEST(ResampleCreate, CreatesOrRefusesWithItsLine) {
    const std::string ratio = "src_set_ratio err=" + BadRatioText(),
                      chn = "channel of input and output must be same!",
                      period = "period_size should match convert rate!";
    const struct {
        RESAMPLE_ATTR_S attr;
        bool created;
        std::string printed;
    } rows[] = {
        // clang-format off
        {{16000, 1, 320, 48000, 1, 960}, true, ""},
        {{16000, 1, 0, 48000, 1, 0}, true, ""},
        {{48000, 1, 150000, 16000, 1, 50000}, true, ""},  // the period product needs more than int
        {{32000, 1, 101, 48000, 1, 151}, false, period},
        {{16000, 1, 320, 0, 1, 960}, false, period},
        {{16000, 2, 320, 48000, 1, 960}, false, chn},
        {{32000, 2, 101, 48000, 1, 151}, false, chn},  // channels are checked first
        {{16000, 0, 320, 48000, 0, 960}, false, "channel 0 or period_size 320=>960 out of range!"},
        {{16000, 1, -320, 48000, 1, -960}, false, "channel 1 or period_size -320=>-960 out of range!"},
        {{48000, 4, 1 << 29, 48000, 4, 1 << 29}, false, "channel 4 or period_size 536870912=>536870912 out of range!"},
        {{16000, 1, 0, 0, 1, 960}, true, ratio},
        {{100, 1, 1, 48000, 1, 480}, true, ratio},
        // clang-format on
    };
    for (const auto& c : rows) {
        SCOPED_TRACE("row " + std::to_string(&c - rows));
        RESAMPLE_ATTR_S attr = c.attr;
        StdoutCapture capture;
        AllocCounterArm();
        RESAMPLE_HANDLER* handler = RESAMPLE_CreateHandler(&attr);
        AllocCounterDisarm();
        EXPECT_EQ(c.printed.empty() ? "" : "[RESAMPLE_CreateHandler] " + c.printed + "\n", Printed(capture));
        ASSERT_EQ(c.created, handler != nullptr);
        if (handler == nullptr) {
            EXPECT_EQ(0, AllocCount()) << "first allocation of " << AllocFirstSize() << " bytes";
            continue;
        }
        EXPECT_EQ(0, std::memcmp(&c.attr, &handler->stAttr, sizeof(attr)));
        EXPECT_EQ(0, handler->stData.end_of_input);  // consecutive periods are one stream
        EXPECT_EQ(static_cast<double>(attr.s32OutRate) / attr.s32InRate, handler->stData.src_ratio);
        EXPECT_EQ(0, RESAMPLE_Destroy(&handler));
        EXPECT_EQ(nullptr, handler);
    }
}

// Six periods through one handler, each call told 0 frames in and out (the counts are
// ignored) and given exactly one output period (ASan checks it is not overrun): output
// frame k is input frame (k * num - o) / den for one small hold offset o, across the
// seams, and nothing is allocated.
TEST(ResampleProcess, HoldsEachSampleAcrossPeriodsWithoutAllocating) {
    const struct {
        RESAMPLE_ATTR_S attr;
        size_t num, den;
    } rows[] = {{{16000, 2, 320, 48000, 2, 960}, 1, 3}, {{48000, 1, 960, 16000, 1, 320}, 3, 1}};
    for (const auto& c : rows) {
        SCOPED_TRACE(c.attr.s32InRate);
        const int periods = 6, chn = c.attr.s32InChn, outPeriod = c.attr.s32OutPeriodSize;
        const size_t inSamples = size_t(c.attr.s32InPeriodSize) * chn;
        RESAMPLE_ATTR_S attr = c.attr;
        RESAMPLE_HANDLER* handler = RESAMPLE_CreateHandler(&attr);
        ASSERT_NE(nullptr, handler);
        Bytes inBytes = MakePattern(chn, c.attr.s32InPeriodSize * periods, 7), outBytes(outPeriod * chn * 2);
        std::vector<int16_t> in = ToSamples(inBytes), out;
        for (int p = 0; p < periods; p++) {
            AllocCounterArm();
            int n = RESAMPLE_Process(handler, &inBytes[p * inSamples * 2], 0, outBytes.data(), 0);
            AllocCounterDisarm();
            ASSERT_EQ(0, AllocCount());
            ASSERT_GT(n, 0);
            ASSERT_LE(n, outPeriod);
            std::vector<int16_t> samples = ToSamples(outBytes);
            out.insert(out.end(), samples.begin(), samples.begin() + n * chn);
        }
        RESAMPLE_Destroy(&handler);
        // Periods join without a seam: the held input runs to the last period's end.
        EXPECT_GE(out.size(), size_t(outPeriod * periods - 3) * chn);
        int offset = -1;
        for (size_t o = 0; o <= 3 && offset < 0; o++) {
            bool fits = true;
            for (size_t k = (o + c.num - 1) / c.num; fits && (k + 1) * chn <= out.size(); k++) {
                const size_t src = (k * c.num - o) / c.den;
                fits = (src + 1) * chn <= in.size() &&
                       std::equal(&out[k * chn], &out[k * chn] + chn, &in[src * chn]);
            }
            offset = fits ? int(o) : -1;
        }
        EXPECT_GE(offset, 0) << "no hold offset in 0..3 fits the output";
    }
}

// Refused arguments return -1, a converter error 0; neither writes; zero periods write nothing.
TEST(ResampleArgs, RefusalsAndConverterErrorsPrintAndWriteNothing) {
    Bytes buf(960 * 2, 9);
    RESAMPLE_ATTR_S attr = {16000, 1, 320, 48000, 1, 960}, none = {16000, 1, 0, 48000, 1, 0},
                    bad = {100, 1, 1, 48000, 1, 480};
    RESAMPLE_HANDLER *handler = RESAMPLE_CreateHandler(&attr), *empty = RESAMPLE_CreateHandler(&none);
    RESAMPLE_HANDLER* badRatio = RESAMPLE_CreateHandler(&bad);  // prints its ratio error
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
    EXPECT_EQ(0, RESAMPLE_Process(empty, buf.data(), 0, buf.data(), 0));
    EXPECT_EQ(0, RESAMPLE_Process(badRatio, buf.data(), 1, buf.data(), 480));
    EXPECT_EQ(Bytes(960 * 2, 9), buf);
    EXPECT_EQ(
        "[RESAMPLE_CreateHandler] attr is null!\n[RESAMPLE_Process] in or out buffer is null!\n"
        "[RESAMPLE_Process] in or out buffer is null!\n[RESAMPLE_Process] handler is not usable!\n"
        "[RESAMPLE_Process] handler is not usable!\n[RESAMPLE_Process] src_process err=" +
            BadRatioText() + "\n",
        Printed(capture));
    src_delete(noBuffers.pState);
    for (RESAMPLE_HANDLER** h : {&handler, &empty, &badRatio, &empty}) {
        EXPECT_EQ(0, RESAMPLE_Destroy(h));
        EXPECT_EQ(nullptr, *h);
    }
    EXPECT_EQ(0, RESAMPLE_Destroy(nullptr));
}

// A capture chain (16000 -> 48000 Hz stereo, then 2 -> 4 channels) keeps all its state in
// its handlers: four threads at once give the bytes one thread alone gives, and
// ThreadSanitizer sees no race.
Bytes RunChain(uint32_t seed) {
    RESAMPLE_ATTR_S resampleAttr = {16000, 2, 320, 48000, 2, 960};
    REMATRIX_ATTR_S rematrixAttr = {2, 4};
    RESAMPLE_HANDLER* resample = RESAMPLE_CreateHandler(&resampleAttr);
    REMATRIX_HANDLER* rematrix = REMATRIX_CreateHandler(&rematrixAttr);
    Bytes mid(960 * 2 * 2), out(960 * 4 * 2), all;
    for (uint32_t p = 0; p < 60 && resample != nullptr && rematrix != nullptr; p++) {
        Bytes in = MakePattern(2, 320, seed, p * 320);
        RESAMPLE_Process(resample, in.data(), 320, mid.data(), 960);
        REMATRIX_Process(rematrix, mid.data(), 960, out.data(), 960);
        all.insert(all.end(), out.begin(), out.end());
    }
    RESAMPLE_Destroy(&resample);
    REMATRIX_Destroy(&rematrix);
    return all;
}

TEST(ConvertThreads, IndependentHandlersGiveTheSameBytes) {
    std::vector<Bytes> parallel(4);
    std::vector<std::thread> workers;
    for (size_t t = 0; t < parallel.size(); t++) {
        workers.emplace_back([&parallel, t] { parallel[t] = RunChain(100 + t); });
    }
    for (std::thread& w : workers) {
        w.join();
    }
    for (size_t t = 0; t < parallel.size(); t++) {
        EXPECT_EQ(60u * 960 * 4 * 2, parallel[t].size());
        EXPECT_EQ(RunChain(100 + t), parallel[t]) << "thread " << t;
    }
}

}  // namespace
