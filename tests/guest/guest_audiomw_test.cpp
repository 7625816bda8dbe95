// audiomw on the kernel's loopback card, inside the guest: an AO plays into card 0
// device 0 and its runs are read back from device 1; an ALSA AI captures from device 1
// what device 0 plays. The loopback's other end, opened and prepared first, tells the card
// which rate it offers, so that the devices' own conversions run on a real card.
#include <gtest/gtest.h>

#include "audio_ai.h"
#include "audio_ao.h"
#include "loopback.h"
#include "test_support.h"

namespace guest_test {
namespace {

using audiomw_test::Logged;

// A piecewise constant stereo signal: run k of 10 ms holds RunLevel(k, c) on channel c,
// so that a rate conversion keeps the levels and scales the runs.
int16_t RunLevel(unsigned int run, unsigned int channel) {
    return static_cast<int16_t>(1000 + 37 * run + 5000 * channel);
}

class Audiomw : public audiomw_test::AudioTest {
  protected:
    // Close before disabling: disabling an open AI initialises and reopens it, and
    // deleting it releases nothing, so its capture end would hold the loopback's rate.
    void TearDown() override {
        AUDIO_AO_SetEnable(0, ZN_FALSE);
        AUDIO_AO_Destroy(0);
        AUDIO_AI_Close(0);
        AUDIO_AI_SetEnable(0, ZN_FALSE);
        EXPECT_EQ(0, AUDIO_AI_isInitd(0)) << "the AI still holds its capture end";
        AUDIO_AI_Destroy(0);
    }
};

// Every run arrives with its levels at the receiver's rate (a frame of slack at each
// edge for the conversion's phase), as played by an AO or captured by an AI.
TEST_F(Audiomw, AoAndAiMoveEveryRunThroughTheCard) {
    const struct {
        bool ao;                // an AO plays (else an AI captures)
        unsigned int cardRate;  // what the other end, opened first, leaves the card
        int rate;               // what the device is asked for
        Logged opened;
    } rows[] = {
        {true, 16000, 16000, {6, "init", "AO[0] Open Alsa 0:0 rate:16000 chn:2 frame:1600 format:0"}},
        {true, 48000, 16000, {6, "init", "AO[0] Open Alsa 0:0 rate:48000 chn:2 frame:4800 format:0"}},
        {false, 16000, 16000, {6, "init", "AI[0] Open Alsa 0:1 rate:16000 chn:2 frame:320 format:0"}},
        {false, 48000, 16000, {6, "init", "AI[0] Open Alsa 0:1 rate:48000 chn:2 frame:960 format:0"}},
    };
    const unsigned int runs = 40, frameBytes = 4;
    for (const auto& c : rows) {
        SCOPED_TRACE(c.opened.message);
        const unsigned int cardPeriod = c.cardRate / 25, frames = c.rate / (c.ao ? 10 : 50);
        Pcm other(c.ao ? kCapture : kPlayback, c.ao ? PCM_IN : PCM_OUT, Config(2, c.cardRate, cardPeriod, 16),
                  true);
        ASSERT_TRUE(pcm_is_ready(other.get())) << other.Error();
        if (c.ao) {
            AO_ATTR_S attr{};
            attr.stAlsaDev = {static_cast<int>(kCard), static_cast<int>(kPlayback), 0};
            attr.eSampleRate = static_cast<tagAI_SAMPLE_RATE_E>(c.rate);
            attr.s32Channel = 2;
            attr.s32FrameSize = static_cast<int>(frames);
            ASSERT_EQ(0, AUDIO_AO_Create(0, &attr) + AUDIO_AO_SetEnable(0, ZN_TRUE));
            ASSERT_TRUE(AUDIO_AO_isReady(0)) << log.Dump();
        } else {
            AI_ATTR_S attr{};
            attr.eType = AI_DEV_TYPE_ALSA;
            attr.stAlsaDev = {static_cast<int>(kCard), static_cast<int>(kCapture), 0};
            attr.bEnable = ZN_TRUE;
            attr.eSampleRate = static_cast<tagAI_SAMPLE_RATE_E>(c.rate);
            attr.s32Channel = 2;
            attr.s32FrameLen = static_cast<int>(frames);
            ASSERT_EQ(0, AUDIO_AI_Create(0, &attr)) << log.Dump();
            ASSERT_EQ(0, AUDIO_AI_Open(0)) << log.Dump();
        }
        EXPECT_TRUE(log.Has(c.opened)) << log.Dump();

        const unsigned int sendRate = c.ao ? c.rate : c.cardRate, recvRate = c.ao ? c.cardRate : c.rate;
        const unsigned int sendPeriod = c.ao ? frames : cardPeriod, runFrames = recvRate / 100;
        const size_t want = static_cast<size_t>(runs) * runFrames;
        Capture::Reader read = PcmReader(other.get());
        if (!c.ao) {
            read = [&](uint8_t* data, unsigned int) {
                unsigned int got = 0;
                unsigned long long stamp = 0;
                int rc = AUDIO_AI_Read(0, data, frames * frameBytes, got, stamp, 0);
                return rc == 0 ? static_cast<int>(got / frameBytes) : -1;
            };
        }
        Capture reader(read, c.ao ? cardPeriod : frames, frameBytes, want + recvRate * 3, want);
        ASSERT_TRUE(audiomw_test::WaitFor([&] { return reader.periods > 0; }));
        std::vector<int16_t> samples;
        for (unsigned int i = 0; i < runs * sendRate / 100 * 2; ++i) {
            samples.push_back(RunLevel(i / 2 / (sendRate / 100), i % 2));
        }
        const Bytes pattern = audiomw_test::ToBytes(samples), silence(sendPeriod * frameBytes, 0);
        for (size_t at = 0; at < 200 * silence.size() && !reader.done; at += silence.size()) {
            uint8_t* data = const_cast<uint8_t*>(at < pattern.size() ? &pattern[at] : silence.data());
            ASSERT_EQ(c.ao ? 0 : static_cast<int>(sendPeriod),
                      c.ao ? AUDIO_AO_Write(0, data, sendPeriod * frameBytes)
                           : pcm_writei(other.get(), data, sendPeriod))
                << other.Error() << log.Dump();
        }
        reader.Join();
        EXPECT_EQ(0, reader.error + (c.ao ? AUDIO_AO_GetUnderRunState(0) : 0)) << log.Dump();
        samples = audiomw_test::ToSamples(FromFirstSound(reader.data, frameBytes, want));
        ASSERT_EQ(want * 2, samples.size());
        unsigned int run = 0;
        for (size_t f = 0, runStart = 0; f < want && run < runs; ++f) {
            if (samples[f * 2] == RunLevel(run, 0)) {
                EXPECT_EQ(RunLevel(run, 1), samples[f * 2 + 1]) << "frame " << f;
                continue;
            }
            ASSERT_EQ(RunLevel(run + 1, 0), samples[f * 2]) << "frame " << f << " in run " << run;
            EXPECT_TRUE(run == 0 || (f - runStart + 1 >= runFrames && f - runStart <= runFrames + 1))
                << "run " << run << " of " << f - runStart << " frames";
            ++run;
            runStart = f;
        }
        EXPECT_GE(run, runs - 2);
        TearDown();
    }
}

}  // namespace
}  // namespace guest_test
