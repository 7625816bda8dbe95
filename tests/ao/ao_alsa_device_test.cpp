// The ALSA playback device on virtual cards: channel and rate negotiation, the
// conversion chain with the bytes that reach the card, card 3 device 0, refused
// descriptions, write failures and recovery, and what each change of attributes does.
#include <cstdio>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "ao_test_util.h"
#include "audio_ao.h"

namespace {

using audiomw_test::AddPlayback;
using audiomw_test::AlsaAoAttr;
using audiomw_test::Counters;
using audiomw_test::FailWrites;
using audiomw_test::MakePattern;
using audiomw_test::PlaybackPcm;
using audiomw_test::SinkBytes;
using audiomw_test::ToBytes;
using audiomw_test::ToSamples;
using Bytes = std::vector<uint8_t>;
using Messages = std::vector<std::string>;

// Channels `keep` of each frame of interleaved `channels`-channel samples.
Bytes KeepChannels(const Bytes& in, int channels, const std::vector<int>& keep) {
    std::vector<int16_t> s = ToSamples(in), out;
    for (size_t f = 0; f + channels <= s.size(); f += channels) {
        for (int c : keep) {
            out.push_back(s[f + c]);
        }
    }
    return ToBytes(out);
}

class AoAlsaTest : public audiomw_test::AoTest {
  protected:
    int Write(const Bytes& b) { return AUDIO_AO_Write(0, const_cast<uint8_t*>(b.data()), b.size()); }
    pcm_config LastConfig(unsigned int card = 0, unsigned int device = 0) {
        return Counters(card, device).last_config;
    }
};

// ---- Negotiation and conversion ----------------------------------------------------

TEST_F(AoAlsaTest, FourChannelsOnATwoChannelCardKeepChannelsZeroAndOne) {
    AddPlayback(PlaybackPcm{0, 0, 1, 2});
    ASSERT_TRUE(CreateEnabled(0, AlsaAoAttr(0, 0, 48000, 4, 160)));
    Messages m = log.Messages();
    EXPECT_EQ((Messages{"AO[0] create success", "set AO[0] Enable", "AO[0] enable rematrix 4=>2 \n",
                        "AO[0] open rate 48000 at period_size 160\n",
                        "AO[0] Open Alsa 0:0 rate:48000 chn:2 frame:160 format:0"}),
              m);
    pcm_config c = LastConfig();
    EXPECT_EQ(2u, c.channels);
    EXPECT_EQ(48000u, c.rate);
    EXPECT_EQ(160u, c.period_size);
    EXPECT_EQ(4u, c.period_count);
    EXPECT_EQ(PCM_FORMAT_S16_LE, c.format);
    EXPECT_EQ(0u, c.start_threshold);
    EXPECT_EQ(0u, c.stop_threshold);
    EXPECT_EQ(0u, c.silence_threshold);

    Bytes first = MakePattern(4, 160, 7), second = MakePattern(4, 160, 8, 160);
    EXPECT_EQ(0, Write(first));
    EXPECT_EQ(0, Write(second));
    Bytes expected = KeepChannels(first, 4, {0, 1});
    Bytes tail = KeepChannels(second, 4, {0, 1});
    expected.insert(expected.end(), tail.begin(), tail.end());
    EXPECT_EQ(expected, SinkBytes(0, 0));
    EXPECT_EQ(320u, Counters(0, 0).frames_written);
}

TEST_F(AoAlsaTest, MonoOnACardFromTwoChannelsIsDoubled) {
    AddPlayback(PlaybackPcm{0, 0, 2, 8});
    ASSERT_TRUE(CreateEnabled(0, AlsaAoAttr(0, 0, 16000, 1, 160)));
    EXPECT_TRUE(log.Has(6, "AO[0] enable rematrix 1=>2 \n"));
    EXPECT_EQ(2u, LastConfig().channels);
    Bytes mono = MakePattern(1, 160, 3);
    EXPECT_EQ(0, Write(mono));
    EXPECT_EQ(KeepChannels(mono, 1, {0, 0}), SinkBytes(0, 0));
}

TEST_F(AoAlsaTest, ChannelsInsideTheRangePassUnchanged) {
    AddPlayback(PlaybackPcm{0, 0, 1, 8});
    ASSERT_TRUE(CreateEnabled(0, AlsaAoAttr(0, 0, 32000, 6, 100)));
    EXPECT_TRUE(log.Has(6, "AO[0] open channel 6\n"));
    EXPECT_TRUE(log.Has(6, "AO[0] open rate 32000 at period_size 100\n"));
    EXPECT_EQ(0, log.CountContaining("rematrix"));
    Bytes period = MakePattern(6, 100, 5);
    EXPECT_EQ(0, Write(period));
    EXPECT_EQ(period, SinkBytes(0, 0));
}

TEST_F(AoAlsaTest, CardThreeDeviceZeroOpensFourChannelsAsTwoSlots) {
    PlaybackPcm pcm{3, 0, 1, 8};
    pcm.formats = VCARD_FORMAT_BIT(PCM_FORMAT_S16_LE) | VCARD_FORMAT_BIT(7);
    AddPlayback(pcm);
    ASSERT_TRUE(CreateEnabled(0, AlsaAoAttr(3, 0, 48000, 4, 160)));
    EXPECT_TRUE(log.Has(6, "AO[0] open channel 2\n"));
    EXPECT_TRUE(log.Has(6, "AO[0] Open Alsa 3:0 rate:48000 chn:2 frame:160 format:7"));
    EXPECT_EQ(0, log.CountContaining("rematrix"));
    pcm_config c = LastConfig(3, 0);
    EXPECT_EQ(2u, c.channels);
    EXPECT_EQ(7, static_cast<int>(c.format));
    // 160 frames of four 16-bit channels are 160 frames of two 32-bit slots.
    Bytes period = MakePattern(4, 160, 9);
    EXPECT_EQ(0, Write(period));
    EXPECT_EQ(period, SinkBytes(3, 0));
    EXPECT_EQ(160u, Counters(3, 0).frames_written);
}

TEST_F(AoAlsaTest, OtherDevicesOfCardThreeUseSixteenBits) {
    AddPlayback(PlaybackPcm{3, 1, 1, 8});
    ASSERT_TRUE(CreateEnabled(0, AlsaAoAttr(3, 1, 48000, 4, 160)));
    EXPECT_TRUE(log.Has(6, "AO[0] open channel 4\n"));
    EXPECT_EQ(PCM_FORMAT_S16_LE, LastConfig(3, 1).format);
}

// Card 3 device 0 reads 4 bytes a sample: only four 16-bit channels fill its two slots.
class AoSlotCardRefusalTest
    : public AoAlsaTest,
      public ::testing::WithParamInterface<std::tuple<int, unsigned, unsigned, const char*>> {};

TEST_P(AoSlotCardRefusalTest, RefusesFramesThatDoNotFillTheSlots) {
    const int channels = std::get<0>(GetParam());
    PlaybackPcm pcm{3, 0, std::get<1>(GetParam()), std::get<2>(GetParam())};
    pcm.formats = VCARD_FORMAT_BIT(7);
    AddPlayback(pcm);
    AO_ATTR_S attr = AlsaAoAttr(3, 0, 48000, channels, 160);
    ASSERT_EQ(0, AUDIO_AO_Create(0, &attr));
    EXPECT_EQ(-1, AUDIO_AO_SetEnable(0, ZN_TRUE));
    EXPECT_TRUE(log.Has(3, std::get<3>(GetParam())));
    EXPECT_EQ(ZN_FALSE, AUDIO_AO_isReady(0));
    EXPECT_EQ(0u, Counters(3, 0).opens + Counters(3, 0).failed_opens);
}

INSTANTIATE_TEST_SUITE_P(
    Channels, AoSlotCardRefusalTest,
    ::testing::Values(
        std::make_tuple(2, 1u, 8u, "AO[0] Alsa 3:0 takes 8 bytes a frame, written frames have 4\n"),
        std::make_tuple(1, 1u, 8u, "AO[0] Alsa 3:0 takes 4 bytes a frame, written frames have 2\n"),
        std::make_tuple(3, 1u, 8u, "AO[0] Alsa 3:0 takes 8 bytes a frame, written frames have 6\n"),
        std::make_tuple(6, 1u, 8u, "AO[0] Alsa 3:0 takes 8 bytes a frame, written frames have 12\n"),
        std::make_tuple(4, 1u, 2u, "AO[0] Alsa 3:0 takes 8 bytes a frame, written frames have 4\n")));

TEST_F(AoAlsaTest, SixteenKiloHertzOnAFortyEightKiloHertzCardResamples) {
    AddPlayback(PlaybackPcm{0, 0, 2, 2, 48000, 48000});
    ASSERT_TRUE(CreateEnabled(0, AlsaAoAttr(0, 0, 16000, 2, 320)));
    EXPECT_TRUE(log.Has(6, "AO[0] open channel 2\n"));
    EXPECT_TRUE(
        log.Has(6, "AO[0] enable resample for convert sample rate 16000=>48000, new period_size=960\n"));
    EXPECT_TRUE(log.Has(6, "AO[0] Open Alsa 0:0 rate:48000 chn:2 frame:960 format:0"));
    pcm_config c = LastConfig();
    EXPECT_EQ(48000u, c.rate);
    EXPECT_EQ(960u, c.period_size);
    EXPECT_EQ(4u, c.period_count);

    // A constant signal stays constant through the zero-order hold, three times as long.
    std::vector<int16_t> dc(320 * 2, 1234);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(0, Write(ToBytes(dc)));
    }
    vcard_counters n = Counters(0, 0);
    EXPECT_EQ(3u, n.writes);
    EXPECT_LE(n.frames_written, 3u * 960u);
    EXPECT_GE(n.frames_written, 3u * 960u - 4u);
    std::vector<int16_t> out = ToSamples(SinkBytes(0, 0));
    ASSERT_EQ(n.frames_written * 2, out.size());
    EXPECT_EQ(1234, out.back());
    EXPECT_EQ(1234, out[out.size() / 2]);
}

