// The tinyalsa API on the kernel's snd-aloop loopback card, inside the guest: what the
// driver answers and refuses, bytes through the loopback, timestamps and xruns.
#include <gtest/gtest.h>

#include <cerrno>

#include "loopback.h"
#include "test_support.h"

namespace guest_test {
namespace {

using audiomw_test::WaitFor;

// Both ends answer the driver's ranges. What the driver refuses comes with tinyalsa's
// text (missing nodes and unsupported modes are in the host's tests); while the capture
// end is open and prepared, its parameters are not given, a second open is busy and the
// other end must match its rate.
TEST(Loopback, ParamsAndRefusals) {
    for (auto [device, flags] : {std::pair<unsigned, unsigned>{kPlayback, PCM_OUT}, {kCapture, PCM_IN}}) {
        pcm_params* p = pcm_params_get(kCard, device, flags);
        ASSERT_NE(nullptr, p);
        EXPECT_EQ((std::vector<unsigned>{1, 32, 8000, 192000, 0}),
                  (std::vector<unsigned>{
                      pcm_params_get_min(p, PCM_PARAM_CHANNELS), pcm_params_get_max(p, PCM_PARAM_CHANNELS),
                      pcm_params_get_min(p, PCM_PARAM_RATE), pcm_params_get_max(p, PCM_PARAM_RATE),
                      pcm_params_get_max(p, PCM_PARAM_FORMAT)}));  // the format is a mask
        EXPECT_GE(pcm_params_get_max(p, PCM_PARAM_PERIODS), 8u);
        EXPECT_LE(pcm_params_get_min(p, PCM_PARAM_SAMPLE_BITS), 16u);
        EXPECT_GE(pcm_params_get_max(p, PCM_PARAM_SAMPLE_BITS), 32u);
        pcm_params_free(p);
    }
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
        Pcm handle(row.device, row.flags, row.config);
        EXPECT_EQ(0, pcm_is_ready(handle.get()));
        EXPECT_EQ(row.error, handle.Error());
        EXPECT_EQ(-EBADFD, pcm_prepare(handle.get()));
    }
    Pcm capture(kCapture, PCM_IN, Config(2, 48000, 480));
    ASSERT_TRUE(pcm_is_ready(capture.get())) << capture.Error();
    ASSERT_EQ(0, pcm_prepare(capture.get())) << capture.Error();
    pcm_params* busy = pcm_params_get(kCard, kCapture, PCM_IN);
    EXPECT_EQ(nullptr, busy) << "parameters of a node another handle holds open";
    pcm_params_free(busy);
    Pcm again(kCapture, PCM_IN, Config(2, 48000, 480)), otherRate(kPlayback, PCM_OUT, Config(2, 16000, 160));
    EXPECT_EQ(0, pcm_is_ready(again.get()) + pcm_is_ready(otherRate.get()));
    EXPECT_EQ("cannot open device '/dev/snd/pcmC0D1c': Device or resource busy", again.Error());
    EXPECT_EQ(hw, otherRate.Error());
}

// A pattern played on device 0 arrives on device 1 exactly as played.
TEST(Loopback, BytesArriveExactlyAsPlayed) {
    const struct {
        unsigned int rate, channels;
        pcm_format format;
    } rows[] = {
        {16000, 1, PCM_FORMAT_S16_LE}, {48000, 8, PCM_FORMAT_S16_LE}, {48000, 2, PCM_FORMAT_S32_SLOT_LE}};
    for (const auto& c : rows) {
        SCOPED_TRACE(::testing::Message() << c.rate << " Hz " << c.channels << " ch format " << c.format);
        const unsigned int period = c.rate / 25, patternFrames = period * 15;  // 40 ms, 600 ms
        const unsigned int sampleBytes = pcm_format_to_bits(c.format) / 8,
                           frameBytes = c.channels * sampleBytes;
        const pcm_config config = Config(c.channels, c.rate, period, 16, c.format);
        Pcm capture(kCapture, PCM_IN, config), playback(kPlayback, PCM_OUT, config);
        ASSERT_TRUE(pcm_is_ready(capture.get())) << capture.Error();
        ASSERT_TRUE(pcm_is_ready(playback.get())) << playback.Error();
        EXPECT_EQ(period, pcm_get_buffer_size(playback.get()) / 16);
        const Bytes pattern = MakeLoopPattern(c.channels, patternFrames, sampleBytes),
                    silence(period * frameBytes, 0);
        Capture reader(PcmReader(capture.get()), period, frameBytes, patternFrames + c.rate * 3,
                       patternFrames);
        ASSERT_TRUE(WaitFor([&] { return reader.periods > 0; }));
        int written = 0;
        for (size_t at = 0; at < c.rate * 4 * frameBytes && !reader.done && written >= 0;
             at += silence.size()) {
            written = pcm_writei(playback.get(), at < pattern.size() ? &pattern[at] : silence.data(), period);
        }
        reader.Join();
        EXPECT_LE(0, written) << playback.Error();
        EXPECT_EQ(0, reader.error) << capture.Error();
        ExpectSameBytes(pattern, FromFirstSound(reader.data, frameBytes, patternFrames));
        EXPECT_EQ(0, pcm_get_underruns(playback.get()) + pcm_get_underruns(capture.get()));
    }
}

double Seconds(const timespec& t) {
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

// Each end, with and without restart: no stamp before the stream runs; while it runs,
// stamps on the monotonic clock advance with the frames moved (within the card's position
// granularity), and a prepare leaves it running. Left to run dry, its xrun is counted and
// the next transfer recovers it; without restart that transfer first reports the xrun.
TEST(Loopback, TimestampsXrunsAndRecovery) {
    const unsigned int rate = 48000, period = 960, periods = 16;  // 20 ms periods
    for (unsigned int direction : {PCM_OUT, PCM_IN}) {
        for (unsigned int restart : {0u, static_cast<unsigned int>(PCM_NORESTART)}) {
            const bool capture = direction == PCM_IN;
            SCOPED_TRACE(std::string(capture ? "capture" : "playback") + (restart ? " without restart" : ""));
            Pcm handle(capture ? kCapture : kPlayback, direction | PCM_MONOTONIC | restart,
                       Config(2, rate, period, periods));
            ASSERT_TRUE(pcm_is_ready(handle.get())) << handle.Error();
            unsigned int avail = 0;
            timespec stamp{12, 34};
            EXPECT_EQ(-1, pcm_get_htimestamp(handle.get(), &avail, &stamp));
            EXPECT_EQ(std::make_pair(12L, 34L),
                      std::make_pair(static_cast<long>(stamp.tv_sec), stamp.tv_nsec));
            Bytes buffer(period * periods * 4, 0);
            auto transfer = [&](unsigned int frames) {
                return capture ? pcm_readi(handle.get(), buffer.data(), frames)
                               : pcm_writei(handle.get(), buffer.data(), frames);
            };
            // A playback starts once its buffer is full, a capture with its first read.
            const unsigned int first = capture ? period : period * periods;
            ASSERT_EQ(static_cast<int>(first), transfer(first)) << handle.Error();
            std::vector<std::pair<double, double>> snapshots;  // seconds, frames moved by then
            for (unsigned int i = 1, moved = first; i <= 25; ++i, moved += period) {
                ASSERT_EQ(0, pcm_get_htimestamp(handle.get(), &avail, &stamp));
                ASSERT_LE(avail, period * periods);
                snapshots.push_back(
                    {Seconds(stamp), capture ? moved + avail : moved - period * periods + avail});
                const auto& prev = snapshots[snapshots.size() > 1 ? snapshots.size() - 2 : 0];
                ASSERT_GE(snapshots.back().first, prev.first) << "stamp " << i;
                ASSERT_GE(snapshots.back().second, prev.second) << "stamp " << i;
                ASSERT_EQ(static_cast<int>(period), transfer(period)) << handle.Error();
            }
            const double byFrames = (snapshots.back().second - snapshots.front().second) / rate;
            EXPECT_GT(byFrames, 0.3);
            EXPECT_NEAR(byFrames, snapshots.back().first - snapshots.front().first, 0.02);
            timespec now{};
            clock_gettime(CLOCK_MONOTONIC, &now);
            EXPECT_LE(snapshots.back().first, Seconds(now));
            EXPECT_EQ(0, pcm_prepare(handle.get())) << handle.Error();
            EXPECT_EQ(0, pcm_get_htimestamp(handle.get(), &avail, &stamp));

            ASSERT_TRUE(WaitFor([&] { return pcm_get_htimestamp(handle.get(), &avail, &stamp) != 0; }))
                << "the stream never ran dry";
            EXPECT_EQ(0, pcm_get_underruns(handle.get()));
            if (restart != 0) {
                EXPECT_EQ(-EPIPE, transfer(period));
                EXPECT_EQ(std::string("cannot ") + (capture ? "read" : "write") + " stream data: Broken pipe",
                          handle.Error());
            }
            EXPECT_EQ(static_cast<int>(period), transfer(period)) << handle.Error();
            EXPECT_EQ(1, pcm_get_underruns(handle.get()));
        }
    }
}

}  // namespace
}  // namespace guest_test
