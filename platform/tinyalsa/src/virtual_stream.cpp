#include "virtual_stream.h"

#include <utility>

namespace tinyalsa {

VirtualStream::VirtualStream(std::shared_ptr<VirtualPcm> pcm, const pcm_config& config)
    : m_pcm(std::move(pcm)),
      m_config(config),
      m_capture(m_pcm->Desc().direction == VCARD_CAPTURE),
      m_clock(config.rate, config.period_size * config.period_count) {}

VirtualStream::~VirtualStream() {
    m_sink.reset();
    m_source.reset();
}

bool VirtualStream::Start(const PcmSettings& settings, std::string* error) {
    if (m_capture) {
        m_source = MakeCaptureSource(settings.source, m_config, error);
        return m_source != nullptr;
    }
    m_sink = MakePlaybackSink(settings.sink, m_config, m_pcm, error);
    return m_sink != nullptr;
}

vcard_prepare_fault VirtualStream::Prepare() {
    vcard_prepare_fault outcome = m_pcm->Prepare();
    if (outcome == VCARD_PREPARE_OK) {
        m_clock.Restart();
    } else if (outcome == VCARD_PREPARE_UNREADY) {
        Abandon();
    }
    return outcome;
}

void VirtualStream::Abandon() {
    m_sink.reset();
    m_source.reset();
    m_abandoned = true;
    m_pcm->Abandon();
}

int VirtualStream::Read(uint8_t* dst, unsigned int frames) {
    VirtualPcm::Gate gate = m_pcm->BeginTransfer();
    if (gate.error != 0) {
        return gate.error;
    }
    int result = m_source->Fill(dst, frames, m_frames);
    if (result < 0) {
        return result;
    }
    m_frames += frames;
    m_clock.Advance(gate.clock, frames);
    m_pcm->EndTransfer(true, frames);
    return static_cast<int>(frames);
}

int VirtualStream::Write(const uint8_t* src, unsigned int frames) {
    VirtualPcm::Gate gate = m_pcm->BeginTransfer();
    if (gate.error != 0) {
        return gate.error;
    }
    int result = m_sink->Consume(src, frames);
    if (result < 0) {
        return result;
    }
    m_frames += frames;
    m_clock.Advance(gate.clock, frames);
    m_pcm->EndTransfer(false, frames);
    return static_cast<int>(frames);
}

int VirtualStream::Timestamp(unsigned int* avail, timespec* stamp) const {
    if (!m_clock.HasRun()) {
        return -1;
    }
    // Data is produced and consumed on demand: nothing waits in a capture buffer and
    // a playback buffer is always free.
    *avail = m_capture ? 0 : m_config.period_size * m_config.period_count;
    *stamp = m_clock.Stamp();
    return 0;
}

}  // namespace tinyalsa
