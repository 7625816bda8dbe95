// Types shared by every family of the audiomw interface.
#ifndef AUDIOMW_AUDIO_COMMON_H
#define AUDIOMW_AUDIO_COMMON_H

#include <cstdint>

// The interface's boolean: 32 bits, 0 false, 1 true (any non-zero value reads as true).
enum tagZN_BOOL : int {
    ZN_FALSE = 0,
    ZN_TRUE = 1,
};
typedef enum tagZN_BOOL ZN_BOOL;

// Sample rates; each enumerator's value is the rate in Hz. Used by inputs and outputs alike.
enum tagAI_SAMPLE_RATE_E : int {
    AI_SAMPLE_RATE_8000 = 8000,
    AI_SAMPLE_RATE_16000 = 16000,
    AI_SAMPLE_RATE_32000 = 32000,
    AI_SAMPLE_RATE_48000 = 48000,
};
typedef enum tagAI_SAMPLE_RATE_E AI_SAMPLE_RATE_E;

// What a configuration change needs, as a device classifies it.
enum AUDIO_SET_ACTION_E : int {
    AUDIO_SET_ACTION_E_NONE = 0,
    AUDIO_SET_ACTION_E_HOT_UPDATE = 1,
    AUDIO_SET_ACTION_E_NEED_CLOSE = 2,
    AUDIO_SET_ACTION_E_NEED_DESTROY = 3,
};

// Returned by the AI and AO registry getters for an id that holds no device.
#define AUDIO_ERR_UNAVAILABLE ((int)0x80002401)

// An ALSA PCM address. u32HwRate is written by the capture device: the rate the card
// was opened at when it differs from the requested one, else 0.
struct AUDIO_ALSA_DEV_S {
    int s32CardId;
    int s32DevId;
    unsigned int u32HwRate;
};

static_assert(sizeof(tagZN_BOOL) == 4, "tagZN_BOOL is 32 bits");
static_assert(sizeof(tagAI_SAMPLE_RATE_E) == 4, "sample rate is 32 bits");
static_assert(sizeof(AUDIO_SET_ACTION_E) == 4, "set action is 32 bits");
static_assert(sizeof(AUDIO_ALSA_DEV_S) == 12, "AUDIO_ALSA_DEV_S layout");

#endif  // AUDIOMW_AUDIO_COMMON_H
