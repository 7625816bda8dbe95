// Building, running and releasing RESAMPLE_HANDLER objects. The exported RESAMPLE_*
// functions validate their arguments and report; these helpers only do the work.
#ifndef AUDIOMW_SRC_CONVERT_RESAMPLER_H
#define AUDIOMW_SRC_CONVERT_RESAMPLER_H

#include "audio_resample.h"

namespace audiomw {

// Input period the rate relation asks for: s32OutPeriodSize * s32InRate / s32OutRate,
// truncated toward zero (0 when s32OutRate is 0). The product is exact in 64 bits.
long long ResamplerExpectedInPeriod(const RESAMPLE_ATTR_S& attr);

// Samples in `frames` frames of `channels` channels, or -1 when either is negative or
// the count exceeds what libsamplerate's int-sized conversions take.
long long ResamplerSamples(int frames, int channels);

// True when there is at least one channel (libsamplerate asserts on 0) and both
// periods have a valid sample count (see ResamplerSamples).
bool ResamplerShapeValid(const RESAMPLE_ATTR_S& attr);

enum ResamplerNewResult { kResamplerOk, kResamplerNoConverter, kResamplerNoMemory };

// Makes the converter (src_new, zero-order hold) and both float buffers for a valid
// description; fills stData and stAttr. Null on failure, with the reason in *result.
// The ratio is stored in stData but not yet given to the converter.
RESAMPLE_HANDLER* ResamplerNew(const RESAMPLE_ATTR_S& attr, ResamplerNewResult* result);

// True when the handler holds a converter and the buffers its attributes need.
bool ResamplerUsable(const RESAMPLE_HANDLER& handler);

// Converts one period of `in` into `out` (whole output buffer). Returns src_process's
// code; on an error `out` is left untouched.
int ResamplerRun(RESAMPLE_HANDLER* handler, const unsigned char* in, unsigned char* out);

// Deletes the converter, both buffers and the handler. Null is ignored.
void ResamplerDelete(RESAMPLE_HANDLER* handler);

}  // namespace audiomw

#endif  // AUDIOMW_SRC_CONVERT_RESAMPLER_H
