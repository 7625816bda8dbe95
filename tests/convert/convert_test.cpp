// Rate and channel conversion: kernels and exported functions against the rule, byte for
// byte and without allocation; refusals with their printed lines; handlers on threads.
#include <gtest/gtest.h>
#include <samplerate.h>

#include <cstring>
#include <functional>
#include <regex>
#include <thread>

#include "alloc/alloc_counter.h"
#include "audio_rematrix.h"
#include "audio_resample.h"
#include "convert/rematrix_kernel.h"
#include "test_support.h"

namespace {

using namespace audiomw_test;
using Bytes = std::vector<uint8_t>;
using Kernel = std::function<void(const unsigned char*, unsigned char*, int, int, int)>;
constexpr size_t kGuard = 40;
constexpr uint8_t kGuardByte = 0xC3;

// What was printed, with the source line taken out of each "[function:line] " prefix.
std::string Printed(StdoutCapture& capture) {
    return std::regex_replace(capture.Stop(), std::regex(":[0-9]+\\] "), "] ");
}

// Output channel c of frame f: input channel c mod inChn when widening, c when narrowing;
// then the untouched guard bytes.
Bytes ByRule(const Bytes& in, int frames, int inChn, int outChn) {
    Bytes out(size_t(frames) * outChn * 2 + kGuard, kGuardByte);
    for (int f = 0; f < frames; f++) {
        for (int c = 0; c < outChn; c++) {
            int src = inChn <= outChn ? c % inChn : c;
            std::memcpy(&out[(size_t(f) * outChn + c) * 2], &in[(size_t(f) * inChn + src) * 2], 2);
        }
    }
    return out;
}

// The kernel's output and the guard after it, input and output at the byte offsets given.
Bytes RunKernel(const Kernel& kernel, const Bytes& in, int frames, int inChn, int outChn, size_t inOff,
                size_t outOff) {
    Bytes inBuf(inOff, 0), outBuf(outOff + size_t(frames) * outChn * 2 + kGuard, kGuardByte);
    inBuf.insert(inBuf.end(), in.begin(), in.end());
    kernel(inBuf.data() + inOff, outBuf.data() + outOff, frames, inChn, outChn);
    return Bytes(outBuf.begin() + outOff, outBuf.end());
}

// The reference, every instruction set this processor runs, and the one the rematrix calls
// (NEON on every arm64 processor, AVX2 on x86-64 processors that have it).
TEST(RematrixKernels, EverySetFollowsTheRule) {
    size_t count = 0;
    const audiomw::RematrixKernelSet* sets = audiomw::RematrixKernelSets(&count);
    ASSERT_GE(count, 1u);
    EXPECT_STREQ("portable", sets[0].pcName);
#if defined(__aarch64__)
    EXPECT_STREQ("neon", sets[count - 1].pcName);
#elif defined(__x86_64__)
    EXPECT_STREQ(__builtin_cpu_supports("avx2") ? "avx2" : "portable", sets[count - 1].pcName);
#endif
    std::vector<std::pair<Kernel, std::string>> kernels{{audiomw::RematrixReference, "reference"},
                                                        {audiomw::RematrixFast, "fast"}};
    for (size_t i = 0; i < count; i++) {
        kernels.emplace_back(sets[i].pfnRematrix, sets[i].pcName);
    }
    for (int inChn = 1; inChn <= 8; inChn++) {
        for (int outChn = 0; outChn <= 8; outChn++) {
            for (int frames : {1, 2, 3, 7, 8, 9, 15, 16, 17, 31, 32, 33, 63, 64, 65, 255, 256, 960}) {
                Bytes in = MakePattern(inChn, frames, uint32_t(frames * 64 + inChn * 8 + outChn));
                Bytes want = ByRule(in, frames, inChn, outChn);
                for (const auto& k : kernels) {
                    for (size_t inOff : {0, 1, 2, 6}) {
                        for (size_t outOff : {0, 1, 3}) {
                            ASSERT_EQ(want, RunKernel(k.first, in, frames, inChn, outChn, inOff, outOff))
                                << k.second << " " << inChn << "=>" << outChn << " frames " << frames
                                << " offsets " << inOff << "/" << outOff;
                        }
                    }
                }
            }
        }
    }
}

// Whole periods into a separate buffer (outFrames is ignored: nothing is written past the
// frames) and in place, where a wrong frame or channel order overwrites input before
// reading it; neither allocates.
TEST(RematrixProcess, FollowsTheRuleInPlaceWithoutAllocating) {
    const int shapes[][2] = {{1, 2}, {2, 4}, {3, 4}, {2, 6}, {4, 5}, {4, 2}, {2, 1}, {6, 1}, {5, 4}, {2, 2}};
    const int frames = 960;
    for (const auto& s : shapes) {
        SCOPED_TRACE(std::to_string(s[0]) + "=>" + std::to_string(s[1]));
        REMATRIX_ATTR_S attr = {s[0], s[1]};
        REMATRIX_HANDLER* handler = REMATRIX_CreateHandler(&attr);
        Bytes in = MakePattern(s[0], frames, 21), want = ByRule(in, frames, s[0], s[1]);
        Bytes out(want.size(), kGuardByte), inPlace = in;
        inPlace.resize(std::max(in.size(), want.size() - kGuard));
        AllocCounterArm();
        ASSERT_EQ(frames, REMATRIX_Process(handler, in.data(), frames, out.data(), 0));
        ASSERT_EQ(frames, REMATRIX_Process(handler, inPlace.data(), frames, inPlace.data(), frames));
        AllocCounterDisarm();
        EXPECT_EQ(0, AllocCount());
        EXPECT_EQ(want, out);
        inPlace.resize(want.size() - kGuard);
        want.resize(want.size() - kGuard);
        EXPECT_EQ(want, inPlace);
        EXPECT_EQ(0, REMATRIX_Destroy(&handler));
        EXPECT_EQ(nullptr, handler);
    }
}

// Any counts are stored; what cannot be mapped is refused at processing, writing nothing.
TEST(RematrixArgs, RefusalsPrintTheirLineAndWriteNothing) {
    const struct {
        int inChn, outChn, frames;
        bool nullIn, nullOut;
        int result;
        const char* printed;
    } rows[] = {
        // clang-format off
        {2, 4, 0, false, false, 0, ""}, {2, 4, -5, false, false, -5, ""}, {2, 4, 0, true, true, 0, ""},
        {2, 4, 4, true, false, -1, "in or out buffer is null!"}, {2, 4, 4, false, true, -1, "in or out buffer is null!"},
        {0, 2, 4, false, false, -1, "cannot map 0 channels to 2!"}, {2, -1, 4, false, false, -1, "cannot map 2 channels to -1!"},
        {0, 0, 4, false, false, 4, ""},
        // clang-format on
    };
    for (const auto& c : rows) {
        SCOPED_TRACE("row " + std::to_string(&c - rows));
        REMATRIX_ATTR_S attr = {c.inChn, c.outChn};
        REMATRIX_HANDLER* handler = REMATRIX_CreateHandler(&attr);
        ASSERT_NE(nullptr, handler);
        EXPECT_EQ(0, std::memcmp(&attr, &handler->stAttr, sizeof(attr)));
        Bytes in(64, 0x11), out(64, 0xEE);
        StdoutCapture capture;
        EXPECT_EQ(c.result, REMATRIX_Process(handler, c.nullIn ? nullptr : in.data(), c.frames,
                                             c.nullOut ? nullptr : out.data(), c.frames));
        EXPECT_EQ(*c.printed ? "[REMATRIX_Process] " + std::string(c.printed) + "\n" : "", Printed(capture));
        EXPECT_EQ(Bytes(64, 0xEE), out);
        REMATRIX_Destroy(&handler);
    }
    Bytes in(16, 0x11), out(16, 0xEE);
    StdoutCapture capture;
    EXPECT_EQ(-1, REMATRIX_Process(nullptr, in.data(), 2, out.data(), 4));
    EXPECT_EQ(Bytes(16, 0xEE), out);
    EXPECT_EQ(nullptr, REMATRIX_CreateHandler(nullptr));
    EXPECT_EQ("[REMATRIX_CreateHandler] attr is null!\n", Printed(capture));
    REMATRIX_HANDLER* none = nullptr;
    EXPECT_EQ(0, REMATRIX_Destroy(&none));
    EXPECT_EQ(0, REMATRIX_Destroy(nullptr));
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
                      chn = "channel of input and output must be same!";
    const std::string period = "period_size should match convert rate!";
    const struct {
        RESAMPLE_ATTR_S attr;
        bool created;
        std::string printed;
    } rows[] = {
        // clang-format off
        {{16000, 1, 320, 48000, 1, 960}, true, ""}, {{16000, 1, 0, 48000, 1, 0}, true, ""},
        {{48000, 1, 150000, 16000, 1, 50000}, true, ""},  // the period product needs more than int
        {{32000, 1, 101, 48000, 1, 151}, false, period}, {{16000, 1, 320, 0, 1, 960}, false, period},
        {{16000, 2, 320, 48000, 1, 960}, false, chn}, {{32000, 2, 101, 48000, 1, 151}, false, chn},  // channels first
        {{16000, 0, 320, 48000, 0, 960}, false, "channel 0 or period_size 320=>960 out of range!"},
        {{16000, 1, -320, 48000, 1, -960}, false, "channel 1 or period_size -320=>-960 out of range!"},
        {{48000, 4, 1 << 29, 48000, 4, 1 << 29}, false, "channel 4 or period_size 536870912=>536870912 out of range!"},
        {{16000, 1, 0, 0, 1, 960}, true, ratio}, {{100, 1, 1, 48000, 1, 480}, true, ratio},
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

// Six periods, each call told 0 frames (the counts are ignored) and given one output period
// (ASan checks it): output frame k is input frame (k * num - o) / den for a small o.
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

// A capture chain (16 -> 48 kHz, 2 -> 4 channels) keeps its state in its handlers: four
// threads at once give the bytes of one thread alone, and ThreadSanitizer sees no race.
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
