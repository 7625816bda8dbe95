// The ALSA playback device on virtual cards: what enabling negotiates and logs, the bytes
// that reach the card through the conversion chain (allocating nothing), refused
// descriptions and writes, write failures and recovery, and the verdicts on changes.
#include <sndfile.h>
#include <sys/wait.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>

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
    const char* lines;      // what init logs after "set AO[0] Enable", '|'-separated (level 6 but a refusal)
};

// clang-format off
const InitCase kInitCases[] = {
    {"RematrixFourToTwo", "card=0 channels=1-2 rates=48000", 0, 0, 48000, 4, 160, {0, 1}, "", "AO[0] enable rematrix 4=>2 \n|"
     "AO[0] open rate 48000 at period_size 160\n|AO[0] Open Alsa 0:0 rate:48000 chn:2 frame:160 format:0"},
    {"RematrixOneToTwo", "card=0 channels=2-8 rates=16000", 0, 0, 16000, 1, 160, {0, 0}, "", "AO[0] enable rematrix 1=>2 \n|"
     "AO[0] open rate 16000 at period_size 160\n|AO[0] Open Alsa 0:0 rate:16000 chn:2 frame:160 format:0"},
    // Card 3 device 0: four 16-bit channels go out unchanged as two 32-bit slots.
    {"SlotCard", "card=3 formats=s16_le,s32_slot_le", 3, 0, 48000, 4, 160, {0, 1, 2, 3}, "", "AO[0] open channel 2\n|"
     "AO[0] open rate 48000 at period_size 160\n|AO[0] Open Alsa 3:0 rate:48000 chn:2 frame:160 format:7"},
    {"CardThreeOtherDevice", "card=3 device=1", 3, 1, 32000, 4, 100, {0, 1, 2, 3}, "", "AO[0] open channel 4\n|"
     "AO[0] open rate 32000 at period_size 100\n|AO[0] Open Alsa 3:1 rate:32000 chn:4 frame:100 format:0"},
    {"Resample16kTo48k", "card=0 channels=2 rates=48000", 0, 0, 16000, 2, 320, {0, 1}, "", "AO[0] open channel 2\n|"
     "AO[0] enable resample for convert sample rate 16000=>48000, new period_size=960\n|"
     "AO[0] Open Alsa 0:0 rate:48000 chn:2 frame:960 format:0"},
    {"Resample8kFrom44100", "card=0 channels=1-2 rates=44100-48000", 0, 0, 8000, 2, 160, {0, 1}, "", "AO[0] open channel 2\n|"
     "AO[0] enable resample for convert sample rate 8000=>48000, new period_size=960\n|"
     "AO[0] Open Alsa 0:0 rate:48000 chn:2 frame:960 format:0"},
    {"RematrixThenResample", "card=0 channels=1-2 rates=48000", 0, 0, 16000, 4, 160, {0, 1}, "", "AO[0] enable rematrix 4=>2 \n|"
     "AO[0] enable resample for convert sample rate 16000=>48000, new period_size=480\n|"
     "AO[0] Open Alsa 0:0 rate:48000 chn:2 frame:480 format:0"},
    // 151 x 32000 / 48000 is 100, not 101.
    {"ResamplerRefusesThePeriod", "card=0 channels=1-2 rates=44100-48000", 0, 0, 32000, 2, 101, {},
     "period_size should match convert rate!\n",
     "AO[0] open channel 2\n|AO[0] enable resample for convert sample rate 32000=>48000, new period_size=151\n"},
    // Card 3 device 0 takes 4 bytes a channel: only four 16-bit channels fill its frame.
    {"SlotCardStereo", "card=3 formats=s32_slot_le", 3, 0, 48000, 2, 160, {}, "", "AO[0] open channel 2\n|"
     "AO[0] open rate 48000 at period_size 160\n|AO[0] Alsa 3:0 takes 8 bytes a frame, written frames have 4\n"},
    {"SlotCardRematrixed", "card=3 channels=1-2 formats=s32_slot_le", 3, 0, 48000, 4, 160, {}, "", "AO[0] enable rematrix 4=>2 \n|"
     "AO[0] open rate 48000 at period_size 160\n|AO[0] Alsa 3:0 takes 8 bytes a frame, written frames have 4\n"},
    {"NegativeChannels", "card=0", 0, 0, 16000, -2, 160, {}, "", "AO[0] invalid attributes: rate 16000, channels -2, frame size 160\n"},
    {"NegativeFrames", "card=0", 0, 0, 16000, 2, -160, {}, "", "AO[0] invalid attributes: rate 16000, channels 2, frame size -160\n"},
    {"NegativeRate", "card=0", 0, 0, -48000, 2, 480, {}, "", "AO[0] invalid attributes: rate -48000, channels 2, frame size 480\n"},
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
    Lines expected = InitLines(c.lines, opens || *c.printed ? 6 : 3);
    expected.insert(expected.begin(), {6, "AUDIO_AO_SetEnable", "set AO[0] Enable"});
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
    EXPECT_EQ(4u, cfg.period_count + cfg.start_threshold + cfg.stop_threshold + cfg.silence_threshold);
    // A converted write must fit the period: the rematrix buffer holds one, the resampler
    // reads exactly one. Refused writes reach nothing.
    const bool rematrix = std::strncmp(c.lines, "AO[0] enable rematrix", 21) == 0,
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
        ASSERT_EQ(
            0, vcard_memory_clear(c.card, c.device) + vcard_reset_counters(c.card, c.device, VCARD_PLAYBACK));
    }
    // Once the PCM runs the data path allocates nothing; a trailing partial frame is not played.
    Bytes first = MakePattern(c.channels, c.frames, 7),
          second = MakePattern(c.channels, c.frames, 8, c.frames);
    ASSERT_EQ(0, Write(0, first) + vcard_memory_clear(c.card, c.device));
    first.push_back(0x55);
    AllocCounterArm();
    const int rc =
        AUDIO_AO_Write(0, first.data(), first.size()) + AUDIO_AO_Write(0, second.data(), second.size());
    AllocCounterDisarm();
    EXPECT_EQ(0, rc);
    EXPECT_EQ(0, AllocCount()) << "first allocation of " << AllocFirstSize() << " bytes";
    if (resample) {  // a period a write, less the hold's start-up delay
        EXPECT_NEAR(3.0 * cfg.period_size - 4, Counters(c.card, c.device).frames_written, 4.0);
        return;
    }
    Bytes played = Map(first, c.channels, c.keep), tail = Map(second, c.channels, c.keep);
    played.insert(played.end(), tail.begin(), tail.end());
    EXPECT_EQ(played, SinkBytes(c.card, c.device));
}

