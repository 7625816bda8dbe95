// Channel rematrix: every kernel against the mapping rule, byte for byte, over shapes,
// frame counts that straddle the vector widths and misaligned buffers; the exported
// functions in place, without allocation, and their refusals.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <regex>

#include "alloc/alloc_counter.h"
#include "audio_rematrix.h"
#include "convert/rematrix_kernel.h"
#include "test_support.h"

namespace {

using namespace audiomw_test;
using Bytes = std::vector<uint8_t>;
using Kernel = std::function<void(const unsigned char*, unsigned char*, int, int, int)>;
constexpr size_t kGuard = 40;
constexpr uint8_t kGuardByte = 0xC3;

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

// The kernel's output and the guard after it, with the input at byte offset inOff and the
// output at outOff.
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
        {2, 4, 0, false, false, 0, ""},
        {2, 4, -5, false, false, -5, ""},
        {2, 4, 0, true, true, 0, ""},
        {2, 4, 4, true, false, -1, "in or out buffer is null!"},
        {2, 4, 4, false, true, -1, "in or out buffer is null!"},
        {0, 2, 4, false, false, -1, "cannot map 0 channels to 2!"},
        {2, -1, 4, false, false, -1, "cannot map 2 channels to -1!"},
        {0, 0, 4, false, false, 4, ""},
        // clang-format on
    };
    for (const auto& c : rows) {
        SCOPED_TRACE(std::to_string(c.inChn) + "=>" + std::to_string(c.outChn) + ", " +
                     std::to_string(c.frames));
        REMATRIX_ATTR_S attr = {c.inChn, c.outChn};
        REMATRIX_HANDLER* handler = REMATRIX_CreateHandler(&attr);
        ASSERT_NE(nullptr, handler);
        EXPECT_EQ(0, std::memcmp(&attr, &handler->stAttr, sizeof(attr)));
        Bytes in(64, 0x11), out(64, 0xEE);
        StdoutCapture capture;
        EXPECT_EQ(c.result, REMATRIX_Process(handler, c.nullIn ? nullptr : in.data(), c.frames,
                                             c.nullOut ? nullptr : out.data(), c.frames));
        const std::string printed = std::regex_replace(capture.Stop(), std::regex(":[0-9]+\\] "), "] ");
        EXPECT_EQ(*c.printed ? "[REMATRIX_Process] " + std::string(c.printed) + "\n" : "", printed);
        EXPECT_EQ(Bytes(64, 0xEE), out);
        REMATRIX_Destroy(&handler);
    }
    Bytes in(16, 0x11), out(16, 0xEE);
    StdoutCapture capture;
    EXPECT_EQ(-1, REMATRIX_Process(nullptr, in.data(), 2, out.data(), 4));
    EXPECT_EQ(Bytes(16, 0xEE), out);
    EXPECT_EQ(nullptr, REMATRIX_CreateHandler(nullptr));
    EXPECT_EQ("[REMATRIX_CreateHandler] attr is null!\n",
              std::regex_replace(capture.Stop(), std::regex(":[0-9]+\\] "), "] "));
    REMATRIX_HANDLER* none = nullptr;
    EXPECT_EQ(0, REMATRIX_Destroy(&none));
    EXPECT_EQ(0, REMATRIX_Destroy(nullptr));
}

}  // namespace
