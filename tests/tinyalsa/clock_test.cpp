// Clocks of virtual PCMs and the timestamps they report: only what holds whatever the
// machine's speed (pacing itself is measured by the benchmarks).
#include <cerrno>

#include "vcard_fixture.h"

namespace tinyalsa_test {
namespace {

int64_t MonotonicNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

using ClockTest = BoardTest;

// Transfers `frames` frames and returns the timestamp that follows, in nanoseconds.
int64_t TransferAndStamp(pcm* handle, bool capture, unsigned int frames, unsigned int* avail) {
    std::vector<uint8_t> buffer(pcm_frames_to_bytes(handle, frames));
    int moved =
        capture ? pcm_readi(handle, buffer.data(), frames) : pcm_writei(handle, buffer.data(), frames);
    EXPECT_EQ(static_cast<int>(frames), moved) << pcm_get_error(handle);
    timespec stamp{};
    EXPECT_EQ(0, pcm_get_htimestamp(handle, avail, &stamp));
    return static_cast<int64_t>(stamp.tv_sec) * 1000000000 + stamp.tv_nsec;
}

// The free clock stamps the moment of the transfer.
TEST_F(ClockTest, NoTimestampBeforeTheFirstTransferNorAfterAPrepare) {
    PcmHandle handle(1, 0, PCM_IN, Config(1, 16000, 160));
    timespec stamp{7, 9};
    unsigned int avail = 123;
    EXPECT_EQ(-1, pcm_get_htimestamp(handle.get(), &avail, &stamp));
    EXPECT_EQ(7, stamp.tv_sec);
    EXPECT_EQ(9, stamp.tv_nsec);
    int64_t before = MonotonicNs();
    int64_t stamped = TransferAndStamp(handle.get(), true, 160, &avail);
    EXPECT_LE(before, stamped);
    EXPECT_GE(MonotonicNs(), stamped);
    EXPECT_EQ(0, pcm_prepare(handle.get()));
    EXPECT_EQ(-1, pcm_get_htimestamp(handle.get(), &avail, &stamp));
}

// The clock is switched on an open PCM: it applies from the next transfer.
TEST_F(ClockTest, FramesClockStampsAdvanceByExactlyTheFramesTransferred) {
    PcmHandle handle(1, 0, PCM_IN, Config(2, 16000, 160));
    unsigned int avail = 99;
    TransferAndStamp(handle.get(), true, 160, &avail);
    ASSERT_EQ(0, vcard_set_clock(1, 0, VCARD_CAPTURE, VCARD_CLOCK_FRAMES));
    int64_t first = TransferAndStamp(handle.get(), true, 160, &avail);
    EXPECT_EQ(0u, avail) << "capture data is produced on demand";
    int64_t second = TransferAndStamp(handle.get(), true, 160, &avail);
    int64_t third = TransferAndStamp(handle.get(), true, 80, &avail);
    EXPECT_EQ(10000000, second - first);
    EXPECT_EQ(5000000, third - second);
    EXPECT_EQ(-EINVAL, vcard_set_clock(1, 0, VCARD_CAPTURE, static_cast<vcard_clock>(5)));
    EXPECT_EQ(-ENOENT, vcard_set_clock(1, 0, VCARD_PLAYBACK, VCARD_CLOCK_FREE));
}

TEST_F(ClockTest, RealtimeClockStampsAdvanceByExactlyThePeriod) {
    ASSERT_EQ(0, vcard_set_clock(2, 0, VCARD_PLAYBACK, VCARD_CLOCK_REALTIME));
    PcmHandle handle(2, 0, PCM_OUT, Config(1, 16000, 32, PCM_FORMAT_S16_LE, 4));
    unsigned int avail = 0;
    int64_t first = TransferAndStamp(handle.get(), false, 32, &avail);
    EXPECT_EQ(128u, avail) << "a playback buffer is always free";
    int64_t second = TransferAndStamp(handle.get(), false, 32, &avail);
    EXPECT_EQ(2000000, second - first);
    EXPECT_LE(second, MonotonicNs()) << "a paced transfer returns once its period has passed";
}

}  // namespace
}  // namespace tinyalsa_test
