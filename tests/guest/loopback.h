// The ALSA loopback card the guest tests run on, and what they move through it: a
// pattern that is never silent, so that its start is found after the silence a
// capture reads before the playback side starts, and a capture thread.
#ifndef AUDIOMW_TESTS_GUEST_LOOPBACK_H
#define AUDIOMW_TESTS_GUEST_LOOPBACK_H

#include <tinyalsa/asoundlib.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <thread>
#include <vector>

namespace guest_test {

using Bytes = std::vector<uint8_t>;

// snd-aloop loaded as card 0: what device 0 plays, device 1 captures.
constexpr unsigned int kCard = 0;
constexpr unsigned int kPlayback = 0;
constexpr unsigned int kCapture = 1;

pcm_config Config(unsigned int channels, unsigned int rate, unsigned int periodSize,
                  unsigned int periodCount = 8, pcm_format format = PCM_FORMAT_S16_LE);

// Sample of channel c, frame f: (c % 15 + 1) * 0x800 + f % 2039, never 0.
int16_t LoopSample(unsigned int channel, unsigned int frame);

// `frames` interleaved frames of the pattern from frame `first`, as samples of
// `sampleBytes` bytes (2, or 4 with the level in the upper half and a tag below).
Bytes MakeLoopPattern(unsigned int channels, unsigned int frames, unsigned int sampleBytes = 2,
                      unsigned int first = 0);

// Frame index of the first frame with a non-zero byte, or -1.
long FirstSoundFrame(const Bytes& bytes, unsigned int frameBytes);

// The `frames` frames from the first sounding one, or fewer when the buffer ends.
Bytes FromFirstSound(const Bytes& bytes, unsigned int frameBytes, size_t frames);

// Reads one capture PCM period by period on its own thread into a buffer of
// `capacity` frames until `enough` says so (asked after every period) or the
// buffer is full.
class CaptureThread {
  public:
    using Reader = std::function<int(uint8_t* data, unsigned int frames)>;
    CaptureThread(Reader reader, unsigned int periodFrames, unsigned int frameBytes, size_t capacity,
                  std::function<bool(const Bytes&, size_t frames)> enough);
    ~CaptureThread();
    CaptureThread(const CaptureThread&) = delete;
    CaptureThread& operator=(const CaptureThread&) = delete;

    bool Done() const { return m_done.load(); }
    size_t Periods() const { return m_periods.load(); }
    // Waits for the thread; the frames read and the first failed read's result (0 if none).
    void Join();
    const Bytes& Data() const { return m_data; }
    size_t Frames() const { return m_frames; }
    int FirstError() const { return m_error; }

  private:
    void Run();

    Reader m_reader;
    unsigned int m_periodFrames;
    unsigned int m_frameBytes;
    std::function<bool(const Bytes&, size_t)> m_enough;
    Bytes m_data;
    size_t m_frames = 0;
    int m_error = 0;
    std::atomic<bool> m_done{false};
    std::atomic<size_t> m_periods{0};
    std::thread m_thread;
};

// A capture reader on a tinyalsa PCM.
CaptureThread::Reader PcmReader(pcm* capture);

// Stops a capture once `frames` frames have arrived after the first sounding one.
std::function<bool(const Bytes&, size_t)> UntilSoundFrames(unsigned int frameBytes, size_t frames);

}  // namespace guest_test

#endif  // AUDIOMW_TESTS_GUEST_LOOPBACK_H
