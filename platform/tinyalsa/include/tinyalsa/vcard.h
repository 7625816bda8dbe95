/* Virtual sound cards: PCMs served in process behind the tinyalsa calls, for tests
 * and for running on machines without sound hardware.
 *
 * A virtual PCM is addressed by card, device and direction. It has a channel range,
 * a rate range and a set of accepted formats; a capture PCM has a source (silence, a
 * test pattern, sines, a raw or WAV file, a callback), a playback PCM a sink
 * (discard, a raw or WAV file, an in-memory buffer); every PCM has a clock and a
 * fault plan, and keeps counters. A card with at least one virtual PCM (or added with
 * vcard_add_card) is virtual as a whole: its other devices do not exist.
 *
 * When settings take effect: source and sink at the next pcm_open; clock and fault
 * plan at the next call on an open PCM. Every function is thread-safe.
 *
 * Results: 0 (or a count) on success, a negative errno on failure with a text in
 * vcard_last_error(): -ENOENT for an unknown PCM, -EINVAL for bad arguments.
 *
 * The file named by the environment variable TINYALSA_VCARDS is loaded once, before
 * the first tinyalsa or vcard call has any effect (format: README.md of this
 * library). vcard_reset forgets it like everything else.
 */
#ifndef TINYALSA_VCARD_H
#define TINYALSA_VCARD_H

#include <stddef.h>
#include <stdint.h>

#include <tinyalsa/pcm.h>

