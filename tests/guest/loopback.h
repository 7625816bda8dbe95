// The ALSA loopback card the guest tests run on, and what they move through it: a
// pattern that is never silent, so that its start is found after the silence a
// capture reads before the playback side starts, and a capture thread.
#ifndef AUDIOMW_TESTS_GUEST_LOOPBACK_H
#define AUDIOMW_TESTS_GUEST_LOOPBACK_H

#include <gtest/gtest.h>
#include <tinyalsa/asoundlib.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace guest_test {

using Bytes = std::vector<uint8_t>;

// snd-aloop loaded as cards 0 and 1: what device 0 of a card plays, its device 1 captures.
constexpr unsigned int kCard = 0, kSecondCard = 1, kPlayback = 0, kCapture = 1;

inline pcm_config Config(unsigned int channels, unsigned int rate, unsigned int periodSize,
                         unsigned int periodCount = 8, pcm_format format = PCM_FORMAT_S16_LE) {
    return pcm_config{channels, rate, periodSize, periodCount, format, 0, 0, 0, 0, 0};
}

// A PCM closed on scope exit; `prepare` prepares it, which makes a loopback end
// constrain the other one.
class Pcm {
  public:
    Pcm(unsigned int device, unsigned int flags, const pcm_config& config, bool prepare = false,
        unsigned int card = kCard)
        : m_pcm(pcm_open(card, device, flags, &config)) {
        if (prepare && pcm_is_ready(m_pcm)) {
            pcm_prepare(m_pcm);
        }
    }
    ~Pcm() { pcm_close(m_pcm); }
    Pcm(const Pcm&) = delete;
    Pcm& operator=(const Pcm&) = delete;
    pcm* get() const { return m_pcm; }
    std::string Error() const { return pcm_get_error(m_pcm); }

  private:
    pcm* m_pcm;
};

// `frames` interleaved frames; channel c of frame f holds (c % 15 + 1) * 0x800 + f % 2039,
// never 0, as samples of `sampleBytes` bytes (2, or 4 with a tag in the lower half).
inline Bytes MakeLoopPattern(unsigned int channels, unsigned int frames, unsigned int sampleBytes = 2) {
    Bytes bytes;
    for (unsigned int f = 0; f < frames; ++f) {
        for (unsigned int c = 0; c < channels; ++c) {
            uint32_t level = (c % 15 + 1) * 0x800 + f % 2039;
            uint32_t value = sampleBytes == 2 ? level : (level << 16) | (f & 0xFFFF);
            for (unsigned int b = 0; b < sampleBytes; ++b) {
                bytes.push_back(static_cast<uint8_t>(value >> (8 * b)));
            }
        }
    }
    return bytes;
}

// The `frames` frames from the first one with a non-zero byte (fewer when the buffer ends).
inline Bytes FromFirstSound(const Bytes& bytes, unsigned int frameBytes, size_t frames) {
    auto it = std::find_if(bytes.begin(), bytes.end(), [](uint8_t b) { return b != 0; });
    size_t begin = std::min(bytes.size(), static_cast<size_t>(it - bytes.begin()) / frameBytes * frameBytes);
    return Bytes(bytes.begin() + begin, bytes.begin() + std::min(bytes.size(), begin + frames * frameBytes));
}

// Expects `got` to hold exactly `want`.
inline void ExpectSameBytes(const Bytes& want, const Bytes& got) {
    ASSERT_EQ(want.size(), got.size());
    EXPECT_TRUE(want == got) << "first difference at byte "
                             << (std::mismatch(want.begin(), want.end(), got.begin()).first - want.begin());
}

// Reads period by period on its own thread (`read` returns frames or a negative error)
// until `wanted` frames have arrived after the first sounding one, or `capacity` frames.
struct Capture {
    using Reader = std::function<int(uint8_t* data, unsigned int frames)>;
    Capture(Reader read, unsigned int period, unsigned int frameBytes, size_t capacity, size_t wanted)
        : data(capacity * frameBytes) {
        thread = std::thread([this, read, period, frameBytes, capacity, wanted] {
            size_t first = SIZE_MAX, scanned = 0;
            while (frames + period <= capacity && (first == SIZE_MAX || frames < first + wanted)) {
                int n = read(data.data() + frames * frameBytes, period);
                error = n < 0 && error == 0 ? n : error;
                frames += n > 0 ? static_cast<size_t>(n) : 0;
                periods++;
                for (; first == SIZE_MAX && scanned < frames * frameBytes; scanned++) {
                    first = data[scanned] != 0 ? scanned / frameBytes : first;
                }
            }
            done = true;
        });
    }
    ~Capture() { Join(); }
    void Join() {
        if (thread.joinable()) {
            thread.join();
        }
    }
    Bytes data;
    size_t frames = 0;
    int error = 0;
    std::atomic<bool> done{false};
    std::atomic<size_t> periods{0};
    std::thread thread;
};

inline Capture::Reader PcmReader(pcm* capture) {
    return [capture](uint8_t* data, unsigned int frames) { return pcm_readi(capture, data, frames); };
}

}  // namespace guest_test

#endif  // AUDIOMW_TESTS_GUEST_LOOPBACK_H
