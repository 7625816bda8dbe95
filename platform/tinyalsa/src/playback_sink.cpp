#include "playback_sink.h"

#include "file_sink.h"
#include "pcm_format.h"
#include "virtual_pcm.h"

namespace tinyalsa {
namespace {

class DiscardSink : public PlaybackSink {
  public:
    int Consume(const uint8_t*, unsigned int) override { return 0; }
};

class MemorySink : public PlaybackSink {
  public:
    MemorySink(const std::shared_ptr<VirtualPcm>& pcm, const pcm_config& config)
        : m_pcm(pcm), m_frameBytes(FrameBytes(config.format, config.channels)) {}
    int Consume(const uint8_t* src, unsigned int frames) override {
        m_pcm->AppendMemory(src, static_cast<size_t>(frames) * m_frameBytes);
        return 0;
    }

  private:
    std::shared_ptr<VirtualPcm> m_pcm;
    unsigned int m_frameBytes;
};

}  // namespace

std::unique_ptr<PlaybackSink> MakePlaybackSink(const SinkSettings& wanted, const pcm_config& config,
                                               const std::shared_ptr<VirtualPcm>& pcm, std::string* error) {
    switch (wanted.kind) {
        case SinkKind::kMemory:
            return std::make_unique<MemorySink>(pcm, config);
        case SinkKind::kFile:
            return MakeFileSink(wanted, config, error);
        case SinkKind::kDiscard:
        default:
            return std::make_unique<DiscardSink>();
    }
}

}  // namespace tinyalsa
