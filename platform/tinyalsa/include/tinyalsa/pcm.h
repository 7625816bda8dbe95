/* tinyalsa-compatible PCM interface: the subset of tinyalsa 2.x's documented API that
 * audiomw uses, with the same names, constants, enumeration values and
 * struct pcm_config layout.
 *
 * Sample format code 7. tinyalsa 2.x numbers its formats S16_LE 0, S32_LE 1, S8 2,
 * S24_LE 3, S24_3LE 4, S16_BE 5, S24_BE 6, S24_3BE 7, S32_BE 8, FLOAT_LE 9,
 * FLOAT_BE 10. audiomw opens card 3 device 0 with code 7 and moves 4 bytes per sample
 * through it (two 32-bit slots carry what the caller sees as four 16-bit channels), so
 * this library gives code 7 that meaning: PCM_FORMAT_S32_SLOT_LE, a signed 32-bit
 * little-endian slot, 4 bytes per sample. tinyalsa's 3-byte PCM_FORMAT_S24_3BE is
 * therefore not offered; every other code keeps tinyalsa's value and meaning.
 *
 * Handles: pcm_open never returns null. A PCM that could not be opened is a handle
 * that pcm_is_ready refuses and pcm_get_error explains; pcm_close releases every
 * handle. pcm_is_ready answers 0 for a null handle.
 *
 * Cards: a card declared virtual (tinyalsa/vcard.h, or the file named by the
 * environment variable TINYALSA_VCARDS) is served in process; any other card goes
 * to the kernel's /dev/snd/pcmC<card>D<device>{c,p} devices.
 */
#ifndef TINYALSA_PCM_H
#define TINYALSA_PCM_H

#include <time.h>