TEST_F(AoAlsaTest, EightKiloHertzOnACardFrom44100Resamples) {
    AddPlayback(PlaybackPcm{0, 0, 1, 2, 44100, 48000});
    ASSERT_TRUE(CreateEnabled(0, AlsaAoAttr(0, 0, 8000, 2, 160)));
    EXPECT_TRUE(
        log.Has(6, "AO[0] enable resample for convert sample rate 8000=>48000, new period_size=960\n"));
    EXPECT_EQ(960u, LastConfig().period_size);
    EXPECT_EQ(48000u, LastConfig().rate);
    EXPECT_EQ(0, Write(MakePattern(2, 160)));
    EXPECT_EQ(1u, Counters(0, 0).writes);
}

TEST_F(AoAlsaTest, RematrixThenResample) {
    AddPlayback(PlaybackPcm{0, 0, 1, 2, 48000, 48000});
    ASSERT_TRUE(CreateEnabled(0, AlsaAoAttr(0, 0, 16000, 4, 160)));
    EXPECT_EQ(
        log.IndexOf("AO[0] enable rematrix 4=>2 \n") + 1,
        log.IndexOf("AO[0] enable resample for convert sample rate 16000=>48000, new period_size=480\n"));
    std::vector<int16_t> dc(160 * 4, -300);
    EXPECT_EQ(0, Write(ToBytes(dc)));
    EXPECT_EQ(0, Write(ToBytes(dc)));
    std::vector<int16_t> out = ToSamples(SinkBytes(0, 0));
    ASSERT_FALSE(out.empty());
    EXPECT_EQ(-300, out.back());
    EXPECT_EQ(2u, LastConfig().channels);
}

