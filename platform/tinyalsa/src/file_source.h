// Capture sources that play a file: raw bytes in the PCM's format, or a WAV (any
// file libsndfile reads) converted to the PCM's format and channel count.
#ifndef TINYALSA_SRC_FILE_SOURCE_H
#define TINYALSA_SRC_FILE_SOURCE_H

#include "capture_source.h"

namespace tinyalsa {

// Opens the file wanted.path; null with *error set when it cannot be opened.
std::unique_ptr<CaptureSource> MakeFileSource(const SourceSettings& wanted, const pcm_config& config,
                                              std::string* error);

}  // namespace tinyalsa

#endif  // TINYALSA_SRC_FILE_SOURCE_H
