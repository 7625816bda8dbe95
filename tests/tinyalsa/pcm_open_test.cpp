// Parameters, opening and the handle contract of the tinyalsa functions.
#include <cerrno>
#include <cstring>
#include <tuple>

#include "vcard_fixture.h"

namespace tinyalsa_test {
namespace {

using PcmOpenTest = VcardTest;

TEST_F(PcmOpenTest, ParamsReportTheDeclaredRangesPerDirection) {
    ASSERT_EQ(0, AddPcm(Desc(2, 0, VCARD_PLAYBACK, 1, 2, 8000, 48000)));
    ASSERT_EQ(0,
              AddPcm(Desc(3, 0, VCARD_CAPTURE, 4, 8, 16000, 16000,
                          VCARD_FORMAT_BIT(PCM_FORMAT_S16_LE) | VCARD_FORMAT_BIT(PCM_FORMAT_S32_SLOT_LE))));
    pcm_params* out = pcm_params_get(2, 0, PCM_OUT);
    pcm_params* in = pcm_params_get(3, 0, PCM_IN);
    ASSERT_NE(nullptr, out);
    ASSERT_NE(nullptr, in);
    const std::tuple<pcm_params*, pcm_param, unsigned int, unsigned int> ranges[] = {
        {out, PCM_PARAM_CHANNELS, 1, 2},       {out, PCM_PARAM_RATE, 8000, 48000},
        {out, PCM_PARAM_SAMPLE_BITS, 16, 16},  {out, PCM_PARAM_PERIOD_SIZE, 1, 65536},
        {out, PCM_PARAM_PERIODS, 1, 1024},     {out, PCM_PARAM_ACCESS, 0, 0},
        {in, PCM_PARAM_CHANNELS, 4, 8},        {in, PCM_PARAM_RATE, 16000, 16000},
        {in, PCM_PARAM_SAMPLE_BITS, 16, 32},   {in, PCM_PARAM_FRAME_BITS, 64, 256},
        {in, static_cast<pcm_param>(99), 0, 0}};
    for (const auto& [params, param, min, max] : ranges) {
        SCOPED_TRACE(::testing::Message() << (params == in ? "capture " : "playback ") << param);
        EXPECT_EQ(min, pcm_params_get_min(params, param));
        EXPECT_EQ(max, pcm_params_get_max(params, param));
    }
    pcm_params_free(out);
    pcm_params_free(in);
    EXPECT_EQ(nullptr, pcm_params_get(2, 0, PCM_IN));
    EXPECT_EQ(nullptr, pcm_params_get(2, 1, PCM_OUT));
    EXPECT_EQ(nullptr, pcm_params_get(31, 0, PCM_OUT));
    EXPECT_EQ(0u, pcm_params_get_min(nullptr, PCM_PARAM_RATE));
    pcm_params_free(nullptr);
}

// A refused open is a handle that is not ready, explains why and refuses I/O.
TEST_F(PcmOpenTest, OpenOutsideTheRangesGivesAHandleThatIsNotReady) {
    ASSERT_EQ(0, AddPcm(Desc(2, 0, VCARD_PLAYBACK, 1, 2, 8000, 16000)));
    const struct {
        pcm_config config;
        const char* error;
    } cases[] = {
        {Config(3, 16000, 320), "channels 3 outside 1-2"},
        {Config(0, 16000, 320), "channels 0 outside 1-2"},
        {Config(2, 48000, 320), "rate 48000 outside 8000-16000"},
        {Config(2, 7999, 320), "rate 7999 outside 8000-16000"},
        {Config(2, 16000, 320, PCM_FORMAT_S32_SLOT_LE), "format 7 (s32_slot_le) not accepted"},
        {Config(2, 16000, 320, PCM_FORMAT_S16_BE), "format 5 (s16_be) not accepted"},
        {Config(2, 16000, 320, static_cast<pcm_format>(40)), "format 40 (unknown) not accepted"},
        {Config(2, 16000, 0), "period_size 0 outside 1-65536"},
        {Config(2, 16000, 65537), "period_size 65537 outside 1-65536"},
        {Config(2, 16000, 320, PCM_FORMAT_S16_LE, 0), "period_count 0 outside 1-1024"},
        {Config(2, 16000, 320, PCM_FORMAT_S16_LE, 1025), "period_count 1025 outside 1-1024"},
    };
    for (const auto& c : cases) {
        const std::string error = std::string("card 2 device 0 playback: ") + c.error;
        PcmHandle handle(2, 0, PCM_OUT, c.config);
        ASSERT_NE(nullptr, handle.get());
        EXPECT_EQ(0, pcm_is_ready(handle.get())) << error;
        EXPECT_EQ(error, handle.Error());
        EXPECT_EQ(-EBADFD, pcm_writei(handle.get(), "\0\0\0\0", 1));
        EXPECT_EQ(-EBADFD, pcm_prepare(handle.get()));
        EXPECT_EQ(error, handle.Error()) << "later calls keep the cause";
    }
    vcard_counters counters = Counters(2, 0, VCARD_PLAYBACK);
    EXPECT_EQ(0u, counters.opens);
    EXPECT_EQ(11u, counters.failed_opens);
    EXPECT_EQ(0, counters.is_open);
}

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