TEST_F(AoAlsaTest, ResamplerRefusingThePeriodFailsTheOpen) {
    AddPlayback(PlaybackPcm{0, 0, 1, 2, 44100, 48000});
    AO_ATTR_S attr = AlsaAoAttr(0, 0, 32000, 2, 101);
    ASSERT_EQ(0, AUDIO_AO_Create(0, &attr));
    audiomw_test::StdoutCapture out;
    EXPECT_EQ(-1, AUDIO_AO_SetEnable(0, ZN_TRUE));
    EXPECT_NE(std::string::npos, out.Stop().find("period_size should match convert rate!\n"));
    EXPECT_TRUE(
        log.Has(6, "AO[0] enable resample for convert sample rate 32000=>48000, new period_size=151\n"));
    EXPECT_EQ(ZN_FALSE, AUDIO_AO_isReady(0));
    EXPECT_EQ(ZN_TRUE, AUDIO_AO_isEnabled(0));
    EXPECT_EQ(0u, Counters(0, 0).opens + Counters(0, 0).failed_opens);
    EXPECT_EQ(0, log.CountContaining("Open Alsa"));
}

// ---- Open failures -------------------------------------------------------------------

TEST_F(AoAlsaTest, AbsentCardFailsTheOpen) {
    AddPlayback(PlaybackPcm{});
    vcard_fault_plan plan;
    std::memset(&plan, 0, sizeof(plan));
    plan.absent = 1;
    ASSERT_EQ(0, vcard_set_faults(0, 0, VCARD_PLAYBACK, &plan));
    AO_ATTR_S attr = AlsaAoAttr(0, 0, 16000, 2, 160);
    ASSERT_EQ(0, AUDIO_AO_Create(2, &attr));
    EXPECT_EQ(-1, AUDIO_AO_SetEnable(2, ZN_TRUE));
    EXPECT_TRUE(log.Has(3, "Alsa device 0:0 not exist for AO[2]."));
    EXPECT_EQ(ZN_FALSE, AUDIO_AO_isReady(2));
}

