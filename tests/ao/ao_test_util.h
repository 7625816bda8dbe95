// Records, virtual cards and the fixture shared by the output tests.
#ifndef AUDIOMW_TESTS_AO_AO_TEST_UTIL_H
#define AUDIOMW_TESTS_AO_AO_TEST_UTIL_H

#include <tinyalsa/vcard.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "audio_ao.h"
#include "test_support.h"

namespace audiomw_test {

inline AO_ATTR_S AlsaAoAttr(int card, int device, int rate, int channels, int frames, bool enable = false) {
    AO_ATTR_S a;
    std::memset(&a, 0, sizeof(a));
    a.eType = 0;
    a.stAlsaDev.s32CardId = card;
    a.stAlsaDev.s32DevId = device;
    a.bEnable = enable ? ZN_TRUE : ZN_FALSE;
    a.eSampleRate = static_cast<tagAI_SAMPLE_RATE_E>(rate);
    a.s32Channel = channels;
    a.s32FrameSize = frames;
    return a;
}

struct PlaybackPcm {
    unsigned int card = 0;
    unsigned int device = 0;
    unsigned int chMin = 1, chMax = 8;
    unsigned int rateMin = 8000, rateMax = 48000;
    unsigned int formats = VCARD_FORMAT_BIT(PCM_FORMAT_S16_LE);
};

// A free-running virtual playback PCM whose sink keeps the written bytes in memory.
inline void AddPlayback(const PlaybackPcm& p, size_t capacity = 0) {
    vcard_pcm_desc d;
    vcard_pcm_desc_init(&d, p.card, p.device, VCARD_PLAYBACK);
    d.channels_min = p.chMin;
    d.channels_max = p.chMax;
    d.rate_min = p.rateMin;
    d.rate_max = p.rateMax;
    d.formats = p.formats;
    ASSERT_EQ(0, vcard_add_pcm(&d)) << vcard_last_error();
    ASSERT_EQ(0, vcard_set_sink_memory(p.card, p.device, capacity)) << vcard_last_error();
    ASSERT_EQ(0, vcard_set_clock(p.card, p.device, VCARD_PLAYBACK, VCARD_CLOCK_FREE));
}

inline std::vector<uint8_t> SinkBytes(unsigned int card, unsigned int device) {
    long size = vcard_memory_size(card, device);
    std::vector<uint8_t> bytes(size > 0 ? static_cast<size_t>(size) : 0);
    if (!bytes.empty()) {
        vcard_memory_read(card, device, 0, bytes.data(), bytes.size());
    }
    return bytes;
}

inline vcard_counters Counters(unsigned int card, unsigned int device) {
    vcard_counters c;
    std::memset(&c, 0, sizeof(c));
    vcard_get_counters(card, device, VCARD_PLAYBACK, &c);
    return c;
}

// Fault plan making transfers `at` to `at + count - 1` of the PCM fail.
inline void FailWrites(unsigned int card, unsigned int device, unsigned int at, unsigned int count,
                       vcard_transfer_fault kind = VCARD_TRANSFER_XRUN) {
    vcard_fault_plan plan;
    std::memset(&plan, 0, sizeof(plan));
    plan.transfer_fail_at = at;
    plan.transfer_fail_count = count;
    plan.transfer_kind = kind;
    ASSERT_EQ(0, vcard_set_faults(card, device, VCARD_PLAYBACK, &plan));
}

// Scratch root, log capture and no virtual cards at start; every AO slot is disabled
// (closing its card) and emptied at the end, so no test leaks a device into the next.
class AoTest : public AudioTest {
  protected:
    void SetUp() override { vcard_reset(); }
    void TearDown() override {
        for (int id = 0; id < AUDIO_AO_MAX_NUM; ++id) {
            AUDIO_AO_SetEnable(id, ZN_FALSE);
            AUDIO_AO_Destroy(id);
        }
        vcard_reset();
    }
    // Creates AO `id` on `attr` and enables it; true when it is ready to play.
    bool CreateEnabled(int id, AO_ATTR_S attr) {
        attr.bEnable = ZN_FALSE;
        return AUDIO_AO_Create(id, &attr) == 0 && AUDIO_AO_SetEnable(id, ZN_TRUE) == 0 &&
               AUDIO_AO_isReady(id);
    }
};

}  // namespace audiomw_test

#endif  // AUDIOMW_TESTS_AO_AO_TEST_UTIL_H
