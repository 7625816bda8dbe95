// The PC voice library: its interface, its frame adapter, and its quality on deterministic speech
// (ERLE, double talk, voice activity).
#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <numeric>

#include "chunk_adapter.h"
#include "test_support.h"
#include "voice_engine.h"

namespace {

namespace voice = audiomw::voice;
using Signal = std::vector<double>;  // samples in 16-bit units
constexpr int kRate = 16000;
constexpr size_t kConverge = 2 * kRate;  // two seconds of convergence

Signal LoadSpeech(const char* name) {
    const auto s =
        audiomw_test::ToSamples(audiomw_test::ReadFileBytes(std::string(VOICE_SPEECH_DIR) + "/" + name));
    return Signal(s.begin(), s.end());
}

// A deterministic generator (64-bit LCG) of values in [-1, 1).
double Next(uint64_t& state) {
    state = state * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<double>(state >> 11) / 4503599627370496.0 - 1.0;
}

double Energy(const Signal& s, size_t from, size_t to) {
    to = std::min(to, s.size());
    return from < to ? std::inner_product(s.begin() + from, s.begin() + to, s.begin() + from, 0.0) : 0.0;
}

Signal Mix(Signal a, const Signal& b) {
    a.resize(std::max(a.size(), b.size()), 0.0);
    for (size_t i = 0; i < b.size(); i++)
        a[i] += b[i];
    return a;
}

// `far` through `delay` silent samples and noise decaying 60 dB over `tail`, 6 dB down.
Signal Echo(const Signal& far, uint64_t seed, int delay, int tail) {
    Signal h(static_cast<size_t>(delay + tail), 0.0), y(far.size(), 0.0);
    for (int i = 0; i < tail; i++)
        h[static_cast<size_t>(delay + i)] = Next(seed) * std::pow(10.0, -3.0 * i / tail);
    for (size_t i = 0; i < far.size(); i++)
        for (size_t k = 0; far[i] != 0.0 && k < h.size() && i + k < y.size(); k++)
            y[i + k] += far[i] * h[k];
    const double scale =
        std::sqrt(Energy(far, 0, far.size()) / Energy(y, 0, y.size())) * std::pow(10.0, -6.0 / 20);
    for (double& v : y)
        v *= scale;
    return y;
}

Signal WhiteNoise(uint64_t seed, size_t len, double dbfs) {
    Signal s(len);
    for (double& v : s)
        v = Next(seed) * 32768.0 * std::pow(10.0, dbfs / 20) * std::sqrt(3.0);  // rms at dbfs
    return s;
}

// The library has no destroy function: instances are kept reachable for the leak checker.
void* NewInstance(int rate, int frame, int mics, int lineIn = 0) {
    static auto* kept = new std::vector<void*>;
    QX_AUDIO_ALG_PARAM_S p{rate, frame, mics, lineIn, {}};
    int err = 0;
    kept->push_back(QX_AudioAlgInit(&p, &err));
    EXPECT_NE(kept->back(), nullptr) << "err " << err;
    return kept->back();
}

struct RunResult {
    Signal out;                // the processed first microphone
    std::vector<short> voice;  // the result of every frame
};

// Feeds whole signals frame by frame: mics[k] to microphone k, ref as the reference.
RunResult RunSignals(const std::vector<Signal>& mics, const Signal& ref, int frame) {
    RunResult r;
    void* h = NewInstance(kRate, frame, static_cast<int>(mics.size()));
    std::vector<short> mic(mics.size() * frame), rf(frame), out(frame);
    auto s16 = [](double v) { return static_cast<short>(std::lround(std::clamp(v, -32768.0, 32767.0))); };
    for (size_t at = 0; h != nullptr && at + frame <= ref.size(); at += frame) {
        for (size_t i = 0; i < mic.size(); i++)
            mic[i] = s16(mics[i / frame][at + i % frame]);
        for (int i = 0; i < frame; i++)
            rf[i] = s16(ref[at + i]);
        short result = 0;
        EXPECT_EQ(QX_AudioAlgFrmProc(h, mic.data(), rf.data(), out.data(), &result), 0);
        r.voice.push_back(result);
        r.out.insert(r.out.end(), out.begin(), out.end());
    }
    return r;
}

// A reached figure, for the test report (a property) and for whoever reads the output.
void Report(const char* what, int mics, int frame, double value) {
    char name[96], text[32];
    std::snprintf(name, sizeof(name), "%s_%dmic_frame%d", what, mics, frame);
    std::snprintf(text, sizeof(text), "%.3f", value);
    testing::Test::RecordProperty(name, text);
    std::printf("voice quality: %s = %s\n", name, text);
}

// Microphones hearing `far` through an echo path, `nearEnd` and noise at -80 dBFS.
std::vector<Signal> EchoMics(const Signal& far, int mics, uint64_t seed, int delay, int tail,
                             const Signal& nearEnd) {
    std::vector<Signal> m;
    for (int k = 0; k < mics; k++)
        m.push_back(
            Mix(Mix(Echo(far, seed + k, delay, tail), nearEnd), WhiteNoise(seed + 7 + k, far.size(), -80.0)));
    return m;
}

// Refused geometries and arguments; accepted ones (every rate, frames through the adapter, line-in
// read) write exactly one frame and a result of 0 or 1.
TEST(VoiceLibrary, InitAndProcessByGeometry) {
    const struct {
        int rate, frame, mics, lineIn, err;
    } cases[] = {
        // clang-format off
        {44100, 441, 1, 0, voice::kVoiceErrRate},         {16000, 0, 1, 0, voice::kVoiceErrFrameLen},
        {16000, 32000, 1, 0, voice::kVoiceErrFrameLen},   {16000, 256, 0, 0, voice::kVoiceErrChannels},
        {16000, 256, 7, 0, voice::kVoiceErrChannels},     {16000, 256, 2, -1, voice::kVoiceErrChannels},
        {8000, 80, 1, 0, 0}, {8000, 256, 2, 1, 0}, {16000, 256, 4, 0, 0}, {16000, 100, 1, 2, 0},
        {32000, 320, 2, 0, 0}, {48000, 480, 1, 0, 0}, {48000, 1024, 6, 0, 0},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << c.rate << " Hz, frame " << c.frame << ", " << c.mics << "+" << c.lineIn);
        QX_AUDIO_ALG_PARAM_S p{c.rate, c.frame, c.mics, c.lineIn, {}};
        int err = 0;
        void* h = c.err != 0 ? QX_AudioAlgInit(&p, &err) : NewInstance(c.rate, c.frame, c.mics, c.lineIn);
        EXPECT_EQ(err, c.err);
        ASSERT_EQ(h == nullptr, c.err != 0);
        uint64_t n = 3;
        std::vector<short> mic(static_cast<size_t>(c.mics + c.lineIn) * c.frame), ref(c.frame);
        std::vector<short> out(static_cast<size_t>(c.frame) + 8, 0x5A5A);
        for (int f = 0; h != nullptr && f < 20; f++) {
            for (short& s : mic)
                s = static_cast<short>(Next(n) * 3000);
            short result = 77;
            ASSERT_EQ(QX_AudioAlgFrmProc(h, mic.data(), ref.data(), out.data(), &result), 0);
            EXPECT_TRUE(result == 0 || result == 1) << result;
            EXPECT_EQ(std::vector<short>(out.begin() + c.frame, out.end()), std::vector<short>(8, 0x5A5A));
        }
    }
    int err = 0;
    EXPECT_EQ(QX_AudioAlgInit(nullptr, &err), nullptr);
    EXPECT_EQ(err, voice::kVoiceErrNullParam);
    void* h = NewInstance(16000, 160, 1);
    short b[160] = {0}, r = 0;
    EXPECT_EQ(QX_AudioAlgFrmProc(nullptr, b, b, b, &r) + QX_AudioAlgFrmProc(h, nullptr, b, b, &r) +
                  QX_AudioAlgFrmProc(h, b, nullptr, b, &r) + QX_AudioAlgFrmProc(h, b, b, nullptr, &r),
              -4);
    EXPECT_EQ(QX_AudioAlgFrmProc(h, b, b, b, nullptr), 0) << "the result is optional";
    char ver[8];
    EXPECT_EQ(QX_AudioAlgGetVersion(nullptr, ver, 8) + QX_AudioAlgGetVersion(h, ver, 0), -2);
}