TEST_F(AoAlsaTest, RefusedPcmOpenIsReportedWithTinyalsasText) {
    AddPlayback(PlaybackPcm{1, 2, 1, 1, 8000, 8000});
    vcard_fault_plan plan;
    std::memset(&plan, 0, sizeof(plan));
    plan.open_error = "device is busy";
    ASSERT_EQ(0, vcard_set_faults(1, 2, VCARD_PLAYBACK, &plan));
    // Stereo 16000 Hz on a mono 8000 Hz card: both converters are made, then released.
    AO_ATTR_S attr = AlsaAoAttr(1, 2, 16000, 2, 160);
    ASSERT_EQ(0, AUDIO_AO_Create(0, &attr));
    EXPECT_EQ(-1, AUDIO_AO_SetEnable(0, ZN_TRUE));
    std::vector<audiomw_test::LogLine> lines = log.Lines();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(3, lines.back().level);
    EXPECT_EQ(0u, audiomw_test::StripPrefix(lines.back().text).find("AO[0] Open Alsa 1:2 failed. "));
    EXPECT_NE(std::string::npos, lines.back().text.find("device is busy"));
    EXPECT_EQ(ZN_FALSE, AUDIO_AO_isReady(0));
    EXPECT_EQ(1u, Counters(1, 2).failed_opens);
    EXPECT_EQ(0, Counters(1, 2).is_open);

    // Once the card accepts, the same output opens.
    ASSERT_EQ(0, vcard_set_faults(1, 2, VCARD_PLAYBACK, nullptr));
    EXPECT_EQ(0, AUDIO_AO_SetEnable(0, ZN_FALSE));
    EXPECT_EQ(0, AUDIO_AO_SetEnable(0, ZN_TRUE));
    EXPECT_EQ(ZN_TRUE, AUDIO_AO_isReady(0));
}

