// Opening a PCM in format 7 (4 bytes a sample) and the busy contract of an open PCM.
#include <cstring>

#include "vcard_fixture.h"

namespace tinyalsa_test {
namespace {

using PcmOpenTest = VcardTest;

// Open at the top of the ranges in format 7; a second open is busy until the first closes.
TEST_F(PcmOpenTest, OpenAtTheRangeEdgesRecordsTheConfigurationAndHoldsThePcm) {
    ASSERT_EQ(0,
              AddPcm(Desc(3, 0, VCARD_CAPTURE, 2, 4, 16000, 48000,
                          VCARD_FORMAT_BIT(PCM_FORMAT_S16_LE) | VCARD_FORMAT_BIT(PCM_FORMAT_S32_SLOT_LE))));
    pcm_config config = Config(4, 48000, 960, PCM_FORMAT_S32_SLOT_LE, 20);
    pcm* first = Open(3, 0, PCM_IN, config);
    ASSERT_EQ(1, pcm_is_ready(first)) << pcm_get_error(first);
    EXPECT_EQ(16u * 960u, pcm_frames_to_bytes(first, 960)) << "code 7 carries 4 bytes a sample";
    EXPECT_EQ(960u, pcm_bytes_to_frames(first, 16 * 960 + 15));
    EXPECT_EQ(960u * 20u, pcm_get_buffer_size(first));
    EXPECT_EQ(32u, pcm_format_to_bits(PCM_FORMAT_S32_SLOT_LE));
    EXPECT_EQ(24u, pcm_format_to_bits(PCM_FORMAT_S24_3LE));
    EXPECT_EQ(0u, pcm_format_to_bits(PCM_FORMAT_MAX));
    vcard_counters counters = Counters(3, 0, VCARD_CAPTURE);
    EXPECT_EQ(1, counters.is_open);
    EXPECT_EQ(static_cast<unsigned int>(PCM_IN), counters.last_flags);
    EXPECT_EQ(0, std::memcmp(&config, &counters.last_config, sizeof(config)));
    {
        PcmHandle second(3, 0, PCM_IN, Config(2, 16000, 320));
        EXPECT_EQ(0, pcm_is_ready(second.get()));
        EXPECT_EQ("card 3 device 0 capture: busy, already open", second.Error());
    }
    EXPECT_EQ(0, pcm_close(first));
    PcmHandle third(3, 0, PCM_IN, Config(2, 16000, 320));
    EXPECT_EQ(1, pcm_is_ready(third.get())) << third.Error();
    counters = Counters(3, 0, VCARD_CAPTURE);
    EXPECT_EQ(2u, counters.opens);
    EXPECT_EQ(1u, counters.closes);
    EXPECT_EQ(1u, counters.failed_opens);
}

}  // namespace
}  // namespace tinyalsa_test
