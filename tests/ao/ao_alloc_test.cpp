// Writes allocate nothing: converters and buffers are made when the output opens.
#include "alloc/alloc_counter.h"
#include "ao_test_util.h"

namespace {

using namespace audiomw_test;

struct AllocCase {
    const char* name;
    const char* pcm;
    int rate, channels, frames;
    int rematrix, resample;  // converters the chain should hold
};

class AoAllocTest : public AoTest, public ::testing::WithParamInterface<AllocCase> {};

TEST_P(AoAllocTest, WritesAllocateNothing) {
    const AllocCase& c = GetParam();
    LoadCards(c.pcm);
    ASSERT_TRUE(CreateEnabled(0, AlsaAoAttr(0, 0, c.rate, c.channels, c.frames)));
    int rematrix = 0, resample = 0;
    for (const Logged& l : log.All()) {
        rematrix += l.func == "init" && l.message.find("AO[0] enable rematrix ") == 0;
        resample += l.func == "init" && l.message.find("AO[0] enable resample ") == 0;
    }
    EXPECT_EQ(c.rematrix, rematrix);
    EXPECT_EQ(c.resample, resample);
    Bytes period = MakePattern(c.channels, c.frames);
    ASSERT_EQ(0, Write(0, period));  // the first transfer starts the PCM
    AllocCounterArm();
    int failures = 0;
    for (int i = 0; i < 50; ++i) {
        failures += AUDIO_AO_Write(0, period.data(), period.size()) != 0;
    }
    AllocCounterDisarm();
    EXPECT_EQ(0, failures);
    EXPECT_EQ(0, AllocCount()) << "first allocation of " << AllocFirstSize() << " bytes";
}

INSTANTIATE_TEST_SUITE_P(
    Chains, AoAllocTest,
    ::testing::Values(
        AllocCase{"Direct", "pcm card=0 dir=playback channels=1-2", 48000, 2, 480, 0, 0},
        AllocCase{"Rematrix", "pcm card=0 dir=playback channels=1-2", 48000, 4, 480, 1, 0},
        AllocCase{"Resample", "pcm card=0 dir=playback channels=2 rates=48000", 16000, 2, 320, 0, 1},
        AllocCase{"Both", "pcm card=0 dir=playback channels=1 rates=48000", 16000, 2, 320, 1, 1}),
    [](const ::testing::TestParamInfo<AllocCase>& i) { return std::string(i.param.name); });

}  // namespace
