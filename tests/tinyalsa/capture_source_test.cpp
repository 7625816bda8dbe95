// What virtual capture PCMs deliver: pattern, sines, files and callbacks.
#include <sndfile.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "vcard_fixture.h"

namespace tinyalsa_test {
namespace {

using CaptureSourceTest = BoardTest;

TEST(PatternSampleTest, ChannelInTheTopNibbleAndFrameInTheLowTwelveBits) {
    EXPECT_EQ(0x2005, vcard_pattern_sample(2, 5));
    EXPECT_EQ(0x1000, vcard_pattern_sample(1, 4096)) << "frames wrap every 4096";
    EXPECT_EQ(-1, vcard_pattern_sample(15, 4095));
    EXPECT_EQ(0x0003, vcard_pattern_sample(16, 3)) << "channels wrap every 16";
    EXPECT_EQ(static_cast<int32_t>(0xFFFF0000u), vcard_pattern_sample32(15, 4095));
}

// Frames count on across reads, and from zero again at the next open.
TEST_F(CaptureSourceTest, PatternBytesAreExactInBothFormats) {
    {
        PcmHandle handle(1, 0, PCM_IN, Config(3, 16000, 2));
        ASSERT_EQ(1, pcm_is_ready(handle.get())) << handle.Error();
        EXPECT_EQ(Le16({0x0000, 0x1000, 0x2000, 0x0001, 0x1001, 0x2001}), Read(handle.get(), 2));
        EXPECT_EQ(Le16({0x0002, 0x1002, 0x2002, 0x0003, 0x1003, 0x2003, 0x0004, 0x1004, 0x2004}),
                  Read(handle.get(), 3));
    }
    vcard_counters counters = Counters(1, 0, VCARD_CAPTURE);
    EXPECT_EQ(2u, counters.reads);
    EXPECT_EQ(5u, counters.frames_read);
    PcmHandle slots(1, 0, PCM_IN, Config(2, 16000, 2, PCM_FORMAT_S32_SLOT_LE));
    EXPECT_EQ(Le32({0x00000000, 0x10000000, 0x00010000, 0x10010000}), Read(slots.get(), 2))
        << "the 16-bit level in the upper half of each slot";
}

// Sign changes of one channel of interleaved 16-bit frames, and its peak.
int ZeroCrossings(const std::vector<uint8_t>& bytes, int channels, int channel, int* peak) {
    std::vector<int16_t> samples = audiomw_test::ToSamples(bytes);
    int crossings = 0;
    *peak = 0;
    for (size_t i = channel + channels; i < samples.size(); i += channels) {
        crossings += (samples[i - channels] < 0) != (samples[i] < 0);
        *peak = std::max(*peak, std::abs(static_cast<int>(samples[i])));
    }
    return crossings;
}

TEST_F(CaptureSourceTest, SinePerChannelHasItsFrequencyAndAmplitude) {
    const vcard_tone tones[] = {{1000.0, 16384.0}, {440.0, 10000.0}};
    ASSERT_EQ(0, vcard_set_source_sine(1, 0, tones, 2));
    PcmHandle handle(1, 0, PCM_IN, Config(3, 16000, 160));
    std::vector<uint8_t> bytes;
    for (int period = 0; period < 10; ++period) {  // 0.1 s, the phase running on across reads
        std::vector<uint8_t> chunk = Read(handle.get(), 160);
        bytes.insert(bytes.end(), chunk.begin(), chunk.end());
    }
    int peak = 0;
    EXPECT_NEAR(200, ZeroCrossings(bytes, 3, 0, &peak), 2);
    EXPECT_NEAR(16384, peak, 200);
    EXPECT_NEAR(88, ZeroCrossings(bytes, 3, 1, &peak), 2);
    EXPECT_NEAR(10000, peak, 200);
    EXPECT_NEAR(88, ZeroCrossings(bytes, 3, 2, &peak), 2) << "channels past the list play the last tone";
    EXPECT_EQ(-EINVAL, vcard_set_source_sine(1, 0, nullptr, 0));
    EXPECT_STREQ("a sine source needs at least one tone", vcard_last_error());
}

TEST_F(CaptureSourceTest, RawFileSourcePlaysTheBytesThenSilenceOrStartsOver) {
    audiomw_test::WriteFileBytes(Path("in.raw"), Le16({1, 2, 3, 4, 5, 6}));
    audiomw_test::WriteFileBytes(Path("empty.raw"), {});
    ASSERT_EQ(0, vcard_set_source_file(1, 0, VCARD_FILE_RAW, Path("in.raw").c_str(), 0));
    {
        PcmHandle handle(1, 0, PCM_IN, Config(2, 16000, 2));
        ASSERT_EQ(1, pcm_is_ready(handle.get())) << handle.Error();
        EXPECT_EQ(Le16({1, 2, 3, 4}), Read(handle.get(), 2));
        EXPECT_EQ(Le16({5, 6, 0, 0}), Read(handle.get(), 2));
        EXPECT_EQ(Le16({0, 0, 0, 0}), Read(handle.get(), 2));
    }
    ASSERT_EQ(0, vcard_set_source_file(1, 0, VCARD_FILE_RAW, Path("in.raw").c_str(), 1));
    {
        PcmHandle handle(1, 0, PCM_IN, Config(2, 16000, 2));
        EXPECT_EQ(Le16({1, 2, 3, 4, 5, 6, 1, 2, 3, 4, 5, 6, 1, 2}), Read(handle.get(), 7));
    }
    ASSERT_EQ(0, vcard_set_source_file(1, 0, VCARD_FILE_RAW, Path("empty.raw").c_str(), 1));
    {
        PcmHandle empty(1, 0, PCM_IN, Config(1, 16000, 2));
        EXPECT_EQ(Le16({0, 0, 0}), Read(empty.get(), 3)) << "a looping empty file is silence";
    }
    ASSERT_EQ(0, vcard_set_source_file(1, 0, VCARD_FILE_RAW, Path("none.raw").c_str(), 0));
    PcmHandle missing(1, 0, PCM_IN, Config(1, 16000, 2));
    EXPECT_EQ(0, pcm_is_ready(missing.get()));
    EXPECT_EQ("card 1 device 0 capture: cannot open source file '" + Path("none.raw") +
                  "': No such file or directory",
              missing.Error());
    EXPECT_EQ(1u, Counters(1, 0, VCARD_CAPTURE).failed_opens);
}

void WriteWav(const std::string& path, int channels, const std::vector<int16_t>& samples) {
    SF_INFO info{};
    info.samplerate = 16000;
    info.channels = channels;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    ASSERT_NE(nullptr, file) << sf_strerror(nullptr);
    EXPECT_EQ(static_cast<sf_count_t>(samples.size()), sf_write_short(file, samples.data(), samples.size()));
    sf_close(file);
}

TEST_F(CaptureSourceTest, WavSourceMapsFileChannelsOntoThePcm) {
    WriteWav(Path("in.wav"), 1, {100, -200, 300});
    ASSERT_EQ(0, vcard_set_source_file(1, 0, VCARD_FILE_WAV, Path("in.wav").c_str(), 0));
    {
        PcmHandle handle(1, 0, PCM_IN, Config(2, 16000, 2));
        ASSERT_EQ(1, pcm_is_ready(handle.get())) << handle.Error();
        EXPECT_EQ(Le16({100, 0, -200, 0, 300, 0, 0, 0}), Read(handle.get(), 4))
            << "missing channel is silent";
    }
    WriteWav(Path("stereo.wav"), 2, {1, 2, 3, 4});
    ASSERT_EQ(0, vcard_set_source_file(1, 0, VCARD_FILE_WAV, Path("stereo.wav").c_str(), 1));
    PcmHandle handle(1, 0, PCM_IN, Config(1, 16000, 2, PCM_FORMAT_S32_SLOT_LE));
    EXPECT_EQ(Le32({1 << 16, 3 << 16, 1 << 16}), Read(handle.get(), 3)) << "extra channel dropped, looped";
}

struct CallbackLog {
    int result = 0;
    std::vector<unsigned long long> firstFrames;
};

// Fills every sample with first frame + 7 and returns the result the test chose.
int FillWithFrameIndex(void* user, void* data, unsigned int frames, unsigned long long first,
                       const pcm_config* config) {
    auto* log = static_cast<CallbackLog*>(user);
    log->firstFrames.push_back(first);
    std::fill_n(static_cast<int16_t*>(data), frames * config->channels, static_cast<int16_t>(first + 7));
    return log->result;
}

TEST_F(CaptureSourceTest, CallbackSourceFillsTheBufferOrFailsTheRead) {
    CallbackLog log;
    ASSERT_EQ(0, vcard_set_source_callback(1, 0, FillWithFrameIndex, &log));
    PcmHandle handle(1, 0, PCM_IN, Config(2, 16000, 3));
    EXPECT_EQ(Le16({7, 7, 7, 7, 7, 7}), Read(handle.get(), 3));
    EXPECT_EQ(Le16({10, 10}), Read(handle.get(), 1));
    log.result = -EIO;
    uint8_t buffer[12];
    EXPECT_EQ(-EIO, pcm_readi(handle.get(), buffer, 3));
    EXPECT_EQ("cannot read stream data: Input/output error", handle.Error());
    EXPECT_EQ(0, pcm_get_underruns(handle.get()));
    EXPECT_EQ(std::vector<unsigned long long>({0, 3, 4}), log.firstFrames);
    EXPECT_EQ(-EINVAL, vcard_set_source_callback(1, 0, nullptr, nullptr));
}

TEST_F(CaptureSourceTest, ASourceSetWhileOpenTakesEffectAtTheNextOpen) {
    pcm* first = Open(1, 0, PCM_IN, Config(1, 16000, 2));
    ASSERT_EQ(0, vcard_set_source_silence(1, 0));
    EXPECT_EQ(Le16({0, 1}), Read(first, 2));
    pcm_close(first);
    PcmHandle second(1, 0, PCM_IN, Config(1, 16000, 2));
    EXPECT_EQ(Le16({0, 0}), Read(second.get(), 2));
}

}  // namespace
}  // namespace tinyalsa_test
