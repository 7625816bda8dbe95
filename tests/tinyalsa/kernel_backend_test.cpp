// The kernel backend where no driver answers (the driver's side runs in tests/guest).
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "tinyalsa/asoundlib.h"

namespace {

TEST(KernelBackend, RefusedOpenLeavesAHandleThatExplainsAndRefusesEverything) {
    if (access("/dev/snd/pcmC17D3p", F_OK) == 0 || access("/dev/snd/pcmC17D3c", F_OK) == 0) {
        GTEST_SKIP() << "card 17 device 3 exists on this machine";
    }
    const std::string p = "cannot open device '/dev/snd/pcmC17D3p'",
                      c = "cannot open device '/dev/snd/pcmC17D3c'";
    const struct {
        unsigned int flags;
        int format;  // -1: no configuration
        std::string error;
    } rows[] = {
        // clang-format off
        {PCM_OUT, PCM_FORMAT_S16_LE, p + ": No such file or directory"},
        {PCM_IN, PCM_FORMAT_S16_LE, c + ": No such file or directory"},
        {PCM_OUT, -1, p + ": No such file or directory"},
        {PCM_OUT | PCM_MMAP, PCM_FORMAT_S16_LE, p + " (PCM_MMAP not supported): Invalid argument"},
        {PCM_IN | PCM_NOIRQ, PCM_FORMAT_S16_LE, c + " (PCM_NOIRQ not supported): Invalid argument"},
        {PCM_IN | PCM_NONBLOCK, PCM_FORMAT_S16_LE, c + " (PCM_NONBLOCK not supported): Invalid argument"},
        {PCM_OUT, 42, "cannot set hw params (format 42 not offered): Invalid argument"},
        // clang-format on
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.error);
        pcm_config config{2, 48000, 480, 4, static_cast<pcm_format>(row.format), 0, 0, 0, 0, 0};
        pcm* handle = pcm_open(17, 3, row.flags, row.format < 0 ? nullptr : &config);
        ASSERT_NE(nullptr, handle);
        EXPECT_EQ(0, pcm_is_ready(handle));
        char data[480 * 4] = {};
        EXPECT_EQ(-EBADFD, pcm_prepare(handle));
        EXPECT_EQ(-EBADFD,
                  (row.flags & PCM_IN) ? pcm_readi(handle, data, 480) : pcm_writei(handle, data, 480));
        unsigned int avail = 7;
        timespec stamp{5, 6};
        EXPECT_EQ(-1, pcm_get_htimestamp(handle, &avail, &stamp));
        EXPECT_EQ(5, stamp.tv_sec);  // nothing written
        EXPECT_EQ(0, pcm_get_underruns(handle));
        EXPECT_EQ(row.error, pcm_get_error(handle));  // the cause outlives the refused calls
        EXPECT_EQ(0, pcm_close(handle));
    }
    EXPECT_EQ(nullptr, pcm_params_get(17, 3, PCM_OUT));
    EXPECT_EQ(nullptr, pcm_params_get(17, 3, PCM_IN));
}

}  // namespace
