// Quality of the PC voice library on deterministic speech: ERLE, double talk, voice activity.
#include "voice_test_util.h"

namespace {

using namespace voice_test;

constexpr int kRate = 16000;
constexpr size_t kConverge = 2 * kRate;  // two seconds of convergence

// ERLE after convergence, echo 6 dB down, -80 dBFS floor: aim 25 dB, reached 45-52, checked 35.
TEST(VoiceQuality, EchoReturnLossEnhancementAfterConvergence) {
    const Signal far = LoadSpeech("far.raw");
    ASSERT_GT(far.size(), 8u * kRate) << "speech missing";
    const struct {
        const char* name;
        int mics, frame, delayMs, tailMs;
    } cases[] = {{"1 mic, 256 frames, 80 ms tail", 1, 256, 2, 80},
                 {"4 mics, 256 frames, 100 ms tail", 4, 256, 2, 100},
                 {"1 mic, 160 frames, 50 ms tail", 1, 160, 5, 50},
                 {"4 mics, 320 frames, 60 ms tail", 4, 320, 10, 60}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<Signal> mics;
        for (int k = 0; k < c.mics; k++) {
            mics.push_back(Mix(Echo(far, 100 + k, c.delayMs * kRate / 1000, c.tailMs * kRate / 1000),
                               WhiteNoise(7 + k, far.size(), -80.0)));
        }
        RunResult r = RunSignals(mics, far, kRate, c.frame);
        const size_t end = r.out.size();
        const double erle = 10 * std::log10(Energy(mics[0], kConverge, end) / Energy(r.out, kConverge, end));
        EXPECT_GT(erle, 35.0);
    }
}

// Double talk keeps the near end, lagging by adapter latency (128 or 0) + 208: a lost sample moves it.
TEST(VoiceQuality, DoubleTalkKeepsTheNearEndTalker) {
    const Signal far = LoadSpeech("far.raw"), nearTalk = LoadSpeech("near.raw");
    const size_t start = 3 * kRate;
    Signal nearPlaced(far.size(), 0.0);
    for (size_t i = 0; i < nearTalk.size() && start + i < far.size(); i++) {
        nearPlaced[start + i] = nearTalk[i];
    }
    const struct {
        const char* name;
        int mics, frame;
        size_t lag;
    } cases[] = {{"1 mic", 1, 256, 336}, {"4 mics", 4, 256, 336}, {"1 mic, 160", 1, 160, 208}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<Signal> mics;
        for (int k = 0; k < c.mics; k++) {
            mics.push_back(Mix(Mix(Echo(far, 200 + k, 32, 80 * kRate / 1000), nearPlaced),
                               WhiteNoise(9 + k, far.size(), -80.0)));
        }
        RunResult r = RunSignals(mics, far, kRate, c.frame);
        const size_t from = start + kRate / 2, to = std::min(r.out.size(), start + nearTalk.size());
        double best = 0;
        size_t bestLag = 0;
        for (size_t lag = 0; lag <= 512; lag++) {
            const double corr = Correlation(r.out, nearPlaced, lag, from, to);
            if (corr > best) {
                best = corr, bestLag = lag;
            }
        }
        EXPECT_GT(best, 0.7);
        EXPECT_EQ(bestLag, c.lag);
    }
}

// VAD: speech frames above -40 dBFS vs noise before and 300 ms after; echo cases skip convergence.
TEST(VoiceQuality, VoiceActivityDetectionAndFalseAlarms) {
    const Signal talk = LoadSpeech("near.raw"), far = LoadSpeech("far.raw");
    const size_t lead = 2 * kRate, frame = 256;
    Signal clean(lead + talk.size() + lead, 0.0);
    std::copy(talk.begin(), talk.end(), clean.begin() + lead);
    size_t speechEnd = lead;  // the end of the last frame with speech in it
    for (size_t f = 0; (f + 1) * frame <= clean.size(); f++) {
        speechEnd = Energy(clean, f * frame, (f + 1) * frame) > 0 ? (f + 1) * frame : speechEnd;
    }
    const double speechLevel = frame * std::pow(32768.0 * std::pow(10.0, -40.0 / 20), 2);
    const struct {
        const char* name;
        double noiseDbfs;
        bool farEnd;
        double minDetection, maxFalseAlarm;  // percent
    } cases[] = {{"-60 dBFS noise", -60.0, false, 95.0, 5.0},
                 {"-45 dBFS noise", -45.0, false, 90.0, 10.0},
                 {"-60 dBFS noise and echo", -60.0, true, 90.0, 10.0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Signal mic = Mix(clean, WhiteNoise(11, clean.size(), c.noiseDbfs)), ref(mic.size(), 0.0);
        if (c.farEnd) {
            for (size_t i = 0; i < ref.size(); i++) {
                ref[i] = far[i % far.size()];
            }
            mic = Mix(mic, Echo(ref, 300, 32, 80 * kRate / 1000));
        }
        const size_t silentFrom = c.farEnd ? kConverge : 0;
        RunResult r = RunSignals({mic}, ref, kRate, static_cast<int>(frame));
        int speech = 0, detected = 0, silent = 0, alarms = 0;
        for (size_t f = 0; f < r.voice.size(); f++) {
            const size_t at = f * frame;
            if ((at >= silentFrom && at + frame <= lead) || at >= speechEnd + kRate * 3 / 10) {
                silent++;
                alarms += r.voice[f] != 0;
            } else if (at >= lead && Energy(clean, at, at + frame) > speechLevel) {
                speech++;
                detected += r.voice[f] != 0;
            }
        }
        ASSERT_GT(speech, 100);
        ASSERT_GT(silent, 100);
        const double detection = 100.0 * detected / speech, falseAlarm = 100.0 * alarms / silent;
        EXPECT_GT(detection, c.minDetection);
        EXPECT_LT(falseAlarm, c.maxFalseAlarm);
    }
}

}  // namespace
