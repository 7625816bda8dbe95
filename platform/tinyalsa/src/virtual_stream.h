// An open virtual PCM: the source or sink built for this opening, the frame count
// and the clock. Used by one thread at a time, like a tinyalsa handle.
#ifndef TINYALSA_SRC_VIRTUAL_STREAM_H
#define TINYALSA_SRC_VIRTUAL_STREAM_H

#include <cstdint>
#include <memory>
#include <string>

#include "capture_source.h"
#include "pace_clock.h"
#include "playback_sink.h"
#include "virtual_pcm.h"

namespace tinyalsa {

class VirtualStream {
  public:
    VirtualStream(std::shared_ptr<VirtualPcm> pcm, const pcm_config& config);
    // Finishes the sink: a WAV file gets its final header.
    ~VirtualStream();
    VirtualStream(const VirtualStream&) = delete;
    VirtualStream& operator=(const VirtualStream&) = delete;

    const std::shared_ptr<VirtualPcm>& Pcm() const { return m_pcm; }

    // Builds the source or sink of `settings`; false with *error set.
    bool Start(const PcmSettings& settings, std::string* error);

    // The planned outcome of pcm_prepare; a good one restarts the time line, an
    // unready one ends the stream (see Abandon).
    vcard_prepare_fault Prepare();
    // Finishes the source or sink and frees the PCM for other opens; the handle
    // can only be closed after this.
    void Abandon();
    bool Abandoned() const { return m_abandoned; }
    // Frames moved, or a negative errno.
    int Read(uint8_t* dst, unsigned int frames);
    int Write(const uint8_t* src, unsigned int frames);
    // 0 with the frames available and the time of the last transfer; -1 before one.
    int Timestamp(unsigned int* avail, timespec* stamp) const;

  private:
    std::shared_ptr<VirtualPcm> m_pcm;
    pcm_config m_config;
    bool m_capture;
    std::unique_ptr<CaptureSource> m_source;
    std::unique_ptr<PlaybackSink> m_sink;
    PaceClock m_clock;
    uint64_t m_frames = 0;  // frames moved since pcm_open
    bool m_abandoned = false;
};

}  // namespace tinyalsa

#endif  // TINYALSA_SRC_VIRTUAL_STREAM_H
