// Where a virtual playback PCM's frames go. Sinks are built at pcm_open with
// everything they need, so consuming a period allocates nothing.
#ifndef TINYALSA_SRC_PLAYBACK_SINK_H
#define TINYALSA_SRC_PLAYBACK_SINK_H

#include <cstdint>
#include <memory>
#include <string>

#include "tinyalsa/pcm.h"
#include "vcard_settings.h"

namespace tinyalsa {

class VirtualPcm;

class PlaybackSink {
  public:
    virtual ~PlaybackSink() = default;
    // Takes `frames` interleaved frames from `src`. Returns 0 or a negative errno.
    virtual int Consume(const uint8_t* src, unsigned int frames) = 0;
};

// Builds the sink `wanted` asks for, for a PCM opened with `config`; null with *error
// set when it cannot (a file that does not open). A memory sink writes into `pcm`.
std::unique_ptr<PlaybackSink> MakePlaybackSink(const SinkSettings& wanted, const pcm_config& config,
                                               const std::shared_ptr<VirtualPcm>& pcm, std::string* error);

}  // namespace tinyalsa

#endif  // TINYALSA_SRC_PLAYBACK_SINK_H
