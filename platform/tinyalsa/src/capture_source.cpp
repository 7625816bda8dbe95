#include "capture_source.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "file_source.h"
#include "pcm_format.h"

namespace tinyalsa {
namespace {

constexpr double kTwoPi = 6.283185307179586476925286766559;

class SilenceSource : public CaptureSource {
  public:
    explicit SilenceSource(const pcm_config& config)
        : m_frameBytes(FrameBytes(config.format, config.channels)) {}
    int Fill(uint8_t* dst, unsigned int frames, uint64_t) override {
        std::memset(dst, 0, static_cast<size_t>(frames) * m_frameBytes);
        return 0;
    }

  private:
    unsigned int m_frameBytes;
};

class PatternSource : public CaptureSource {
  public:
    explicit PatternSource(const pcm_config& config) : m_config(config) {}
    int Fill(uint8_t* dst, unsigned int frames, uint64_t first) override {
        unsigned int sampleBytes = FormatBits(m_config.format) / 8;
        for (unsigned int f = 0; f < frames; ++f) {
            for (unsigned int c = 0; c < m_config.channels; ++c) {
                StoreSample(dst, m_config.format, PatternSample(c, first + f));
                dst += sampleBytes;
            }
        }
        return 0;
    }

  private:
    pcm_config m_config;
};

class SineSource : public CaptureSource {
  public:
    SineSource(const std::vector<vcard_tone>& tones, const pcm_config& config) : m_config(config) {
        for (unsigned int c = 0; c < config.channels; ++c) {
            m_tones.push_back(tones[std::min<size_t>(c, tones.size() - 1)]);
        }
    }
    int Fill(uint8_t* dst, unsigned int frames, uint64_t first) override {
        unsigned int sampleBytes = FormatBits(m_config.format) / 8;
        for (unsigned int f = 0; f < frames; ++f) {
            for (unsigned int c = 0; c < m_config.channels; ++c) {
                StoreSample(dst, m_config.format, Level(m_tones[c], first + f));
                dst += sampleBytes;
            }
        }
        return 0;
    }

  private:
    int16_t Level(const vcard_tone& tone, uint64_t frame) const {
        // The phase in cycles, reduced first so long streams keep their precision.
        double cycles = std::fmod(tone.frequency * static_cast<double>(frame % (1ull << 52)), m_config.rate) /
                        m_config.rate;
        double value = std::round(tone.amplitude * std::sin(kTwoPi * cycles));
        return static_cast<int16_t>(std::clamp(value, -32768.0, 32767.0));
    }

    pcm_config m_config;
    std::vector<vcard_tone> m_tones;  // one per channel
};

class CallbackSource : public CaptureSource {
  public:
    CallbackSource(vcard_capture_fn fn, void* user, const pcm_config& config)
        : m_fn(fn), m_user(user), m_config(config) {}
    int Fill(uint8_t* dst, unsigned int frames, uint64_t first) override {
        int result = m_fn(m_user, dst, frames, first, &m_config);
        return result < 0 ? result : 0;
    }

  private:
    vcard_capture_fn m_fn;
    void* m_user;
    pcm_config m_config;
};

}  // namespace

int16_t PatternSample(unsigned int channel, uint64_t frame) {
    return static_cast<int16_t>(static_cast<uint16_t>(((channel & 0xFu) << 12) | (frame & 0xFFFu)));
}

std::unique_ptr<CaptureSource> MakeCaptureSource(const SourceSettings& wanted, const pcm_config& config,
                                                 std::string* error) {
    switch (wanted.kind) {
        case SourceKind::kPattern:
            return std::make_unique<PatternSource>(config);
        case SourceKind::kSine:
            if (!wanted.tones.empty()) {
                return std::make_unique<SineSource>(wanted.tones, config);
            }
            return std::make_unique<SilenceSource>(config);
        case SourceKind::kFile:
            return MakeFileSource(wanted, config, error);
        case SourceKind::kCallback:
            if (wanted.callback != nullptr) {
                return std::make_unique<CallbackSource>(wanted.callback, wanted.user, config);
            }
            return std::make_unique<SilenceSource>(config);
        case SourceKind::kSilence:
        default:
            return std::make_unique<SilenceSource>(config);
    }
}

}  // namespace tinyalsa