// Negative counts would size buffers and transfers below zero.
class AoInvalidAttrTest : public AoAlsaTest,
                          public ::testing::WithParamInterface<std::tuple<int, int, int>> {};

TEST_P(AoInvalidAttrTest, IsRefusedBeforeTheCardIsAsked) {
    AddPlayback(PlaybackPcm{});
    const int rate = std::get<0>(GetParam()), channels = std::get<1>(GetParam()),
              frames = std::get<2>(GetParam());
    AO_ATTR_S attr = AlsaAoAttr(0, 0, rate, channels, frames);
    ASSERT_EQ(0, AUDIO_AO_Create(0, &attr));
    EXPECT_EQ(-1, AUDIO_AO_SetEnable(0, ZN_TRUE));
    char expected[128];
    std::snprintf(expected, sizeof(expected),
                  "AO[0] invalid attributes: rate %d, channels %d, frame size %d\n", rate, channels, frames);
    EXPECT_TRUE(log.Has(3, expected));
    EXPECT_EQ(0u, Counters(0, 0).opens + Counters(0, 0).failed_opens);
}

INSTANTIATE_TEST_SUITE_P(Records, AoInvalidAttrTest,
                         ::testing::Values(std::make_tuple(16000, -2, 160), std::make_tuple(16000, 2, -160),
                                           std::make_tuple(-48000, 2, 480)));

// ---- Writes --------------------------------------------------------------------------

TEST_F(AoAlsaTest, FailedWritesAreLoggedFiveTimesThenRecoveryOnce) {
    AddPlayback(PlaybackPcm{});
    ASSERT_TRUE(CreateEnabled(0, AlsaAoAttr(0, 0, 16000, 2, 160)));
    FailWrites(0, 0, 2, 6);
    Bytes period = MakePattern(2, 160);
    log.Clear();
    std::vector<int> results;
    for (int i = 0; i < 9; ++i) {
        results.push_back(Write(period));
    }
    EXPECT_EQ((std::vector<int>{0, -1, -1, -1, -1, -1, -1, 0, 0}), results);
    Messages m = log.Messages();
    ASSERT_EQ(6u, m.size());
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(0u, m[i].find("AO[0] write 160 samples failed, ")) << m[i];
        EXPECT_EQ('\n', m[i].back());
        EXPECT_EQ(4, log.Lines()[i].level);
    }
    EXPECT_TRUE(log.Has(6, "AO[0] recovered\n"));
    EXPECT_EQ(5, log.IndexOf("AO[0] recovered\n"));
    EXPECT_EQ(6, AUDIO_AO_GetUnderRunState(0));
    EXPECT_EQ(3u * 640u, SinkBytes(0, 0).size());

    // A new run of failures is logged again.
    FailWrites(0, 0, 1, 1, VCARD_TRANSFER_IO);
    log.Clear();
    EXPECT_EQ(-1, Write(period));
    EXPECT_EQ(0, Write(period));
    ASSERT_EQ(2u, log.Messages().size());
    EXPECT_EQ(0u, log.Messages()[0].find("AO[0] write 160 samples failed, "));
    EXPECT_EQ("AO[0] recovered\n", log.Messages()[1]);
    EXPECT_EQ(6, AUDIO_AO_GetUnderRunState(0));
}

TEST_F(AoAlsaTest, WriteFailureCountsConvertedFrames) {
    AddPlayback(PlaybackPcm{0, 0, 2, 2, 48000, 48000});
    ASSERT_TRUE(CreateEnabled(0, AlsaAoAttr(0, 0, 16000, 2, 320)));
    FailWrites(0, 0, 1, 1);
    log.Clear();
    EXPECT_EQ(-1, Write(Bytes(320 * 4, 0)));
    ASSERT_EQ(1u, log.Messages().size());
    // The frames handed to the card: the resampler's output of the first period.
    EXPECT_EQ(0u, log.Messages()[0].find("AO[0] write 960 samples failed, ")) << log.Messages()[0];
}

