// Where virtual playback PCMs put their frames: memory, WAV and raw files.
#include <sndfile.h>

#include <algorithm>
#include <cerrno>
#include <tuple>

#include "vcard_fixture.h"

namespace tinyalsa_test {
namespace {

class PlaybackSinkTest : public BoardTest {
  protected:
    static std::vector<uint8_t> MemoryBytes() {
        std::vector<uint8_t> bytes(std::max(vcard_memory_size(2, 0), 0L));
        EXPECT_EQ(static_cast<long>(bytes.size()), vcard_memory_read(2, 0, 0, bytes.data(), bytes.size()));
        return bytes;
    }
};

// Kept after close; read from an offset, taken from the front, cleared.
TEST_F(PlaybackSinkTest, MemorySinkKeepsTheWrittenBytesInOrder) {
    std::vector<uint8_t> written = audiomw_test::MakePattern(2, 320, 1, 0);
    {
        PcmHandle handle(2, 0, PCM_OUT, Config(2, 16000, 160));
        ASSERT_EQ(1, pcm_is_ready(handle.get())) << handle.Error();
        Write(handle.get(), {written.begin(), written.begin() + 640});
        Write(handle.get(), {written.begin() + 640, written.end()});
    }
    EXPECT_EQ(written, MemoryBytes());
    vcard_counters counters = Counters(2, 0, VCARD_PLAYBACK);
    EXPECT_EQ(2u, counters.writes);
    EXPECT_EQ(320u, counters.frames_written);
    std::vector<uint8_t> tail(8);
    EXPECT_EQ(4, vcard_memory_read(2, 0, written.size() - 4, tail.data(), tail.size()));
    EXPECT_TRUE(std::equal(written.end() - 4, written.end(), tail.begin()));
    EXPECT_EQ(0, vcard_memory_read(2, 0, 100000, tail.data(), tail.size()));

    EXPECT_EQ(6, vcard_memory_take(2, 0, tail.data(), 6));
    EXPECT_TRUE(std::equal(written.begin(), written.begin() + 6, tail.begin()));
    EXPECT_EQ(std::vector<uint8_t>(written.begin() + 6, written.end()), MemoryBytes());
    EXPECT_EQ(0, vcard_memory_clear(2, 0));
    EXPECT_EQ(0, vcard_memory_size(2, 0));
    EXPECT_EQ(0, vcard_memory_take(2, 0, tail.data(), tail.size()));
}

// 16-bit PCM for S16_LE (libsndfile reads it back as level x 65536), 32-bit for code 7;
// finished by pcm_close.
TEST_F(PlaybackSinkTest, WavSinkHasThePcmRateChannelsAndSamples) {
    std::vector<uint8_t> written = audiomw_test::MakePattern(2, 560, 3, 0);
    std::vector<int32_t> levels;
    for (int16_t s : audiomw_test::ToSamples(written)) {
        levels.push_back(s * 65536);
    }
    const std::vector<int32_t> slots = {1, -2, 0x12345678, INT32_MIN};
    ASSERT_EQ(0, vcard_set_sink_file(2, 0, VCARD_FILE_WAV, Path("out.wav").c_str()));
    {
        PcmHandle handle(2, 0, PCM_OUT, Config(2, 16000, 160));
        Write(handle.get(), {written.begin(), written.begin() + 640});
        Write(handle.get(), {written.begin() + 640, written.end()});  // longer than a period
    }
    ASSERT_EQ(0, vcard_set_sink_file(2, 0, VCARD_FILE_WAV, Path("slots.wav").c_str()));
    {
        PcmHandle handle(2, 0, PCM_OUT, Config(2, 48000, 2, PCM_FORMAT_S32_SLOT_LE));
        Write(handle.get(), Le32(slots));
    }
    const std::tuple<const char*, int, int, std::vector<int32_t>> files[] = {
        {"out.wav", 16000, SF_FORMAT_PCM_16, levels}, {"slots.wav", 48000, SF_FORMAT_PCM_32, slots}};
    for (const auto& [name, rate, format, samples] : files) {
        SF_INFO info{};
        SNDFILE* file = sf_open(Path(name).c_str(), SFM_READ, &info);
        ASSERT_NE(nullptr, file) << sf_strerror(nullptr);
        std::vector<int32_t> read(samples.size() + 2);  // room for a stray frame
        read.resize(sf_read_int(file, read.data(), read.size()));
        sf_close(file);
        EXPECT_EQ(rate, info.samplerate);
        EXPECT_EQ(2, info.channels);
        EXPECT_EQ(SF_FORMAT_WAV | format, info.format);
        EXPECT_EQ(samples, read) << name;
    }
}

}  // namespace
}  // namespace tinyalsa_test
