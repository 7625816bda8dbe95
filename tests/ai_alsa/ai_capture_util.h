// Capture-side helpers shared by the ALSA, combo and allocation tests: records, reads and
// the blocks a pattern card should give. The card helpers are the output tests'.
#ifndef AUDIOMW_TESTS_AI_ALSA_AI_CAPTURE_UTIL_H
#define AUDIOMW_TESTS_AI_ALSA_AI_CAPTURE_UTIL_H

#include <samplerate.h>
#include <tinyalsa/vcard.h>

#include <cstring>
#include <string>
#include <vector>

#include "../ao/ao_test_util.h"
#include "audio_ai.h"

namespace audiomw_test {

inline AI_ATTR_S AlsaAi(int card, int device, int rate, int channels, int frames, bool enable = true) {
    AI_ATTR_S a;
    std::memset(&a, 0, sizeof(a));
    a.eType = AI_DEV_TYPE_ALSA;
    a.stAlsaDev.s32CardId = card;
    a.stAlsaDev.s32DevId = device;
    a.bEnable = enable ? ZN_TRUE : ZN_FALSE;
    a.eSampleRate = static_cast<tagAI_SAMPLE_RATE_E>(rate);
    a.s32Channel = channels;
    a.s32FrameLen = frames;
    return a;
}

// PCM handles that pcm_open handed out and pcm_close has not yet released, counted by
// pcm_handle_count.cpp standing in front of tinyalsa's two functions (ALSA program only).
// The virtual cards keep every handle reachable, so a dropped handle is no leak to ASan.
int LivePcmHandles();

inline vcard_counters CaptureCounters(unsigned int card, unsigned int device = 0) {
    return Counters(card, device, VCARD_CAPTURE);
}

struct ReadResult {
    int rc = 0;
    unsigned int len = 0;
    unsigned long long ts = 0;
    Bytes data;
};

inline ReadResult Read(int id, size_t capacity) {
    ReadResult r;
    r.data.assign(capacity, 0xEE);
    r.rc = AUDIO_AI_Read(id, r.data.data(), static_cast<unsigned int>(capacity), r.len, r.ts, -1);
    return r;
}

inline ReadResult ReadBlock(int id) {
    return Read(id, static_cast<size_t>(AUDIO_AI_GetRecommendReadBufferSize(id)));
}

// Interleaved 16-bit frames [first, first + frames) of a pattern card of `channels`.
inline std::vector<int16_t> PatternFrames(int channels, unsigned long long first, int frames) {
    std::vector<int16_t> s;
    for (int f = 0; f < frames; ++f) {
        for (int c = 0; c < channels; ++c) {
            s.push_back(vcard_pattern_sample(static_cast<unsigned int>(c), first + static_cast<unsigned>(f)));
        }
    }
    return s;
}

// A source callback: channel 2 at 30000 in every frame, the other channels the pattern.
inline int HighChannelTwo(void*, void* data, unsigned int frames, unsigned long long first,
                          const pcm_config* cfg) {
    int16_t* s = static_cast<int16_t*>(data);
    for (unsigned int f = 0; f < frames; ++f) {
        for (unsigned int c = 0; c < cfg->channels; ++c) {
            s[f * cfg->channels + c] = c == 2 ? 30000 : vcard_pattern_sample(c, first + f);
        }
    }
    return 0;
}

// What a pattern card of `cardChn` channels at `cardRate` gives an AI asking for `chn`
// channels at `rate`, `blocks` blocks of `frames`: resampled, then channels repeated or dropped.
inline Bytes ExpectedCapture(int cardChn, int cardRate, int chn, int rate, int frames, int blocks) {
    const int period = static_cast<int>(static_cast<long long>(cardRate) * frames / rate);
    int err = 0;  // libsamplerate's zero-order hold, driven period by period
    SRC_STATE* state = cardRate != rate ? src_new(SRC_ZERO_ORDER_HOLD, cardChn, &err) : nullptr;
    std::vector<int16_t> out;
    for (int b = 0; b < blocks; ++b) {
        std::vector<int16_t> card =
            PatternFrames(cardChn, static_cast<unsigned long long>(b) * period, period);
        std::vector<int16_t> held(static_cast<size_t>(cardChn) * frames);
        if (state != nullptr) {
            std::vector<float> in(card.size()), res(held.size());
            src_short_to_float_array(card.data(), in.data(), static_cast<int>(in.size()));
            SRC_DATA d{};
            d.data_in = in.data();
            d.data_out = res.data();
            d.input_frames = period;
            d.output_frames = frames;
            d.src_ratio = static_cast<double>(rate) / cardRate;
            src_process(state, &d);
            src_float_to_short_array(res.data(), held.data(), static_cast<int>(res.size()));
        } else {
            held = card;
        }
        for (int f = 0; f < frames; ++f) {
            for (int c = 0; c < chn; ++c) {
                out.push_back(held[static_cast<size_t>(f) * cardChn + (cardChn <= chn ? c % cardChn : c)]);
            }
        }
    }
    if (state != nullptr) {
        src_delete(state);
    }
    return ToBytes(out);
}

// No virtual cards at start; every AI slot is closed, disabled and emptied at the end.
class CaptureTest : public AudioTest {
  protected:
    void SetUp() override { vcard_reset(); }
    void TearDown() override {
        for (int id = AUDIO_AI_MAX_NUM - 1; id >= 0; --id) {
            AUDIO_AI_Close(id);
            AUDIO_AI_SetEnable(id, ZN_FALSE);
            AUDIO_AI_Destroy(id);
        }
        vcard_reset();
    }
};

}  // namespace audiomw_test

#endif  // AUDIOMW_TESTS_AI_ALSA_AI_CAPTURE_UTIL_H
