// The application sequence end to end: load the lists, create the devices from them,
// switch stream 0 to its first configuration, switch it to the second while it runs,
// and check the bytes each playback card received on both sides of the switch.
#include "config_test_util.h"

namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint32_t kFrames = 160;
constexpr int kLeadBlocks = 48;  // filler periods a file input sends before its file
constexpr uint8_t kFiller = 0xA5;
constexpr uint32_t kFilePeriods = 20;

std::string Config(const std::string& dir) {
    auto ao = [](int id, int card, int ch) {
        return "<AO Id='" + std::to_string(id) + "' Name='out'><Device Type='Alsa' CardId='" +
               std::to_string(card) + "'/><SampleRate Cur='16KHZ'/><Channel Cur='" + std::to_string(ch) +
               "'/><FrameSize Cur='160'/></AO>";
    };
    return "<Audio><AI Id='0' Name='file'><Device Type='Afile' FilePath='" + dir +
           "/a.pcm'/><SampleRate Cur='16KHZ'/><Channel Cur='2'/><FrameSize Cur='160'/></AI>" + ao(0, 10, 2) +
           ao(1, 11, 1) +
           "<ASTREAM Id='0' Name='first' AiId='0' Worker='1'><Node Type='Output' AoId='0' ChnOffset='0' "
           "ChnCnt='2'/></ASTREAM><ASTREAM Id='1' Name='second' AiId='0' Worker='1'><Node Type='Split' "
           "ChnOffset='0' ChnCntA='1' ChnCntB='1'/><AiAdj Id='0' FilePath='" +
           dir +
           "/b.pcm' SampleRate='16KHZ'/><Node Type='Output' AoId='1' ChnOffset='1' "
           "ChnCnt='1'/></ASTREAM></Audio>";
}

// Channel `ch` of an interleaved stereo recording.
Bytes Channel(const Bytes& stereo, int ch) {
    std::vector<int16_t> s = audiomw_test::ToSamples(stereo);
    std::vector<int16_t> mono;
    for (size_t i = static_cast<size_t>(ch); i < s.size(); i += 2) {
        mono.push_back(s[i]);
    }
    return audiomw_test::ToBytes(mono);
}

// A sink holds the lead filler, then `content`, then whole periods of filler.
void ExpectPlayed(const Bytes& sink, const Bytes& content, size_t period, const char* what) {
    Bytes want(kLeadBlocks * period, kFiller);
    want.insert(want.end(), content.begin(), content.end());
    ASSERT_GE(sink.size(), want.size()) << what;
    EXPECT_TRUE(std::equal(want.begin(), want.end(), sink.begin())) << what << ": lead or content differs";
    EXPECT_TRUE(std::all_of(sink.begin() + static_cast<long>(want.size()), sink.end(),
                            [](uint8_t b) { return b == kFiller; }))
        << what << ": something other than filler after the content";
    EXPECT_EQ(0u, sink.size() % period) << what << ": a torn period";
}

class EndToEndTest : public config_test::ConfigTest {
  protected:
    void SetUp() override {
        vcard_reset();
        config_test::AddPlaybackCard(10);
        config_test::AddPlaybackCard(11);
    }
    void TearDown() override {
        config_test::App::Stop();
        vcard_reset();
    }
};

TEST_F(EndToEndTest, SwitchWhileRunningMovesTheStreamToTheSecondConfiguration) {
    const Bytes a = audiomw_test::MakePattern(2, kFrames * kFilePeriods, 11);
    const Bytes b = audiomw_test::MakePattern(2, kFrames * kFilePeriods, 22);
    audiomw_test::WriteFileBytes(root.Path("/a.pcm"), a);
    audiomw_test::WriteFileBytes(root.Path("/b.pcm"), b);
    ASSERT_LT(root.Path("/a.pcm").size(), 40u);
    WriteConfig(Config(root.Dir()));

    config_test::App app;
    ASSERT_TRUE(app.Start());
    ASSERT_EQ(2u, app.streams.size());
    const size_t stereoPeriod = kFrames * 2 * 2, monoPeriod = kFrames * 2;

    ASSERT_EQ(0, AUDIO_ASTREAM_SwitchToConfig(0, *app.Stream("first")));
    ASSERT_TRUE(audiomw_test::WaitFor([&] {
        return config_test::SinkSize(10) >= static_cast<long>(kLeadBlocks * stereoPeriod + a.size());
    })) << "the first configuration did not play its file";
    ASSERT_EQ(1, AUDIO_ASTREAM_isRunning(0));

    ASSERT_EQ(0, AUDIO_ASTREAM_SwitchToConfig(0, *app.Stream("second")));
    const Bytes first = config_test::SinkBytes(10);
    ASSERT_TRUE(audiomw_test::WaitFor([&] {
        return config_test::SinkSize(11) >= static_cast<long>(kLeadBlocks * monoPeriod + b.size() / 2);
    })) << "the second configuration did not play its file";
    config_test::App::Stop();

    ExpectPlayed(first, a, stereoPeriod, "AO 0 before the switch");
    EXPECT_EQ(first.size(), config_test::SinkBytes(10).size()) << "AO 0 was written after the switch";
    ExpectPlayed(config_test::SinkBytes(11), Channel(b, 1), monoPeriod, "AO 1 after the switch");
    config_test::ExpectInOrder(
        log, {{6, "AUDIO_ASTREAM_SwitchToConfig", "Switch ASTREAM[0] for Config[first] success"},
              {6, "AUDIO_ASTREAM_SwitchToConfig", "ASTREAM[0] destroyed"},
              {6, "AUDIO_ASTREAM_SwitchToConfig", "Switch ASTREAM[0] for Config[second] success"}});
}

}  // namespace