TEST_F(AoAlsaTest, ClosedDeviceRefusesWritesAndUnderrunQueries) {
    AddPlayback(PlaybackPcm{});
    AO_ATTR_S attr = AlsaAoAttr(0, 0, 16000, 2, 160);
    ASSERT_EQ(0, AUDIO_AO_Create(0, &attr));
    Bytes period = MakePattern(2, 160);
    log.Clear();
    EXPECT_EQ(-1, Write(period));
    EXPECT_EQ(-1, AUDIO_AO_GetUnderRunState(0));
    ASSERT_EQ(0, AUDIO_AO_SetEnable(0, ZN_TRUE));
    EXPECT_EQ(0, AUDIO_AO_GetUnderRunState(0));
    ASSERT_EQ(0, AUDIO_AO_SetEnable(0, ZN_FALSE));
    log.Clear();
    EXPECT_EQ(-1, Write(period));
    EXPECT_EQ(-1, AUDIO_AO_GetUnderRunState(0));
    EXPECT_TRUE(log.Messages().empty());
    EXPECT_EQ(0u, Counters(0, 0).writes);
}

TEST_F(AoAlsaTest, WithoutConversionAnyWholeFrameCountPasses) {
    AddPlayback(PlaybackPcm{});
    ASSERT_TRUE(CreateEnabled(0, AlsaAoAttr(0, 0, 16000, 2, 160)));
    Bytes shortOne = MakePattern(2, 10, 1), longOne = MakePattern(2, 500, 2);
    shortOne.push_back(0x55);  // a partial frame is not written
    EXPECT_EQ(0, Write(shortOne));
    EXPECT_EQ(0, Write(longOne));
    Bytes expected(shortOne.begin(), shortOne.end() - 1);
    expected.insert(expected.end(), longOne.begin(), longOne.end());
    EXPECT_EQ(expected, SinkBytes(0, 0));
}

// The rematrix buffer holds one period and the resampler reads exactly one.
class AoWriteSizeTest : public AoAlsaTest,
                        public ::testing::WithParamInterface<std::tuple<unsigned, unsigned, int, int, int>> {
};

