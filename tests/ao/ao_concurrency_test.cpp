// One thread writes periods to an output while the control thread changes its volume,
// its rate (which rebuilds the device with or without a resampler) and its enable flag.
// Every write either plays whole or fails cleanly; under ThreadSanitizer the run is
// race-free, under AddressSanitizer no write touches a released PCM or buffer.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "ao_test_util.h"
#include "audio_ao.h"

namespace {

using audiomw_test::AddPlayback;
using audiomw_test::AlsaAoAttr;
using audiomw_test::Counters;
using audiomw_test::PlaybackPcm;
using audiomw_test::SinkBytes;
using audiomw_test::ToBytes;
using audiomw_test::ToSamples;

constexpr int kSteps = 40;
constexpr int kWritesPerStep = 40;    // the writer's budget per control step
constexpr int kMinWritesPerStep = 3;  // writes the control thread waits for after each step
constexpr int kFrames = 320;

class AoConcurrencyTest : public audiomw_test::AoTest {
  protected:
    // The writer: period after period, each filled with its sequence number.
    void Writer() {
        std::vector<int16_t> samples(kFrames * 2);
        int myStep = -1, used = 0;
        for (int16_t seq = 1;; ++seq) {
            {
                std::unique_lock<std::mutex> lock(mutex);
                cv.wait(lock, [&] { return done || step != myStep || used < kWritesPerStep; });
                if (done) {
                    return;
                }
                if (step != myStep) {
                    myStep = step;
                    used = 0;
                }
                ++used;
            }
            std::fill(samples.begin(), samples.end(), seq);
            std::vector<uint8_t> bytes = ToBytes(samples);
            int r = AUDIO_AO_Write(0, bytes.data(), bytes.size());
            (r == 0 ? ok : r == -1 ? failed : other)++;
            {
                std::lock_guard<std::mutex> lock(mutex);
                ++attempts;
            }
            cv.notify_all();
        }
    }

    void ChangeRate() {
        AO_ATTR_S a;
        ASSERT_EQ(0, AUDIO_AO_GetAttr(0, &a));
        a.eSampleRate = a.eSampleRate == AI_SAMPLE_RATE_48000 ? AI_SAMPLE_RATE_16000 : AI_SAMPLE_RATE_48000;
        EXPECT_EQ(0, AUDIO_AO_SetAttr(0, &a));
    }

    // Starts step i and waits (with a deadline) until the writer tried a few writes in it.
    bool NextStep(int i) {
        std::unique_lock<std::mutex> lock(mutex);
        step = i;
        attempts = 0;
        cv.notify_all();
        return cv.wait_for(lock, std::chrono::seconds(30), [&] { return attempts >= kMinWritesPerStep; });
    }

    std::mutex mutex;
    std::condition_variable cv;
    int step = -1;
    int attempts = 0;
    bool done = false;
    std::atomic<int> ok{0}, failed{0}, other{0};
};

TEST_F(AoConcurrencyTest, WritesRunAgainstVolumeRateAndEnableChanges) {
    AddPlayback(PlaybackPcm{0, 0, 2, 2, 48000, 48000}, 16u << 20);
    ASSERT_TRUE(CreateEnabled(0, AlsaAoAttr(0, 0, 48000, 2, kFrames)));
    std::thread writer([this] { Writer(); });
    bool progressed = true;
    for (int i = 0; i < kSteps && progressed; ++i) {
        switch (i % 4) {
            case 0:
                EXPECT_EQ(0, AUDIO_AO_SetVolume(0, i));
                break;
            case 1:
                ChangeRate();
                break;
            case 2:
                EXPECT_EQ(0, AUDIO_AO_SetEnable(0, ZN_FALSE));
                break;
            default:
                EXPECT_EQ(0, AUDIO_AO_SetEnable(0, ZN_TRUE));
                break;
        }
        progressed = NextStep(i);
    }
    {
        std::lock_guard<std::mutex> lock(mutex);
        done = true;
    }
    cv.notify_all();
    writer.join();
    ASSERT_TRUE(progressed) << "the writer stalled";

    EXPECT_EQ(0, other.load());
    // Writes after a disable (three at least per disabled step) fail, the others play.
    EXPECT_GE(failed.load(), kSteps / 4 * kMinWritesPerStep);
    EXPECT_GE(ok.load(), kSteps / 4 * 3 * kMinWritesPerStep);
    vcard_counters n = Counters(0, 0);
    EXPECT_EQ(static_cast<unsigned long long>(ok.load()), n.writes);
    EXPECT_EQ(0u, n.memory_dropped);
    EXPECT_EQ(static_cast<unsigned long long>(kSteps / 4 + 1 + kSteps / 4), n.opens);

    // Periods reach the card whole and in order: sequence numbers never go back (the
    // resampler may open with silence after a rebuild).
    std::vector<int16_t> played = ToSamples(SinkBytes(0, 0));
    int16_t last = 0;
    size_t backwards = 0;
    for (int16_t s : played) {
        if (s != 0) {
            backwards += s < last;
            last = s;
        }
    }
    EXPECT_EQ(0u, backwards);
    EXPECT_LE(static_cast<int>(last), ok.load() + failed.load());

    AO_ATTR_S final;
    ASSERT_EQ(0, AUDIO_AO_GetAttr(0, &final));
    EXPECT_EQ(ZN_TRUE, AUDIO_AO_isReady(0));
    EXPECT_EQ(36, final.s32Volume);
    EXPECT_EQ(AI_SAMPLE_RATE_48000, final.eSampleRate);
}

}  // namespace
