#include "loopback.h"

#include <algorithm>

namespace guest_test {

pcm_config Config(unsigned int channels, unsigned int rate, unsigned int periodSize, unsigned int periodCount,
                  pcm_format format) {
    return pcm_config{channels, rate, periodSize, periodCount, format, 0, 0, 0, 0, 0};
}

int16_t LoopSample(unsigned int channel, unsigned int frame) {
    return static_cast<int16_t>((channel % 15 + 1) * 0x800 + frame % 2039);
}

Bytes MakeLoopPattern(unsigned int channels, unsigned int frames, unsigned int sampleBytes,
                      unsigned int first) {
    Bytes bytes(static_cast<size_t>(frames) * channels * sampleBytes);
    uint8_t* out = bytes.data();
    for (unsigned int f = first; f < first + frames; ++f) {
        for (unsigned int c = 0; c < channels; ++c) {
            uint16_t level = static_cast<uint16_t>(LoopSample(c, f));
            uint32_t value = sampleBytes == 2 ? level : (static_cast<uint32_t>(level) << 16) | (f & 0xFFFF);
            for (unsigned int b = 0; b < sampleBytes; ++b) {
                *out++ = static_cast<uint8_t>(value >> (8 * b));
            }
        }
    }
    return bytes;
}

long FirstSoundFrame(const Bytes& bytes, unsigned int frameBytes) {
    auto it = std::find_if(bytes.begin(), bytes.end(), [](uint8_t b) { return b != 0; });
    return it == bytes.end() ? -1 : static_cast<long>((it - bytes.begin()) / frameBytes);
}

Bytes FromFirstSound(const Bytes& bytes, unsigned int frameBytes, size_t frames) {
    long first = FirstSoundFrame(bytes, frameBytes);
    if (first < 0) {
        return Bytes();
    }
    size_t begin = static_cast<size_t>(first) * frameBytes;
    size_t end = std::min(bytes.size(), begin + frames * frameBytes);
    return Bytes(bytes.begin() + begin, bytes.begin() + end);
}

CaptureThread::CaptureThread(Reader reader, unsigned int periodFrames, unsigned int frameBytes,
                             size_t capacity, std::function<bool(const Bytes&, size_t)> enough)
    : m_reader(std::move(reader)),
      m_periodFrames(periodFrames),
      m_frameBytes(frameBytes),
      m_enough(std::move(enough)),
      m_data(capacity * frameBytes) {
    m_thread = std::thread([this] { Run(); });
}

CaptureThread::~CaptureThread() {
    Join();
}

void CaptureThread::Join() {
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void CaptureThread::Run() {
    const size_t capacity = m_data.size() / m_frameBytes;
    while (m_frames + m_periodFrames <= capacity) {
        int n = m_reader(m_data.data() + m_frames * m_frameBytes, m_periodFrames);
        if (n < 0 && m_error == 0) {
            m_error = n;
        }
        if (n > 0) {
            m_frames += static_cast<size_t>(n);
        }
        m_periods.fetch_add(1);
        if (m_enough(m_data, m_frames)) {
            break;
        }
    }
    m_done.store(true);
}

CaptureThread::Reader PcmReader(pcm* capture) {
    return [capture](uint8_t* data, unsigned int frames) { return pcm_readi(capture, data, frames); };
}

std::function<bool(const Bytes&, size_t)> UntilSoundFrames(unsigned int frameBytes, size_t frames) {
    long first = -1;
    size_t scanned = 0;
    return [=](const Bytes& data, size_t have) mutable {
        if (first < 0) {
            Bytes seen(data.begin() + scanned * frameBytes, data.begin() + have * frameBytes);
            long found = FirstSoundFrame(seen, frameBytes);
            first = found < 0 ? -1 : static_cast<long>(scanned) + found;
            scanned = have;
        }
        return first >= 0 && have >= static_cast<size_t>(first) + frames;
    };
}

}  // namespace guest_test
