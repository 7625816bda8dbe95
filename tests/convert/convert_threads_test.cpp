// Converters keep all their state in their handlers: handlers used on different threads
// at once give the same bytes as one thread alone, and ThreadSanitizer sees no race.
#include <gtest/gtest.h>

#include <thread>

#include "audio_rematrix.h"
#include "audio_resample.h"
#include "test_support.h"

namespace {

constexpr int kPeriods = 60;

// A capture chain as a device runs it: resample 16000 -> 48000 Hz stereo, then rematrix
// 2 -> 4 channels. Returns every output byte.
std::vector<uint8_t> RunChain(uint32_t seed) {
    RESAMPLE_ATTR_S resampleAttr = {16000, 2, 320, 48000, 2, 960};
    REMATRIX_ATTR_S rematrixAttr = {2, 4};
    RESAMPLE_HANDLER* resample = RESAMPLE_CreateHandler(&resampleAttr);
    REMATRIX_HANDLER* rematrix = REMATRIX_CreateHandler(&rematrixAttr);
    std::vector<uint8_t> mid(960 * 2 * 2), out(960 * 4 * 2), all;
    for (int p = 0; p < kPeriods && resample != nullptr && rematrix != nullptr; p++) {
        std::vector<uint8_t> in = audiomw_test::MakePattern(2, 320, seed, static_cast<uint32_t>(p) * 320);
        RESAMPLE_Process(resample, in.data(), 320, mid.data(), 960);
        REMATRIX_Process(rematrix, mid.data(), 960, out.data(), 960);
        all.insert(all.end(), out.begin(), out.end());
    }
    RESAMPLE_Destroy(&resample);
    REMATRIX_Destroy(&rematrix);
    return all;
}

TEST(ConvertThreads, IndependentHandlersGiveTheSameBytes) {
    std::vector<std::vector<uint8_t>> parallel(4);
    std::vector<std::thread> workers;
    for (size_t t = 0; t < parallel.size(); t++) {
        workers.emplace_back([&parallel, t] { parallel[t] = RunChain(100 + t); });
    }
    for (std::thread& w : workers) {
        w.join();
    }
    for (size_t t = 0; t < parallel.size(); t++) {
        EXPECT_EQ(static_cast<size_t>(kPeriods) * 960 * 4 * 2, parallel[t].size());
        EXPECT_EQ(RunChain(100 + t), parallel[t]) << "thread " << t;
    }
}

}  // namespace