INSTANTIATE_TEST_SUITE_P(Cards, AoInitTest, ::testing::ValuesIn(kInitCases),
                         [](const ::testing::TestParamInfo<InitCase>& i) {
                             return std::string(i.param.name);
                         });

using AoAlsaTest = AoTest;

// Six failures in a row log five warnings with the frames handed to the card (the
// resampler's output); the next good write logs one recovery. A new run is logged again,
// and a reopen starts the count over. init on an open device closes it first; destroy may be repeated.
TEST_F(AoAlsaTest, FailedWritesRecoveryReinitAndDestroy) {
    LoadCards("pcm card=0 dir=playback channels=2 rates=48000 sink=memory fail-at=2 fail-count=6");
    ASSERT_TRUE(CreateEnabled(0, AlsaAoAttr(0, 0, 16000, 2, 320)));
    const Bytes period(320 * 4, 0);
    log.Clear();
    std::vector<int> results;
    for (int i = 0; i < 9; ++i) {
        results.push_back(Write(0, period));
    }
    EXPECT_EQ((std::vector<int>{0, -1, -1, -1, -1, -1, -1, 0, 0}), results);
    Lines want(5,
               {4, "sendFrame", "AO[0] write 960 samples failed, cannot write stream data: Broken pipe\n"});
    want.push_back({6, "sendFrame", "AO[0] recovered\n"});
    EXPECT_EQ(want, log.All());
    EXPECT_EQ(std::make_pair(6, 3ull), std::make_pair(AUDIO_AO_GetUnderRunState(0), Counters(0, 0).writes));
    vcard_fault_plan plan{};
    plan.transfer_fail_at = 1;
    plan.transfer_kind = VCARD_TRANSFER_IO;
    ASSERT_EQ(0, vcard_set_faults(0, 0, VCARD_PLAYBACK, &plan));
    log.Clear();
    EXPECT_EQ(-1, Write(0, period));
    EXPECT_EQ(Lines({{4, "sendFrame",
                      "AO[0] write 960 samples failed, cannot write stream data: Input/output error\n"}}),
              log.All());
    ASSERT_EQ(0, vcard_set_faults(0, 0, VCARD_PLAYBACK, nullptr));
    ASSERT_EQ(0, AUDIO_AO_SetEnable(0, ZN_FALSE) + AUDIO_AO_SetEnable(0, ZN_TRUE));
    log.Clear();
    EXPECT_EQ(0, Write(0, period));
    EXPECT_TRUE(log.Lines().empty());
    EXPECT_EQ(0, gs_pAoHandler[0]->init() + Write(0, period));
    EXPECT_EQ(std::make_pair(3ull, 2ull), std::make_pair(Counters(0, 0).opens, Counters(0, 0).closes));
    EXPECT_EQ(0, gs_pAoHandler[0]->destroy() + gs_pAoHandler[0]->destroy() + AUDIO_AO_isReady(0));
    EXPECT_EQ(3u, Counters(0, 0).closes);
}

