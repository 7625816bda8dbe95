// One thread writes periods to an output while the control thread changes its volume,
// its rate (rebuilding the device with or without a resampler) and its enable flag.
// Every write plays whole or fails cleanly; ThreadSanitizer sees no race and
// AddressSanitizer no write touching a released PCM or buffer.
#include <atomic>
#include <thread>

#include "ao_test_util.h"

namespace {

using namespace audiomw_test;

constexpr int kSteps = 40, kFrames = 320;

using AoConcurrencyTest = AoTest;

TEST_F(AoConcurrencyTest, WritesRunAgainstVolumeRateAndEnableChanges) {
    LoadCards("pcm card=0 dir=playback channels=2 rates=48000 sink=memory:16777216");
    ASSERT_TRUE(CreateEnabled(0, AlsaAoAttr(0, 0, 48000, 2, kFrames)));
    // Writes started and finished within the current control step, and in all.
    std::atomic<int> step{0}, inStep{0}, ok{0}, failed{0};
    std::atomic<bool> stop{false};
    std::thread writer([&] {  // each period is filled with its sequence number
        for (int16_t seq = 1; !stop;) {
            const int started = step;
            if (inStep >= 40) {  // a budget per step keeps the sink and the numbers in range
                std::this_thread::yield();
                continue;
            }
            Bytes bytes = ToBytes(std::vector<int16_t>(kFrames * 2, seq++));
            const int r = AUDIO_AO_Write(0, bytes.data(), bytes.size());
            EXPECT_TRUE(r == 0 || r == -1) << r;
            ++(r == 0 ? ok : failed);
            inStep += started == step;
        }
    });
    bool progressed = true;
    for (int i = 0; i < kSteps && progressed; ++i) {
        AO_ATTR_S a;
        if (i % 4 == 0) {
            EXPECT_EQ(0, AUDIO_AO_SetVolume(0, i));
        } else if (i % 4 == 1) {
            EXPECT_EQ(0, AUDIO_AO_GetAttr(0, &a));
            a.eSampleRate =
                a.eSampleRate == AI_SAMPLE_RATE_48000 ? AI_SAMPLE_RATE_16000 : AI_SAMPLE_RATE_48000;
            EXPECT_EQ(0, AUDIO_AO_SetAttr(0, &a));
        } else {
            EXPECT_EQ(0, AUDIO_AO_SetEnable(0, i % 4 == 3 ? ZN_TRUE : ZN_FALSE));
        }
        ++step;
        inStep = 0;
        progressed = WaitFor([&] { return inStep >= 3; }, std::chrono::seconds(30));
    }
    stop = true;
    writer.join();
    ASSERT_TRUE(progressed) << "the writer stalled";
    // Writes while disabled fail, the others play, whole and in order: sequence numbers
    // never go back (a resampler may open with silence after a rebuild).
    EXPECT_GE(failed, kSteps / 4 * 3);
    EXPECT_GE(ok, kSteps / 4 * 3 * 3);
    vcard_counters n = Counters(0, 0);
    EXPECT_EQ(static_cast<unsigned long long>(ok), n.writes);
    EXPECT_EQ(0u, n.memory_dropped);
    EXPECT_EQ(static_cast<unsigned long long>(kSteps / 4 * 2 + 1), n.opens);
    int16_t last = 0;
    size_t backwards = 0;
    for (int16_t s : ToSamples(SinkBytes(0, 0))) {
        backwards += s != 0 && s < last;
        last = s != 0 ? s : last;
    }
    EXPECT_EQ(0u, backwards);
    EXPECT_LE(static_cast<int>(last), ok + failed);
    EXPECT_EQ(ZN_TRUE, AUDIO_AO_isReady(0));
}

}  // namespace
