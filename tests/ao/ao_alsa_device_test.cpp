// The ALSA playback device on virtual cards: what enabling negotiates and logs, the bytes
// that reach the card through the conversion chain (allocating nothing), refused
// descriptions and writes, write failures and recovery, and the verdicts on changes.
#include <cstdio>

#include "alloc/alloc_counter.h"

#include "ao_test_util.h"

// The board's tinyalsa answers 24 bits for format code 7 (24-bit samples in 32-bit
// slots). The playback device must not size card frames from that answer: with this
// definition in front of the stand-in's, the card 3 cases below fail if it asks.
extern "C" unsigned int pcm_format_to_bits(enum pcm_format format) {
    return format == static_cast<pcm_format>(7) ? 24 : 16;
}

namespace {

using namespace audiomw_test;

// Card channel i of each frame carries channel keep[i] of the `channels`-channel input.
Bytes Map(const Bytes& in, int channels, const std::vector<int>& keep) {
    std::vector<int16_t> s = ToSamples(in), out;
    for (size_t f = 0; f + channels <= s.size(); f += channels) {
        for (int c : keep) {
            out.push_back(s[f + c]);
        }
    }
    return ToBytes(out);
}

struct InitCase {
    const char* name;
    const char* pcm;  // the playback PCM's keys after "pcm dir=playback sink=memory"
    int card, device, rate, channels, frames;
    std::vector<int> keep;  // as Map's; empty when the open is refused
    const char* printed;    // on standard output (the resampler's refusal), or ""
    Messages lines;         // what init logs after "set AO[0] Enable" (all level 6 but a refusal)
};

// clang-format off
const InitCase kInitCases[] = {
    {"RematrixFourToTwo", "card=0 channels=1-2 rates=48000", 0, 0, 48000, 4, 160, {0, 1}, "",
     {"AO[0] enable rematrix 4=>2 \n", "AO[0] open rate 48000 at period_size 160\n",
      "AO[0] Open Alsa 0:0 rate:48000 chn:2 frame:160 format:0"}},
    {"RematrixOneToTwo", "card=0 channels=2-8 rates=16000", 0, 0, 16000, 1, 160, {0, 0}, "",
     {"AO[0] enable rematrix 1=>2 \n", "AO[0] open rate 16000 at period_size 160\n",
      "AO[0] Open Alsa 0:0 rate:16000 chn:2 frame:160 format:0"}},
    // Card 3 device 0: four 16-bit channels go out unchanged as two 32-bit slots.
    {"SlotCard", "card=3 formats=s16_le,s32_slot_le", 3, 0, 48000, 4, 160, {0, 1, 2, 3}, "",
     {"AO[0] open channel 2\n", "AO[0] open rate 48000 at period_size 160\n",
      "AO[0] Open Alsa 3:0 rate:48000 chn:2 frame:160 format:7"}},
    {"CardThreeOtherDevice", "card=3 device=1", 3, 1, 32000, 4, 100, {0, 1, 2, 3}, "",
     {"AO[0] open channel 4\n", "AO[0] open rate 32000 at period_size 100\n",
      "AO[0] Open Alsa 3:1 rate:32000 chn:4 frame:100 format:0"}},
    {"Resample16kTo48k", "card=0 channels=2 rates=48000", 0, 0, 16000, 2, 320, {0, 1}, "",
     {"AO[0] open channel 2\n",
      "AO[0] enable resample for convert sample rate 16000=>48000, new period_size=960\n",
      "AO[0] Open Alsa 0:0 rate:48000 chn:2 frame:960 format:0"}},
    {"Resample8kFrom44100", "card=0 channels=1-2 rates=44100-48000", 0, 0, 8000, 2, 160, {0, 1}, "",
     {"AO[0] open channel 2\n",
      "AO[0] enable resample for convert sample rate 8000=>48000, new period_size=960\n",
      "AO[0] Open Alsa 0:0 rate:48000 chn:2 frame:960 format:0"}},
    {"RematrixThenResample", "card=0 channels=1-2 rates=48000", 0, 0, 16000, 4, 160, {0, 1}, "",
     {"AO[0] enable rematrix 4=>2 \n",
      "AO[0] enable resample for convert sample rate 16000=>48000, new period_size=480\n",
      "AO[0] Open Alsa 0:0 rate:48000 chn:2 frame:480 format:0"}},
    // 151 x 32000 / 48000 is 100, not 101.
    {"ResamplerRefusesThePeriod", "card=0 channels=1-2 rates=44100-48000", 0, 0, 32000, 2, 101, {},
     "period_size should match convert rate!\n",
     {"AO[0] open channel 2\n",
      "AO[0] enable resample for convert sample rate 32000=>48000, new period_size=151\n"}},
    // Card 3 device 0 takes 4 bytes a channel: only four 16-bit channels fill its frame.
    {"SlotCardStereo", "card=3 formats=s32_slot_le", 3, 0, 48000, 2, 160, {}, "",
     {"AO[0] open channel 2\n", "AO[0] open rate 48000 at period_size 160\n",
      "AO[0] Alsa 3:0 takes 8 bytes a frame, written frames have 4\n"}},
    {"SlotCardRematrixed", "card=3 channels=1-2 formats=s32_slot_le", 3, 0, 48000, 4, 160, {}, "",
     {"AO[0] enable rematrix 4=>2 \n", "AO[0] open rate 48000 at period_size 160\n",
      "AO[0] Alsa 3:0 takes 8 bytes a frame, written frames have 4\n"}},
    {"NegativeChannels", "card=0", 0, 0, 16000, -2, 160, {}, "",
     {"AO[0] invalid attributes: rate 16000, channels -2, frame size 160\n"}},
    {"NegativeFrames", "card=0", 0, 0, 16000, 2, -160, {}, "",
     {"AO[0] invalid attributes: rate 16000, channels 2, frame size -160\n"}},
    {"NegativeRate", "card=0", 0, 0, -48000, 2, 480, {}, "",
     {"AO[0] invalid attributes: rate -48000, channels 2, frame size 480\n"}},
};
// clang-format on

class AoInitTest : public AoTest, public ::testing::WithParamInterface<InitCase> {};

TEST_P(AoInitTest, NegotiatesLogsAndPlays) {
    const InitCase& c = GetParam();
    LoadCards(std::string("pcm dir=playback sink=memory ") + c.pcm);
    AO_ATTR_S attr = AlsaAoAttr(c.card, c.device, c.rate, c.channels, c.frames);
    ASSERT_EQ(0, AUDIO_AO_Create(0, &attr));
    log.Clear();
    const bool opens = !c.keep.empty();
    StdoutCapture capture;
    EXPECT_EQ(opens ? 0 : -1, AUDIO_AO_SetEnable(0, ZN_TRUE));
    const std::string printed = capture.Stop();
    EXPECT_TRUE(*c.printed ? printed.find(c.printed) != std::string::npos : printed.empty()) << printed;
    std::vector<Logged> expected = {{6, "AUDIO_AO_SetEnable", "set AO[0] Enable"}};
    for (size_t i = 0; i < c.lines.size(); ++i) {
        expected.push_back({i + 1 < c.lines.size() || opens || *c.printed ? 6 : 3, "init", c.lines[i]});
    }
    ASSERT_EQ(expected, log.All());
    vcard_counters n = Counters(c.card, c.device);
    if (!opens) {
        EXPECT_EQ(ZN_FALSE, AUDIO_AO_isReady(0));
        EXPECT_EQ(0u, n.opens + n.failed_opens);
        return;
    }
    // The opening line reports what pcm_open was given.
    const pcm_config cfg = n.last_config;
    char opened[128];
    std::snprintf(opened, sizeof(opened), "AO[0] Open Alsa %d:%d rate:%u chn:%u frame:%u format:%d", c.card,
                  c.device, cfg.rate, cfg.channels, cfg.period_size, static_cast<int>(cfg.format));
    EXPECT_EQ(opened, expected.back().message);
    EXPECT_EQ(4u, cfg.period_count);
    EXPECT_EQ(0u, cfg.start_threshold + cfg.stop_threshold + cfg.silence_threshold);
    // A converted write must fit the period: the rematrix buffer holds one, the resampler
    // reads exactly one. Refused writes reach nothing.
    const bool rematrix = c.lines[0].find("enable rematrix") != std::string::npos,
               resample = cfg.rate != unsigned(c.rate);
    for (int frames : {c.frames - 1, c.frames + 1}) {
        const bool fits = frames < c.frames ? !resample : !rematrix && !resample;
        log.Clear();
        ASSERT_EQ(fits ? 0 : -1, Write(0, MakePattern(c.channels, frames))) << frames << " frames";
        EXPECT_EQ(fits ? 0 : 1,
                  log.Count({3, "sendFrame",
                             "AO[0] write of " + std::to_string(frames) + " frames refused, a period is " +
                                 std::to_string(c.frames) + " frames\n"}));
        EXPECT_EQ(fits ? 1u : 0u, Counters(c.card, c.device).writes);
        ASSERT_EQ(0, vcard_memory_clear(c.card, c.device));
        ASSERT_EQ(0, vcard_reset_counters(c.card, c.device, VCARD_PLAYBACK));
    }
    if (!resample) {
        Bytes first = MakePattern(c.channels, c.frames, 7),
              second = MakePattern(c.channels, c.frames, 8, c.frames);
        Bytes played = Map(first, c.channels, c.keep), tail = Map(second, c.channels, c.keep);
        played.insert(played.end(), tail.begin(), tail.end());
        first.push_back(0x55);  // a trailing partial frame is not played
        AllocCounterArm();      // the PCM runs since the first write: the data path allocates nothing
        const int rc =
            AUDIO_AO_Write(0, first.data(), first.size()) + AUDIO_AO_Write(0, second.data(), second.size());
        AllocCounterDisarm();
        EXPECT_EQ(0, rc);
        EXPECT_EQ(0, AllocCount()) << "first allocation of " << AllocFirstSize() << " bytes";
        EXPECT_EQ(played, SinkBytes(c.card, c.device));
        return;
    }
    // Resampled: a constant level per channel stays constant; the card gets a period a
    // write, less the hold's start-up delay.
    std::vector<int16_t> levels(static_cast<size_t>(c.channels) * c.frames);
    for (size_t i = 0; i < levels.size(); ++i) {
        levels[i] = static_cast<int16_t>(1000 * (i % c.channels + 1));
    }
    Bytes level = ToBytes(levels);
    EXPECT_EQ(0, Write(0, level));  // starts the PCM
    AllocCounterArm();
    int rc = 0;
    for (int i = 0; i < 9; ++i) {
        rc += AUDIO_AO_Write(0, level.data(), level.size());
    }
    AllocCounterDisarm();
    EXPECT_EQ(0, rc);
    EXPECT_EQ(0, AllocCount()) << "first allocation of " << AllocFirstSize() << " bytes";
    n = Counters(c.card, c.device);
    EXPECT_EQ(10u, n.writes);
    EXPECT_LE(n.frames_written, 10u * cfg.period_size);
    EXPECT_GE(n.frames_written + 8, 10u * cfg.period_size);
    std::vector<int16_t> played = ToSamples(SinkBytes(c.card, c.device));
    ASSERT_EQ(n.frames_written * c.keep.size(), played.size());
    for (size_t i = 0; i < c.keep.size(); ++i) {
        EXPECT_EQ(1000 * (c.keep[i] + 1), played[played.size() - c.keep.size() + i]);
    }
}

INSTANTIATE_TEST_SUITE_P(Cards, AoInitTest, ::testing::ValuesIn(kInitCases),
                         [](const ::testing::TestParamInfo<InitCase>& i) {
                             return std::string(i.param.name);
                         });

using AoAlsaTest = AoTest;

// Six failures in a row log five warnings with the frames handed to the card (the
// resampler's output); the next good write logs one recovery. A new run is logged again,
// and a reopen starts the count over.
TEST_F(AoAlsaTest, FailedWritesAreLoggedFiveTimesThenRecoveryOnce) {
    LoadCards("pcm card=0 dir=playback channels=2 rates=48000 sink=memory fail-at=2 fail-count=6");
    ASSERT_TRUE(CreateEnabled(0, AlsaAoAttr(0, 0, 16000, 2, 320)));
    const Bytes period(320 * 4, 0);
    log.Clear();
    std::vector<int> results;
    for (int i = 0; i < 9; ++i) {
        results.push_back(Write(0, period));
    }
    EXPECT_EQ((std::vector<int>{0, -1, -1, -1, -1, -1, -1, 0, 0}), results);
    const Logged failure{4, "sendFrame",
                         "AO[0] write 960 samples failed, cannot write stream data: Broken pipe\n"};
    EXPECT_EQ(std::vector<Logged>(
                  {failure, failure, failure, failure, failure, {6, "sendFrame", "AO[0] recovered\n"}}),
              log.All());
    EXPECT_EQ(6, AUDIO_AO_GetUnderRunState(0));
    EXPECT_EQ(3u, Counters(0, 0).writes);
    vcard_fault_plan plan{};
    plan.transfer_fail_at = 1;
    plan.transfer_kind = VCARD_TRANSFER_IO;
    ASSERT_EQ(0, vcard_set_faults(0, 0, VCARD_PLAYBACK, &plan));
    log.Clear();
    EXPECT_EQ(-1, Write(0, period));
    EXPECT_EQ(std::vector<Logged>(
                  {{4, "sendFrame",
                    "AO[0] write 960 samples failed, cannot write stream data: Input/output error\n"}}),
              log.All());
    ASSERT_EQ(0, vcard_set_faults(0, 0, VCARD_PLAYBACK, nullptr));
    ASSERT_EQ(0, AUDIO_AO_SetEnable(0, ZN_FALSE) + AUDIO_AO_SetEnable(0, ZN_TRUE));
    log.Clear();
    EXPECT_EQ(0, Write(0, period));
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(AoAlsaTest, ClassifiesAttributeChanges) {
    AO_ATTR_S attr = AlsaAoAttr(0, 0, 16000, 2, 160);
    ASSERT_EQ(0, AUDIO_AO_Create(0, &attr));
    const AUDIO_SET_ACTION_E kNone = AUDIO_SET_ACTION_E_NONE, kHot = AUDIO_SET_ACTION_E_HOT_UPDATE,
                             kDestroy = AUDIO_SET_ACTION_E_NEED_DESTROY;
    const struct {
        const char* name;
        void (*change)(AO_ATTR_S&);
        AUDIO_SET_ACTION_E verdict;
    } kCases[] = {
        // clang-format off
        {"same", [](AO_ATTR_S&) {}, kNone},
        {"card", [](AO_ATTR_S& a) { a.stAlsaDev.s32CardId = 1; }, kDestroy},
        {"device", [](AO_ATTR_S& a) { a.stAlsaDev.s32DevId = 1; }, kDestroy},
        {"enable", [](AO_ATTR_S& a) { a.bEnable = ZN_TRUE; }, kDestroy},
        {"rate", [](AO_ATTR_S& a) { a.eSampleRate = AI_SAMPLE_RATE_48000; }, kDestroy},
        {"channels", [](AO_ATTR_S& a) { a.s32Channel = 1; }, kDestroy},
        {"frames", [](AO_ATTR_S& a) { a.s32FrameSize = 320; }, kDestroy},
        {"volume+rate", [](AO_ATTR_S& a) { a.s32Volume = 9, a.eSampleRate = AI_SAMPLE_RATE_8000; }, kDestroy},
        {"volume", [](AO_ATTR_S& a) { a.s32Volume = 9; }, kHot},
        {"volume+mute", [](AO_ATTR_S& a) { a.s32Volume = 9, a.bMute = ZN_TRUE; }, kHot},
        {"type", [](AO_ATTR_S& a) { a.eType = 3; }, kNone},
        {"hwRate", [](AO_ATTR_S& a) { a.stAlsaDev.u32HwRate = 16000; }, kNone},
        {"mute", [](AO_ATTR_S& a) { a.bMute = ZN_TRUE; }, kNone},
        // clang-format on
    };
    for (const auto& c : kCases) {
        AO_ATTR_S next = attr;
        c.change(next);
        EXPECT_EQ(c.verdict, gs_pAoHandler[0]->calActionOnSetCfg(&next)) << c.name;
    }
}

// init on an open device closes it first; destroy may be repeated.
TEST_F(AoAlsaTest, InitReopensAndDestroyIsRepeatable) {
    LoadCards("pcm card=0 dir=playback channels=1 rates=8000 sink=memory");
    ASSERT_TRUE(CreateEnabled(0, AlsaAoAttr(0, 0, 16000, 2, 160)));
    EXPECT_EQ(0, gs_pAoHandler[0]->init());
    EXPECT_EQ(2u, Counters(0, 0).opens);
    EXPECT_EQ(1u, Counters(0, 0).closes);
    EXPECT_EQ(0, Write(0, MakePattern(2, 160)));
    EXPECT_EQ(80u, Counters(0, 0).frames_written);
    EXPECT_EQ(0, gs_pAoHandler[0]->destroy());
    EXPECT_EQ(0, gs_pAoHandler[0]->destroy());
    EXPECT_EQ(ZN_FALSE, AUDIO_AO_isReady(0));
    EXPECT_EQ(2u, Counters(0, 0).closes);
}

}  // namespace
