// Shared set-up of the tinyalsa tests: an empty set of virtual cards per test, a
// scratch root, and short-hands for descriptions, configurations and reads.
#ifndef AUDIOMW_TESTS_TINYALSA_VCARD_FIXTURE_H
#define AUDIOMW_TESTS_TINYALSA_VCARD_FIXTURE_H

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "test_support.h"
#include "tinyalsa/asoundlib.h"
#include "tinyalsa/vcard.h"

namespace tinyalsa_test {

inline vcard_pcm_desc Desc(unsigned int card, unsigned int device, vcard_direction direction,
                           unsigned int channelsMin, unsigned int channelsMax, unsigned int rateMin,
                           unsigned int rateMax, unsigned int formats = VCARD_FORMAT_BIT(PCM_FORMAT_S16_LE)) {
    vcard_pcm_desc desc;
    vcard_pcm_desc_init(&desc, card, device, direction);
    desc.channels_min = channelsMin;
    desc.channels_max = channelsMax;
    desc.rate_min = rateMin;
    desc.rate_max = rateMax;
    desc.formats = formats;
    return desc;
}

inline pcm_config Config(unsigned int channels, unsigned int rate, unsigned int periodSize,
                         pcm_format format = PCM_FORMAT_S16_LE, unsigned int periodCount = 4) {
    return pcm_config{channels, rate, periodSize, periodCount, format, 0, 0, 0, 0, 0};
}

inline int AddPcm(const vcard_pcm_desc& desc) {
    return vcard_add_pcm(&desc);
}

inline pcm* Open(unsigned int card, unsigned int device, unsigned int flags, const pcm_config& config) {
    return pcm_open(card, device, flags, &config);
}

// Closes its PCM on scope exit.
class PcmHandle {
  public:
    PcmHandle(unsigned int card, unsigned int device, unsigned int flags, const pcm_config& config)
        : m_pcm(Open(card, device, flags, config)) {}
    ~PcmHandle() { pcm_close(m_pcm); }
    PcmHandle(const PcmHandle&) = delete;
    PcmHandle& operator=(const PcmHandle&) = delete;
    pcm* get() const { return m_pcm; }
    std::string Error() const { return pcm_get_error(m_pcm); }

  private:
    pcm* m_pcm;
};

inline vcard_counters Counters(unsigned int card, unsigned int device, vcard_direction direction) {
    vcard_counters counters{};
    EXPECT_EQ(0, vcard_get_counters(card, device, direction, &counters));
    return counters;
}

// Reads `frames` frames and returns their bytes.
inline std::vector<uint8_t> Read(pcm* handle, unsigned int frames) {
    std::vector<uint8_t> bytes(pcm_frames_to_bytes(handle, frames), 0xAA);
    EXPECT_EQ(static_cast<int>(frames), pcm_readi(handle, bytes.data(), frames)) << pcm_get_error(handle);
    return bytes;
}

// Little-endian bytes of 16-bit or 32-bit samples.
inline std::vector<uint8_t> Le16(const std::vector<int16_t>& samples) {
    return audiomw_test::ToBytes(samples);
}

inline std::vector<uint8_t> Le32(const std::vector<int32_t>& samples) {
    std::vector<uint8_t> bytes;
    for (int32_t s : samples) {
        for (int i = 0; i < 4; ++i) {
            bytes.push_back(static_cast<uint8_t>(static_cast<uint32_t>(s) >> (8 * i)));
        }
    }
    return bytes;
}

class VcardTest : public ::testing::Test {
  protected:
    void SetUp() override { vcard_reset(); }
    void TearDown() override { vcard_reset(); }
    audiomw_test::ScratchRoot root;
};

// Card 1: a capture PCM with a pattern source; card 2: a playback PCM with a memory
// sink; both 8000-48000 Hz in S16_LE and S32_SLOT_LE.
class BoardTest : public VcardTest {
  protected:
    void SetUp() override {
        VcardTest::SetUp();
        const unsigned int formats =
            VCARD_FORMAT_BIT(PCM_FORMAT_S16_LE) | VCARD_FORMAT_BIT(PCM_FORMAT_S32_SLOT_LE);
        ASSERT_EQ(0, AddPcm(Desc(1, 0, VCARD_CAPTURE, 1, 4, 8000, 48000, formats)));
        ASSERT_EQ(0, AddPcm(Desc(2, 0, VCARD_PLAYBACK, 1, 2, 8000, 48000, formats)));
        ASSERT_EQ(0, vcard_set_source_pattern(1, 0));
        ASSERT_EQ(0, vcard_set_sink_memory(2, 0, 0));
    }
};

}  // namespace tinyalsa_test

#endif  // AUDIOMW_TESTS_TINYALSA_VCARD_FIXTURE_H
