// The tinyalsa API on the kernel's snd-aloop loopback card, inside the guest: what
// the driver answers, bytes through the loopback, xruns, refusals and timestamps.
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "loopback.h"
#include "test_support.h"

namespace guest_test {
namespace {

using audiomw_test::WaitFor;

// Closes its PCM on scope exit.
class Pcm {
  public:
    Pcm(unsigned int device, unsigned int flags, const pcm_config& config)
        : m_pcm(pcm_open(kCard, device, flags, &config)) {}
    ~Pcm() { pcm_close(m_pcm); }
    Pcm(const Pcm&) = delete;
    Pcm& operator=(const Pcm&) = delete;
    pcm* get() const { return m_pcm; }
    std::string Error() const { return pcm_get_error(m_pcm); }

  private:
    pcm* m_pcm;
};

struct Range {
    unsigned int min;
    unsigned int max;
};

Range RangeOf(const pcm_params* params, pcm_param param) {
    return Range{pcm_params_get_min(params, param), pcm_params_get_max(params, param)};
}

// Writes `pattern` period by period, then silence until `stop` says so or
// `maxPeriods` periods went out; the first failed write's result, or 0.
int PlayThenSilence(pcm* playback, const Bytes& pattern, unsigned int periodFrames, unsigned int frameBytes,
                    const std::function<bool()>& stop, unsigned int maxPeriods) {
    const size_t periodBytes = static_cast<size_t>(periodFrames) * frameBytes;
    const Bytes silence(periodBytes, 0);
    for (unsigned int period = 0; period < maxPeriods && !stop(); ++period) {
        size_t offset = period * periodBytes;
        const uint8_t* data = offset < pattern.size() ? pattern.data() + offset : silence.data();
        int n = pcm_writei(playback, data, periodFrames);
        if (n < 0) {
            return n;
        }
    }
    return 0;
}

// --- parameters ---

TEST(LoopbackParams, AnswerTheDriversChannelAndRateRanges) {
    for (auto [device, flags] : {std::pair<unsigned, unsigned>{kPlayback, PCM_OUT}, {kCapture, PCM_IN}}) {
        SCOPED_TRACE(device);
        pcm_params* params = pcm_params_get(kCard, device, flags);
        ASSERT_NE(nullptr, params);
        Range channels = RangeOf(params, PCM_PARAM_CHANNELS);
        Range rate = RangeOf(params, PCM_PARAM_RATE);
        EXPECT_EQ(1u, channels.min);
        EXPECT_EQ(32u, channels.max);
        EXPECT_EQ(8000u, rate.min);
        EXPECT_EQ(192000u, rate.max);
        EXPECT_EQ(0u, pcm_params_get_max(params, PCM_PARAM_FORMAT));  // a mask
        EXPECT_GE(pcm_params_get_max(params, PCM_PARAM_PERIODS), 8u);
        EXPECT_LE(pcm_params_get_min(params, PCM_PARAM_SAMPLE_BITS), 16u);
        EXPECT_GE(pcm_params_get_max(params, PCM_PARAM_SAMPLE_BITS), 32u);
        pcm_params_free(params);
    }
    EXPECT_EQ(nullptr, pcm_params_get(kCard, 5, PCM_OUT));
    EXPECT_EQ(nullptr, pcm_params_get(7, 0, PCM_IN));
}

TEST(LoopbackParams, FollowTheOtherEndOnceItIsSetUp) {
    Pcm capture(kCapture, PCM_IN, Config(2, 48000, 480));
    ASSERT_TRUE(pcm_is_ready(capture.get())) << capture.Error();
    ASSERT_EQ(0, pcm_prepare(capture.get())) << capture.Error();
    pcm_params* params = pcm_params_get(kCard, kPlayback, PCM_OUT);
    ASSERT_NE(nullptr, params);
    EXPECT_EQ(48000u, RangeOf(params, PCM_PARAM_RATE).min);
    EXPECT_EQ(48000u, RangeOf(params, PCM_PARAM_RATE).max);
    EXPECT_EQ(2u, RangeOf(params, PCM_PARAM_CHANNELS).min);
    EXPECT_EQ(2u, RangeOf(params, PCM_PARAM_CHANNELS).max);
    pcm_params_free(params);
}

// --- bytes through the loopback ---

struct LoopCase {
    unsigned int rate;
    unsigned int channels;
    pcm_format format;
};

class LoopbackBytes : public ::testing::TestWithParam<LoopCase> {};

TEST_P(LoopbackBytes, ArriveExactlyAsPlayed) {
    const LoopCase& c = GetParam();
    const unsigned int period = c.rate / 25;  // 40 ms
    const unsigned int sampleBytes = pcm_format_to_bits(c.format) / 8;
    const unsigned int frameBytes = c.channels * sampleBytes;
    const unsigned int patternFrames = period * 15;  // 600 ms
    const pcm_config config = Config(c.channels, c.rate, period, 16, c.format);
    Pcm capture(kCapture, PCM_IN, config);
    ASSERT_TRUE(pcm_is_ready(capture.get())) << capture.Error();
    Pcm playback(kPlayback, PCM_OUT, config);
    ASSERT_TRUE(pcm_is_ready(playback.get())) << playback.Error();
    EXPECT_EQ(period, pcm_get_buffer_size(playback.get()) / 16);
    const Bytes pattern = MakeLoopPattern(c.channels, patternFrames, sampleBytes);

    CaptureThread reader(PcmReader(capture.get()), period, frameBytes, patternFrames + c.rate * 3,
                         UntilSoundFrames(frameBytes, patternFrames));
    ASSERT_TRUE(WaitFor([&] { return reader.Periods() > 0; }));
    int written = PlayThenSilence(
        playback.get(), pattern, period, frameBytes, [&] { return reader.Done(); }, c.rate * 4 / period);
    reader.Join();

    EXPECT_EQ(0, written) << playback.Error();
    EXPECT_EQ(0, reader.FirstError()) << capture.Error();
    Bytes got = FromFirstSound(reader.Data(), frameBytes, patternFrames);
    ASSERT_EQ(pattern.size(), got.size()) << "captured " << reader.Frames() << " frames";
    EXPECT_TRUE(pattern == got) << "first difference at byte "
                                << (std::mismatch(pattern.begin(), pattern.end(), got.begin()).first -
                                    pattern.begin());
    EXPECT_EQ(0, pcm_get_underruns(playback.get()));
    EXPECT_EQ(0, pcm_get_underruns(capture.get()));
}

INSTANTIATE_TEST_SUITE_P(
    RatesChannelsFormats, LoopbackBytes,
    ::testing::Values(LoopCase{16000, 1, PCM_FORMAT_S16_LE}, LoopCase{16000, 2, PCM_FORMAT_S16_LE},
                      LoopCase{16000, 8, PCM_FORMAT_S16_LE}, LoopCase{48000, 1, PCM_FORMAT_S16_LE},
                      LoopCase{48000, 2, PCM_FORMAT_S16_LE}, LoopCase{48000, 8, PCM_FORMAT_S16_LE},
                      LoopCase{48000, 2, PCM_FORMAT_S32_SLOT_LE}),
    [](const ::testing::TestParamInfo<LoopCase>& info) {
        return std::to_string(info.param.rate) + "Hz_" + std::to_string(info.param.channels) + "ch_format" +
               std::to_string(static_cast<int>(info.param.format));
    });

// --- xruns ---

bool HasTimestamp(pcm* handle) {
    unsigned int avail = 0;
    timespec stamp{};
    return pcm_get_htimestamp(handle, &avail, &stamp) == 0;
}

// Waits until a started stream stopped by itself: pcm_get_htimestamp answers only
// for a running stream.
bool WaitUntilRanDry(pcm* handle) {
    return WaitFor([&] { return !HasTimestamp(handle); });
}

struct XrunCase {
    const char* name;
    unsigned int direction;
    unsigned int flags;  // beyond the direction
};

class Xrun : public ::testing::TestWithParam<XrunCase> {};

TEST_P(Xrun, IsCountedAndRecovered) {
    const XrunCase& c = GetParam();
    const bool capture = c.direction == PCM_IN;
    const unsigned int period = 1920;  // 40 ms, four of them a buffer
    Pcm handle(capture ? kCapture : kPlayback, c.direction | c.flags, Config(2, 48000, period, 4));
    ASSERT_TRUE(pcm_is_ready(handle.get())) << handle.Error();
    Bytes buffer(period * 4 * 4, 0x11);
    auto transfer = [&](unsigned int frames) {
        return capture ? pcm_readi(handle.get(), buffer.data(), frames)
                       : pcm_writei(handle.get(), buffer.data(), frames);
    };
    // A playback starts once its buffer is full, a capture with its first read.
    ASSERT_EQ(static_cast<int>(capture ? period : period * 4), transfer(capture ? period : period * 4))
        << handle.Error();
    ASSERT_TRUE(WaitUntilRanDry(handle.get())) << "the stream never ran dry";
    EXPECT_EQ(0, pcm_get_underruns(handle.get()));

    const bool restarts = (c.flags & PCM_NORESTART) == 0;
    if (restarts) {
        EXPECT_EQ(static_cast<int>(period), transfer(period)) << handle.Error();
    } else {
        EXPECT_EQ(-EPIPE, transfer(period));
        EXPECT_EQ(std::string(capture ? "cannot read stream data: Broken pipe"
                                      : "cannot write stream data: Broken pipe"),
                  handle.Error());
        EXPECT_EQ(static_cast<int>(period), transfer(period)) << handle.Error();
    }
    EXPECT_EQ(1, pcm_get_underruns(handle.get()));
}

INSTANTIATE_TEST_SUITE_P(Directions, Xrun,
                         ::testing::Values(XrunCase{"PlaybackRestarts", PCM_OUT, 0},
                                           XrunCase{"PlaybackNoRestart", PCM_OUT, PCM_NORESTART},
                                           XrunCase{"CaptureRestarts", PCM_IN, 0},
                                           XrunCase{"CaptureNoRestart", PCM_IN, PCM_NORESTART}),
                         [](const ::testing::TestParamInfo<XrunCase>& info) { return info.param.name; });

// --- refusals ---

struct RefusalCase {
    const char* name;
    unsigned int device;
    unsigned int flags;
    pcm_config config;
    const char* error;
};

class Refused : public ::testing::TestWithParam<RefusalCase> {};

TEST_P(Refused, WithTinyalsasText) {
    const RefusalCase& c = GetParam();
    Pcm handle(c.device, c.flags, c.config);
    EXPECT_EQ(0, pcm_is_ready(handle.get()));
    EXPECT_EQ(std::string(c.error), handle.Error());
    EXPECT_EQ(-EBADFD, pcm_prepare(handle.get()));
}

pcm_config WithSilence(pcm_config config, unsigned long threshold) {
    config.silence_threshold = threshold;
    return config;
}

INSTANTIATE_TEST_SUITE_P(
    Configurations, Refused,
    ::testing::Values(
        RefusalCase{"NoChannels", kPlayback, PCM_OUT, Config(0, 48000, 480),
                    "cannot set hw params: Invalid argument"},
        RefusalCase{"TooManyChannels", kPlayback, PCM_OUT, Config(33, 48000, 480),
                    "cannot set hw params: Invalid argument"},
        RefusalCase{"RateBelowRange", kCapture, PCM_IN, Config(2, 4000, 480),
                    "cannot set hw params: Invalid argument"},
        RefusalCase{"NoPeriods", kPlayback, PCM_OUT, Config(2, 48000, 480, 0),
                    "cannot set hw params: Invalid argument"},
        RefusalCase{"UnknownFormat", kPlayback, PCM_OUT,
                    Config(2, 48000, 480, 4, static_cast<pcm_format>(42)),
                    "cannot set hw params (format 42 not offered): Invalid argument"},
        RefusalCase{"SilenceBeyondBuffer", kPlayback, PCM_OUT, WithSilence(Config(2, 48000, 480, 4), 480 * 5),
                    "cannot set sw params: Invalid argument"},
        RefusalCase{"NoSuchDevice", 6, PCM_OUT, Config(2, 48000, 480),
                    "cannot open device '/dev/snd/pcmC0D6p': No such file or directory"},
        RefusalCase{"MmapMode", kCapture, PCM_IN | PCM_MMAP, Config(2, 48000, 480),
                    "cannot open device '/dev/snd/pcmC0D1c' (PCM_MMAP not supported): Invalid argument"},
        RefusalCase{"NonBlockingMode", kPlayback, PCM_OUT | PCM_NONBLOCK, Config(2, 48000, 480),
                    "cannot open device '/dev/snd/pcmC0D0p' (PCM_NONBLOCK not supported): Invalid argument"}),
    [](const ::testing::TestParamInfo<RefusalCase>& info) { return info.param.name; });

TEST(RefusedWhileOpen, SecondOpenIsBusyAndTheOtherEndMustMatch) {
    Pcm capture(kCapture, PCM_IN, Config(2, 48000, 480));
    ASSERT_TRUE(pcm_is_ready(capture.get())) << capture.Error();
    ASSERT_EQ(0, pcm_prepare(capture.get())) << capture.Error();

    Pcm again(kCapture, PCM_IN, Config(2, 48000, 480));
    EXPECT_EQ(0, pcm_is_ready(again.get()));
    EXPECT_EQ("cannot open device '/dev/snd/pcmC0D1c': Device or resource busy", again.Error());

    Pcm otherRate(kPlayback, PCM_OUT, Config(2, 16000, 160));
    EXPECT_EQ(0, pcm_is_ready(otherRate.get()));
    EXPECT_EQ("cannot set hw params: Invalid argument", otherRate.Error());
}

// --- timestamps ---

double Seconds(const timespec& t) {
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

// A stamp and the stream's position (frames played or captured) at that time, both
// from one pcm_get_htimestamp.
struct Snapshot {
    double seconds;
    double frames;
};

// Stamps never go back, and from the first snapshot to the last they advance by the
// frames the stream moved meanwhile (within the card's position granularity).
void ExpectStampsFollowFrames(const std::vector<Snapshot>& snapshots, unsigned int rate) {
    ASSERT_GE(snapshots.size(), 2u);
    for (size_t i = 1; i < snapshots.size(); ++i) {
        EXPECT_GE(snapshots[i].seconds, snapshots[i - 1].seconds) << "stamp " << i;
        EXPECT_GE(snapshots[i].frames, snapshots[i - 1].frames) << "stamp " << i;
    }
    const double byFrames = (snapshots.back().frames - snapshots.front().frames) / rate;
    EXPECT_GT(byFrames, 0.3);
    EXPECT_NEAR(byFrames, snapshots.back().seconds - snapshots.front().seconds, 0.02);
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    EXPECT_LE(snapshots.back().seconds, Seconds(now));  // on the monotonic clock asked for
}

TEST(Htimestamp, AdvancesWithTheFramesPlayed) {
    const unsigned int rate = 48000;
    const unsigned int period = 960;  // 20 ms
    const unsigned int periods = 16;
    Pcm playback(kPlayback, PCM_OUT | PCM_MONOTONIC, Config(2, rate, period, periods));
    ASSERT_TRUE(pcm_is_ready(playback.get())) << playback.Error();
    unsigned int avail = 0;
    timespec stamp{12, 34};
    EXPECT_EQ(-1, pcm_get_htimestamp(playback.get(), &avail, &stamp));  // not running yet
    EXPECT_EQ(12, stamp.tv_sec);
    EXPECT_EQ(34, stamp.tv_nsec);

    const Bytes silence(period * 4, 0);
    std::vector<Snapshot> snapshots;
    double written = 0;
    for (unsigned int i = 0; i < periods + 25; ++i) {  // a full buffer, then 500 ms paced by the card
        ASSERT_EQ(static_cast<int>(period), pcm_writei(playback.get(), silence.data(), period))
            << playback.Error();
        written += period;
        if (i >= periods) {
            ASSERT_EQ(0, pcm_get_htimestamp(playback.get(), &avail, &stamp));
            ASSERT_LE(avail, period * periods);
            snapshots.push_back({Seconds(stamp), written - period * periods + avail});
        }
    }
    ExpectStampsFollowFrames(snapshots, rate);
    EXPECT_EQ(0, pcm_get_underruns(playback.get()));
}

TEST(Htimestamp, AdvancesWithTheFramesCaptured) {
    const unsigned int rate = 16000;
    const unsigned int period = 320;  // 20 ms
    Pcm capture(kCapture, PCM_IN | PCM_MONOTONIC, Config(1, rate, period, 16));
    ASSERT_TRUE(pcm_is_ready(capture.get())) << capture.Error();
    Bytes buffer(period * 2);
    std::vector<Snapshot> snapshots;
    double read = 0;
    unsigned int avail = 0;
    timespec stamp{};
    for (int i = 0; i < 26; ++i) {
        ASSERT_EQ(static_cast<int>(period), pcm_readi(capture.get(), buffer.data(), period))
            << capture.Error();
        read += period;
        ASSERT_EQ(0, pcm_get_htimestamp(capture.get(), &avail, &stamp));
        snapshots.push_back({Seconds(stamp), read + avail});
    }
    ExpectStampsFollowFrames(snapshots, rate);
    // A running stream stays as it is through a prepare, and its time line goes on.
    EXPECT_EQ(0, pcm_prepare(capture.get())) << capture.Error();
    ASSERT_EQ(static_cast<int>(period), pcm_readi(capture.get(), buffer.data(), period)) << capture.Error();
    ASSERT_EQ(0, pcm_get_htimestamp(capture.get(), &avail, &stamp));
    EXPECT_GT(Seconds(stamp), snapshots.back().seconds);
    EXPECT_EQ(0, pcm_get_underruns(capture.get()));
}

}  // namespace
}  // namespace guest_test