// Square: 0 dBFS, half-scale sine: -9.03 dBFS, silence: the floor; the version cut to the buffer.
TEST(VoiceLibrary, MicLevelsInDbfsAndVersion) {
    void* h = NewInstance(16000, 256, 3);
    std::vector<short> mic(3 * 256, 0), ref(256, 0), out(256);
    for (int i = 0; i < 256; i++) {
        mic[i] = (i / 8) % 2 ? 32767 : -32767;
        mic[512 + i] = static_cast<short>(std::lround(16384 * std::sin(2 * M_PI * 500 * i / 16000.0)));
    }
    float levels[6] = {1, 1, 1, 1, 1, 1};
    EXPECT_FLOAT_EQ(getMicVol(h, levels), voice::kVoiceFloorDbfs) << "before any frame";
    short result = 0;
    ASSERT_EQ(QX_AudioAlgFrmProc(h, mic.data(), ref.data(), out.data(), &result), 0);
    const float loudest = getMicVol(h, levels);
    EXPECT_FLOAT_EQ(loudest, levels[0]);
    EXPECT_NEAR(levels[0], 0.0f, 0.01f);
    EXPECT_FLOAT_EQ(levels[1], voice::kVoiceFloorDbfs);
    EXPECT_NEAR(levels[2], -9.03f, 0.05f);
    EXPECT_EQ(levels[3], 1.0f) << "only the instance's microphones are written";
    EXPECT_FLOAT_EQ(getMicVol(nullptr, levels), voice::kVoiceFloorDbfs);
    char ver[32], small[4];
    std::memset(ver, 'x', sizeof(ver));
    ASSERT_EQ(QX_AudioAlgGetVersion(h, ver, 32) + QX_AudioAlgGetVersion(h, small, 4), 0);
    const std::string v(ver);  // a letter, digits and an optional letter
    const size_t end = v.find_first_not_of("0123456789", 1);
    EXPECT_TRUE(std::isalpha(v[0]) && end > 1 &&
                (end == std::string::npos || (end + 1 == v.size() && std::isalpha(v[end]))))
        << v;
    EXPECT_EQ(std::string(ver, 3), small);
}

