// The virtual card configuration file: what a good file sets up, and the message a
// bad line gets.
#include <cerrno>
#include <cstdlib>

#include "vcard_fixture.h"

namespace tinyalsa_test {
namespace {

using VcardConfigTest = VcardTest;

TEST_F(VcardConfigTest, AGoodFileSetsUpCardsSourcesSinksAndFaults) {
    audiomw_test::WriteFileBytes(Path("in put.raw"), Le16({11, 12, 13, 14}));
    const std::string text =
        "# virtual cards of the test board\n"
        "\n"
        "card 7\n"
        "pcm card=1 device=0 dir=capture channels=2-4 rates=16000 source=pattern   # line-in\n"
        "pcm card=1 device=1 dir=capture channels=1 rates=8000-16000 source=\"raw:in put.raw\" loop=yes\n"
        "pcm card=1 device=2 dir=capture channels=2 source=sine:1000@8000,440\n"
        "pcm card=2 device=0 dir=playback channels=1-2 rates=8000-48000 formats=s16_le,7 sink=memory:64\n"
        "pcm card=3 device=0 dir=playback absent=yes\n"
        "pcm card=3 device=1 dir=playback open-error=\"cannot set hw params: Invalid argument\"\n"
        "pcm card=3 device=2 dir=playback prepare=unready clock=frames fail-at=2 fail-count=2 fail-kind=io\n";
    audiomw_test::WriteFileBytes(Path("cards.txt"), std::vector<uint8_t>(text.begin(), text.end()));
    ASSERT_EQ(0, vcard_load_file(Path("cards.txt").c_str())) << vcard_last_error();

    EXPECT_EQ(1, vcard_is_virtual(7));
    EXPECT_EQ(1, vcard_is_virtual(1));
    EXPECT_EQ(0, vcard_is_virtual(4));
    pcm_params* params = pcm_params_get(1, 0, PCM_IN);
    ASSERT_NE(nullptr, params);
    EXPECT_EQ(2u, pcm_params_get_min(params, PCM_PARAM_CHANNELS));
    EXPECT_EQ(4u, pcm_params_get_max(params, PCM_PARAM_CHANNELS));
    EXPECT_EQ(16000u, pcm_params_get_min(params, PCM_PARAM_RATE));
    EXPECT_EQ(16000u, pcm_params_get_max(params, PCM_PARAM_RATE));
    pcm_params_free(params);

    std::vector<uint8_t> bytes(12);
    PcmHandle pattern(1, 0, PCM_IN, Config(2, 16000, 3));
    ASSERT_EQ(3, pcm_readi(pattern.get(), bytes.data(), 3)) << pattern.Error();
    EXPECT_EQ(Le16({0x0000, 0x1000, 0x0001, 0x1001, 0x0002, 0x1002}), bytes);

    PcmHandle raw(1, 1, PCM_IN, Config(1, 8000, 6));
    ASSERT_EQ(6, pcm_readi(raw.get(), bytes.data(), 6)) << raw.Error();
    EXPECT_EQ(Le16({11, 12, 13, 14, 11, 12}), bytes) << "relative to the file's directory, looping";

    PcmHandle sine(1, 2, PCM_IN, Config(2, 48000, 12));
    ASSERT_EQ(1, pcm_is_ready(sine.get())) << sine.Error() << " (default rates 8000-48000)";

    PcmHandle memory(2, 0, PCM_OUT, Config(2, 48000, 2, PCM_FORMAT_S32_SLOT_LE));
    ASSERT_EQ(2, pcm_writei(memory.get(), Le32({1, 2, 3, 4}).data(), 2)) << memory.Error();
    EXPECT_EQ(16, vcard_memory_size(2, 0));

    EXPECT_EQ(nullptr, pcm_params_get(3, 0, PCM_OUT));
    PcmHandle refused(3, 1, PCM_OUT, Config(2, 16000, 4));
    EXPECT_EQ("cannot set hw params: Invalid argument", refused.Error());

    PcmHandle faulty(3, 2, PCM_OUT, Config(1, 16000, 4));
    std::vector<uint8_t> period = Le16({0, 0, 0, 0});
    EXPECT_EQ(4, pcm_writei(faulty.get(), period.data(), 4));
    EXPECT_EQ(-EIO, pcm_writei(faulty.get(), period.data(), 4));
    EXPECT_EQ(-EIO, pcm_writei(faulty.get(), period.data(), 4));
    EXPECT_EQ(4, pcm_writei(faulty.get(), period.data(), 4));
    unsigned int avail = 0;
    timespec stamp{};
    ASSERT_EQ(0, pcm_get_htimestamp(faulty.get(), &avail, &stamp));
    EXPECT_EQ(-EIO, pcm_prepare(faulty.get()));
    EXPECT_EQ(0, pcm_is_ready(faulty.get()));
}

TEST_F(VcardConfigTest, AMissingFileIsReported) {
    std::string path = Path("none.txt");
    EXPECT_EQ(-EINVAL, vcard_load_file(path.c_str()));
    EXPECT_EQ("cannot read '" + path + "': No such file or directory", std::string(vcard_last_error()));
}

TEST_F(VcardConfigTest, ALaterLineMayNotRedefineAPcm) {
    EXPECT_EQ(-EINVAL, vcard_load_text("pcm card=2 dir=playback\n# again\npcm card=2 device=0 dir=playback\n",
                                       "cards.txt"));
    EXPECT_STREQ("cards.txt:3: card 2 device 0 playback already defined on line 1", vcard_last_error());
    EXPECT_EQ(0, vcard_is_virtual(2));
}

struct BadLine {
    const char* name;
    const char* line;
    const char* reason;
};

class VcardConfigBadLineTest : public VcardTest, public ::testing::WithParamInterface<BadLine> {};

TEST_P(VcardConfigBadLineTest, NamesTheLineAndNothingIsApplied) {
    std::string text =
        std::string("# cards\n\npcm card=9 dir=capture\n") + GetParam().line + "\npcm card=8 dir=capture\n";
    EXPECT_EQ(-EINVAL, vcard_load_text(text.c_str(), "cards.txt"));
    EXPECT_EQ(std::string("cards.txt:4: ") + GetParam().reason, vcard_last_error());
    EXPECT_EQ(0, vcard_is_virtual(9));
    EXPECT_EQ(0, vcard_is_virtual(8));
}

INSTANTIATE_TEST_SUITE_P(
    Lines, VcardConfigBadLineTest,
    ::testing::Values(
        BadLine{"UnknownKey", "pcm card=2 dir=playback chanels=2", "unknown key 'chanels'"},
        BadLine{"BadDirection", "pcm card=2 dir=sideways", "bad value 'sideways' for dir"},
        BadLine{"NoCard", "pcm dir=playback", "missing card="},
        BadLine{"NoDirection", "pcm card=2", "missing dir= (playback or capture)"},
        BadLine{"CardTooLarge", "pcm card=4294967296 dir=playback", "bad value '4294967296' for card"},
        BadLine{"SignedDevice", "pcm card=2 device=-1 dir=playback", "bad value '-1' for device"},
        BadLine{"ReversedChannels", "pcm card=2 dir=playback channels=3-1",
                "card 2 device 0 playback: channel range 3-1 is not within 1-64"},
        BadLine{"BadRates", "pcm card=2 dir=playback rates=fast", "bad value 'fast' for rates"},
        BadLine{"SourceOnPlayback", "pcm card=2 dir=playback source=pattern",
                "source= applies to capture PCMs"},
        BadLine{"SinkOnCapture", "pcm card=2 dir=capture sink=discard", "sink= applies to playback PCMs"},
        BadLine{"UnknownSource", "pcm card=2 dir=capture source=noise",
                "unknown source 'noise' (silence, pattern, sine:F[@A],..., raw:PATH, wav:PATH)"},
        BadLine{"BadTone", "pcm card=2 dir=capture source=sine:440@x",
                "bad tone '440@x' (expected FREQUENCY or FREQUENCY@AMPLITUDE)"},
        BadLine{"LoudTone", "pcm card=2 dir=capture source=sine:440@40000",
                "a tone amplitude must lie within 0-32767"},
        BadLine{"EmptyFilePath", "pcm card=2 dir=capture source=wav:",
                "unknown source 'wav:' (silence, pattern, sine:F[@A],..., raw:PATH, wav:PATH)"},
        BadLine{"LoopWithoutFile", "pcm card=2 dir=capture loop=yes", "loop= needs a raw: or wav: source"},
        BadLine{"UnknownSink", "pcm card=2 dir=playback sink=speaker",
                "unknown sink 'speaker' (discard, memory[:BYTES], raw:PATH, wav:PATH)"},
        BadLine{"EmptyMemory", "pcm card=2 dir=playback sink=memory:0",
                "bad memory capacity '0' (expected bytes > 0)"},
        BadLine{"ThreeByteFormat", "pcm card=2 dir=playback formats=s24_3le",
                "format 's24_3le' cannot be served by a virtual PCM (s16_le, s32_le, s32_slot_le)"},
        BadLine{"UnknownFormat", "pcm card=2 dir=playback formats=s16_le,s17", "unknown format 's17'"},
        BadLine{"TwiceTheSameKey", "pcm card=2 dir=playback card=3", "key 'card' given twice"},
        BadLine{"UnterminatedQuote", "pcm card=2 dir=playback open-error=\"cannot", "unterminated quote"},
        BadLine{"NotKeyValue", "pcm card=2 dir=playback 7", "expected key=value, got '7'"},
        BadLine{"BadClock", "pcm card=2 dir=playback clock=wall", "bad value 'wall' for clock"},
        BadLine{"BadPrepare", "pcm card=2 dir=playback prepare=maybe", "bad value 'maybe' for prepare"},
        BadLine{"NoFailures", "pcm card=2 dir=playback fail-count=0", "bad value '0' for fail-count"},
        BadLine{"BadFailKind", "pcm card=2 dir=playback fail-kind=crash", "bad value 'crash' for fail-kind"},
        BadLine{"BadAbsent", "pcm card=2 dir=playback absent=perhaps", "bad value 'perhaps' for absent"},
        BadLine{"UnknownStatement", "speaker card=2",
                "unknown statement 'speaker' (expected 'pcm' or 'card')"},
        BadLine{"CardWithoutNumber", "card two", "expected 'card N'"}),
    [](const ::testing::TestParamInfo<BadLine>& info) { return std::string(info.param.name); });

TEST_F(VcardConfigTest, QuotedValuesKeepBlanksHashesAndEscapes) {
    ASSERT_EQ(0, vcard_load_text(
                     "pcm card=2 dir=playback open-error=\"a # \\\"quoted\\\" text\"  # comment\n", nullptr))
        << vcard_last_error();
    PcmHandle handle(2, 0, PCM_OUT, Config(1, 16000, 4));
    EXPECT_EQ("a # \"quoted\" text", handle.Error());
}

// The environment variable is read once, before the first call has any effect: run
// in a fresh process so that nothing has touched the library yet.
TEST(VcardEnvironmentTest, TheFileNamedByTinyalsaVcardsIsLoadedOnFirstUse) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    audiomw_test::ScratchRoot root;
    std::string path = root.Path("/tmp/cards.txt");
    std::string text = "pcm card=6 device=3 dir=capture channels=4 rates=32000\n";
    audiomw_test::WriteFileBytes(path, std::vector<uint8_t>(text.begin(), text.end()));
    EXPECT_EXIT(
        {
            setenv("TINYALSA_VCARDS", path.c_str(), 1);
            pcm_params* params = pcm_params_get(6, 3, PCM_IN);
            bool ok = params != nullptr && pcm_params_get_max(params, PCM_PARAM_CHANNELS) == 4 &&
                      pcm_params_get_min(params, PCM_PARAM_RATE) == 32000;
            pcm_params_free(params);
            std::exit(ok ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST(VcardEnvironmentTest, ABadFileIsReportedOnStandardErrorAndIgnored) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    audiomw_test::ScratchRoot root;
    std::string path = root.Path("/tmp/cards.txt");
    std::string text = "pcm card=6 dir=capture\npcm card=6 dir=capture chanels=4\n";
    audiomw_test::WriteFileBytes(path, std::vector<uint8_t>(text.begin(), text.end()));
    EXPECT_EXIT(
        {
            setenv("TINYALSA_VCARDS", path.c_str(), 1);
            std::exit(vcard_is_virtual(6) == 0 ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "tinyalsa: .*cards.txt:2: unknown key 'chanels'");
}

}  // namespace
}  // namespace tinyalsa_test