TEST_F(AoAlsaTest, ClassifiesAttributeChanges) {
    AO_ATTR_S attr = AlsaAoAttr(0, 0, 16000, 2, 160);
    ASSERT_EQ(0, AUDIO_AO_Create(0, &attr));
    const auto kNone = AUDIO_SET_ACTION_E_NONE, kHot = AUDIO_SET_ACTION_E_HOT_UPDATE,
               kDestroy = AUDIO_SET_ACTION_E_NEED_DESTROY;
    const struct {
        void (*change)(AO_ATTR_S&);
        AUDIO_SET_ACTION_E verdict;
    } kCases[] = {
        // clang-format off
        {[](AO_ATTR_S&) {}, kNone}, {[](AO_ATTR_S& a) { a.eType = 3; }, kNone},
        {[](AO_ATTR_S& a) { a.stAlsaDev.u32HwRate = 16000; }, kNone}, {[](AO_ATTR_S& a) { a.bMute = ZN_TRUE; }, kNone},
        {[](AO_ATTR_S& a) { a.stAlsaDev.s32CardId = 1; }, kDestroy}, {[](AO_ATTR_S& a) { a.stAlsaDev.s32DevId = 1; }, kDestroy},
        {[](AO_ATTR_S& a) { a.bEnable = ZN_TRUE; }, kDestroy}, {[](AO_ATTR_S& a) { a.s32Channel = 1; }, kDestroy},
        {[](AO_ATTR_S& a) { a.eSampleRate = AI_SAMPLE_RATE_48000; }, kDestroy},
        {[](AO_ATTR_S& a) { a.s32FrameSize = 320; }, kDestroy},
        {[](AO_ATTR_S& a) { a.s32Volume = 9, a.eSampleRate = AI_SAMPLE_RATE_8000; }, kDestroy},
        {[](AO_ATTR_S& a) { a.s32Volume = 9; }, kHot}, {[](AO_ATTR_S& a) { a.s32Volume = 9, a.bMute = ZN_TRUE; }, kHot},
        // clang-format on
    };
    for (size_t i = 0; i < sizeof(kCases) / sizeof(kCases[0]); ++i) {
        AO_ATTR_S next = attr;
        kCases[i].change(next);
        EXPECT_EQ(kCases[i].verdict, gs_pAoHandler[0]->calActionOnSetCfg(&next)) << "row " << i;
    }
}

