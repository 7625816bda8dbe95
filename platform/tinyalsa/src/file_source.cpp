#include "file_source.h"

#include <sndfile.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "pcm_format.h"

namespace tinyalsa {
namespace {

class RawFileSource : public CaptureSource {
  public:
    RawFileSource(FILE* file, bool loop, const pcm_config& config)
        : m_file(file), m_loop(loop), m_frameBytes(FrameBytes(config.format, config.channels)) {}
    ~RawFileSource() override { std::fclose(m_file); }

    int Fill(uint8_t* dst, unsigned int frames, uint64_t) override {
        size_t want = static_cast<size_t>(frames) * m_frameBytes;
        size_t got = 0;
        bool emptySinceRewind = false;
        while (got < want) {
            size_t n = std::fread(dst + got, 1, want - got, m_file);
            got += n;
            emptySinceRewind = emptySinceRewind && n == 0;
            if (got == want) {
                break;
            }
            if (std::ferror(m_file)) {
                return -EIO;
            }
            if (!m_loop || emptySinceRewind) {
                std::memset(dst + got, 0, want - got);  // after the end: silence
                break;
            }
            std::rewind(m_file);
            emptySinceRewind = true;
        }
        return 0;
    }

  private:
    FILE* m_file;
    bool m_loop;
    unsigned int m_frameBytes;
};

class WavFileSource : public CaptureSource {
  public:
    WavFileSource(SNDFILE* file, const SF_INFO& info, bool loop, const pcm_config& config)
        : m_file(file),
          m_fileChannels(static_cast<unsigned int>(info.channels)),
          m_loop(loop),
          m_config(config),
          m_wide(config.format != PCM_FORMAT_S16_LE),
          m_sampleBytes(FormatBits(config.format) / 8),
          m_chunk(config.period_size) {
        size_t samples = static_cast<size_t>(m_chunk) * m_fileChannels;
        if (m_wide) {
            m_int.resize(samples);
        } else {
            m_short.resize(samples);
        }
    }
    ~WavFileSource() override { sf_close(m_file); }

    int Fill(uint8_t* dst, unsigned int frames, uint64_t) override {
        unsigned int done = 0;
        bool emptySinceRewind = false;
        while (done < frames) {
            sf_count_t chunk = std::min(frames - done, m_chunk);
            sf_count_t n = m_wide ? sf_readf_int(m_file, m_int.data(), chunk)
                                  : sf_readf_short(m_file, m_short.data(), chunk);
            if (n > 0) {
                dst = Store(dst, static_cast<unsigned int>(n));
                done += static_cast<unsigned int>(n);
                emptySinceRewind = false;
                continue;
            }
            if (!m_loop || emptySinceRewind) {
                std::memset(dst, 0, static_cast<size_t>(frames - done) * m_sampleBytes * m_config.channels);
                break;
            }
            sf_seek(m_file, 0, SEEK_SET);
            emptySinceRewind = true;
        }
        return 0;
    }

  private:
    // Writes `frames` frames of the read buffer in the PCM's shape; returns the end.
    uint8_t* Store(uint8_t* dst, unsigned int frames) const {
        for (unsigned int f = 0; f < frames; ++f) {
            size_t row = static_cast<size_t>(f) * m_fileChannels;
            for (unsigned int c = 0; c < m_config.channels; ++c) {
                bool present = c < m_fileChannels;
                if (m_wide) {
                    StoreLe32(dst, present ? m_int[row + c] : 0);
                } else {
                    StoreLe16(dst, present ? m_short[row + c] : 0);
                }
                dst += m_sampleBytes;
            }
        }
        return dst;
    }

    SNDFILE* m_file;
    unsigned int m_fileChannels;
    bool m_loop;
    pcm_config m_config;
    bool m_wide;  // 4-byte samples
    unsigned int m_sampleBytes;
    unsigned int m_chunk;  // frames read from the file at a time
    std::vector<int16_t> m_short;
    std::vector<int32_t> m_int;
};

}  // namespace

std::unique_ptr<CaptureSource> MakeFileSource(const SourceSettings& wanted, const pcm_config& config,
                                              std::string* error) {
    if (wanted.fileKind == VCARD_FILE_RAW) {
        FILE* file = std::fopen(wanted.path.c_str(), "rb");
        if (file == nullptr) {
            *error = "cannot open source file '" + wanted.path + "': " + std::strerror(errno);
            return nullptr;
        }
        return std::make_unique<RawFileSource>(file, wanted.loop, config);
    }
    SF_INFO info{};
    SNDFILE* file = sf_open(wanted.path.c_str(), SFM_READ, &info);
    if (file == nullptr) {
        *error = "cannot open source file '" + wanted.path + "': " + sf_strerror(nullptr);
        return nullptr;
    }
    if (info.channels < 1) {
        sf_close(file);
        *error = "source file '" + wanted.path + "' has no channels";
        return nullptr;
    }
    return std::make_unique<WavFileSource>(file, info, wanted.loop, config);
}

}  // namespace tinyalsa
