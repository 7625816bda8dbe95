// The play_raw example, run as a program on a virtual card described by a
// TINYALSA_VCARDS file whose sink is a WAV file; the WAV is read back with libsndfile.
#include <sndfile.h>
#include <sys/wait.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "test_support.h"

namespace {

using audiomw_test::MakePattern;
using audiomw_test::ToSamples;

struct Wav {
    SF_INFO info{};
    std::vector<int16_t> samples;
};

bool ReadWav(const std::string& path, Wav* wav) {
    SNDFILE* f = sf_open(path.c_str(), SFM_READ, &wav->info);
    if (f == nullptr) {
        return false;
    }
    wav->samples.resize(static_cast<size_t>(wav->info.frames * wav->info.channels));
    sf_count_t got = sf_read_short(f, wav->samples.data(), static_cast<sf_count_t>(wav->samples.size()));
    sf_close(f);
    return got == static_cast<sf_count_t>(wav->samples.size());
}

class PlayRawTest : public audiomw_test::AudioTest {
  protected:
    void SetUp() override {
#ifndef AUDIOMW_PLAY_RAW
        GTEST_SKIP() << "play_raw is not built";
#endif
    }
    // Writes the vcards file for one playback PCM on card 0 and runs play_raw on `input`.
    int Run(const std::string& pcm, const std::vector<uint8_t>& input, const std::string& args) {
        const std::string vcards = root.Path("/tmp/vcards.txt"), raw = root.Path("/tmp/in.raw");
        audiomw_test::WriteFileBytes(vcards, std::vector<uint8_t>(pcm.begin(), pcm.end()));
        audiomw_test::WriteFileBytes(raw, input);
#ifdef AUDIOMW_PLAY_RAW
        std::string cmd = "TINYALSA_VCARDS='" + vcards + "' '" AUDIOMW_PLAY_RAW "' " + args + " '" + raw +
                          "' > '" + root.Path("/tmp/out.txt") + "' 2>&1";
        int status = std::system(cmd.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
#else
        return -1;
#endif
    }
    std::string Output() {
        std::vector<uint8_t> b = audiomw_test::ReadFileBytes(root.Path("/tmp/out.txt"));
        return std::string(b.begin(), b.end());
    }
    std::string Sink() {
        return root.Path("/tmp/out.wav");
    }
};

TEST_F(PlayRawTest, PlaysTheFileIntoTheWavSinkPaddingTheLastPeriod) {
    std::vector<uint8_t> input = MakePattern(2, 1000, 4);
    std::string pcm =
        "pcm card=0 device=0 dir=playback channels=1-2 rates=8000-48000 sink=wav:" + Sink() + "\n";
    ASSERT_EQ(0, Run(pcm, input, "--card 0 --device 0 --rate 16000 --channels 2 --period 160")) << Output();
    EXPECT_NE(
        std::string::npos,
        Output().find("played 7 periods of 160 frames (2 channels, 16000 Hz) to card 0 device 0, 0 failed"));
    Wav wav;
    ASSERT_TRUE(ReadWav(Sink(), &wav));
    EXPECT_EQ(16000, wav.info.samplerate);
    EXPECT_EQ(2, wav.info.channels);
    EXPECT_EQ(7 * 160, wav.info.frames);
    std::vector<int16_t> expected = ToSamples(input);
    expected.resize(7 * 160 * 2, 0);
    EXPECT_EQ(expected, wav.samples);
}

TEST_F(PlayRawTest, FourChannelsOnAStereoCardKeepTheFirstTwo) {
    std::vector<uint8_t> input = MakePattern(4, 480, 5);
    std::string pcm = "pcm card=0 device=0 dir=playback channels=2 rates=48000 sink=wav:" + Sink() + "\n";
    ASSERT_EQ(0, Run(pcm, input, "--rate 48000 --channels 4 --period 240")) << Output();
    Wav wav;
    ASSERT_TRUE(ReadWav(Sink(), &wav));
    EXPECT_EQ(2, wav.info.channels);
    ASSERT_EQ(480, wav.info.frames);
    std::vector<int16_t> in = ToSamples(input), expected;
    for (size_t f = 0; f < 480; ++f) {
        expected.push_back(in[f * 4]);
        expected.push_back(in[f * 4 + 1]);
    }
    EXPECT_EQ(expected, wav.samples);
}

TEST_F(PlayRawTest, SixteenKiloHertzIsResampledToTheCardsRate) {
    std::vector<int16_t> dc(320 * 10, 2000);  // mono, 10 periods of 320 frames
    std::string pcm = "pcm card=0 device=0 dir=playback channels=1 rates=48000 sink=wav:" + Sink() + "\n";
    ASSERT_EQ(0, Run(pcm, audiomw_test::ToBytes(dc), "--rate 16000 --channels 1 --period 320")) << Output();
    Wav wav;
    ASSERT_TRUE(ReadWav(Sink(), &wav));
    EXPECT_EQ(48000, wav.info.samplerate);
    EXPECT_EQ(1, wav.info.channels);
    EXPECT_LE(wav.info.frames, 10 * 960);
    EXPECT_GE(wav.info.frames, 10 * 960 - 4);
    ASSERT_FALSE(wav.samples.empty());
    EXPECT_EQ(2000, wav.samples.back());
}

TEST_F(PlayRawTest, AMissingCardIsAFailure) {
    std::string pcm = "card 0\n";  // virtual, without a playback PCM
    EXPECT_EQ(1, Run(pcm, MakePattern(2, 100), "--period 100"));
    EXPECT_NE(std::string::npos, Output().find("Alsa device 0:0 not exist for AO[0]."));
    EXPECT_FALSE(audiomw_test::FileExists(Sink()));
}

TEST_F(PlayRawTest, BadArgumentsPrintUsage) {
    EXPECT_EQ(2, Run("", {}, "--channels 0"));
    EXPECT_NE(std::string::npos, Output().find("usage:"));
}

}  // namespace
