// Writes allocate nothing: converters and buffers are made when the output opens.
#include <vector>

#include "alloc/alloc_counter.h"
#include "ao_test_util.h"
#include "audio_ao.h"

namespace {

using audiomw_test::AlsaAoAttr;

struct AllocCase {
    const char* name;
    unsigned int chMax, rateMin, rateMax;
    int rate, channels, frames;
};

class AoAllocTest : public audiomw_test::AoTest, public ::testing::WithParamInterface<AllocCase> {};

TEST_P(AoAllocTest, WritesAllocateNothing) {
    const AllocCase& c = GetParam();
    vcard_pcm_desc d;
    vcard_pcm_desc_init(&d, 0, 0, VCARD_PLAYBACK);
    d.channels_min = 1;
    d.channels_max = c.chMax;
    d.rate_min = c.rateMin;
    d.rate_max = c.rateMax;
    ASSERT_EQ(0, vcard_add_pcm(&d));
    ASSERT_EQ(0, vcard_set_sink_discard(0, 0));
    ASSERT_TRUE(CreateEnabled(0, AlsaAoAttr(0, 0, c.rate, c.channels, c.frames)));
    EXPECT_EQ(c.channels > static_cast<int>(c.chMax) ? 1 : 0, log.CountContaining("enable rematrix"));
    EXPECT_EQ(c.rate < static_cast<int>(c.rateMin) ? 1 : 0, log.CountContaining("enable resample"));
    std::vector<uint8_t> period = audiomw_test::MakePattern(c.channels, c.frames);
    ASSERT_EQ(0, AUDIO_AO_Write(0, period.data(), period.size()));  // first transfer starts the PCM

    audiomw_test::AllocCounterArm();
    int failures = 0;
    for (int i = 0; i < 50; ++i) {
        failures += AUDIO_AO_Write(0, period.data(), period.size()) != 0;
    }
    audiomw_test::AllocCounterDisarm();
    EXPECT_EQ(0, failures);
    EXPECT_EQ(0, audiomw_test::AllocCount())
        << "first allocation of " << audiomw_test::AllocFirstSize() << " bytes";
}

INSTANTIATE_TEST_SUITE_P(Chains, AoAllocTest,
                         ::testing::Values(AllocCase{"Direct", 2, 8000, 48000, 48000, 2, 480},
                                           AllocCase{"Rematrix", 2, 8000, 48000, 48000, 4, 480},
                                           AllocCase{"Resample", 2, 48000, 48000, 16000, 2, 320},
                                           AllocCase{"RematrixAndResample", 1, 48000, 48000, 16000, 2, 320}),
                         [](const ::testing::TestParamInfo<AllocCase>& i) {
                             return std::string(i.param.name);
                         });

}  // namespace
