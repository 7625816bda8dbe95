// What virtual capture PCMs deliver: the pattern, exact in both formats.
#include "vcard_fixture.h"

namespace tinyalsa_test {
namespace {

using CaptureSourceTest = BoardTest;

TEST(PatternSampleTest, ChannelInTheTopNibbleAndFrameInTheLowTwelveBits) {
    EXPECT_EQ(0x2005, vcard_pattern_sample(2, 5));
    EXPECT_EQ(0x1000, vcard_pattern_sample(1, 4096)) << "frames wrap every 4096";
    EXPECT_EQ(-1, vcard_pattern_sample(15, 4095));
    EXPECT_EQ(0x0003, vcard_pattern_sample(16, 3)) << "channels wrap every 16";
    EXPECT_EQ(static_cast<int32_t>(0xFFFF0000u), vcard_pattern_sample32(15, 4095));
}

// Frames count on across reads, and from zero again at the next open.
TEST_F(CaptureSourceTest, PatternBytesAreExactInBothFormats) {
    {
        PcmHandle handle(1, 0, PCM_IN, Config(3, 16000, 2));
        ASSERT_EQ(1, pcm_is_ready(handle.get())) << handle.Error();
        EXPECT_EQ(Le16({0x0000, 0x1000, 0x2000, 0x0001, 0x1001, 0x2001}), Read(handle.get(), 2));
        EXPECT_EQ(Le16({0x0002, 0x1002, 0x2002, 0x0003, 0x1003, 0x2003, 0x0004, 0x1004, 0x2004}),
                  Read(handle.get(), 3));
    }
    vcard_counters counters = Counters(1, 0, VCARD_CAPTURE);
    EXPECT_EQ(2u, counters.reads);
    EXPECT_EQ(5u, counters.frames_read);
    PcmHandle slots(1, 0, PCM_IN, Config(2, 16000, 2, PCM_FORMAT_S32_SLOT_LE));
    EXPECT_EQ(Le32({0x00000000, 0x10000000, 0x00010000, 0x10010000}), Read(slots.get(), 2))
        << "the 16-bit level in the upper half of each slot";
}

}  // namespace
}  // namespace tinyalsa_test
