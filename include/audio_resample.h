// Sample-rate conversion of interleaved signed 16-bit PCM, one fixed period per call,
// on top of libsamplerate's zero-order-hold converter.
#ifndef AUDIOMW_AUDIO_RESAMPLE_H
#define AUDIOMW_AUDIO_RESAMPLE_H

#include <samplerate.h>

#include <cstddef>

// One conversion. Both channel counts must be equal, and the input period must equal
// s32OutPeriodSize * s32InRate / s32OutRate (truncated).
struct RESAMPLE_ATTR_S {
    int s32InRate;         // input sample rate, Hz
    int s32InChn;          // input channels
    int s32InPeriodSize;   // frames consumed by each RESAMPLE_Process
    int s32OutRate;        // output sample rate, Hz
    int s32OutChn;         // output channels, equal to s32InChn
    int s32OutPeriodSize;  // frames of output space per call
};

// State of one conversion: the converter, the block handed to src_process (whose
// data_in/data_out float buffers the handler owns) and a copy of the attributes.
struct RESAMPLE_HANDLER {
    SRC_STATE* pState;
    SRC_DATA stData;
    RESAMPLE_ATTR_S stAttr;
};

static_assert(sizeof(RESAMPLE_ATTR_S) == 24, "RESAMPLE_ATTR_S is six 32-bit fields");
static_assert(offsetof(RESAMPLE_ATTR_S, s32InPeriodSize) == 8, "RESAMPLE_ATTR_S layout");
static_assert(offsetof(RESAMPLE_ATTR_S, s32OutRate) == 12, "RESAMPLE_ATTR_S layout");
static_assert(offsetof(RESAMPLE_ATTR_S, s32OutPeriodSize) == 20, "RESAMPLE_ATTR_S layout");
static_assert(sizeof(SRC_DATA) == 64, "libsamplerate SRC_DATA layout (LP64)");
static_assert(offsetof(RESAMPLE_HANDLER, pState) == 0, "RESAMPLE_HANDLER layout");
static_assert(offsetof(RESAMPLE_HANDLER, stData) == 8, "RESAMPLE_HANDLER layout");
static_assert(offsetof(RESAMPLE_HANDLER, stAttr) == 72, "RESAMPLE_HANDLER layout");
static_assert(sizeof(RESAMPLE_HANDLER) == 96, "RESAMPLE_HANDLER size");

// Validates *attr and builds a handler; null when the description is refused (the
// reason is printed to standard output) or the converter cannot be made.
RESAMPLE_HANDLER* RESAMPLE_CreateHandler(RESAMPLE_ATTR_S* attr);

// Converts one period: reads s32InPeriodSize frames from `in`, writes s32OutPeriodSize
// frames' worth of samples to `out` and returns the frames generated (at most
// s32OutPeriodSize). 0 when libsamplerate reports an error, -1 for a null or unusable
// handler or a null buffer. inFrames and outFrames are not used.
int RESAMPLE_Process(RESAMPLE_HANDLER* handler, unsigned char* in, int inFrames, unsigned char* out,
                     int outFrames);

// Releases *handler (if any) and sets it to null. A null `handler` is ignored. Returns 0.
int RESAMPLE_Destroy(RESAMPLE_HANDLER** handler);

#endif  // AUDIOMW_AUDIO_RESAMPLE_H
