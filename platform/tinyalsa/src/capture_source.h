// What a virtual capture PCM delivers. Sources are built at pcm_open with everything
// they need, so filling a period allocates nothing.
#ifndef TINYALSA_SRC_CAPTURE_SOURCE_H
#define TINYALSA_SRC_CAPTURE_SOURCE_H

#include <cstdint>
#include <memory>
#include <string>

#include "tinyalsa/pcm.h"
#include "vcard_settings.h"

namespace tinyalsa {

class CaptureSource {
  public:
    virtual ~CaptureSource() = default;
    // Fills `frames` interleaved frames at `dst`, the first being frame `first` of
    // the stream. Returns 0 or a negative errno.
    virtual int Fill(uint8_t* dst, unsigned int frames, uint64_t first) = 0;
};

// Builds the source `wanted` asks for, for a PCM opened with `config`; null with
// *error set when it cannot (a file that does not open).
std::unique_ptr<CaptureSource> MakeCaptureSource(const SourceSettings& wanted, const pcm_config& config,
                                                 std::string* error);

// The pattern source's sample of `channel` at `frame`.
int16_t PatternSample(unsigned int channel, uint64_t frame);

}  // namespace tinyalsa

#endif  // TINYALSA_SRC_CAPTURE_SOURCE_H