// An identity processor through the adapter: output = input delayed by the latency, per channel.
TEST(ChunkAdapterTest, NoSampleDroppedOrRepeated) {
    const struct {
        int frame, chunk, latency;
    } cases[] = {{256, 160, 128}, {160, 160, 0},    {80, 160, 80}, {320, 160, 0},
                 {441, 480, 477}, {1000, 160, 120}, {1, 80, 79}};
    struct Ctx {
        int chunk, bad;
    };
    auto identity = [](void* p, float* const* chunk, float* out) {
        Ctx* ctx = static_cast<Ctx*>(p);
        for (int i = 0; i < ctx->chunk; i++) {
            ctx->bad +=
                std::lround((chunk[1][i] - chunk[0][i]) * 32768.0f) != 7;  // channel 1 is channel 0 + 7
            out[i] = chunk[0][i];
        }
        return chunk[0][0] > 0.5f;
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("frame " + std::to_string(c.frame) + ", chunk " + std::to_string(c.chunk));
        EXPECT_EQ(voice::ChunkAdapter::Latency(c.frame, c.chunk), c.latency);
        voice::ChunkAdapter ad(2, c.frame, c.chunk);
        Ctx ctx{c.chunk, 0};
        const int total = c.frame * std::max(20, 4000 / c.frame);
        std::vector<short> in0(total), in1(total), out, frameOut(c.frame), expect(c.latency, 0);
        for (int i = 0; i < total; i++) {
            in0[i] = static_cast<short>((i * 37) % 30000 - 15000);
            in1[i] = static_cast<short>(in0[i] + 7);
        }
        int chunks = 0;
        for (int at = 0; at < total; at += c.frame) {
            const short* chans[2] = {&in0[at], &in1[at]};
            bool voice = false;
            chunks += ad.Run(chans, frameOut.data(), identity, &ctx, &voice);
            out.insert(out.end(), frameOut.begin(), frameOut.end());
        }
        EXPECT_EQ(chunks, total / c.chunk);
        EXPECT_EQ(ctx.bad, 0);
        expect.insert(expect.end(), in0.begin(), in0.end() - c.latency);
        ASSERT_EQ(out, expect);
    }
}

