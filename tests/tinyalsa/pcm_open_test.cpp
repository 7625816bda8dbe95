// Parameters, opening and the handle contract of the tinyalsa functions.
#include <cerrno>
#include <cstring>

#include "vcard_fixture.h"

namespace tinyalsa_test {
namespace {

using PcmOpenTest = VcardTest;

TEST_F(PcmOpenTest, ParamsReportTheDeclaredRangesPerDirection) {
    ASSERT_EQ(0, AddPcm(Desc(2, 0, VCARD_PLAYBACK, 1, 2, 8000, 48000)));
    ASSERT_EQ(0,
              AddPcm(Desc(2, 0, VCARD_CAPTURE, 4, 8, 16000, 16000,
                          VCARD_FORMAT_BIT(PCM_FORMAT_S16_LE) | VCARD_FORMAT_BIT(PCM_FORMAT_S32_SLOT_LE))));

    pcm_params* out = pcm_params_get(2, 0, PCM_OUT);
    ASSERT_NE(nullptr, out);
    EXPECT_EQ(1u, pcm_params_get_min(out, PCM_PARAM_CHANNELS));
    EXPECT_EQ(2u, pcm_params_get_max(out, PCM_PARAM_CHANNELS));
    EXPECT_EQ(8000u, pcm_params_get_min(out, PCM_PARAM_RATE));
    EXPECT_EQ(48000u, pcm_params_get_max(out, PCM_PARAM_RATE));
    EXPECT_EQ(16u, pcm_params_get_min(out, PCM_PARAM_SAMPLE_BITS));
    EXPECT_EQ(16u, pcm_params_get_max(out, PCM_PARAM_SAMPLE_BITS));
    EXPECT_EQ(1u, pcm_params_get_min(out, PCM_PARAM_PERIOD_SIZE));
    EXPECT_EQ(65536u, pcm_params_get_max(out, PCM_PARAM_PERIOD_SIZE));
    EXPECT_EQ(1024u, pcm_params_get_max(out, PCM_PARAM_PERIODS));
    EXPECT_EQ(0u, pcm_params_get_max(out, PCM_PARAM_ACCESS));  // masks have no range
    pcm_params_free(out);

    pcm_params* in = pcm_params_get(2, 0, PCM_IN);
    ASSERT_NE(nullptr, in);
    EXPECT_EQ(4u, pcm_params_get_min(in, PCM_PARAM_CHANNELS));
    EXPECT_EQ(8u, pcm_params_get_max(in, PCM_PARAM_CHANNELS));
    EXPECT_EQ(16000u, pcm_params_get_min(in, PCM_PARAM_RATE));
    EXPECT_EQ(16000u, pcm_params_get_max(in, PCM_PARAM_RATE));
    EXPECT_EQ(32u, pcm_params_get_max(in, PCM_PARAM_SAMPLE_BITS));
    EXPECT_EQ(4u * 16u, pcm_params_get_min(in, PCM_PARAM_FRAME_BITS));
    EXPECT_EQ(8u * 32u, pcm_params_get_max(in, PCM_PARAM_FRAME_BITS));
    EXPECT_EQ(0u, pcm_params_get_max(in, static_cast<pcm_param>(99)));
    pcm_params_free(in);
}

TEST_F(PcmOpenTest, ParamsAreNullForMissingDevicesAndNonVirtualCards) {
    ASSERT_EQ(0, AddPcm(Desc(2, 0, VCARD_PLAYBACK, 1, 2, 8000, 48000)));
    EXPECT_EQ(nullptr, pcm_params_get(2, 0, PCM_IN));
    EXPECT_EQ(nullptr, pcm_params_get(2, 1, PCM_OUT));
    EXPECT_EQ(nullptr, pcm_params_get(31, 0, PCM_OUT));
    EXPECT_EQ(0u, pcm_params_get_min(nullptr, PCM_PARAM_RATE));
    EXPECT_EQ(0u, pcm_params_get_max(nullptr, PCM_PARAM_RATE));
    pcm_params_free(nullptr);
}

struct RefusedOpen {
    const char* name;
    pcm_config config;
    const char* error;
};

class PcmOpenRefusedTest : public VcardTest, public ::testing::WithParamInterface<RefusedOpen> {};

TEST_P(PcmOpenRefusedTest, OpenOutsideTheRangesGivesAHandleThatIsNotReady) {
    ASSERT_EQ(0, AddPcm(Desc(2, 0, VCARD_PLAYBACK, 1, 2, 8000, 16000)));
    PcmHandle handle(2, 0, PCM_OUT, GetParam().config);
    ASSERT_NE(nullptr, handle.get());
    EXPECT_EQ(0, pcm_is_ready(handle.get()));
    EXPECT_EQ(GetParam().error, handle.Error());
    EXPECT_EQ(-EBADFD, pcm_writei(handle.get(), "\0\0\0\0", 1));
    EXPECT_EQ(-EBADFD, pcm_prepare(handle.get()));
    EXPECT_EQ(GetParam().error, handle.Error()) << "later calls keep the cause";
    vcard_counters counters = Counters(2, 0, VCARD_PLAYBACK);
    EXPECT_EQ(0u, counters.opens);
    EXPECT_EQ(1u, counters.failed_opens);
    EXPECT_EQ(0, counters.is_open);
}

INSTANTIATE_TEST_SUITE_P(
    Ranges, PcmOpenRefusedTest,
    ::testing::Values(RefusedOpen{"TooManyChannels", Config(3, 16000, 320),
                                  "card 2 device 0 playback: channels 3 outside 1-2"},
                      RefusedOpen{"NoChannels", Config(0, 16000, 320),
                                  "card 2 device 0 playback: channels 0 outside 1-2"},
                      RefusedOpen{"RateAbove", Config(2, 48000, 320),
                                  "card 2 device 0 playback: rate 48000 outside 8000-16000"},
                      RefusedOpen{"RateBelow", Config(2, 7999, 320),
                                  "card 2 device 0 playback: rate 7999 outside 8000-16000"},
                      RefusedOpen{"FormatSeven", Config(2, 16000, 320, PCM_FORMAT_S32_SLOT_LE),
                                  "card 2 device 0 playback: format 7 (s32_slot_le) not accepted"},
                      RefusedOpen{"FormatBigEndian", Config(2, 16000, 320, PCM_FORMAT_S16_BE),
                                  "card 2 device 0 playback: format 5 (s16_be) not accepted"},
                      RefusedOpen{"FormatUnknown", Config(2, 16000, 320, static_cast<pcm_format>(40)),
                                  "card 2 device 0 playback: format 40 (unknown) not accepted"},
                      RefusedOpen{"NoPeriod", Config(2, 16000, 0),
                                  "card 2 device 0 playback: period_size 0 outside 1-65536"},
                      RefusedOpen{"NoPeriods", Config(2, 16000, 320, PCM_FORMAT_S16_LE, 0),
                                  "card 2 device 0 playback: period_count 0 outside 1-1024"}),
    [](const ::testing::TestParamInfo<RefusedOpen>& info) { return std::string(info.param.name); });

TEST_F(PcmOpenTest, OpenAtTheRangeEdgesIsReadyAndRecordsTheConfiguration) {
    ASSERT_EQ(0,
              AddPcm(Desc(3, 0, VCARD_CAPTURE, 2, 4, 16000, 48000,
                          VCARD_FORMAT_BIT(PCM_FORMAT_S16_LE) | VCARD_FORMAT_BIT(PCM_FORMAT_S32_SLOT_LE))));
    pcm_config config = Config(2, 48000, 960, PCM_FORMAT_S32_SLOT_LE, 20);
    PcmHandle handle(3, 0, PCM_IN, config);
    ASSERT_EQ(1, pcm_is_ready(handle.get())) << handle.Error();
    EXPECT_EQ(8u * 960u, pcm_frames_to_bytes(handle.get(), 960)) << "code 7 carries 4 bytes a sample";
    EXPECT_EQ(960u, pcm_bytes_to_frames(handle.get(), 8 * 960 + 7));
    EXPECT_EQ(960u * 20u, pcm_get_buffer_size(handle.get()));

    vcard_counters counters = Counters(3, 0, VCARD_CAPTURE);
    EXPECT_EQ(1u, counters.opens);
    EXPECT_EQ(1, counters.is_open);
    EXPECT_EQ(1, counters.has_config);
    EXPECT_EQ(static_cast<unsigned int>(PCM_IN), counters.last_flags);
    EXPECT_EQ(0, std::memcmp(&config, &counters.last_config, sizeof(config)));
}

TEST_F(PcmOpenTest, ASecondOpenOfTheSamePcmIsBusyUntilTheFirstCloses) {
    ASSERT_EQ(0, AddPcm(Desc(2, 0, VCARD_PLAYBACK, 1, 2, 8000, 48000)));
    pcm* first = Open(2, 0, PCM_OUT, Config(2, 16000, 320));
    ASSERT_EQ(1, pcm_is_ready(first));
    {
        PcmHandle second(2, 0, PCM_OUT, Config(2, 16000, 320));
        EXPECT_EQ(0, pcm_is_ready(second.get()));
        EXPECT_EQ("card 2 device 0 playback: busy, already open", second.Error());
    }
    EXPECT_EQ(0, pcm_close(first));
    PcmHandle third(2, 0, PCM_OUT, Config(2, 16000, 320));
    EXPECT_EQ(1, pcm_is_ready(third.get())) << third.Error();
    vcard_counters counters = Counters(2, 0, VCARD_PLAYBACK);
    EXPECT_EQ(2u, counters.opens);
    EXPECT_EQ(1u, counters.closes);
    EXPECT_EQ(1u, counters.failed_opens);
}

TEST_F(PcmOpenTest, MissingDevicesOfAVirtualCardAndNonVirtualCardsFailWithTheirCause) {
    ASSERT_EQ(0, vcard_add_card(5));
    PcmHandle missing(5, 1, PCM_IN, Config(2, 16000, 320));
    EXPECT_EQ(0, pcm_is_ready(missing.get()));
    EXPECT_EQ("card 5 device 1 capture: no such virtual PCM", missing.Error());

    PcmHandle kernel(31, 0, PCM_OUT, Config(2, 16000, 320));
    EXPECT_EQ(0, pcm_is_ready(kernel.get()));
    std::string error = kernel.Error();
    EXPECT_EQ(0u, error.find("cannot open device '/dev/snd/pcmC31D0p'")) << error;
}

TEST_F(PcmOpenTest, NullHandlesAndWrongDirectionsAreRefused) {
    EXPECT_EQ(0, pcm_is_ready(nullptr));
    EXPECT_EQ(0, pcm_close(nullptr));
    EXPECT_STREQ("no PCM handle", pcm_get_error(nullptr));
    EXPECT_EQ(-EINVAL, pcm_readi(nullptr, nullptr, 0));
    EXPECT_EQ(-EINVAL, pcm_writei(nullptr, nullptr, 0));
    EXPECT_EQ(-EINVAL, pcm_prepare(nullptr));
    EXPECT_EQ(0, pcm_get_underruns(nullptr));
    timespec stamp{};
    unsigned int avail = 0;
    EXPECT_EQ(-1, pcm_get_htimestamp(nullptr, &avail, &stamp));

    ASSERT_EQ(0, AddPcm(Desc(2, 0, VCARD_PLAYBACK, 1, 2, 8000, 48000)));
    PcmHandle handle(2, 0, PCM_OUT, Config(1, 16000, 4));
    ASSERT_EQ(1, pcm_is_ready(handle.get()));
    uint8_t buffer[8] = {0};
    EXPECT_EQ(-EINVAL, pcm_readi(handle.get(), buffer, 4));
    EXPECT_EQ("cannot read from a playback PCM: Invalid argument", handle.Error());
    EXPECT_EQ(-EINVAL, pcm_writei(handle.get(), nullptr, 4));
    EXPECT_EQ(0, pcm_writei(handle.get(), buffer, 0));
    EXPECT_EQ(0u, Counters(2, 0, VCARD_PLAYBACK).writes);
}

TEST_F(PcmOpenTest, FormatBitsFollowTheEnumeration) {
    EXPECT_EQ(16u, pcm_format_to_bits(PCM_FORMAT_S16_LE));
    EXPECT_EQ(32u, pcm_format_to_bits(PCM_FORMAT_S32_LE));
    EXPECT_EQ(8u, pcm_format_to_bits(PCM_FORMAT_S8));
    EXPECT_EQ(24u, pcm_format_to_bits(PCM_FORMAT_S24_3LE));
    EXPECT_EQ(32u, pcm_format_to_bits(static_cast<pcm_format>(7)));
    EXPECT_EQ(32u, pcm_format_to_bits(PCM_FORMAT_FLOAT_BE));
    EXPECT_EQ(0u, pcm_format_to_bits(PCM_FORMAT_MAX));
    EXPECT_EQ(0x10000000, PCM_IN);
    EXPECT_EQ(0, PCM_OUT);
    EXPECT_EQ(5, PCM_PARAM_CHANNELS);
    EXPECT_EQ(6, PCM_PARAM_RATE);
    EXPECT_EQ(8, PCM_PARAM_PERIOD_SIZE);
}

TEST_F(PcmOpenTest, AddingAPcmAgainReplacesItWithFreshSettings) {
    ASSERT_EQ(0, AddPcm(Desc(2, 0, VCARD_PLAYBACK, 1, 2, 8000, 48000)));
    pcm* old = Open(2, 0, PCM_OUT, Config(2, 16000, 4));
    ASSERT_EQ(1, pcm_is_ready(old));
    ASSERT_EQ(0, AddPcm(Desc(2, 0, VCARD_PLAYBACK, 4, 4, 8000, 8000)));
    uint8_t period[4 * 2 * 2] = {0};
    EXPECT_EQ(4, pcm_writei(old, period, 4)) << "the old PCM keeps serving its handle";
    EXPECT_EQ(0u, Counters(2, 0, VCARD_PLAYBACK).writes);
    pcm_close(old);
    pcm_params* params = pcm_params_get(2, 0, PCM_OUT);
    ASSERT_NE(nullptr, params);
    EXPECT_EQ(4u, pcm_params_get_min(params, PCM_PARAM_CHANNELS));
    pcm_params_free(params);
}

struct BadDesc {
    const char* name;
    vcard_pcm_desc desc;
    const char* error;
};

class VcardBadDescTest : public VcardTest, public ::testing::WithParamInterface<BadDesc> {};

TEST_P(VcardBadDescTest, IsRefusedWithItsReason) {
    EXPECT_EQ(-EINVAL, vcard_add_pcm(&GetParam().desc));
    EXPECT_STREQ(GetParam().error, vcard_last_error());
    EXPECT_EQ(0, vcard_is_virtual(GetParam().desc.card));
}

INSTANTIATE_TEST_SUITE_P(
    Descriptions, VcardBadDescTest,
    ::testing::Values(BadDesc{"NoChannels", Desc(1, 0, VCARD_CAPTURE, 0, 2, 8000, 8000),
                              "card 1 device 0 capture: channel range 0-2 is not within 1-64"},
                      BadDesc{"ReversedChannels", Desc(1, 0, VCARD_CAPTURE, 4, 2, 8000, 8000),
                              "card 1 device 0 capture: channel range 4-2 is not within 1-64"},
                      BadDesc{"ReversedRates", Desc(1, 0, VCARD_CAPTURE, 1, 2, 16000, 8000),
                              "card 1 device 0 capture: rate range 16000-8000 is empty"},
                      BadDesc{"NoFormat", Desc(1, 0, VCARD_CAPTURE, 1, 2, 8000, 8000, 0),
                              "card 1 device 0 capture: no format accepted"},
                      BadDesc{
                          "ThreeByteFormat",
                          Desc(1, 0, VCARD_CAPTURE, 1, 2, 8000, 8000, VCARD_FORMAT_BIT(PCM_FORMAT_S24_3LE)),
                          "card 1 device 0 capture: format 4 cannot be served by a virtual PCM"}),
    [](const ::testing::TestParamInfo<BadDesc>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace tinyalsa_test
