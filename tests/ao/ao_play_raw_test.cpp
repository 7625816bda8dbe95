// The play_raw example, run as a program on a virtual card described by a
// TINYALSA_VCARDS file whose sink is a WAV file, read back with libsndfile.
#include <sndfile.h>
#include <sys/wait.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "test_support.h"

namespace {

using namespace audiomw_test;

#ifdef AUDIOMW_PLAY_RAW
const char* const kPlayRaw = AUDIOMW_PLAY_RAW;
const char* const kLauncher = AUDIOMW_PLAY_RAW_LAUNCHER;  // empty unless cross-built
#else
const char* const kPlayRaw = nullptr;
const char* const kLauncher = "";
#endif

class PlayRawTest : public AudioTest {
  protected:
    void SetUp() override {
        if (kPlayRaw == nullptr) {
            GTEST_SKIP() << "play_raw is not built";
        }
    }
    // Writes the vcards text and `input`, runs play_raw with `args`; its exit status.
    int Run(const std::string& cards, const std::vector<uint8_t>& input, const std::string& args) {
        WriteFileBytes(root.Path("/tmp/vcards.txt"), std::vector<uint8_t>(cards.begin(), cards.end()));
        WriteFileBytes(root.Path("/tmp/in.raw"), input);
        std::string cmd = "TINYALSA_VCARDS='" + root.Path("/tmp/vcards.txt") + "' " + kLauncher + " '" +
                          kPlayRaw + "' " + args + " '" + root.Path("/tmp/in.raw") + "' > '" +
                          root.Path("/tmp/out.txt") + "' 2>&1";
        int status = std::system(cmd.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::string Output() {
        std::vector<uint8_t> b = ReadFileBytes(root.Path("/tmp/out.txt"));
        return std::string(b.begin(), b.end());
    }
    const std::string wav = root.Path("/tmp/out.wav");
};

TEST_F(PlayRawTest, PlaysTheFileIntoTheWavSinkPaddingTheLastPeriod) {
    std::vector<uint8_t> input = MakePattern(2, 1000, 4);
    const std::string cards = "pcm card=0 dir=playback channels=1-2 sink=wav:" + wav + "\n";
    ASSERT_EQ(0, Run(cards, input, "--card 0 --device 0 --rate 16000 --channels 2 --period 160")) << Output();
    EXPECT_NE(
        std::string::npos,
        Output().find("played 7 periods of 160 frames (2 channels, 16000 Hz) to card 0 device 0, 0 failed"));
    SF_INFO info{};
    SNDFILE* f = sf_open(wav.c_str(), SFM_READ, &info);
    ASSERT_NE(nullptr, f);
    std::vector<int16_t> samples(7 * 160 * 2 + 2);
    EXPECT_EQ(7 * 160 * 2, sf_read_short(f, samples.data(), static_cast<sf_count_t>(samples.size())));
    sf_close(f);
    EXPECT_EQ(16000, info.samplerate);
    EXPECT_EQ(2, info.channels);
    std::vector<int16_t> expected = ToSamples(input);
    expected.resize(samples.size(), 0);
    EXPECT_EQ(expected, samples);
}

TEST_F(PlayRawTest, MissingCardAndBadArgumentsFail) {
    EXPECT_EQ(1, Run("card 0\n", MakePattern(2, 100), "--period 100"));
    EXPECT_NE(std::string::npos, Output().find("Alsa device 0:0 not exist for AO[0]."));
    EXPECT_FALSE(FileExists(wav));
    EXPECT_EQ(2, Run("", {}, "--channels 0"));
    EXPECT_NE(std::string::npos, Output().find("usage:"));
}

}  // namespace