TEST_P(AoWriteSizeTest, ConvertedWritesMustFitThePeriod) {
    const unsigned chMax = std::get<0>(GetParam()), rateMax = std::get<1>(GetParam());
    const int channels = std::get<2>(GetParam()), frames = std::get<3>(GetParam());
    AddPlayback(PlaybackPcm{0, 0, 1, chMax, 8000, rateMax});
    ASSERT_TRUE(CreateEnabled(0, AlsaAoAttr(0, 0, 16000, channels, 160)));
    log.Clear();
    int result = Write(MakePattern(channels, frames));
    if (std::get<4>(GetParam()) == 0) {
        EXPECT_EQ(0, result);
        EXPECT_TRUE(log.Messages().empty());
        EXPECT_EQ(1u, Counters(0, 0).writes);
    } else {
        EXPECT_EQ(-1, result);
        EXPECT_EQ((Messages{"AO[0] write of " + std::to_string(frames) +
                            " frames refused, a period is 160 frames\n"}),
                  log.Messages());
        EXPECT_EQ(3, log.Lines()[0].level);
        EXPECT_EQ(0u, Counters(0, 0).writes);
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, AoWriteSizeTest,
                         ::testing::Values(
                             // rematrix 4=>2 only: up to one period
                             std::make_tuple(2u, 48000u, 4, 160, 0), std::make_tuple(2u, 48000u, 4, 100, 0),
                             std::make_tuple(2u, 48000u, 4, 161, 1), std::make_tuple(2u, 48000u, 4, 1000, 1),
                             // resample 16000=>8000 only: exactly one period
                             std::make_tuple(2u, 8000u, 2, 160, 0), std::make_tuple(2u, 8000u, 2, 159, 1),
                             std::make_tuple(2u, 8000u, 2, 161, 1),
                             // both
                             std::make_tuple(2u, 8000u, 4, 160, 0), std::make_tuple(2u, 8000u, 4, 80, 1)));

// ---- Changes of attributes -------------------------------------------------------------

struct VerdictCase {
    const char* name;
    void (*change)(AO_ATTR_S&);
    AUDIO_SET_ACTION_E verdict;
};

class AoVerdictTest : public AoAlsaTest, public ::testing::WithParamInterface<VerdictCase> {};

TEST_P(AoVerdictTest, ClassifiesTheChange) {
    AddPlayback(PlaybackPcm{});
    AO_ATTR_S attr = AlsaAoAttr(0, 0, 16000, 2, 160);
    ASSERT_EQ(0, AUDIO_AO_Create(0, &attr));
    AO_ATTR_S next;
    ASSERT_EQ(0, AUDIO_AO_GetAttr(0, &next));
    GetParam().change(next);
    EXPECT_EQ(GetParam().verdict, gs_pAoHandler[0]->calActionOnSetCfg(&next));
}

INSTANTIATE_TEST_SUITE_P(
    Fields, AoVerdictTest,
    ::testing::Values(
        VerdictCase{"Same", [](AO_ATTR_S&) {}, AUDIO_SET_ACTION_E_NONE},
        VerdictCase{"Card", [](AO_ATTR_S& a) { a.stAlsaDev.s32CardId = 1; }, AUDIO_SET_ACTION_E_NEED_DESTROY},
        VerdictCase{"Device", [](AO_ATTR_S& a) { a.stAlsaDev.s32DevId = 1; },
                    AUDIO_SET_ACTION_E_NEED_DESTROY},
        VerdictCase{"Enable", [](AO_ATTR_S& a) { a.bEnable = ZN_TRUE; }, AUDIO_SET_ACTION_E_NEED_DESTROY},
        VerdictCase{"Rate", [](AO_ATTR_S& a) { a.eSampleRate = AI_SAMPLE_RATE_48000; },
                    AUDIO_SET_ACTION_E_NEED_DESTROY},
        VerdictCase{"Channels", [](AO_ATTR_S& a) { a.s32Channel = 1; }, AUDIO_SET_ACTION_E_NEED_DESTROY},
        VerdictCase{"FrameSize", [](AO_ATTR_S& a) { a.s32FrameSize = 320; }, AUDIO_SET_ACTION_E_NEED_DESTROY},
        VerdictCase{"VolumeAndRate",
                    [](AO_ATTR_S& a) {
                        a.s32Volume = 9;
                        a.eSampleRate = AI_SAMPLE_RATE_8000;
                    },
                    AUDIO_SET_ACTION_E_NEED_DESTROY},
        VerdictCase{"Volume", [](AO_ATTR_S& a) { a.s32Volume = 9; }, AUDIO_SET_ACTION_E_HOT_UPDATE},
        VerdictCase{"VolumeAndMute",
                    [](AO_ATTR_S& a) {
                        a.s32Volume = 9;
                        a.bMute = ZN_TRUE;
                    },
                    AUDIO_SET_ACTION_E_HOT_UPDATE},
        VerdictCase{"Type", [](AO_ATTR_S& a) { a.eType = 3; }, AUDIO_SET_ACTION_E_NONE},
        VerdictCase{"HwRate", [](AO_ATTR_S& a) { a.stAlsaDev.u32HwRate = 16000; }, AUDIO_SET_ACTION_E_NONE},
        VerdictCase{"Mute", [](AO_ATTR_S& a) { a.bMute = ZN_TRUE; }, AUDIO_SET_ACTION_E_NONE}),
    [](const ::testing::TestParamInfo<VerdictCase>& info) { return std::string(info.param.name); });

TEST_F(AoAlsaTest, VolumeChangeKeepsThePcmOpenAndStoresTheWholeRecord) {
    AddPlayback(PlaybackPcm{});
    ASSERT_TRUE(CreateEnabled(0, AlsaAoAttr(0, 0, 16000, 2, 160)));
    AO_ATTR_S next;
    ASSERT_EQ(0, AUDIO_AO_GetAttr(0, &next));
    next.s32Volume = -12;
    next.bMute = ZN_TRUE;  // not compared, but stored with the volume
    log.Clear();
    EXPECT_EQ(0, AUDIO_AO_SetAttr(0, &next));
    EXPECT_TRUE(log.Messages().empty());
    AO_ATTR_S got;
    ASSERT_EQ(0, AUDIO_AO_GetAttr(0, &got));
    EXPECT_EQ(0, std::memcmp(&next, &got, sizeof(got)));
    EXPECT_EQ(1u, Counters(0, 0).opens);
    EXPECT_EQ(0u, Counters(0, 0).closes);
    EXPECT_EQ(1, Counters(0, 0).is_open);
}

TEST_F(AoAlsaTest, RateChangeOnAnOpenOutputReopensTheCard) {
    AddPlayback(PlaybackPcm{0, 0, 2, 2, 16000, 16000});
    ASSERT_TRUE(CreateEnabled(0, AlsaAoAttr(0, 0, 16000, 2, 160)));
    FailWrites(0, 0, 1, 1);
    Bytes period = MakePattern(2, 160);
    EXPECT_EQ(-1, Write(period));
    ASSERT_EQ(0, vcard_set_faults(0, 0, VCARD_PLAYBACK, nullptr));
    AO_ATTR_S next;
    ASSERT_EQ(0, AUDIO_AO_GetAttr(0, &next));
    next.eSampleRate = AI_SAMPLE_RATE_48000;
    next.s32FrameSize = 480;
    log.Clear();
    EXPECT_EQ(0, AUDIO_AO_SetAttr(0, &next));
    EXPECT_EQ((Messages{"AO[0] open channel 2\n",
                        "AO[0] enable resample for convert sample rate 48000=>16000, new period_size=160\n",
                        "AO[0] Open Alsa 0:0 rate:16000 chn:2 frame:160 format:0"}),
              log.Messages());
    EXPECT_EQ(2u, Counters(0, 0).opens);
    EXPECT_EQ(1u, Counters(0, 0).closes);
    EXPECT_EQ(ZN_TRUE, AUDIO_AO_isReady(0));
    // The failure count starts over with the new PCM: the next good write is no recovery.
    log.Clear();
    EXPECT_EQ(0, Write(MakePattern(2, 480)));
    EXPECT_TRUE(log.Messages().empty());
}

TEST_F(AoAlsaTest, InitOnAnOpenDeviceReopensWithoutLeaking) {
    AddPlayback(PlaybackPcm{0, 0, 1, 1, 8000, 8000});
    ASSERT_TRUE(CreateEnabled(0, AlsaAoAttr(0, 0, 16000, 2, 160)));
    EXPECT_EQ(0, gs_pAoHandler[0]->init());
    EXPECT_EQ(2u, Counters(0, 0).opens);
    EXPECT_EQ(1u, Counters(0, 0).closes);
    EXPECT_EQ(0, Write(MakePattern(2, 160)));
    EXPECT_EQ(80u, Counters(0, 0).frames_written);
}

TEST_F(AoAlsaTest, DestroyReleasesAndIsRepeatable) {
    AddPlayback(PlaybackPcm{0, 0, 1, 1, 8000, 8000});
    ASSERT_TRUE(CreateEnabled(0, AlsaAoAttr(0, 0, 16000, 2, 160)));
    EXPECT_EQ(0, gs_pAoHandler[0]->destroy());
    EXPECT_EQ(0, gs_pAoHandler[0]->destroy());
    EXPECT_EQ(ZN_FALSE, AUDIO_AO_isReady(0));
    EXPECT_EQ(0, Counters(0, 0).is_open);
    EXPECT_EQ(1u, Counters(0, 0).closes);
    EXPECT_EQ(0, gs_pAoHandler[0]->hotApply());
}

}  // namespace
