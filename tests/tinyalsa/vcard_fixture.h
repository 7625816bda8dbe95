// Shared set-up of the tinyalsa tests: an empty set of virtual cards per test, a
// scratch directory for files, and short-hands for descriptions and configurations.
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
    pcm_config config{};
    config.channels = channels;
    config.rate = rate;
    config.period_size = periodSize;
    config.period_count = periodCount;
    config.format = format;
    return config;
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
        : m_pcm(pcm_open(card, device, flags, &config)) {}
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

// Little-endian bytes of 16-bit or 32-bit samples.
inline std::vector<uint8_t> Le16(const std::vector<int16_t>& samples) {
    std::vector<uint8_t> bytes;
    for (int16_t s : samples) {
        bytes.push_back(static_cast<uint8_t>(static_cast<uint16_t>(s) & 0xFF));
        bytes.push_back(static_cast<uint8_t>(static_cast<uint16_t>(s) >> 8));
    }
    return bytes;
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
    std::string Path(const std::string& name) const { return root.Path("/tmp/" + name); }

    audiomw_test::ScratchRoot root;
};

}  // namespace tinyalsa_test

#endif  // AUDIOMW_TESTS_TINYALSA_VCARD_FIXTURE_H
