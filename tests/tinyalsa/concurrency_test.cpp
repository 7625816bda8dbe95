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

// Sources set meanwhile are for the next opening only.
TEST_F(ConcurrencyTest, ReaderKeepsItsPatternWhileSettingsChange) {
    ASSERT_EQ(0, AddPcm(Desc(1, 0, VCARD_CAPTURE, 2, 2, 16000, 16000)));
    ASSERT_EQ(0, vcard_set_source_pattern(1, 0));
    pcm* handle = Open(1, 0, PCM_IN, Config(2, 16000, kPeriod));
    ASSERT_EQ(1, pcm_is_ready(handle)) << pcm_get_error(handle);
    std::atomic<bool> done{false};
    std::vector<uint8_t> received;
    std::thread reader([&] {
        for (uint32_t period = 0; period < kPeriods; ++period) {
            std::vector<uint8_t> bytes = Read(handle, kPeriod);
            received.insert(received.end(), bytes.begin(), bytes.end());
        }
        done = true;
    });
    const vcard_tone tone = {440.0, 1000.0};
    while (!done) {
        EXPECT_EQ(0, vcard_set_source_sine(1, 0, &tone, 1));
        EXPECT_EQ(0, vcard_set_source_silence(1, 0));
        Counters(1, 0, VCARD_CAPTURE);
    }
    reader.join();
    std::vector<int16_t> expected;
    for (uint32_t frame = 0; frame < kPeriod * kPeriods; ++frame) {
        expected.insert(expected.end(), {vcard_pattern_sample(0, frame), vcard_pattern_sample(1, frame)});
    }
    EXPECT_EQ(Le16(expected), received);
    pcm_close(handle);
}

TEST_F(ConcurrencyTest, CardsComeAndGoWhileAnotherCardOpensAndWrites) {
    ASSERT_EQ(0, AddPcm(Desc(2, 0, VCARD_PLAYBACK, 1, 2, 8000, 48000)));
    std::atomic<bool> done{false};
    std::thread device([&] {
        for (int i = 0; i < 100; ++i) {
            PcmHandle handle(2, 0, PCM_OUT, Config(1, 16000, kPeriod));
            Write(handle.get(), std::vector<uint8_t>(kPeriod * 2));
        }
        done = true;
    });
    for (unsigned int round = 0; !done; ++round) {
        EXPECT_EQ(0, AddPcm(Desc(5, round % 4, VCARD_CAPTURE, 1, 2, 8000, 48000)));
        pcm_params* params = pcm_params_get(5, round % 4, PCM_IN);
        EXPECT_NE(nullptr, params);
        pcm_params_free(params);
        if (round % 8 == 7) {
            EXPECT_EQ(0, vcard_remove_card(5));
        }
    }
    device.join();
    vcard_counters counters = Counters(2, 0, VCARD_PLAYBACK);
    EXPECT_EQ(100u, counters.opens);
    EXPECT_EQ(100u, counters.closes);
    EXPECT_EQ(100u, counters.writes);
}

}  // namespace
}  // namespace tinyalsa_test
