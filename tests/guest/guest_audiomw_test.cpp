// audiomw on the kernel's loopback cards, inside the guest: a stream made through the
// exported interface captures with an ALSA AI on card 0 device 1 what the test plays
// into card 0 device 0, and its output node plays through an ALSA AO into card 1
// device 0, whose device 1 the test reads back. The test's own ends, opened and
// prepared first, fix each card's rate, so that the devices convert wherever the
// card's rate differs from the stream's.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "../astream/astream_test_util.h"
#include "audio_ai.h"
#include "audio_ao.h"
#include "audio_astream.h"
#include "audio_resample.h"
#include "loopback.h"
#include "test_support.h"

namespace guest_test {
namespace {

constexpr unsigned int kChannels = 2, kFrameBytes = kChannels * 2;

// `bytes` through the library's resampler as a device runs it: whole periods of
// `inPeriod` frames, each giving inPeriod * outRate / inRate frames.
Bytes Resample(Bytes bytes, unsigned int inRate, unsigned int outRate, unsigned int inPeriod) {
    const unsigned int outPeriod = inPeriod * outRate / inRate;
    RESAMPLE_ATTR_S attr{static_cast<int>(inRate),  static_cast<int>(kChannels), static_cast<int>(inPeriod),
                         static_cast<int>(outRate), static_cast<int>(kChannels), static_cast<int>(outPeriod)};
    RESAMPLE_HANDLER* handler = RESAMPLE_CreateHandler(&attr);
    Bytes out, period(outPeriod * kFrameBytes);
    EXPECT_NE(nullptr, handler) << inRate << " => " << outRate;
    for (size_t at = 0; handler != nullptr && at + inPeriod * kFrameBytes <= bytes.size();
         at += inPeriod * kFrameBytes) {
        RESAMPLE_Process(handler, &bytes[at], static_cast<int>(inPeriod), period.data(),
                         static_cast<int>(outPeriod));
        out.insert(out.end(), period.begin(), period.end());
    }
    RESAMPLE_Destroy(&handler);
    return out;
}

// What the AI may deliver of `pattern` played at `cardRate` after silence, from its
// first sounding frame on. Without conversion, the pattern itself. Converting down by
// an integer ratio r, the zero-order hold keeps every r-th frame, and which ones
// depends on where the pattern began among the frames the AI captured since its
// start; so there is one candidate per phase (r + q silent frames ahead, q < r, as
// the AI always captured silence first), and the delivery must be one of them exactly.
std::vector<Bytes> AiCandidates(const Bytes& pattern, unsigned int cardRate, unsigned int rate,
                                unsigned int period) {
    if (cardRate == rate) {
        return {pattern};
    }
    const size_t frames = pattern.size() / kFrameBytes * rate / cardRate;
    const unsigned int ratio = cardRate / rate;
    std::vector<Bytes> candidates;
    for (unsigned int q = 0; q < ratio; ++q) {
        Bytes input((ratio + q) * kFrameBytes, 0);
        input.insert(input.end(), pattern.begin(), pattern.end());
        input.resize((input.size() / (period * kFrameBytes) + 2) * period * kFrameBytes, 0);
        candidates.push_back(FromFirstSound(Resample(input, cardRate, rate, period), kFrameBytes, frames));
    }
    return candidates;
}

// Stream 0, AO 0 and AI 0 torn down on scope exit; the AI is closed before it is
// disabled, since disabling an open AI initialises it again and keeps card 0 busy.
struct Teardown {
    ~Teardown() {
        AUDIO_ASTREAM_Stop(0);
        AUDIO_ASTREAM_Destroy(0);
        AUDIO_AO_SetEnable(0, ZN_FALSE);
        AUDIO_AO_Destroy(0);
        AUDIO_AI_Close(0);
        AUDIO_AI_SetEnable(0, ZN_FALSE);
        AUDIO_AI_Destroy(0);
    }
};

using StreamOnCards = audiomw_test::AudioTest;

// A pattern played into card 0 arrives on card 1 through AI, stream and AO: byte-exact
// where the cards run the stream's rate; where they do not, exactly as the library's
// resampler makes it from what each device was given (the AI's delivery recorded by a
// dump node ahead of the output node).
TEST_F(StreamOnCards, PatternArrivesAsTheDevicesConvertIt) {
    const struct {
        unsigned int card0Rate, card1Rate;  // what the test's own ends leave each card
        unsigned int rate;                  // the stream's
        const char *aiOpened, *aoOpened;    // logged by init at level 6
    } rows[] = {
        {16000, 16000, 16000, "AI[0] Open Alsa 0:1 rate:16000 chn:2 frame:1600 format:0",
         "AO[0] Open Alsa 1:0 rate:16000 chn:2 frame:1600 format:0"},
        {48000, 48000, 16000, "AI[0] Open Alsa 0:1 rate:48000 chn:2 frame:4800 format:0",
         "AO[0] Open Alsa 1:0 rate:48000 chn:2 frame:4800 format:0"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.aiOpened) + ", " + row.aoOpened);
        log.Clear();
        const unsigned int frames = row.rate / 10;  // the stream's period, 100 ms
        const unsigned int period0 = row.card0Rate / 25, period1 = row.card1Rate / 25;
        const unsigned int patternFrames = period0 * 15;  // 600 ms
        const size_t want = static_cast<size_t>(patternFrames) * row.card1Rate / row.card0Rate;
        Pcm play(kPlayback, PCM_OUT, Config(kChannels, row.card0Rate, period0, 16), true);
        Pcm capture(kCapture, PCM_IN, Config(kChannels, row.card1Rate, period1, 16), true, kSecondCard);
        ASSERT_TRUE(pcm_is_ready(play.get())) << play.Error();
        ASSERT_TRUE(pcm_is_ready(capture.get())) << capture.Error();
        Teardown teardown;

        AI_ATTR_S ai{};
        ai.eType = AI_DEV_TYPE_ALSA;
        ai.stAlsaDev = {static_cast<int>(kCard), static_cast<int>(kCapture), 0};
        ai.bEnable = ZN_TRUE;
        ai.eSampleRate = static_cast<tagAI_SAMPLE_RATE_E>(row.rate);
        ai.s32Channel = kChannels;
        ai.s32FrameLen = static_cast<int>(frames);
        AO_ATTR_S ao{};
        ao.stAlsaDev = {static_cast<int>(kSecondCard), static_cast<int>(kPlayback), 0};
        ao.eSampleRate = ai.eSampleRate;
        ao.s32Channel = kChannels;
        ao.s32FrameSize = ai.s32FrameLen;
        ASSERT_EQ(0, AUDIO_AI_Create(0, &ai)) << log.Dump();
        ASSERT_EQ(0, AUDIO_AO_Create(0, &ao)) << log.Dump();
        const std::string dump = root.Path("/var/ai.pcm");
        ASTREAM_ATTR_S stream = astream_test::StreamAttr(
            0, 1, {astream_test::DumpAttr(dump, 0, kChannels), astream_test::OutputAttr(0, 0, kChannels)});
        ASSERT_EQ(0, AUDIO_ASTREAM_Create(0, &stream)) << log.Dump();
        ASSERT_TRUE(AUDIO_AO_isReady(0)) << log.Dump();
        EXPECT_TRUE(log.Has({6, "init", row.aiOpened}) && log.Has({6, "init", row.aoOpened})) << log.Dump();

        Capture reader(PcmReader(capture.get()), period1, kFrameBytes, want + row.card1Rate * 4, want);
        AUDIO_ASTREAM_enableDumpNode(0, ZN_TRUE);
        ASSERT_EQ(0, AUDIO_ASTREAM_Start(0)) << log.Dump();
        // Once a period went through the stream the AI's capture runs, and card 0 passes
        // on what it is played from then on.
        ASSERT_TRUE(audiomw_test::WaitFor([&] { return !audiomw_test::ReadFileBytes(dump).empty(); }))
            << log.Dump();
        const Bytes pattern = MakeLoopPattern(kChannels, patternFrames), silence(period0 * kFrameBytes, 0);
        for (size_t at = 0; at < 200 * silence.size() && !reader.done; at += silence.size()) {
            ASSERT_EQ(static_cast<int>(period0),
                      pcm_writei(play.get(), at < pattern.size() ? &pattern[at] : silence.data(), period0))
                << play.Error();
        }
        reader.Join();
        EXPECT_EQ(0, reader.error) << capture.Error();
        EXPECT_EQ(0, AUDIO_AI_GetUnderRunState(0) + AUDIO_AO_GetUnderRunState(0)) << "xruns of AI or AO";
        ASSERT_EQ(0, AUDIO_ASTREAM_Stop(0) + AUDIO_ASTREAM_Destroy(0)) << log.Dump();

        const Bytes delivered = audiomw_test::ReadFileBytes(dump);  // every period the AO was given
        const std::vector<Bytes> candidates =
            AiCandidates(pattern, row.card0Rate, row.rate, frames * row.card0Rate / row.rate);
        const Bytes fromAi = FromFirstSound(delivered, kFrameBytes, candidates[0].size() / kFrameBytes);
        EXPECT_EQ(1, std::count(candidates.begin(), candidates.end(), fromAi))
            << "the AI's delivery is none of the conversion's phases";
        const Bytes played =
            row.rate == row.card1Rate ? delivered : Resample(delivered, row.rate, row.card1Rate, frames);
        const Bytes got(reader.data.begin(), reader.data.begin() + reader.frames * kFrameBytes);
        ExpectSameBytes(FromFirstSound(played, kFrameBytes, want), FromFirstSound(got, kFrameBytes, want));
    }
}

}  // namespace
}  // namespace guest_test