// One thread writes periods (each filled with its sequence number) while this one changes
// volume, rate (rebuilding with or without a resampler) and enable flag. Every write plays
// whole or fails cleanly; TSan sees no race, ASan no write into a released PCM or buffer.
TEST_F(AoAlsaTest, WritesRunAgainstVolumeRateAndEnableChanges) {
    constexpr int kSteps = 40, kFrames = 320;
    LoadCards("pcm card=0 dir=playback channels=2 rates=48000 sink=memory:16777216");
    ASSERT_TRUE(CreateEnabled(0, AlsaAoAttr(0, 0, 48000, 2, kFrames)));
    std::atomic<int> step{0}, inStep{0}, ok{0}, failed{0};  // inStep: writes within the current step
    std::atomic<bool> stop{false};
    std::thread writer([&] {
        for (int16_t seq = 1; !stop;) {
            const int started = step;
            if (inStep >= 40) {  // a budget per step keeps the sink and the numbers in range
                std::this_thread::yield();
                continue;
            }
            const int r = Write(0, ToBytes(std::vector<int16_t>(kFrames * 2, seq++)));
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
    // Disabled writes fail, the others play whole and in order: sequence numbers never go
    // back (a resampler may open with silence after a rebuild).
    EXPECT_GE(failed, kSteps / 4 * 3);
    EXPECT_GE(ok, kSteps / 4 * 3 * 3);
    vcard_counters n = Counters(0, 0);
    EXPECT_EQ(std::make_tuple(static_cast<unsigned long long>(ok), 0ull, kSteps / 4 * 2 + 1ull),
              std::make_tuple(n.writes, n.memory_dropped, n.opens));
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

// The play_raw example on a virtual card (TINYALSA_VCARDS) whose sink is a WAV file.
TEST_F(AoAlsaTest, PlayRawPlaysTheFileIntoTheWavSinkPaddingTheLastPeriod) {
#ifndef AUDIOMW_PLAY_RAW
    GTEST_SKIP() << "play_raw is not built";
#else
    const std::string wav = root.Path("/tmp/out.wav"),
                      cards = "pcm card=0 dir=playback channels=1-2 sink=wav:" + wav;
    const Bytes input = MakePattern(2, 1000, 4);
    WriteFileBytes(root.Path("/tmp/vcards.txt"), Bytes(cards.begin(), cards.end()));
    WriteFileBytes(root.Path("/tmp/in.raw"), input);
    const std::string cmd = "TINYALSA_VCARDS='" + root.Path("/tmp/vcards.txt") +
                            "' " AUDIOMW_PLAY_RAW_LAUNCHER " '" AUDIOMW_PLAY_RAW
                            "' --card 0 --device 0 --rate 16000 --channels 2 --period 160 '" +
                            root.Path("/tmp/in.raw") + "' > '" + root.Path("/tmp/out.txt") + "' 2>&1";
    const int status = std::system(cmd.c_str());
    const Bytes out = ReadFileBytes(root.Path("/tmp/out.txt"));
    const std::string printed(out.begin(), out.end());
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << printed;
    EXPECT_NE(
        std::string::npos,
        printed.find("played 7 periods of 160 frames (2 channels, 16000 Hz) to card 0 device 0, 0 failed"));
    SF_INFO info{};
    SNDFILE* f = sf_open(wav.c_str(), SFM_READ, &info);
    ASSERT_NE(nullptr, f);
    std::vector<int16_t> samples(7 * 160 * 2 + 2), expected = ToSamples(input);
    EXPECT_EQ(7 * 160 * 2, sf_read_short(f, samples.data(), static_cast<sf_count_t>(samples.size())));
    sf_close(f);
    EXPECT_EQ(std::make_pair(16000, 2), std::make_pair(info.samplerate, info.channels));
    expected.resize(samples.size(), 0);
    EXPECT_EQ(expected, samples);
#endif
}

}  // namespace
