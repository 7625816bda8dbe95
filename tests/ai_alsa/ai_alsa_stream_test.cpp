// One stream end to end: an ALSA AI on a virtual capture card that lacks the requested
// rate, through a split node to an output node; the playback card's memory sink must
// hold channel 1 of the resampled capture, exactly.
#include "../astream/astream_test_util.h"
#include "ai_capture_util.h"

namespace {

using namespace audiomw_test;

class AlsaStreamTest : public CaptureTest {
  protected:
    void TearDown() override {
        AUDIO_ASTREAM_Stop(0);
        AUDIO_ASTREAM_Destroy(0);
        AUDIO_AO_SetEnable(0, ZN_FALSE);
        AUDIO_AO_Destroy(0);
        CaptureTest::TearDown();
    }
};

TEST_F(AlsaStreamTest, ResampledCaptureReachesThePlaybackCardExactly) {
    LoadCards(
        "pcm card=0 dir=capture channels=2 rates=48000 source=pattern\n"
        "pcm card=10 dir=playback channels=1 rates=16000 sink=memory");
    AI_ATTR_S ai = AlsaAi(0, 0, 16000, 2, 160, false);  // the stream enables it
    ASSERT_EQ(0, AUDIO_AI_Create(0, &ai));
    AO_ATTR_S ao = AlsaAoAttr(10, 0, 16000, 1, 160);
    ASSERT_EQ(0, AUDIO_AO_Create(0, &ao));
    ASTREAM_NODE_ATTR_S output = astream_test::NodeAttr(ASTREAM_NODE_TYPE_E_OUTPUT);
    output.unAttr.stOutput = {0, 1, 1, -1, ZN_FALSE, -1};
    ASTREAM_ATTR_S stream = astream_test::StreamAttr(0, 1, {astream_test::SplitAttr(0, 1, 1), output});
    ASSERT_EQ(0, AUDIO_ASTREAM_Create(0, &stream));
    ASSERT_EQ(0, AUDIO_ASTREAM_Start(0));

    const int periods = 50;
    ASSERT_TRUE(WaitFor([&] { return SinkBytes(10, 0).size() >= periods * 320u; }));
    ASSERT_EQ(0, AUDIO_ASTREAM_Stop(0));
    std::vector<int16_t> both = ToSamples(ExpectedCapture(2, 48000, 2, 16000, 160, periods)), right;
    for (size_t i = 1; i < both.size(); i += 2) {
        right.push_back(both[i]);
    }
    Bytes sink = SinkBytes(10, 0);
    sink.resize(periods * 320u);
    EXPECT_EQ(ToBytes(right), sink);
    AI_ATTR_S got;
    AUDIO_AI_GetAttr(0, &got);
    EXPECT_EQ(48000u, got.stAlsaDev.u32HwRate);
}

}  // namespace
