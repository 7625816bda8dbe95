// One thread writes periods to an output while the control thread changes its volume,
// its rate (rebuilding the device with or without a resampler) and its enable flag.
// Every write plays whole or fails cleanly; ThreadSanitizer sees no race and
// AddressSanitizer no write touching a released PCM or buffer.
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "ao_test_util.h"

namespace {

using namespace audiomw_test;

constexpr int kSteps = 40;
constexpr int kWritesPerStep = 40;    // the writer's budget per control step
constexpr int kMinWritesPerStep = 3;  // writes the control thread waits for after each step
constexpr int kFrames = 320;

using AoConcurrencyTest = AoTest;

TEST_F(AoConcurrencyTest, WritesRunAgainstVolumeRateAndEnableChanges) {
    LoadCards("pcm card=0 dir=playback channels=2 rates=48000 sink=memory:16777216");
    ASSERT_TRUE(CreateEnabled(0, AlsaAoAttr(0, 0, 48000, 2, kFrames)));
    std::mutex mutex;
    std::condition_variable cv;
    // Control steps, writes started and finished within the current step, writes in all.
    int step = 0, inStep = 0, ok = 0, failed = 0;
    bool done = false;
    // Each period is filled with its sequence number.
    std::thread writer([&] {
        Bytes bytes(kFrames * 2 * 2);
        for (int16_t seq = 1;; ++seq) {
            int started = 0;
            {
                std::unique_lock<std::mutex> lock(mutex);
                cv.wait(lock, [&] { return done || inStep < kWritesPerStep; });
                if (done) {
                    return;
                }
                started = step;
            }
            bytes = ToBytes(std::vector<int16_t>(kFrames * 2, seq));
            int r = AUDIO_AO_Write(0, bytes.data(), bytes.size());
            EXPECT_TRUE(r == 0 || r == -1) << r;
            std::lock_guard<std::mutex> lock(mutex);
            ++(r == 0 ? ok : failed);
            inStep += started == step;
            cv.notify_all();
        }
    });
    bool progressed = true;
    for (int i = 0; i < kSteps && progressed; ++i) {
        AO_ATTR_S a;
        switch (i % 4) {
            case 0:
                EXPECT_EQ(0, AUDIO_AO_SetVolume(0, i));
                break;
            case 1:
                EXPECT_EQ(0, AUDIO_AO_GetAttr(0, &a));
                a.eSampleRate =
                    a.eSampleRate == AI_SAMPLE_RATE_48000 ? AI_SAMPLE_RATE_16000 : AI_SAMPLE_RATE_48000;
                EXPECT_EQ(0, AUDIO_AO_SetAttr(0, &a));
                break;
            default:
                EXPECT_EQ(0, AUDIO_AO_SetEnable(0, i % 4 == 3 ? ZN_TRUE : ZN_FALSE));
                break;
        }
        std::unique_lock<std::mutex> lock(mutex);
        ++step;
        inStep = 0;
        cv.notify_all();
        progressed = cv.wait_for(lock, std::chrono::seconds(30), [&] { return inStep >= kMinWritesPerStep; });
    }
    {
        std::lock_guard<std::mutex> lock(mutex);
        done = true;
    }
    cv.notify_all();
    writer.join();
    ASSERT_TRUE(progressed) << "the writer stalled";

    // Writes while disabled fail, the others play.
    EXPECT_GE(failed, kSteps / 4 * kMinWritesPerStep);
    EXPECT_GE(ok, kSteps / 4 * 3 * kMinWritesPerStep);
    vcard_counters n = Counters(0, 0);
    EXPECT_EQ(static_cast<unsigned long long>(ok), n.writes);
    EXPECT_EQ(0u, n.memory_dropped);
    EXPECT_EQ(static_cast<unsigned long long>(kSteps / 4 * 2 + 1), n.opens);
    // Periods reach the card whole and in order: sequence numbers never go back (a
    // resampler may open with silence after a rebuild).
    int16_t last = 0;
    size_t backwards = 0;
    for (int16_t s : ToSamples(SinkBytes(0, 0))) {
        if (s != 0) {
            backwards += s < last;
            last = s;
        }
    }
    EXPECT_EQ(0u, backwards);
    EXPECT_LE(static_cast<int>(last), ok + failed);
    EXPECT_EQ(ZN_TRUE, AUDIO_AO_isReady(0));
}

}  // namespace