#if defined(__cplusplus)
extern "C" {
#endif

/* In C++ the enumerations get int as their fixed underlying type (what C gives them
 * in practice), so that any 32-bit value read from a caller's record is valid. */
#if defined(__cplusplus)
#define TINYALSA_ENUM_INT : int
#else
#define TINYALSA_ENUM_INT
#endif

/* pcm_open and pcm_params_get flags. */
#define PCM_OUT 0x00000000
#define PCM_IN 0x10000000
#define PCM_MMAP 0x00000001
#define PCM_NOIRQ 0x00000002
#define PCM_NORESTART 0x00000004
#define PCM_MONOTONIC 0x00000008
#define PCM_NONBLOCK 0x00000010

/* Longest text pcm_get_error returns, terminator included. */
#define PCM_ERROR_MAX 128

/* PCM states. */
#define PCM_STATE_OPEN 0x00
#define PCM_STATE_SETUP 0x01
#define PCM_STATE_PREPARED 0x02
#define PCM_STATE_RUNNING 0x03
#define PCM_STATE_XRUN 0x04
#define PCM_STATE_DRAINING 0x05
#define PCM_STATE_PAUSED 0x06
#define PCM_STATE_SUSPENDED 0x07
#define PCM_STATE_DISCONNECTED 0x08

/* Sample formats; values as tinyalsa 2.x except code 7 (see the top of this file). */
enum pcm_format TINYALSA_ENUM_INT {
    PCM_FORMAT_INVALID = -1,
    PCM_FORMAT_S16_LE = 0,      /* signed 16-bit, little endian */
    PCM_FORMAT_S32_LE = 1,      /* signed 32-bit, little endian */
    PCM_FORMAT_S8 = 2,          /* signed 8-bit */
    PCM_FORMAT_S24_LE = 3,      /* signed 24-bit in 4 bytes, little endian */
    PCM_FORMAT_S24_3LE = 4,     /* signed 24-bit in 3 bytes, little endian */
    PCM_FORMAT_S16_BE = 5,      /* signed 16-bit, big endian */
    PCM_FORMAT_S24_BE = 6,      /* signed 24-bit in 4 bytes, big endian */
    PCM_FORMAT_S32_SLOT_LE = 7, /* signed 32-bit slot, little endian, 4 bytes a sample */
    PCM_FORMAT_S32_BE = 8,      /* signed 32-bit, big endian */
    PCM_FORMAT_FLOAT_LE = 9,    /* 32-bit float, little endian */
    PCM_FORMAT_FLOAT_BE = 10,   /* 32-bit float, big endian */
    PCM_FORMAT_MAX
};

/* Hardware and software parameters of a PCM, in tinyalsa 2.x's field order. Zero
 * thresholds select the defaults (start and stop: period_size * period_count). */
struct pcm_config {
    unsigned int channels;
    unsigned int rate;
    unsigned int period_size; /* frames */
    unsigned int period_count;
    enum pcm_format format;
    unsigned long start_threshold;
    unsigned long stop_threshold;
    unsigned long silence_threshold;
    unsigned long silence_size;
    unsigned long avail_min;
};

/* Parameter ids for pcm_params_get_min/max, in tinyalsa's order. */
enum pcm_param TINYALSA_ENUM_INT {
    PCM_PARAM_ACCESS,
    PCM_PARAM_FORMAT,
    PCM_PARAM_SUBFORMAT,
    PCM_PARAM_SAMPLE_BITS,
    PCM_PARAM_FRAME_BITS,
    PCM_PARAM_CHANNELS,
    PCM_PARAM_RATE,
    PCM_PARAM_PERIOD_TIME,
    PCM_PARAM_PERIOD_SIZE,
    PCM_PARAM_PERIOD_BYTES,
    PCM_PARAM_PERIODS,
    PCM_PARAM_BUFFER_TIME,
    PCM_PARAM_BUFFER_SIZE,
    PCM_PARAM_BUFFER_BYTES,
    PCM_PARAM_TICK_TIME,
};

struct pcm_params;
struct pcm;
struct timespec;

/* What a card/device offers in one direction (PCM_IN or PCM_OUT in flags); null when
 * the device does not exist. Free with pcm_params_free. */
struct pcm_params* pcm_params_get(unsigned int card, unsigned int device, unsigned int flags);
void pcm_params_free(struct pcm_params* pcm_params);
/* Range of an interval parameter; 0 for mask parameters and a null pcm_params. */
unsigned int pcm_params_get_min(const struct pcm_params* pcm_params, enum pcm_param param);
unsigned int pcm_params_get_max(const struct pcm_params* pcm_params, enum pcm_param param);

/* Opens a PCM; a null config selects 2 channels, 48000 Hz, S16_LE, 1024 x 4 frames. */
struct pcm* pcm_open(unsigned int card, unsigned int device, unsigned int flags,
                     const struct pcm_config* config);
int pcm_close(struct pcm* pcm);
int pcm_is_ready(const struct pcm* pcm);
const char* pcm_get_error(const struct pcm* pcm);

int pcm_prepare(struct pcm* pcm);
/* Blocking transfers of interleaved frames: the frames moved, or a negative errno
 * (-EPIPE for an overrun/underrun, which pcm_get_underruns counts). */
int pcm_readi(struct pcm* pcm, void* data, unsigned int frame_count);
int pcm_writei(struct pcm* pcm, const void* data, unsigned int frame_count);

/* Frames available and the time of the last transfer; 0, or -1 when the PCM has not
 * run yet (tstamp is then left untouched). */
int pcm_get_htimestamp(struct pcm* pcm, unsigned int* avail, struct timespec* tstamp);
/* Overruns (capture) or underruns (playback) since the PCM was opened. */
int pcm_get_underruns(const struct pcm* pcm);

unsigned int pcm_format_to_bits(enum pcm_format format);
unsigned int pcm_frames_to_bytes(const struct pcm* pcm, unsigned int frames);
unsigned int pcm_bytes_to_frames(const struct pcm* pcm, unsigned int bytes);
unsigned int pcm_get_buffer_size(const struct pcm* pcm);

#if defined(__cplusplus)
} /* extern "C" */

static_assert(sizeof(enum pcm_format) == 4, "enum pcm_format is a 32-bit value");
static_assert(__builtin_offsetof(struct pcm_config, channels) == 0, "pcm_config layout");
static_assert(__builtin_offsetof(struct pcm_config, rate) == 4, "pcm_config layout");
static_assert(__builtin_offsetof(struct pcm_config, period_size) == 8, "pcm_config layout");
static_assert(__builtin_offsetof(struct pcm_config, period_count) == 12, "pcm_config layout");
static_assert(__builtin_offsetof(struct pcm_config, format) == 16, "pcm_config layout");
static_assert(__builtin_offsetof(struct pcm_config, start_threshold) == (sizeof(long) == 8 ? 24 : 20),
              "pcm_config layout");
static_assert(__builtin_offsetof(struct pcm_config, avail_min) ==
                  __builtin_offsetof(struct pcm_config, start_threshold) + 4 * sizeof(long),
              "pcm_config layout");
static_assert(sizeof(struct pcm_config) == (sizeof(long) == 8 ? 64 : 40), "pcm_config size");
#else
_Static_assert(sizeof(enum pcm_format) == 4, "enum pcm_format is a 32-bit value");
_Static_assert(sizeof(struct pcm_config) == (sizeof(long) == 8 ? 64 : 40), "pcm_config size");
#endif

#endif /* TINYALSA_PCM_H */
