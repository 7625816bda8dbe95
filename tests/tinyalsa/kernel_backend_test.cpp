// The kernel backend where no driver answers: a card that is not virtual and has no
// device node is refused with tinyalsa's texts, and modes the backend does not offer
// are refused before any node is touched. The driver's side runs in tests/guest.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cerrno>
#include <string>

#include "tinyalsa/asoundlib.h"

namespace {

constexpr unsigned int kCard = 17;  // neither virtual nor present on a test machine
constexpr unsigned int kDevice = 3;

struct RefusalCase {
    const char* name;
    unsigned int flags;
    int format;
    bool nullConfig;
    const char* error;
};

class KernelRefusal : public ::testing::TestWithParam<RefusalCase> {
  protected:
    void SetUp() override {
        for (const char* node : {"/dev/snd/pcmC17D3p", "/dev/snd/pcmC17D3c"}) {
            if (access(node, F_OK) == 0) {
                GTEST_SKIP() << node << " exists on this machine";
            }
        }
    }
};

TEST_P(KernelRefusal, LeavesAHandleThatExplainsAndRefusesEverything) {
    const RefusalCase& c = GetParam();
    pcm_config config{2, 48000, 480, 4, static_cast<pcm_format>(c.format), 0, 0, 0, 0, 0};
    pcm* handle = pcm_open(kCard, kDevice, c.flags, c.nullConfig ? nullptr : &config);
    ASSERT_NE(nullptr, handle);
    EXPECT_EQ(0, pcm_is_ready(handle));
    EXPECT_EQ(std::string(c.error), pcm_get_error(handle));

    char data[480 * 4] = {};
    EXPECT_EQ(-EBADFD, pcm_prepare(handle));
    EXPECT_EQ(-EBADFD, (c.flags & PCM_IN) ? pcm_readi(handle, data, 480) : pcm_writei(handle, data, 480));
    unsigned int avail = 7;
    timespec stamp{5, 6};
    EXPECT_EQ(-1, pcm_get_htimestamp(handle, &avail, &stamp));
    EXPECT_EQ(5, stamp.tv_sec);
    EXPECT_EQ(0, pcm_get_underruns(handle));
    EXPECT_EQ(std::string(c.error), pcm_get_error(handle));  // the cause outlives the refused calls
    EXPECT_EQ(0, pcm_close(handle));
}

INSTANTIATE_TEST_SUITE_P(
    MissingNode, KernelRefusal,
    ::testing::Values(
        RefusalCase{"Playback", PCM_OUT, PCM_FORMAT_S16_LE, false,
                    "cannot open device '/dev/snd/pcmC17D3p': No such file or directory"},
        RefusalCase{"Capture", PCM_IN, PCM_FORMAT_S16_LE, false,
                    "cannot open device '/dev/snd/pcmC17D3c': No such file or directory"},
        RefusalCase{"DefaultConfig", PCM_OUT, 0, true,
                    "cannot open device '/dev/snd/pcmC17D3p': No such file or directory"},
        RefusalCase{"MmapMode", PCM_OUT | PCM_MMAP, PCM_FORMAT_S16_LE, false,
                    "cannot open device '/dev/snd/pcmC17D3p' (PCM_MMAP not supported): Invalid argument"},
        RefusalCase{"NoIrqMode", PCM_IN | PCM_NOIRQ, PCM_FORMAT_S16_LE, false,
                    "cannot open device '/dev/snd/pcmC17D3c' (PCM_NOIRQ not supported): Invalid argument"},
        RefusalCase{"NonBlockingMode", PCM_IN | PCM_NONBLOCK, PCM_FORMAT_S16_LE, false,
                    "cannot open device '/dev/snd/pcmC17D3c' (PCM_NONBLOCK not supported): Invalid argument"},
        RefusalCase{"UnknownFormat", PCM_OUT, 42, false,
                    "cannot set hw params (format 42 not offered): Invalid argument"},
        RefusalCase{"NegativeFormat", PCM_OUT, -1, false,
                    "cannot set hw params (format -1 not offered): Invalid argument"}),
    [](const ::testing::TestParamInfo<RefusalCase>& info) { return info.param.name; });

TEST(KernelParams, AreNullWithoutANode) {
    if (access("/dev/snd/pcmC17D3p", F_OK) == 0 || access("/dev/snd/pcmC17D3c", F_OK) == 0) {
        GTEST_SKIP() << "card 17 device 3 exists on this machine";
    }
    EXPECT_EQ(nullptr, pcm_params_get(kCard, kDevice, PCM_OUT));
    EXPECT_EQ(nullptr, pcm_params_get(kCard, kDevice, PCM_IN));
}

}  // namespace
