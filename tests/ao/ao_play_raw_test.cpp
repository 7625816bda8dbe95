// The play_raw example, run as a program on a virtual card described by a
// TINYALSA_VCARDS file whose sink is a WAV file, read back with libsndfile. In a cross
// build the program starts through the emulator that runs the tests.
#include <sndfile.h>
#include <sys/wait.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "test_support.h"

namespace {

using namespace audiomw_test;

using PlayRawTest = AudioTest;

TEST_F(PlayRawTest, PlaysTheFileIntoTheWavSinkPaddingTheLastPeriod) {
#ifndef AUDIOMW_PLAY_RAW
    GTEST_SKIP() << "play_raw is not built";
#else
    const std::string wav = root.Path("/tmp/out.wav"),
                      cards = "pcm card=0 dir=playback channels=1-2 sink=wav:" + wav;
    std::vector<uint8_t> input = MakePattern(2, 1000, 4);
    WriteFileBytes(root.Path("/tmp/vcards.txt"), std::vector<uint8_t>(cards.begin(), cards.end()));
    WriteFileBytes(root.Path("/tmp/in.raw"), input);
    const std::string cmd = "TINYALSA_VCARDS='" + root.Path("/tmp/vcards.txt") +
                            "' " AUDIOMW_PLAY_RAW_LAUNCHER " '" AUDIOMW_PLAY_RAW
                            "' --card 0 --device 0 --rate 16000 --channels 2 --period 160 '" +
                            root.Path("/tmp/in.raw") + "' > '" + root.Path("/tmp/out.txt") + "' 2>&1";
    const int status = std::system(cmd.c_str());
    std::vector<uint8_t> out = ReadFileBytes(root.Path("/tmp/out.txt"));
    const std::string printed(out.begin(), out.end());
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << printed;
    EXPECT_NE(
        std::string::npos,
        printed.find("played 7 periods of 160 frames (2 channels, 16000 Hz) to card 0 device 0, 0 failed"));
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
#endif
}

}  // namespace
