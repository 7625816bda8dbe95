// The stand-in's side of the board contract the playback device relies on: format code 7
// moves 4 bytes a sample, the open PCM keeps the configuration it was given, and a
// second open of it is refused as busy until the first is closed.
#include <cstring>

#include "test_support.h"
#include "tinyalsa/asoundlib.h"
#include "tinyalsa/vcard.h"

namespace {

class PcmOpenTest : public ::testing::Test {
  protected:
    void SetUp() override { vcard_reset(); }
    void TearDown() override { vcard_reset(); }
    audiomw_test::ScratchRoot root;
};

TEST_F(PcmOpenTest, FormatSevenTakesFourBytesASampleAndAnOpenPcmIsBusy) {
    vcard_pcm_desc desc;
    vcard_pcm_desc_init(&desc, 3, 0, VCARD_PLAYBACK);
    desc.channels_min = 1;
    desc.channels_max = 2;
    desc.rate_min = 8000;
    desc.rate_max = 48000;
    desc.formats = VCARD_FORMAT_BIT(PCM_FORMAT_S16_LE) | VCARD_FORMAT_BIT(PCM_FORMAT_S32_SLOT_LE);
    ASSERT_EQ(0, vcard_add_pcm(&desc));
    pcm_config config = {2, 48000, 160, 4, static_cast<pcm_format>(7), 0, 0, 0, 0, 0};
    pcm* first = pcm_open(3, 0, PCM_OUT, &config);
    ASSERT_EQ(1, pcm_is_ready(first)) << pcm_get_error(first);
    EXPECT_EQ(8u * 160u, pcm_frames_to_bytes(first, 160)) << "two channels of 4 bytes a frame";
    vcard_counters counters{};
    ASSERT_EQ(0, vcard_get_counters(3, 0, VCARD_PLAYBACK, &counters));
    EXPECT_EQ(0, std::memcmp(&config, &counters.last_config, sizeof(config)));

    pcm* second = pcm_open(3, 0, PCM_OUT, &config);
    EXPECT_EQ(0, pcm_is_ready(second));
    EXPECT_STREQ("card 3 device 0 playback: busy, already open", pcm_get_error(second));
    pcm_close(second);
    EXPECT_EQ(0, pcm_close(first));
    pcm* third = pcm_open(3, 0, PCM_OUT, &config);
    EXPECT_EQ(1, pcm_is_ready(third)) << pcm_get_error(third);
    pcm_close(third);
}

}  // namespace
