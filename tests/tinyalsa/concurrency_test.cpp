// Device threads transfer while a test thread reconfigures and reads back: every byte
// arrives once and in order, and ThreadSanitizer sees no race.
#include <atomic>
#include <thread>

#include "vcard_fixture.h"

namespace tinyalsa_test {
namespace {

constexpr unsigned int kPeriod = 64;
constexpr uint32_t kPeriods = 300;

using ConcurrencyTest = VcardTest;

// Clock and fault plan change under the writer; the prepare fault leaves writes alone.
TEST_F(ConcurrencyTest, WriterAndMemoryReaderSeeEveryByteOnceInOrder) {
    ASSERT_EQ(0, AddPcm(Desc(2, 0, VCARD_PLAYBACK, 2, 2, 16000, 16000)));
    ASSERT_EQ(0, vcard_set_sink_memory(2, 0, 1 << 20));
    pcm* handle = Open(2, 0, PCM_OUT, Config(2, 16000, kPeriod));
    ASSERT_EQ(1, pcm_is_ready(handle)) << pcm_get_error(handle);
    std::atomic<bool> done{false};
    std::thread writer([&] {
        for (uint32_t period = 0; period < kPeriods; ++period) {
            Write(handle, audiomw_test::MakePattern(2, kPeriod, 5, period * kPeriod));
        }
        done = true;
    });
    std::vector<uint8_t> received, chunk(4096);
    vcard_fault_plan harmless{};
    harmless.prepare = VCARD_PREPARE_FAIL;
    for (int round = 0; !done || round == 0; ++round) {
        long taken = vcard_memory_take(2, 0, chunk.data(), chunk.size());
        EXPECT_GE(taken, 0);
        received.insert(received.end(), chunk.begin(), chunk.begin() + std::max(taken, 0L));
        EXPECT_EQ(0,
                  vcard_set_clock(2, 0, VCARD_PLAYBACK, round % 2 ? VCARD_CLOCK_FRAMES : VCARD_CLOCK_FREE));
        EXPECT_EQ(0, vcard_set_faults(2, 0, VCARD_PLAYBACK, round % 3 ? &harmless : nullptr));
        EXPECT_EQ(0, pcm_get_underruns(handle));
        EXPECT_LE(Counters(2, 0, VCARD_PLAYBACK).writes, kPeriods);
    }
    writer.join();
    for (long taken; (taken = vcard_memory_take(2, 0, chunk.data(), chunk.size())) > 0;) {
        received.insert(received.end(), chunk.begin(), chunk.begin() + taken);
    }
    EXPECT_EQ(audiomw_test::MakePattern(2, kPeriod * kPeriods, 5, 0), received);
    EXPECT_EQ(kPeriods, Counters(2, 0, VCARD_PLAYBACK).writes);
    pcm_close(handle);
}

}  // namespace
}  // namespace tinyalsa_test
