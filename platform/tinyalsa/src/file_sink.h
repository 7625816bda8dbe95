// Playback sinks that record to a file: the raw bytes, or a WAV file (through
// libsndfile) with the PCM's rate and channels, finalised when the PCM closes.
#ifndef TINYALSA_SRC_FILE_SINK_H
#define TINYALSA_SRC_FILE_SINK_H

#include "playback_sink.h"

namespace tinyalsa {

// Creates (truncates) the file wanted.path; null with *error set when it cannot.
std::unique_ptr<PlaybackSink> MakeFileSink(const SinkSettings& wanted, const pcm_config& config,
                                           std::string* error);

}  // namespace tinyalsa

#endif  // TINYALSA_SRC_FILE_SINK_H