#if defined(__cplusplus)
extern "C" {
#endif

enum vcard_direction TINYALSA_ENUM_INT { VCARD_PLAYBACK = 0, VCARD_CAPTURE = 1 };

/* Bit of a format code in vcard_pcm_desc.formats. Virtual PCMs accept
 * PCM_FORMAT_S16_LE, PCM_FORMAT_S32_LE and PCM_FORMAT_S32_SLOT_LE (code 7). */
#define VCARD_FORMAT_BIT(format) (1u << (unsigned int)(format))

struct vcard_pcm_desc {
    unsigned int card;
    unsigned int device;
    enum vcard_direction direction;
    unsigned int channels_min; /* 1 <= min <= max <= 64 */
    unsigned int channels_max;
    unsigned int rate_min; /* 1 <= min <= max */
    unsigned int rate_max;
    unsigned int formats; /* VCARD_FORMAT_BIT()s */
};

/* Fills the defaults: channels 1-8, rates 8000-48000, S16_LE only. */
void vcard_pcm_desc_init(struct vcard_pcm_desc* desc, unsigned int card, unsigned int device,
                         enum vcard_direction direction);

/* Adds a PCM, or replaces the one with the same card, device and direction by a
 * fresh one with default settings (handles open on the old one keep working on it). */
int vcard_add_pcm(const struct vcard_pcm_desc* desc);
int vcard_remove_pcm(unsigned int card, unsigned int device, enum vcard_direction direction);
/* Makes a card virtual without adding a PCM; removing it removes all its PCMs. */
int vcard_add_card(unsigned int card);
int vcard_remove_card(unsigned int card);
/* 1 when the card is virtual. */
int vcard_is_virtual(unsigned int card);
/* Removes every virtual card. */
void vcard_reset(void);

/* Adds the cards of a configuration file, or of text (`name` labels its messages).
 * All or nothing: on a bad line nothing is applied, the result is -EINVAL and
 * vcard_last_error() reads "<name>:<line>: <reason>". */
int vcard_load_file(const char* path);
int vcard_load_text(const char* text, const char* name);
/* Text of the calling thread's last failure; "" when there was none. */
const char* vcard_last_error(void);

/* ---- Capture sources (capture PCM of card/device) ---- */

/* Pattern source: sample of channel c at frame f, frames counted from 0 at pcm_open:
 *   (int16_t)(((c & 0xF) << 12) | (f & 0xFFF))
 * e.g. channel 2, frame 5 -> 0x2005. 4-byte formats carry it in the upper half of the
 * slot: vcard_pattern_sample32 = vcard_pattern_sample * 65536. */
int16_t vcard_pattern_sample(unsigned int channel, unsigned long long frame);
int32_t vcard_pattern_sample32(unsigned int channel, unsigned long long frame);

/* A sine of channel i: round(amplitude * sin(2 pi frequency f / rate)) at frame f. */
struct vcard_tone {
    double frequency; /* Hz, >= 0 */
    double amplitude; /* 0 to 32767 */
};

enum vcard_file_kind TINYALSA_ENUM_INT { VCARD_FILE_RAW = 0, VCARD_FILE_WAV = 1 };

/* Fills `frames` interleaved frames of the PCM's format at `data`; `first_frame`
 * counts from 0 at pcm_open. Returns 0, or a negative errno that pcm_readi returns.
 * Called on the reading thread with no lock held. */
typedef int (*vcard_capture_fn)(void* user, void* data, unsigned int frames, unsigned long long first_frame,
                                const struct pcm_config* config);

int vcard_set_source_silence(unsigned int card, unsigned int device);
int vcard_set_source_pattern(unsigned int card, unsigned int device);
/* Channel i plays tones[i]; channels past `count` play the last tone. */
int vcard_set_source_sine(unsigned int card, unsigned int device, const struct vcard_tone* tones,
                          unsigned int count);
/* Raw: bytes in the PCM's format, as opened. WAV: converted by libsndfile to the
 * PCM's format; PCM channel i takes file channel i, missing ones are silent. At the
 * end of the file the source plays silence, or starts over when `loop` is set. */
int vcard_set_source_file(unsigned int card, unsigned int device, enum vcard_file_kind kind, const char* path,
                          int loop);
int vcard_set_source_callback(unsigned int card, unsigned int device, vcard_capture_fn fn, void* user);

/* ---- Playback sinks (playback PCM of card/device) ---- */

int vcard_set_sink_discard(unsigned int card, unsigned int device);
/* Raw: the written bytes. WAV: the PCM's rate and channels, 16-bit or 32-bit PCM as
 * its format; finalised by pcm_close. Each pcm_open starts a new file. */
int vcard_set_sink_file(unsigned int card, unsigned int device, enum vcard_file_kind kind, const char* path);
/* Keeps the written bytes in memory, up to `capacity` bytes (0: 4 MiB) reserved
 * now; bytes past the capacity are dropped and counted. The buffer outlives
 * pcm_close and is emptied only by vcard_memory_take/clear or a new sink. */
int vcard_set_sink_memory(unsigned int card, unsigned int device, size_t capacity);
/* Bytes held. */
long vcard_memory_size(unsigned int card, unsigned int device);
/* Copies up to `max` bytes from `offset` on; returns the count. */
long vcard_memory_read(unsigned int card, unsigned int device, size_t offset, void* dst, size_t max);
/* Copies up to `max` bytes from the start and removes them; returns the count. */
long vcard_memory_take(unsigned int card, unsigned int device, void* dst, size_t max);
int vcard_memory_clear(unsigned int card, unsigned int device);

/* ---- Clock ---- */

enum vcard_clock TINYALSA_ENUM_INT {
    VCARD_CLOCK_FREE = 0,     /* transfers return at once; stamp: CLOCK_MONOTONIC after it */
    VCARD_CLOCK_REALTIME = 1, /* a transfer of n frames ends n / rate after the last one */
    VCARD_CLOCK_FRAMES = 2,   /* returns at once; stamp: first transfer's time + frames / rate */
};
int vcard_set_clock(unsigned int card, unsigned int device, enum vcard_direction direction,
                    enum vcard_clock clock);

/* ---- Faults ---- */

enum vcard_prepare_fault TINYALSA_ENUM_INT {
    VCARD_PREPARE_OK = 0,
    VCARD_PREPARE_FAIL = 1,    /* pcm_prepare returns -EIO, the PCM stays ready */
    VCARD_PREPARE_UNREADY = 2, /* pcm_prepare returns -EIO, pcm_is_ready turns 0 and the PCM
                                  is free for other opens (pcm_close frees the handle) */
};

enum vcard_transfer_fault TINYALSA_ENUM_INT {
    VCARD_TRANSFER_XRUN = 0, /* -EPIPE, counted by pcm_get_underruns */
    VCARD_TRANSFER_IO = 1,   /* -EIO */
};

struct vcard_fault_plan {
    int absent;             /* pcm_params_get answers null and pcm_open fails */
    const char* open_error; /* non-null: pcm_open fails with this text (copied) */
    enum vcard_prepare_fault prepare;
    /* Transfers counted from 1 since the plan was set or the PCM opened, whichever
     * came last: transfers transfer_fail_at to transfer_fail_at + count - 1 fail
     * (0: none; a count of 0 means 1). A failed transfer moves no data. */
    unsigned int transfer_fail_at;
    unsigned int transfer_fail_count;
    enum vcard_transfer_fault transfer_kind;
};

/* Replaces the PCM's fault plan; null clears it. */
int vcard_set_faults(unsigned int card, unsigned int device, enum vcard_direction direction,
                     const struct vcard_fault_plan* plan);

/* ---- Counters ---- */

struct vcard_counters {
    unsigned long long opens;        /* successful pcm_open */
    unsigned long long failed_opens; /* refused pcm_open (ranges, faults, busy, files) */
    unsigned long long closes;
    unsigned long long prepares; /* pcm_prepare calls, failed ones included */
    unsigned long long reads;    /* successful pcm_readi */
    unsigned long long writes;   /* successful pcm_writei */
    unsigned long long frames_read;
    unsigned long long frames_written;
    unsigned long long failed_transfers; /* injected failures of either kind */
    unsigned long long xruns;            /* of which -EPIPE */
    unsigned long long memory_dropped;   /* bytes a full memory sink dropped */
    int is_open;
    int has_config;                /* 1 once a pcm_open reached the PCM */
    unsigned int last_flags;       /* flags of the last pcm_open that reached the PCM */
    struct pcm_config last_config; /* and its configuration, accepted or not */
};

int vcard_get_counters(unsigned int card, unsigned int device, enum vcard_direction direction,
                       struct vcard_counters* counters);
int vcard_reset_counters(unsigned int card, unsigned int device, enum vcard_direction direction);

#if defined(__cplusplus)
} /* extern "C" */
#endif

#endif /* TINYALSA_VCARD_H */
