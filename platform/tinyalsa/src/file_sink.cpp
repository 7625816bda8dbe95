#include "file_sink.h"

#include <sndfile.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "pcm_format.h"

namespace tinyalsa {
namespace {

class RawFileSink : public PlaybackSink {
  public:
    RawFileSink(FILE* file, const pcm_config& config)
        : m_file(file), m_frameBytes(FrameBytes(config.format, config.channels)) {}
    ~RawFileSink() override { std::fclose(m_file); }

    int Consume(const uint8_t* src, unsigned int frames) override {
        size_t bytes = static_cast<size_t>(frames) * m_frameBytes;
        return std::fwrite(src, 1, bytes, m_file) == bytes ? 0 : -EIO;
    }

  private:
    FILE* m_file;
    unsigned int m_frameBytes;
};

class WavFileSink : public PlaybackSink {
  public:
    WavFileSink(SNDFILE* file, const pcm_config& config)
        : m_file(file),
          m_channels(config.channels),
          m_wide(config.format != PCM_FORMAT_S16_LE),
          m_sampleBytes(FormatBits(config.format) / 8),
          m_chunk(config.period_size) {
        size_t samples = static_cast<size_t>(m_chunk) * m_channels;
        if (m_wide) {
            m_int.resize(samples);
        } else {
            m_short.resize(samples);
        }
    }
    ~WavFileSink() override { sf_close(m_file); }  // writes the final header

    int Consume(const uint8_t* src, unsigned int frames) override {
        while (frames > 0) {
            unsigned int chunk = std::min(frames, m_chunk);
            size_t samples = static_cast<size_t>(chunk) * m_channels;
            sf_count_t written;
            if (m_wide) {
                for (size_t i = 0; i < samples; ++i) {
                    m_int[i] = LoadLe32(src + i * 4);
                }
                written = sf_writef_int(m_file, m_int.data(), chunk);
            } else {
                for (size_t i = 0; i < samples; ++i) {
                    m_short[i] = LoadLe16(src + i * 2);
                }
                written = sf_writef_short(m_file, m_short.data(), chunk);
            }
            if (written != chunk) {
                return -EIO;
            }
            src += samples * m_sampleBytes;
            frames -= chunk;
        }
        return 0;
    }

  private:
    SNDFILE* m_file;
    unsigned int m_channels;
    bool m_wide;  // 4-byte samples, written as 32-bit PCM
    unsigned int m_sampleBytes;
    unsigned int m_chunk;  // frames converted at a time
    std::vector<int16_t> m_short;
    std::vector<int32_t> m_int;
};

}  // namespace

std::unique_ptr<PlaybackSink> MakeFileSink(const SinkSettings& wanted, const pcm_config& config,
                                           std::string* error) {
    if (wanted.fileKind == VCARD_FILE_RAW) {
        FILE* file = std::fopen(wanted.path.c_str(), "wb");
        if (file == nullptr) {
            *error = "cannot create sink file '" + wanted.path + "': " + std::strerror(errno);
            return nullptr;
        }
        return std::make_unique<RawFileSink>(file, config);
    }
    SF_INFO info{};
    info.samplerate = static_cast<int>(config.rate);
    info.channels = static_cast<int>(config.channels);
    info.format = SF_FORMAT_WAV | (config.format == PCM_FORMAT_S16_LE ? SF_FORMAT_PCM_16 : SF_FORMAT_PCM_32);
    SNDFILE* file = sf_open(wanted.path.c_str(), SFM_WRITE, &info);
    if (file == nullptr) {
        *error = "cannot create sink file '" + wanted.path + "': " + sf_strerror(nullptr);
        return nullptr;
    }
    return std::make_unique<WavFileSink>(file, config);
}

}  // namespace tinyalsa
