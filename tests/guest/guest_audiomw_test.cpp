// audiomw on the kernel's loopback card, inside the guest: an AO plays into card 0
// device 0 and the bytes are read back from device 1; an ALSA AI captures from
// device 1 what device 0 plays. The loopback's other end, opened first, tells the
// card which rate and channels it offers, so the devices' own conversions run.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "audio_ai.h"
#include "audio_ao.h"
#include "audio_rematrix.h"
#include "audio_resample.h"
#include "loopback.h"
#include "test_support.h"

namespace guest_test {
namespace {

using audiomw_test::AudioTest;
using audiomw_test::Logged;
using audiomw_test::WaitFor;

// The loopback's other end, opened and prepared first, constrains the card.
pcm_config OtherEnd(unsigned int rate, unsigned int channels) {
    return Config(channels, rate, rate / 25, 16);
}

// What the AO sends the card for `input`, period by period, through the same
// converters it uses.
Bytes ConvertLikeTheAo(const Bytes& input, int rate, int channels, int frames, int cardRate,
                       int cardChannels) {
    REMATRIX_ATTR_S rematrixAttr{channels, cardChannels};
    REMATRIX_HANDLER* rematrix = channels != cardChannels ? REMATRIX_CreateHandler(&rematrixAttr) : nullptr;
    const int cardFrames = cardRate * frames / rate;
    RESAMPLE_ATTR_S resampleAttr{rate, cardChannels, frames, cardRate, cardChannels, cardFrames};
    RESAMPLE_HANDLER* resample = rate != cardRate ? RESAMPLE_CreateHandler(&resampleAttr) : nullptr;
    const size_t periodBytes = static_cast<size_t>(frames) * channels * 2;
    Bytes mid(static_cast<size_t>(frames + 2) * cardChannels * 2);
    Bytes out;
    for (size_t offset = 0; offset + periodBytes <= input.size(); offset += periodBytes) {
        unsigned char* p = const_cast<unsigned char*>(input.data() + offset);
        int n = frames;
        if (rematrix != nullptr) {
            n = REMATRIX_Process(rematrix, p, n, mid.data(), n + 2);
            p = mid.data();
        }
        Bytes resampled(static_cast<size_t>(cardFrames + 2) * cardChannels * 2);
        if (resample != nullptr) {
            n = RESAMPLE_Process(resample, p, n, resampled.data(), n + 2);
            p = resampled.data();
        }
        out.insert(out.end(), p, p + static_cast<size_t>(n) * cardChannels * 2);
    }
    REMATRIX_Destroy(&rematrix);
    RESAMPLE_Destroy(&resample);
    return out;
}

struct AoCase {
    const char* name;
    unsigned int cardRate;  // what the capture end, opened first, leaves the card
    unsigned int cardChannels;
    int rate;  // what the AO is asked for
    int channels;
    Logged opened;  // the card's rate, channels and period as the AO opened it
};

class AoOnLoopback : public AudioTest, public ::testing::WithParamInterface<AoCase> {
  protected:
    void TearDown() override {
        AUDIO_AO_SetEnable(0, ZN_FALSE);
        AUDIO_AO_Destroy(0);
    }
};

TEST_P(AoOnLoopback, CardReceivesTheConvertedBytes) {
    const AoCase& c = GetParam();
    const int frames = c.rate / 10;  // 100 ms: the AO keeps four periods on the card
    const unsigned int cardFrameBytes = c.cardChannels * 2;
    const unsigned int cardPeriod = c.cardRate / 25;
    Pcm capture(kCapture, PCM_IN, OtherEnd(c.cardRate, c.cardChannels), true);
    ASSERT_TRUE(pcm_is_ready(capture.get())) << capture.Error();

    AO_ATTR_S attr{};
    attr.stAlsaDev = {static_cast<int>(kCard), static_cast<int>(kPlayback), 0};
    attr.eSampleRate = static_cast<tagAI_SAMPLE_RATE_E>(c.rate);
    attr.s32Channel = c.channels;
    attr.s32FrameSize = frames;
    ASSERT_EQ(0, AUDIO_AO_Create(0, &attr));
    ASSERT_EQ(0, AUDIO_AO_SetEnable(0, ZN_TRUE));
    ASSERT_TRUE(AUDIO_AO_isReady(0)) << log.Dump();
    EXPECT_TRUE(log.Has(c.opened)) << c.opened << "\n" << log.Dump();

    const int patternPeriods = 6;
    Bytes input = MakeLoopPattern(static_cast<unsigned int>(c.channels), frames * patternPeriods);
    const Bytes expected = ConvertLikeTheAo(input, c.rate, c.channels, frames, c.cardRate, c.cardChannels);
    const size_t checkedFrames =
        expected.size() / cardFrameBytes - cardPeriod;  // the first output may be silent
    Capture reader(PcmReader(capture.get()), cardPeriod, cardFrameBytes, checkedFrames + c.cardRate * 3,
                   checkedFrames);
    ASSERT_TRUE(WaitFor([&] { return reader.periods > 0; }));

    const size_t periodBytes = static_cast<size_t>(frames) * c.channels * 2;
    Bytes silence(periodBytes, 0);
    int failed = 0;
    for (int period = 0; period < 40 && !reader.done; ++period) {
        uint8_t* data = period < patternPeriods ? &input[period * periodBytes] : silence.data();
        failed += AUDIO_AO_Write(0, data, static_cast<unsigned int>(periodBytes)) != 0 ? 1 : 0;
    }
    reader.Join();

    EXPECT_EQ(0, failed) << log.Dump();
    EXPECT_EQ(0, reader.error);
    EXPECT_EQ(0, AUDIO_AO_GetUnderRunState(0));
    ExpectSameBytes(FromFirstSound(expected, cardFrameBytes, checkedFrames),
                    FromFirstSound(reader.data, cardFrameBytes, checkedFrames));
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Shapes, AoOnLoopback, ::testing::Values(
    AoCase{"AsAsked", 16000, 2, 16000, 2,
           {6, "init", "AO[0] Open Alsa 0:0 rate:16000 chn:2 frame:1600 format:0"}},
    AoCase{"OwnRematrixAndResampling", 48000, 2, 16000, 1,
           {6, "init", "AO[0] Open Alsa 0:0 rate:48000 chn:2 frame:4800 format:0"}}),
    [](const ::testing::TestParamInfo<AoCase>& info) { return info.param.name; });
// clang-format on

// A piecewise constant signal: run k of `runFrames` frames holds RunLevel(k, c) on
// channel c, so that a rate conversion keeps the levels and scales the runs.
int16_t RunLevel(unsigned int run, unsigned int channel) {
    return static_cast<int16_t>(1000 + 37 * run + 5000 * channel);
}

Bytes MakeRuns(unsigned int channels, unsigned int runs, unsigned int runFrames) {
    std::vector<int16_t> samples;
    for (unsigned int i = 0; i < runs * runFrames * channels; ++i) {
        samples.push_back(RunLevel(i / channels / runFrames, i % channels));
    }
    return audiomw_test::ToBytes(samples);
}

struct AiCase {
    const char* name;
    unsigned int cardRate;  // what the playback end, opened first, leaves the card
    int rate;               // what the AI is asked for
    Logged opened;          // the card's rate, channels and period as the AI opened it
};

class AiOnLoopback : public AudioTest, public ::testing::WithParamInterface<AiCase> {
  protected:
    // Close before disabling: disabling an open AI initialises and reopens it, and
    // deleting it releases nothing, so its capture end would stay open and hold the
    // loopback at this case's rate.
    void TearDown() override {
        AUDIO_AI_Close(0);
        AUDIO_AI_SetEnable(0, ZN_FALSE);
        EXPECT_EQ(0, AUDIO_AI_isInitd(0)) << "the AI still holds its capture end";
        AUDIO_AI_Destroy(0);
    }
};

TEST_P(AiOnLoopback, DeliversWhatThePlaybackEndPlays) {
    const AiCase& c = GetParam();
    const unsigned int channels = 2;
    const int frames = c.rate / 50;
    const unsigned int cardPeriod = c.cardRate / 25;
    const unsigned int runFrames = c.cardRate / 100;  // 10 ms runs
    const unsigned int runs = 40;
    Pcm playback(kPlayback, PCM_OUT, OtherEnd(c.cardRate, channels), true);
    ASSERT_TRUE(pcm_is_ready(playback.get())) << playback.Error();

    AI_ATTR_S attr{};
    attr.eType = AI_DEV_TYPE_ALSA;
    attr.stAlsaDev = {static_cast<int>(kCard), static_cast<int>(kCapture), 0};
    attr.bEnable = ZN_TRUE;
    attr.eSampleRate = static_cast<tagAI_SAMPLE_RATE_E>(c.rate);
    attr.s32Channel = static_cast<int>(channels);
    attr.s32FrameLen = frames;
    ASSERT_EQ(0, AUDIO_AI_Create(0, &attr)) << log.Dump();
    ASSERT_TRUE(AUDIO_AI_isInitd(0)) << log.Dump();
    EXPECT_TRUE(log.Has(c.opened)) << c.opened << "\n" << log.Dump();
    ASSERT_EQ(0, AUDIO_AI_Open(0)) << log.Dump();

    const unsigned int outRunFrames = runFrames * static_cast<unsigned int>(c.rate) / c.cardRate;
    const size_t wantFrames = static_cast<size_t>(runs) * outRunFrames;
    auto read = [&](uint8_t* data, unsigned int) {
        unsigned int got = 0;
        unsigned long long stamp = 0;
        int result = AUDIO_AI_Read(0, data, static_cast<unsigned int>(frames) * channels * 2, got, stamp, 0);
        return result == 0 ? static_cast<int>(got / (channels * 2)) : -1;
    };
    Capture reader(read, static_cast<unsigned int>(frames), channels * 2, wantFrames + c.rate * 3,
                   wantFrames);
    ASSERT_TRUE(WaitFor([&] { return reader.periods > 0; }));

    const Bytes pattern = MakeRuns(channels, runs, runFrames);
    const Bytes silence(cardPeriod * channels * 2, 0);
    for (unsigned int period = 0; period < 200 && !reader.done; ++period) {
        size_t offset = static_cast<size_t>(period) * silence.size();
        const uint8_t* data = offset < pattern.size() ? pattern.data() + offset : silence.data();
        ASSERT_EQ(static_cast<int>(cardPeriod), pcm_writei(playback.get(), data, cardPeriod))
            << playback.Error();
    }
    reader.Join();
    EXPECT_EQ(0, reader.error) << log.Dump();

    // Every run arrives with its levels, at the AI's rate (a frame of slack at each
    // edge for the conversion's phase).
    Bytes got = FromFirstSound(reader.data, channels * 2, wantFrames);
    ASSERT_EQ(wantFrames * channels * 2, got.size());
    std::vector<int16_t> samples(got.size() / 2);
    std::memcpy(samples.data(), got.data(), got.size());
    unsigned int run = 0;
    size_t runStart = 0;
    for (size_t f = 0; f < wantFrames && run < runs; ++f) {
        if (samples[f * channels] == RunLevel(run, 0)) {
            EXPECT_EQ(RunLevel(run, 1), samples[f * channels + 1]) << "frame " << f;
            continue;
        }
        ASSERT_EQ(RunLevel(run + 1, 0), samples[f * channels]) << "frame " << f << " in run " << run;
        if (run > 0) {
            EXPECT_NEAR(static_cast<double>(outRunFrames), static_cast<double>(f - runStart), 1.0)
                << "run " << run;
        }
        ++run;
        runStart = f;
    }
    EXPECT_GE(run, runs - 2);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Shapes, AiOnLoopback, ::testing::Values(
    AiCase{"AsAsked", 16000, 16000, {6, "init", "AI[0] Open Alsa 0:1 rate:16000 chn:2 frame:320 format:0"}},
    AiCase{"OwnResampling", 48000, 16000,
           {6, "init", "AI[0] Open Alsa 0:1 rate:48000 chn:2 frame:960 format:0"}}),
    [](const ::testing::TestParamInfo<AiCase>& info) { return info.param.name; });
// clang-format on

}  // namespace
}  // namespace guest_test
