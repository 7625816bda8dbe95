// Records, virtual cards and the fixture shared by the output tests.
#ifndef AUDIOMW_TESTS_AO_AO_TEST_UTIL_H
#define AUDIOMW_TESTS_AO_AO_TEST_UTIL_H

#include <tinyalsa/vcard.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "audio_ao.h"
#include "test_support.h"

namespace audiomw_test {

using Bytes = std::vector<uint8_t>;
using Lines = std::vector<Logged>;

inline AO_ATTR_S AlsaAoAttr(int card, int device, int rate, int channels, int frames) {
    AO_ATTR_S a;
    std::memset(&a, 0, sizeof(a));
    a.stAlsaDev.s32CardId = card;
    a.stAlsaDev.s32DevId = device;
    a.eSampleRate = static_cast<tagAI_SAMPLE_RATE_E>(rate);
    a.s32Channel = channels;
    a.s32FrameSize = frames;
    return a;
}

// Adds virtual cards described in tinyalsa's vcards text format.
inline void LoadCards(const std::string& text) {
    ASSERT_EQ(0, vcard_load_text(text.c_str(), "cards")) << vcard_last_error();
}

inline Bytes SinkBytes(unsigned int card, unsigned int device) {
    Bytes b(static_cast<size_t>(std::max(0L, vcard_memory_size(card, device))));
    vcard_memory_read(card, device, 0, b.empty() ? nullptr : b.data(), b.size());
    return b;
}

inline vcard_counters Counters(unsigned int card, unsigned int device, vcard_direction dir = VCARD_PLAYBACK) {
    vcard_counters c{};
    vcard_get_counters(card, device, dir, &c);
    return c;
}

// The init lines of a '|'-separated text, all level 6 but the last, which has `lastLevel`.
inline Lines InitLines(const char* text, int lastLevel) {
    Lines lines;
    for (const char *at = text, *end; *at; at = *end ? end + 1 : end) {
        end = std::strchr(at, '|') ? std::strchr(at, '|') : at + std::strlen(at);
        lines.push_back({*end ? 6 : lastLevel, "init", std::string(at, end)});
    }
    return lines;
}

// No virtual cards at start; every AO slot is disabled and emptied at the end.
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
        return AUDIO_AO_Create(id, &attr) == 0 && AUDIO_AO_SetEnable(id, ZN_TRUE) == 0 &&
               AUDIO_AO_isReady(id);
    }
    int Write(int id, Bytes b) { return AUDIO_AO_Write(id, b.data(), static_cast<unsigned int>(b.size())); }
};

}  // namespace audiomw_test

#endif  // AUDIOMW_TESTS_AO_AO_TEST_UTIL_H
