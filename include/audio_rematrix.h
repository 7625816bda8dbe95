// Channel rematrix of interleaved signed 16-bit PCM: channels are repeated or dropped,
// never mixed; samples are copied bit for bit.
#ifndef AUDIOMW_AUDIO_REMATRIX_H
#define AUDIOMW_AUDIO_REMATRIX_H

#include <cstddef>

struct REMATRIX_ATTR_S {
    int s32InChn;   // channels per input frame
    int s32OutChn;  // channels per output frame
};

struct REMATRIX_HANDLER {
    REMATRIX_ATTR_S stAttr;
};

static_assert(sizeof(REMATRIX_ATTR_S) == 8, "REMATRIX_ATTR_S is two 32-bit fields");
static_assert(offsetof(REMATRIX_ATTR_S, s32OutChn) == 4, "REMATRIX_ATTR_S layout");
static_assert(sizeof(REMATRIX_HANDLER) == 8, "REMATRIX_HANDLER holds the attributes only");

// Builds a handler holding a copy of *attr; channel counts are not checked here. Null
// only for a null attr or when memory runs out.
REMATRIX_HANDLER* REMATRIX_CreateHandler(REMATRIX_ATTR_S* attr);

// Maps inFrames frames of `in` into `out` and returns inFrames. Widening (in <= out
// channels) repeats the input channels in order, narrowing keeps the first ones.
// inFrames <= 0 writes nothing and is returned unchanged. -1 for a null handler, a null
// buffer, or channel counts that give an output channel no source (negative counts,
// or 0 input channels for a non-empty output frame). `out` holds inFrames * s32OutChn
// samples; it may be `in` itself, other overlaps are not supported. outFrames is not used.
int REMATRIX_Process(REMATRIX_HANDLER* handler, unsigned char* in, int inFrames, unsigned char* out,
                     int outFrames);

// Frees *handler (if any) and sets it to null. A null `handler` is ignored. Returns 0.
int REMATRIX_Destroy(REMATRIX_HANDLER** handler);

#endif  // AUDIOMW_AUDIO_REMATRIX_H
