// The virtual card configuration file: what a good file sets up, and the message a
// bad line gets.
#include <cerrno>
#include <cstdlib>

#include "vcard_fixture.h"

namespace tinyalsa_test {
namespace {

using VcardConfigTest = VcardTest;

void WriteText(const std::string& path, const std::string& text) {
    audiomw_test::WriteFileBytes(path, std::vector<uint8_t>(text.begin(), text.end()));
}

TEST_F(VcardConfigTest, AGoodFileSetsUpCardsSourcesSinksAndFaults) {
    audiomw_test::WriteFileBytes(Path("in put.raw"), Le16({11, 12, 13, 14}));
    WriteText(
        Path("cards.txt"),
        "# virtual cards of the test board\n"
        "\n"
        "card 7\n"
        "pcm card=1 device=0 dir=capture channels=2-4 rates=16000 source=pattern   # line-in\n"
        "pcm card=1 device=1 dir=capture channels=1 rates=8000-16000 source=\"raw:in put.raw\" loop=yes\n"
        "pcm card=1 device=2 dir=capture channels=2 source=sine:1000@8000,440\n"
        "pcm card=2 device=0 dir=playback channels=1-2 rates=8000-48000 formats=s16_le,7 sink=memory:64\n"
        "pcm card=3 device=0 dir=playback absent=yes\n"
        "pcm card=3 device=1 dir=playback open-error=\"a # \\\"quoted\\\" text\"  # comment\n"
        "pcm card=3 device=2 dir=playback prepare=unready clock=frames fail-at=2 fail-count=2 "
        "fail-kind=io\n");
    ASSERT_EQ(0, vcard_load_file(Path("cards.txt").c_str())) << vcard_last_error();

    EXPECT_EQ(1, vcard_is_virtual(7));
    EXPECT_EQ(0, vcard_is_virtual(4));
    pcm_params* params = pcm_params_get(1, 0, PCM_IN);
    ASSERT_NE(nullptr, params);
    EXPECT_EQ(2u, pcm_params_get_min(params, PCM_PARAM_CHANNELS));
    EXPECT_EQ(4u, pcm_params_get_max(params, PCM_PARAM_CHANNELS));
    EXPECT_EQ(16000u, pcm_params_get_min(params, PCM_PARAM_RATE));
    EXPECT_EQ(16000u, pcm_params_get_max(params, PCM_PARAM_RATE));
    pcm_params_free(params);

    PcmHandle pattern(1, 0, PCM_IN, Config(2, 16000, 3));
    EXPECT_EQ(Le16({0x0000, 0x1000, 0x0001, 0x1001, 0x0002, 0x1002}), Read(pattern.get(), 3));
    PcmHandle raw(1, 1, PCM_IN, Config(1, 8000, 6));
    EXPECT_EQ(Le16({11, 12, 13, 14, 11, 12}), Read(raw.get(), 6))
        << "relative to the file's directory, looping";
    PcmHandle sine(1, 2, PCM_IN, Config(2, 48000, 12));
    EXPECT_EQ(1, pcm_is_ready(sine.get())) << sine.Error() << " (default rates 8000-48000)";

    PcmHandle memory(2, 0, PCM_OUT, Config(2, 48000, 2, PCM_FORMAT_S32_SLOT_LE));
    Write(memory.get(), Le32({1, 2, 3, 4}));
    EXPECT_EQ(16, vcard_memory_size(2, 0));

    EXPECT_EQ(nullptr, pcm_params_get(3, 0, PCM_OUT));
    PcmHandle refused(3, 1, PCM_OUT, Config(2, 16000, 4));
    EXPECT_EQ("a # \"quoted\" text", refused.Error());

    PcmHandle faulty(3, 2, PCM_OUT, Config(1, 16000, 4));
    std::vector<uint8_t> period = Le16({0, 0, 0, 0});
    EXPECT_EQ(4, pcm_writei(faulty.get(), period.data(), 4));
    EXPECT_EQ(-EIO, pcm_writei(faulty.get(), period.data(), 4));
    EXPECT_EQ(-EIO, pcm_writei(faulty.get(), period.data(), 4));
    EXPECT_EQ(4, pcm_writei(faulty.get(), period.data(), 4));
    EXPECT_EQ(-EIO, pcm_prepare(faulty.get()));
    EXPECT_EQ(0, pcm_is_ready(faulty.get()));
}

// Line 4 is bad: the message names it and nothing of the file is applied.
TEST_F(VcardConfigTest, ABadLineIsNamedAndNothingIsApplied) {
    const std::pair<const char*, const char*> cases[] = {
        {"pcm card=2 dir=playback chanels=2", "unknown key 'chanels'"},
        {"pcm card=2 dir=sideways", "bad value 'sideways' for dir"},
        {"pcm dir=playback", "missing card="},
        {"pcm card=2", "missing dir= (playback or capture)"},
        {"pcm card=4294967296 dir=playback", "bad value '4294967296' for card"},
        {"pcm card=2 device=-1 dir=playback", "bad value '-1' for device"},
        {"pcm card=2 dir=playback channels=3-1",
         "card 2 device 0 playback: channel range 3-1 is not within 1-64"},
        {"pcm card=2 dir=playback rates=fast", "bad value 'fast' for rates"},
        {"pcm card=2 dir=playback source=pattern", "source= applies to capture PCMs"},
        {"pcm card=2 dir=capture sink=discard", "sink= applies to playback PCMs"},
        {"pcm card=2 dir=capture source=noise",
         "unknown source 'noise' (silence, pattern, sine:F[@A],..., raw:PATH, wav:PATH)"},
        {"pcm card=2 dir=capture source=sine:440@x",
         "bad tone '440@x' (expected FREQUENCY or FREQUENCY@AMPLITUDE)"},
        {"pcm card=2 dir=capture source=sine:440@40000", "a tone amplitude must lie within 0-32767"},
        {"pcm card=2 dir=capture source=wav:",
         "unknown source 'wav:' (silence, pattern, sine:F[@A],..., raw:PATH, wav:PATH)"},
        {"pcm card=2 dir=capture loop=yes", "loop= needs a raw: or wav: source"},
        {"pcm card=2 dir=playback sink=speaker",
         "unknown sink 'speaker' (discard, memory[:BYTES], raw:PATH, wav:PATH)"},
        {"pcm card=2 dir=playback sink=memory:0", "bad memory capacity '0' (expected bytes > 0)"},
        {"pcm card=2 dir=playback formats=s24_3le",
         "format 's24_3le' cannot be served by a virtual PCM (s16_le, s32_le, s32_slot_le)"},
        {"pcm card=2 dir=playback formats=s16_le,s17", "unknown format 's17'"},
        {"pcm card=2 dir=playback card=3", "key 'card' given twice"},
        {"pcm card=2 dir=playback open-error=\"cannot", "unterminated quote"},
        {"pcm card=2 dir=playback 7", "expected key=value, got '7'"},
        {"pcm card=2 dir=playback clock=wall", "bad value 'wall' for clock"},
        {"pcm card=2 dir=playback prepare=maybe", "bad value 'maybe' for prepare"},
        {"pcm card=2 dir=playback fail-count=0", "bad value '0' for fail-count"},
        {"pcm card=2 dir=playback fail-kind=crash", "bad value 'crash' for fail-kind"},
        {"pcm card=2 dir=playback absent=perhaps", "bad value 'perhaps' for absent"},
        {"speaker card=2", "unknown statement 'speaker' (expected 'pcm' or 'card')"},
        {"card two", "expected 'card N'"},
        {"pcm card=9 device=0 dir=capture", "card 9 device 0 capture already defined on line 3"},
    };
    for (const auto& [line, reason] : cases) {
        vcard_reset();
        std::string text =
            std::string("# cards\n\npcm card=9 dir=capture\n") + line + "\npcm card=8 dir=capture\n";
        EXPECT_EQ(-EINVAL, vcard_load_text(text.c_str(), "cards.txt")) << line;
        EXPECT_EQ(std::string("cards.txt:4: ") + reason, vcard_last_error());
        EXPECT_EQ(0, vcard_is_virtual(9));
        EXPECT_EQ(0, vcard_is_virtual(8));
    }
    EXPECT_EQ(-EINVAL, vcard_load_file(Path("none.txt").c_str()));
    EXPECT_EQ("cannot read '" + Path("none.txt") + "': No such file or directory",
              std::string(vcard_last_error()));
}

// TINYALSA_VCARDS is read once, before the first call has any effect: each case runs in
// a fresh process that has not touched the library yet.
TEST(VcardEnvironmentTest, TheNamedFileIsLoadedOnFirstUseOrReportedOnStandardError) {
#ifdef AUDIOMW_TEST_UNDER_EMULATOR
    // A user-mode emulator cannot re-execute the program (the host kernel refuses the
    // foreign binary). ctest runs this case alone in its process, which has not touched
    // the library before the cases, so a forked child starts just as fresh.
    GTEST_FLAG_SET(death_test_style, "fast");
#else
    GTEST_FLAG_SET(death_test_style, "threadsafe");
#endif
    audiomw_test::ScratchRoot root;
    std::string good = root.Path("/tmp/good.txt"), bad = root.Path("/tmp/bad.txt");
    WriteText(good, "pcm card=6 device=3 dir=capture channels=4 rates=32000\n");
    WriteText(bad, "pcm card=6 dir=capture\npcm card=6 dir=capture chanels=4\n");
    EXPECT_EXIT(
        {
            setenv("TINYALSA_VCARDS", good.c_str(), 1);
            pcm_params* params = pcm_params_get(6, 3, PCM_IN);
            std::exit(params != nullptr && pcm_params_get_max(params, PCM_PARAM_CHANNELS) == 4 ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
    EXPECT_EXIT(
        {
            setenv("TINYALSA_VCARDS", bad.c_str(), 1);
            std::exit(vcard_is_virtual(6) == 0 ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "tinyalsa: .*bad.txt:2: unknown key 'chanels'");
}

}  // namespace
}  // namespace tinyalsa_test
