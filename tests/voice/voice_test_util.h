// Signals and measures of the voice-library tests.
#ifndef AUDIOMW_TESTS_VOICE_VOICE_TEST_UTIL_H
#define AUDIOMW_TESTS_VOICE_VOICE_TEST_UTIL_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "qx_audio_alg.h"

namespace voice_test {

using Signal = std::vector<double>;  // samples in 16-bit units

inline Signal LoadSpeech(const char* name) {
    std::ifstream f(std::string(VOICE_SPEECH_DIR) + "/" + name, std::ios::binary);
    std::vector<char> raw((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
    Signal s(raw.size() / 2);
    for (size_t i = 0; i < s.size(); i++) {
        s[i] = static_cast<int16_t>(static_cast<uint8_t>(raw[2 * i]) |
                                    (static_cast<uint8_t>(raw[2 * i + 1]) << 8));
    }
    return s;
}

// A deterministic generator (64-bit LCG) of values in [-1, 1).
class Noise {
  public:
    explicit Noise(uint64_t seed) : m_state(seed * 6364136223846793005ULL + 1442695040888963407ULL) {}
    double Next() {
        m_state = m_state * 6364136223846793005ULL + 1442695040888963407ULL;
        return static_cast<double>(m_state >> 11) / 4503599627370496.0 - 1.0;
    }

  private:
    uint64_t m_state;
};

inline double Energy(const Signal& s, size_t from, size_t to) {
    double e = 0;
    for (size_t i = from; i < to && i < s.size(); i++) {
        e += s[i] * s[i];
    }
    return e;
}

inline Signal Mix(Signal a, const Signal& b, double gain = 1.0) {
    a.resize(std::max(a.size(), b.size()), 0.0);
    for (size_t i = 0; i < b.size(); i++) {
        a[i] += gain * b[i];
    }
    return a;
}

// `far` through `delay` silent samples and noise decaying 60 dB over `tail`, `dbBelow` dB down.
inline Signal Echo(const Signal& far, uint64_t seed, int delay, int tail, double dbBelow = 6.0) {
    Noise n(seed);
    Signal h(static_cast<size_t>(delay + tail), 0.0), y(far.size(), 0.0);
    for (int i = 0; i < tail; i++) {
        h[static_cast<size_t>(delay + i)] = n.Next() * std::pow(10.0, -3.0 * i / tail);
    }
    for (size_t i = 0; i < far.size(); i++) {
        for (size_t k = 0; far[i] != 0.0 && k < h.size() && i + k < y.size(); k++) {
            y[i + k] += far[i] * h[k];
        }
    }
    const double scale =
        std::sqrt(Energy(far, 0, far.size()) / Energy(y, 0, y.size())) * std::pow(10.0, -dbBelow / 20);
    return Mix(Signal(y.size(), 0.0), y, scale);
}

inline Signal WhiteNoise(uint64_t seed, size_t len, double dbfs) {
    Noise n(seed);
    const double amp = 32768.0 * std::pow(10.0, dbfs / 20) * std::sqrt(3.0);  // uniform: rms = amp / sqrt(3)
    Signal s(len);
    for (double& v : s) {
        v = n.Next() * amp;
    }
    return s;
}

inline int16_t ToS16(double v) {
    return static_cast<int16_t>(std::lround(std::clamp(v, -32768.0, 32767.0)));
}

// The library has no destroy function: instances are kept reachable for the leak checker.
inline void* NewInstance(int rate, int frame, int mics, int lineIn = 0) {
    static auto* kept = new std::vector<void*>;
    QX_AUDIO_ALG_PARAM_S p{};
    p.s32SampleRate = rate;
    p.s32FrameLen = frame;
    p.s32MicChnCnt = mics;
    p.s32LineInChnCnt = lineIn;
    int err = 0;
    void* h = QX_AudioAlgInit(&p, &err);
    EXPECT_NE(h, nullptr) << "err " << err;
    kept->push_back(h);
    return h;
}

struct RunResult {
    Signal out;                // the processed first microphone
    std::vector<short> voice;  // the result of every frame
};

// Feeds whole signals frame by frame: mics[k] to microphone k, ref as the reference.
inline RunResult RunSignals(const std::vector<Signal>& mics, const Signal& ref, int rate, int frame) {
    RunResult r;
    void* h = NewInstance(rate, frame, static_cast<int>(mics.size()));
    std::vector<short> mic(mics.size() * frame), rf(frame), out(frame);
    for (size_t at = 0; h != nullptr && at + frame <= ref.size(); at += frame) {
        for (size_t i = 0; i < mic.size(); i++) {
            mic[i] = ToS16(mics[i / frame][at + i % frame]);
        }
        for (int i = 0; i < frame; i++) {
            rf[i] = ToS16(ref[at + i]);
        }
        short result = 0;
        EXPECT_EQ(QX_AudioAlgFrmProc(h, mic.data(), rf.data(), out.data(), &result), 0);
        r.voice.push_back(result);
        r.out.insert(r.out.end(), out.begin(), out.end());
    }
    return r;
}

// Normalised correlation of a[i + lag] with b[i] over [from, to).
inline double Correlation(const Signal& a, const Signal& b, size_t lag, size_t from, size_t to) {
    double ab = 0, aa = 0, bb = 0;
    for (size_t i = from; i < to && i + lag < a.size() && i < b.size(); i++) {
        ab += a[i + lag] * b[i];
        aa += a[i + lag] * a[i + lag];
        bb += b[i] * b[i];
    }
    return aa > 0 && bb > 0 ? ab / std::sqrt(aa * bb) : 0.0;
}

}  // namespace voice_test

#endif  // AUDIOMW_TESTS_VOICE_VOICE_TEST_UTIL_H
