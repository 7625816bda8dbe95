// The tinyalsa API on the kernel's snd-aloop loopback card, inside the guest: what
// the driver answers, bytes through the loopback, xruns, refusals and timestamps.
#include <gtest/gtest.h>

#include <cerrno>

#include "loopback.h"
#include "test_support.h"

namespace guest_test {
namespace {

using audiomw_test::WaitFor;

TEST(Loopback, ParamsAnswerTheDriversRanges) {
    for (auto [device, flags] : {std::pair<unsigned, unsigned>{kPlayback, PCM_OUT}, {kCapture, PCM_IN}}) {
        SCOPED_TRACE(device);
        pcm_params* params = pcm_params_get(kCard, device, flags);
        ASSERT_NE(nullptr, params);
        EXPECT_EQ(1u, pcm_params_get_min(params, PCM_PARAM_CHANNELS));
        EXPECT_EQ(32u, pcm_params_get_max(params, PCM_PARAM_CHANNELS));
        EXPECT_EQ(8000u, pcm_params_get_min(params, PCM_PARAM_RATE));
        EXPECT_EQ(192000u, pcm_params_get_max(params, PCM_PARAM_RATE));
        EXPECT_EQ(0u, pcm_params_get_max(params, PCM_PARAM_FORMAT));  // a mask
        EXPECT_GE(pcm_params_get_max(params, PCM_PARAM_PERIODS), 8u);
        EXPECT_LE(pcm_params_get_min(params, PCM_PARAM_SAMPLE_BITS), 16u);
        EXPECT_GE(pcm_params_get_max(params, PCM_PARAM_SAMPLE_BITS), 32u);
        pcm_params_free(params);
    }
}

struct LoopCase {
    unsigned int rate, channels;
    pcm_format format;
};

class LoopbackBytes : public ::testing::TestWithParam<LoopCase> {};

TEST_P(LoopbackBytes, ArriveExactlyAsPlayed) {
    const LoopCase& c = GetParam();
    const unsigned int period = c.rate / 25, patternFrames = period * 15;  // 40 ms, 600 ms
    const unsigned int sampleBytes = pcm_format_to_bits(c.format) / 8, frameBytes = c.channels * sampleBytes;
    const pcm_config config = Config(c.channels, c.rate, period, 16, c.format);
    Pcm capture(kCapture, PCM_IN, config);
    ASSERT_TRUE(pcm_is_ready(capture.get())) << capture.Error();
    Pcm playback(kPlayback, PCM_OUT, config);
    ASSERT_TRUE(pcm_is_ready(playback.get())) << playback.Error();
    EXPECT_EQ(period, pcm_get_buffer_size(playback.get()) / 16);
    const Bytes pattern = MakeLoopPattern(c.channels, patternFrames, sampleBytes);

    Capture reader(PcmReader(capture.get()), period, frameBytes, patternFrames + c.rate * 3, patternFrames);
    ASSERT_TRUE(WaitFor([&] { return reader.periods > 0; }));
    const Bytes silence(period * frameBytes, 0);
    int written = 0;
    for (size_t at = 0; at < c.rate * 4 * frameBytes && !reader.done && written >= 0; at += silence.size()) {
        written = pcm_writei(playback.get(), at < pattern.size() ? &pattern[at] : silence.data(), period);
    }
    reader.Join();

    EXPECT_LE(0, written) << playback.Error();
    EXPECT_EQ(0, reader.error) << capture.Error();
    ExpectSameBytes(pattern, FromFirstSound(reader.data, frameBytes, patternFrames));
    EXPECT_EQ(0, pcm_get_underruns(playback.get()));
    EXPECT_EQ(0, pcm_get_underruns(capture.get()));
}

INSTANTIATE_TEST_SUITE_P(RatesChannelsFormats, LoopbackBytes,
                         ::testing::Values(LoopCase{16000, 1, PCM_FORMAT_S16_LE},
                                           LoopCase{48000, 8, PCM_FORMAT_S16_LE},
                                           LoopCase{48000, 2, PCM_FORMAT_S32_SLOT_LE}),
                         [](const ::testing::TestParamInfo<LoopCase>& info) {
                             return std::to_string(info.param.rate) + "Hz_" +
                                    std::to_string(info.param.channels) + "ch_format" +
                                    std::to_string(static_cast<int>(info.param.format));
                         });

bool HasTimestamp(pcm* handle) {
    unsigned int avail = 0;
    timespec stamp{};
    return pcm_get_htimestamp(handle, &avail, &stamp) == 0;
}

TEST(Loopback, XrunIsCountedAndRecovered) {
    const unsigned int period = 1920;  // 40 ms, four of them a buffer
    for (unsigned int direction : {PCM_OUT, PCM_IN}) {
        for (unsigned int flags : {0u, static_cast<unsigned int>(PCM_NORESTART)}) {
            const bool capture = direction == PCM_IN;
            SCOPED_TRACE(std::string(capture ? "capture" : "playback") + (flags ? " without restart" : ""));
            Pcm handle(capture ? kCapture : kPlayback, direction | flags, Config(2, 48000, period, 4));
            ASSERT_TRUE(pcm_is_ready(handle.get())) << handle.Error();
            Bytes buffer(period * 4 * 4, 0x11);
            auto transfer = [&](unsigned int frames) {
                return capture ? pcm_readi(handle.get(), buffer.data(), frames)
                               : pcm_writei(handle.get(), buffer.data(), frames);
            };
            // A playback starts once its buffer is full, a capture with its first read;
            // pcm_get_htimestamp answers only while it runs.
            const unsigned int first = capture ? period : period * 4;
            ASSERT_EQ(static_cast<int>(first), transfer(first)) << handle.Error();
            ASSERT_TRUE(WaitFor([&] { return !HasTimestamp(handle.get()); })) << "the stream never ran dry";
            EXPECT_EQ(0, pcm_get_underruns(handle.get()));
            if (flags != 0) {
                EXPECT_EQ(-EPIPE, transfer(period));
                EXPECT_EQ(std::string("cannot ") + (capture ? "read" : "write") + " stream data: Broken pipe",
                          handle.Error());
            }
            EXPECT_EQ(static_cast<int>(period), transfer(period)) << handle.Error();
            EXPECT_EQ(1, pcm_get_underruns(handle.get()));
        }
    }
}

// What the driver refuses (missing nodes and unsupported modes are in the host's tests).
TEST(Loopback, RefusedConfigurationsWithTinyalsasText) {
    pcm_config silence = Config(2, 48000, 480, 4);
    silence.silence_threshold = 480 * 5;
    const char* hw = "cannot set hw params: Invalid argument";
    const struct {
        unsigned int device, flags;
        pcm_config config;
        const char* error;
    } rows[] = {
        {kPlayback, PCM_OUT, Config(0, 48000, 480), hw},
        {kPlayback, PCM_OUT, Config(33, 48000, 480), hw},
        {kCapture, PCM_IN, Config(2, 4000, 480), hw},
        {kPlayback, PCM_OUT, Config(2, 48000, 480, 0), hw},
        {kPlayback, PCM_OUT, silence, "cannot set sw params: Invalid argument"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.error);
        Pcm handle(row.device, row.flags, row.config);
        EXPECT_EQ(0, pcm_is_ready(handle.get()));
        EXPECT_EQ(row.error, handle.Error());
        EXPECT_EQ(-EBADFD, pcm_prepare(handle.get()));
    }
    // While the capture end is open and prepared: a second open is busy, and the other
    // end must match its rate.
    Pcm capture(kCapture, PCM_IN, Config(2, 48000, 480));
    ASSERT_TRUE(pcm_is_ready(capture.get())) << capture.Error();
    ASSERT_EQ(0, pcm_prepare(capture.get())) << capture.Error();
    Pcm again(kCapture, PCM_IN, Config(2, 48000, 480));
    EXPECT_EQ(0, pcm_is_ready(again.get()));
    EXPECT_EQ("cannot open device '/dev/snd/pcmC0D1c': Device or resource busy", again.Error());
    Pcm otherRate(kPlayback, PCM_OUT, Config(2, 16000, 160));
    EXPECT_EQ(0, pcm_is_ready(otherRate.get()));
    EXPECT_EQ(hw, otherRate.Error());
}

double Seconds(const timespec& t) {
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

// Stamps never go back, and from the first to the last they advance by the frames the
// stream moved meanwhile (within the card's position granularity), on the monotonic clock.
TEST(Loopback, HtimestampAdvancesWithTheFramesMoved) {
    for (unsigned int direction : {PCM_OUT, PCM_IN}) {
        const bool capture = direction == PCM_IN;
        SCOPED_TRACE(capture ? "capture" : "playback");
        const unsigned int rate = capture ? 16000 : 48000, channels = capture ? 1 : 2;
        const unsigned int period = rate / 50, periods = 16;  // 20 ms
        Pcm handle(capture ? kCapture : kPlayback, direction | PCM_MONOTONIC,
                   Config(channels, rate, period, periods));
        ASSERT_TRUE(pcm_is_ready(handle.get())) << handle.Error();
        unsigned int avail = 0;
        timespec stamp{12, 34};
        EXPECT_EQ(-1, pcm_get_htimestamp(handle.get(), &avail, &stamp));  // not running yet
        EXPECT_EQ(12, stamp.tv_sec);
        EXPECT_EQ(34, stamp.tv_nsec);

        Bytes buffer(period * channels * 2, 0);
        std::vector<std::pair<double, double>> snapshots;  // seconds, frames moved by then
        // A playback fills its buffer first; then 500 ms paced by the card.
        for (unsigned int i = 0, moved = 0; i < (capture ? 26 : periods + 25); ++i) {
            int n = capture ? pcm_readi(handle.get(), buffer.data(), period)
                            : pcm_writei(handle.get(), buffer.data(), period);
            ASSERT_EQ(static_cast<int>(period), n) << handle.Error();
            moved += period;
            if (capture || i >= periods) {
                ASSERT_EQ(0, pcm_get_htimestamp(handle.get(), &avail, &stamp));
                ASSERT_LE(avail, period * periods);
                snapshots.push_back(
                    {Seconds(stamp), capture ? moved + avail : moved - period * periods + avail});
            }
        }
        for (size_t i = 1; i < snapshots.size(); ++i) {
            EXPECT_GE(snapshots[i].first, snapshots[i - 1].first) << "stamp " << i;
            EXPECT_GE(snapshots[i].second, snapshots[i - 1].second) << "stamp " << i;
        }
        const double byFrames = (snapshots.back().second - snapshots.front().second) / rate;
        EXPECT_GT(byFrames, 0.3);
        EXPECT_NEAR(byFrames, snapshots.back().first - snapshots.front().first, 0.02);
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        EXPECT_LE(snapshots.back().first, Seconds(now));
        if (capture) {  // a running stream stays as it is through a prepare, and its time line goes on
            EXPECT_EQ(0, pcm_prepare(handle.get())) << handle.Error();
            ASSERT_EQ(static_cast<int>(period), pcm_readi(handle.get(), buffer.data(), period))
                << handle.Error();
            ASSERT_EQ(0, pcm_get_htimestamp(handle.get(), &avail, &stamp));
            EXPECT_GT(Seconds(stamp), snapshots.back().first);
        }
        EXPECT_EQ(0, pcm_get_underruns(handle.get()));
    }
}

}  // namespace
}  // namespace guest_test
