// Rematrix kernels: the reference against the mapping rule written out here, and every
// kernel against the reference, byte for byte, over shapes, frame counts that straddle
// the vector widths, and misaligned buffers.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "convert/rematrix_kernel.h"
#include "test_support.h"

namespace {

using audiomw_test::MakePattern;

using Kernel = std::function<void(const unsigned char*, unsigned char*, int, int, int)>;

const int kFrameCounts[] = {1, 2, 3, 7, 8, 9, 15, 16, 17, 31, 32, 33, 63, 64, 65, 255, 256, 960};
const size_t kGuard = 40;
const uint8_t kGuardByte = 0xC3;

// Output channel c of frame f: input channel c mod inChn when widening, c when narrowing.
std::vector<uint8_t> ByRule(const std::vector<uint8_t>& in, int frames, int inChn, int outChn) {
    std::vector<uint8_t> out(size_t(frames) * outChn * 2);
    for (int f = 0; f < frames; f++) {
        for (int c = 0; c < outChn; c++) {
            int src = inChn <= outChn ? c % inChn : c;
            std::memcpy(&out[(size_t(f) * outChn + c) * 2], &in[(size_t(f) * inChn + src) * 2], 2);
        }
    }
    return out;
}

// Runs `kernel` with the input at byte offset inOffset and the output at outOffset, and
// returns the output bytes followed by the guard bytes after them.
std::vector<uint8_t> RunKernel(const Kernel& kernel, const std::vector<uint8_t>& in, int frames, int inChn,
                               int outChn, size_t inOffset, size_t outOffset) {
    std::vector<uint8_t> inBuf(inOffset + in.size());
    std::memcpy(inBuf.data() + inOffset, in.data(), in.size());
    const size_t outBytes = size_t(frames) * outChn * 2;
    std::vector<uint8_t> outBuf(outOffset + outBytes + kGuard, kGuardByte);
    kernel(inBuf.data() + inOffset, outBuf.data() + outOffset, frames, inChn, outChn);
    return std::vector<uint8_t>(outBuf.begin() + outOffset, outBuf.end());
}

std::vector<uint8_t> WithGuard(std::vector<uint8_t> bytes) {
    bytes.insert(bytes.end(), kGuard, kGuardByte);
    return bytes;
}

void ExpectEqualToReference(const Kernel& kernel, const char* name) {
    for (int inChn = 1; inChn <= 8; inChn++) {
        for (int outChn = 0; outChn <= 8; outChn++) {
            for (int frames : kFrameCounts) {
                std::vector<uint8_t> in =
                    MakePattern(inChn, frames, uint32_t(frames * 64 + inChn * 8 + outChn));
                std::vector<uint8_t> expected =
                    RunKernel(audiomw::RematrixReference, in, frames, inChn, outChn, 0, 0);
                ASSERT_EQ(WithGuard(ByRule(in, frames, inChn, outChn)), expected)
                    << "reference " << inChn << "=>" << outChn << " frames " << frames;
                for (size_t inOffset : {0, 1, 2, 6}) {
                    for (size_t outOffset : {0, 1, 3}) {
                        ASSERT_EQ(RunKernel(kernel, in, frames, inChn, outChn, inOffset, outOffset), expected)
                            << name << " " << inChn << "=>" << outChn << " frames " << frames << " offsets "
                            << inOffset << "/" << outOffset;
                    }
                }
            }
        }
    }
}

// Every instruction set's kernel this processor runs (portable, then AVX2 or NEON), and
// the one the rematrix calls.
TEST(RematrixKernels, EverySetEqualsReference) {
    size_t count = 0;
    const audiomw::RematrixKernelSet* sets = audiomw::RematrixKernelSets(&count);
    for (size_t i = 0; i < count; i++) {
        ExpectEqualToReference(sets[i].pfnRematrix, sets[i].pcName);
    }
    ExpectEqualToReference(audiomw::RematrixFast, "fast");
}

// The rematrix runs the processor's own vector heads: NEON on every arm64 processor,
// AVX2 on x86-64 processors that have it.
TEST(RematrixKernels, FastIsThisProcessorsVectorSet) {
    size_t count = 0;
    const audiomw::RematrixKernelSet* sets = audiomw::RematrixKernelSets(&count);
    ASSERT_GE(count, 1u);
    EXPECT_STREQ("portable", sets[0].pcName);
#if defined(__aarch64__)
    EXPECT_STREQ("neon", sets[count - 1].pcName);
#elif defined(__x86_64__)
    EXPECT_STREQ(__builtin_cpu_supports("avx2") ? "avx2" : "portable", sets[count - 1].pcName);
#endif
}

}  // namespace