// ERLE after convergence, echo 6 dB down: aim 25 dB, reached 45-52, checked 35. Double talk keeps
// the near end, lagging by adapter latency (128 or 0) + 208: a lost sample moves it.
TEST(VoiceQuality, EchoCancelledAndNearEndKept) {
    const Signal far = LoadSpeech("far.raw"), nearTalk = LoadSpeech("near.raw");
    ASSERT_GT(far.size(), 8u * kRate) << "speech missing";
    const size_t start = 3 * kRate;
    Signal nearPlaced(far.size(), 0.0);
    std::copy_n(nearTalk.begin(), std::min(nearTalk.size(), far.size() - start), nearPlaced.begin() + start);
    const struct {
        int mics, frame, delay, tailMs;
        bool doubleTalk;
        size_t lag;
    } cases[] = {{1, 256, 32, 80, false, 0},  {4, 256, 32, 100, false, 0}, {1, 160, 80, 50, false, 0},
                 {4, 320, 160, 60, false, 0}, {1, 256, 32, 80, true, 336}, {4, 256, 32, 80, true, 336},
                 {1, 160, 32, 80, true, 208}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << c.mics << " mics, frame " << c.frame << ", double talk " << c.doubleTalk);
        const auto mics = EchoMics(far, c.mics, c.doubleTalk ? 200 : 100, c.delay, c.tailMs * kRate / 1000,
                                   c.doubleTalk ? nearPlaced : Signal());
        const RunResult r = RunSignals(mics, far, c.frame);
        if (!c.doubleTalk) {
            const double erle =
                Energy(mics[0], kConverge, r.out.size()) / Energy(r.out, kConverge, r.out.size());
            Report("erle_db", c.mics, c.frame, 10 * std::log10(erle));
            EXPECT_GT(10 * std::log10(erle), 35.0);
            continue;
        }
        const size_t from = start + kRate / 2, to = std::min(r.out.size(), start + nearTalk.size());
        double best = 0;
        size_t bestLag = 0;
        for (size_t lag = 0; lag <= 512; lag++) {
            double ab = 0, aa = 0, bb = 0;  // normalised correlation of out[i + lag] with near[i]
            for (size_t i = from; i < to && i + lag < r.out.size(); i++) {
                ab += r.out[i + lag] * nearPlaced[i];
                aa += r.out[i + lag] * r.out[i + lag];
                bb += nearPlaced[i] * nearPlaced[i];
            }
            const double corr = aa > 0 && bb > 0 ? ab / std::sqrt(aa * bb) : 0.0;
            if (corr > best)
                best = corr, bestLag = lag;
        }
        Report("double_talk_corr", c.mics, c.frame, best);
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
    for (size_t f = 0; (f + 1) * frame <= clean.size(); f++)
        speechEnd = Energy(clean, f * frame, (f + 1) * frame) > 0 ? (f + 1) * frame : speechEnd;
    const double speechLevel = frame * std::pow(32768.0 * std::pow(10.0, -40.0 / 20), 2);
    const struct {
        double noiseDbfs;
        bool farEnd;
        double minDetection, maxFalseAlarm;  // percent
    } cases[] = {{-60.0, false, 95.0, 5.0}, {-45.0, false, 90.0, 10.0}, {-60.0, true, 90.0, 10.0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.noiseDbfs << " dBFS noise, echo " << c.farEnd);
        Signal mic = Mix(clean, WhiteNoise(11, clean.size(), c.noiseDbfs)), ref(mic.size(), 0.0);
        for (size_t i = 0; c.farEnd && i < ref.size(); i++)
            ref[i] = far[i % far.size()];
        if (c.farEnd)
            mic = Mix(mic, Echo(ref, 300, 32, 80 * kRate / 1000));
        const size_t silentFrom = c.farEnd ? kConverge : 0;
        const RunResult r = RunSignals({mic}, ref, static_cast<int>(frame));
        int speech = 0, detected = 0, silent = 0, alarms = 0;
        for (size_t f = 0, at = 0; f < r.voice.size(); f++, at += frame) {
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
        const std::string name =
            "noise" + std::to_string(static_cast<int>(c.noiseDbfs)) + (c.farEnd ? "_echo" : "");
        Report(("vad_detect_pct_" + name).c_str(), 1, static_cast<int>(frame), 100.0 * detected / speech);
        Report(("vad_false_alarm_pct_" + name).c_str(), 1, static_cast<int>(frame), 100.0 * alarms / silent);
        EXPECT_GT(100.0 * detected / speech, c.minDetection);
        EXPECT_LT(100.0 * alarms / silent, c.maxFalseAlarm);
    }
}

}  // namespace
