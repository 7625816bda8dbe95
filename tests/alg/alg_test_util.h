// Helpers of the algorithm node tests: an AI slot, node records, distinct-sample periods.
#ifndef AUDIOMW_TESTS_ALG_ALG_TEST_UTIL_H
#define AUDIOMW_TESTS_ALG_ALG_TEST_UTIL_H

#include <cstdint>
#include <vector>

#include "astream_test_util.h"
#include "audio_alg.h"
#include "qx_script.h"

namespace alg_test {

using Bytes = std::vector<uint8_t>;

// A disabled file AI of this geometry in slot `ai` for the object's lifetime.
struct AiSlot {
    int id;
    AiSlot(int ai, int rate, int channels, int frames) : id(ai) {
        AI_ATTR_S a = astream_test::FileAi("/nonexistent.pcm", channels, frames);
        a.eSampleRate = static_cast<tagAI_SAMPLE_RATE_E>(rate);
        AUDIO_AI_Create(ai, &a);
    }
    ~AiSlot() { astream_test::DropAi(id); }
};

inline ASTREAM_NODE_ATTR_S AlgAttr(int micOff, int micCnt, int lineCnt, int ref, int exRef, int allRef,
                                   void (*cb)(void*, short) = nullptr, void* arg = nullptr) {
    ASTREAM_NODE_ATTR_S a = astream_test::NodeAttr(ASTREAM_NODE_TYPE_E_ORVANE_ALG);
    a.unAttr.stOrvaneAlg = {micOff, micCnt, lineCnt, ref, exRef, allRef, cb, arg};
    return a;
}

// Sample i of channel block k is 1000 k + i + 1.
inline Bytes Period(int chn, int frames) {
    std::vector<int16_t> s(static_cast<size_t>(chn) * frames);
    for (size_t i = 0; i < s.size(); i++) {
        s[i] = static_cast<int16_t>(1000 * (i / frames) + i % frames + 1);
    }
    return audiomw_test::ToBytes(s);
}

// Bytes of blocks [first, first + count) of a period.
inline Bytes Blocks(const Bytes& period, int frames, int first, int count) {
    return Bytes(period.begin() + first * frames * 2, period.begin() + (first + count) * frames * 2);
}

inline tagVOR_AUDIO_REF_IN_RES RefIn(uint8_t sw, uint8_t src, uint8_t dbg = 0, uint8_t b2 = 0) {
    tagVOR_AUDIO_REF_IN_RES r;
    r.u8Switch = sw;
    r.u8Source = src;
    r.u8Reserved = b2;
    r.u8DbgLevel = dbg;
    return r;
}

}  // namespace alg_test

#endif  // AUDIOMW_TESTS_ALG_ALG_TEST_UTIL_H
