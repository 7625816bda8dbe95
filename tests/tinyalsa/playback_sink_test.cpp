// Where virtual playback PCMs put their frames: memory, WAV and raw files.
#include <sndfile.h>

#include <cerrno>

#include "vcard_fixture.h"

namespace tinyalsa_test {
namespace {

class PlaybackSinkTest : public VcardTest {
  protected:
    void SetUp() override {
        VcardTest::SetUp();
        ASSERT_EQ(
            0, AddPcm(Desc(2, 0, VCARD_PLAYBACK, 1, 2, 8000, 48000,
                           VCARD_FORMAT_BIT(PCM_FORMAT_S16_LE) | VCARD_FORMAT_BIT(PCM_FORMAT_S32_SLOT_LE))));
    }

    static void Write(pcm* handle, const std::vector<uint8_t>& bytes) {
        unsigned int frames = pcm_bytes_to_frames(handle, static_cast<unsigned int>(bytes.size()));
        EXPECT_EQ(static_cast<int>(frames), pcm_writei(handle, bytes.data(), frames))
            << pcm_get_error(handle);
    }

    static std::vector<uint8_t> MemoryBytes() {
        long size = vcard_memory_size(2, 0);
        std::vector<uint8_t> bytes(size > 0 ? size : 0);
        EXPECT_EQ(size, vcard_memory_read(2, 0, 0, bytes.data(), bytes.size()));
        return bytes;
    }
};

std::vector<uint8_t> Concat(std::vector<uint8_t> a, const std::vector<uint8_t>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

TEST_F(PlaybackSinkTest, MemorySinkKeepsTheWrittenBytesInOrder) {
    ASSERT_EQ(0, vcard_set_sink_memory(2, 0, 0));
    std::vector<uint8_t> first = audiomw_test::MakePattern(2, 160, 1, 0);
    std::vector<uint8_t> second = audiomw_test::MakePattern(2, 160, 1, 160);
    {
        PcmHandle handle(2, 0, PCM_OUT, Config(2, 16000, 160));
        ASSERT_EQ(1, pcm_is_ready(handle.get())) << handle.Error();
        Write(handle.get(), first);
        Write(handle.get(), second);
    }
    EXPECT_EQ(Concat(first, second), MemoryBytes()) << "kept after close";
    vcard_counters counters = Counters(2, 0, VCARD_PLAYBACK);
    EXPECT_EQ(2u, counters.writes);
    EXPECT_EQ(320u, counters.frames_written);
    EXPECT_EQ(1u, counters.closes);

    std::vector<uint8_t> tail(8);
    EXPECT_EQ(4, vcard_memory_read(2, 0, first.size() + second.size() - 4, tail.data(), tail.size()));
    EXPECT_TRUE(std::equal(second.end() - 4, second.end(), tail.begin()));
    EXPECT_EQ(0, vcard_memory_read(2, 0, 100000, tail.data(), tail.size()));
}

TEST_F(PlaybackSinkTest, TakingRemovesBytesFromTheFront) {
    ASSERT_EQ(0, vcard_set_sink_memory(2, 0, 1024));
    PcmHandle handle(2, 0, PCM_OUT, Config(1, 16000, 4));
    Write(handle.get(), Le16({1, 2, 3, 4}));
    std::vector<uint8_t> taken(6);
    EXPECT_EQ(6, vcard_memory_take(2, 0, taken.data(), taken.size()));
    EXPECT_EQ(Le16({1, 2, 3}), taken);
    Write(handle.get(), Le16({5, 6}));
    EXPECT_EQ(Le16({4, 5, 6}), MemoryBytes());
    EXPECT_EQ(0, vcard_memory_clear(2, 0));
    EXPECT_EQ(0, vcard_memory_size(2, 0));
    EXPECT_EQ(0, vcard_memory_take(2, 0, taken.data(), taken.size()));
}

TEST_F(PlaybackSinkTest, AFullMemorySinkDropsAndCountsTheRest) {
    ASSERT_EQ(0, vcard_set_sink_memory(2, 0, 10));
    PcmHandle handle(2, 0, PCM_OUT, Config(1, 16000, 4));
    Write(handle.get(), Le16({1, 2, 3, 4}));
    Write(handle.get(), Le16({5, 6, 7, 8}));
    EXPECT_EQ(Le16({1, 2, 3, 4, 5}), MemoryBytes());
    EXPECT_EQ(6u, Counters(2, 0, VCARD_PLAYBACK).memory_dropped);
    EXPECT_EQ(2u, Counters(2, 0, VCARD_PLAYBACK).writes) << "dropping is not a write failure";
}

TEST_F(PlaybackSinkTest, MemoryCallsNeedAMemorySink) {
    uint8_t byte = 0;
    EXPECT_EQ(-EINVAL, vcard_memory_size(2, 0));
    EXPECT_STREQ("card 2 device 0 playback: the sink is not a memory sink", vcard_last_error());
    EXPECT_EQ(-EINVAL, vcard_memory_read(2, 0, 0, &byte, 1));
    EXPECT_EQ(-EINVAL, vcard_memory_take(2, 0, &byte, 1));
    EXPECT_EQ(-EINVAL, vcard_memory_clear(2, 0));
    EXPECT_EQ(-ENOENT, vcard_memory_size(2, 1));
    EXPECT_EQ(-EINVAL, vcard_memory_read(2, 0, 0, nullptr, 1));
    ASSERT_EQ(0, vcard_set_sink_memory(2, 0, 16));
    EXPECT_EQ(0, vcard_memory_size(2, 0));
    EXPECT_STREQ("", vcard_last_error());
}

struct WavContent {
    SF_INFO info{};
    std::vector<int32_t> samples;
};

WavContent ReadWav(const std::string& path) {
    WavContent wav;
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &wav.info);
    EXPECT_NE(nullptr, file) << sf_strerror(nullptr);
    if (file != nullptr) {
        wav.samples.resize(static_cast<size_t>(wav.info.frames * wav.info.channels));
        EXPECT_EQ(wav.info.frames, sf_readf_int(file, wav.samples.data(), wav.info.frames));
        sf_close(file);
    }
    return wav;
}

TEST_F(PlaybackSinkTest, WavSinkHasThePcmRateChannelsAndFrames) {
    std::string path = Path("out.wav");
    ASSERT_EQ(0, vcard_set_sink_file(2, 0, VCARD_FILE_WAV, path.c_str()));
    std::vector<uint8_t> written;
    {
        PcmHandle handle(2, 0, PCM_OUT, Config(2, 16000, 160));
        ASSERT_EQ(1, pcm_is_ready(handle.get())) << handle.Error();
        for (uint32_t period = 0; period < 3; ++period) {
            std::vector<uint8_t> bytes = audiomw_test::MakePattern(2, 160, 3, period * 160);
            Write(handle.get(), bytes);
            written.insert(written.end(), bytes.begin(), bytes.end());
        }
        Write(handle.get(), audiomw_test::MakePattern(2, 400, 3, 480));  // longer than a period
        std::vector<uint8_t> more = audiomw_test::MakePattern(2, 400, 3, 480);
        written.insert(written.end(), more.begin(), more.end());
    }
    WavContent wav = ReadWav(path);
    EXPECT_EQ(16000, wav.info.samplerate);
    EXPECT_EQ(2, wav.info.channels);
    EXPECT_EQ(880, wav.info.frames);
    EXPECT_EQ(SF_FORMAT_WAV | SF_FORMAT_PCM_16, wav.info.format);
    std::vector<int16_t> expected = audiomw_test::ToSamples(written);
    ASSERT_EQ(expected.size(), wav.samples.size());
    for (size_t i = 0; i < expected.size(); ++i) {
        ASSERT_EQ(expected[i] * 65536, wav.samples[i]) << "sample " << i;
    }
}

TEST_F(PlaybackSinkTest, WavSinkOfFormatSevenIs32BitPcm) {
    std::string path = Path("slots.wav");
    ASSERT_EQ(0, vcard_set_sink_file(2, 0, VCARD_FILE_WAV, path.c_str()));
    {
        PcmHandle handle(2, 0, PCM_OUT, Config(2, 48000, 2, PCM_FORMAT_S32_SLOT_LE));
        ASSERT_EQ(1, pcm_is_ready(handle.get())) << handle.Error();
        Write(handle.get(), Le32({1, -2, 0x12345678, INT32_MIN}));
    }
    WavContent wav = ReadWav(path);
    EXPECT_EQ(48000, wav.info.samplerate);
    EXPECT_EQ(SF_FORMAT_WAV | SF_FORMAT_PCM_32, wav.info.format);
    EXPECT_EQ(std::vector<int32_t>({1, -2, 0x12345678, INT32_MIN}), wav.samples);
}

TEST_F(PlaybackSinkTest, RawSinkHoldsTheBytesOfTheLastOpening) {
    std::string path = Path("out.raw");
    ASSERT_EQ(0, vcard_set_sink_file(2, 0, VCARD_FILE_RAW, path.c_str()));
    {
        PcmHandle handle(2, 0, PCM_OUT, Config(1, 16000, 4));
        Write(handle.get(), Le16({9, 9, 9, 9}));
    }
    {
        PcmHandle handle(2, 0, PCM_OUT, Config(1, 16000, 4));
        Write(handle.get(), Le16({1, -1, 2}));
    }
    EXPECT_EQ(Le16({1, -1, 2}), audiomw_test::ReadFileBytes(path));
}

TEST_F(PlaybackSinkTest, SinkFileThatCannotBeCreatedRefusesTheOpen) {
    std::string path = Path("no/such/dir/out.raw");
    ASSERT_EQ(0, vcard_set_sink_file(2, 0, VCARD_FILE_RAW, path.c_str()));
    PcmHandle raw(2, 0, PCM_OUT, Config(1, 16000, 4));
    EXPECT_EQ(0, pcm_is_ready(raw.get()));
    EXPECT_EQ("card 2 device 0 playback: cannot create sink file '" + path + "': No such file or directory",
              raw.Error());
    ASSERT_EQ(0, vcard_set_sink_file(2, 0, VCARD_FILE_WAV, path.c_str()));
    PcmHandle wav(2, 0, PCM_OUT, Config(1, 16000, 4));
    EXPECT_EQ(0, pcm_is_ready(wav.get()));
    EXPECT_EQ(0u, wav.Error().find("card 2 device 0 playback: cannot create sink file '" + path + "': "));
    EXPECT_EQ(0, Counters(2, 0, VCARD_PLAYBACK).is_open);
}

TEST_F(PlaybackSinkTest, SinksApplyToPlaybackPcmsOnly) {
    ASSERT_EQ(0, AddPcm(Desc(2, 1, VCARD_CAPTURE, 1, 2, 8000, 48000)));
    EXPECT_EQ(-ENOENT, vcard_set_sink_memory(2, 1, 0));
    EXPECT_STREQ("card 2 device 1 playback: no such virtual PCM", vcard_last_error());
    EXPECT_EQ(-ENOENT, vcard_set_source_pattern(2, 0));
    EXPECT_EQ(-EINVAL, vcard_set_sink_file(2, 0, VCARD_FILE_WAV, ""));
}

}  // namespace
}  // namespace tinyalsa_test
