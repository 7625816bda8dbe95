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

}  // namespace
}  // namespace tinyalsa_test
