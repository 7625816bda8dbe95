// check_demo_output: checks what audiomw_demo produced against what its input and node
// chain predict (demo_layout.h).
//
//   AO 0's WAV: 2 channels at 16000 Hz; per frame of the recording exactly
//               (in1, (in0 + in3) / 2), then only silence.
//   The dump:   raw 2 channels at 16000 Hz; exactly (in2, in3), then silence; as many
//               frames as AO 0 played.
//   AO 1's WAV: 1 channel at 48000 Hz, three frames per input frame; it follows in2
//               (correlation), not the dropped in3, at in2's level within 1 dB.
//
//   check_demo_output INPUT.pcm OUTPUT_DIR
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "demo_layout.h"
#include "pcm_levels.h"

namespace demo {
namespace {

constexpr double kLevelToleranceDb = 1.0;
constexpr double kMinCorrelation = 0.98;
constexpr double kMaxDroppedCorrelation = 0.2;
constexpr int kMaxResampleLag = 4;  // input frames of delay allowed in the 48 kHz output

class Checker {
  public:
    // Reports one check; returns `ok`.
    bool Expect(bool ok, const std::string& what) {
        std::printf("%s: %s\n", ok ? "ok" : "FAILED", what.c_str());
        m_failed = m_failed || !ok;
        return ok;
    }
    bool Failed() const { return m_failed; }

  private:
    bool m_failed = false;
};

// The input padded with silence to whole periods, as the demonstration plays it.
long RecordingFrames(const Pcm& input) {
    return (input.frames + kPeriodFrames - 1) / kPeriodFrames * kPeriodFrames;
}

int16_t InputAt(const Pcm& input, long frame, int channel) {
    return frame < input.frames ? input.At(frame, channel) : 0;
}

// One predicted output channel: a function of the input frame.
using Predict = int (*)(const Pcm& input, long frame);

int Ao0Left(const Pcm& in, long f) {
    return InputAt(in, f, 1);
}
int Ao0Right(const Pcm& in, long f) {
    // The mixin node averages with truncation toward zero, as C++ division does.
    return (InputAt(in, f, 0) + InputAt(in, f, 3)) / 2;
}
int DumpLeft(const Pcm& in, long f) {
    return InputAt(in, f, 2);
}
int DumpRight(const Pcm& in, long f) {
    return InputAt(in, f, 3);
}

double RmsDb(const std::vector<int>& samples) {
    double sum = 0.0;
    for (int s : samples) {
        sum += static_cast<double>(s) * s;
    }
    return samples.empty() || sum == 0.0 ? -INFINITY
                                         : 10.0 * std::log10(sum / samples.size() / (32768.0 * 32768.0));
}

// Frames [0, recording) equal the prediction sample for sample; later frames are silent.
void CheckExact(const char* name, const Pcm& out, const Pcm& input, const std::vector<Predict>& channels,
                Checker* check) {
    const long recording = RecordingFrames(input);
    for (size_t c = 0; c < channels.size(); ++c) {
        long mismatches = 0;
        long first = -1;
        std::vector<int> predicted;
        for (long f = 0; f < out.frames; ++f) {
            int want = f < recording ? channels[c](input, f) : 0;
            predicted.push_back(want);
            if (out.At(f, static_cast<int>(c)) != want) {
                first = mismatches++ == 0 ? f : first;
            }
        }
        Level level = MeasureChannel(out, static_cast<int>(c), 0, out.frames);
        std::string what = std::string(name) + " ch" + std::to_string(c) + ": rms " + FormatDb(level.rmsDb) +
                           " dBFS, predicted " + FormatDb(RmsDb(predicted)) + " dBFS; ";
        if (mismatches == 0) {
            what += "every sample as predicted";
        } else {
            what +=
                std::to_string(mismatches) + " samples differ, the first at frame " + std::to_string(first);
        }
        check->Expect(mismatches == 0, what);
    }
}

bool CheckFormat(const char* name, const Pcm& out, int channels, int rate, long minFrames, long maxFrames,
                 Checker* check) {
    char what[256];
    std::snprintf(what, sizeof(what),
                  "%s: %d channel(s) at %d Hz, %ld frames (want %d at %d Hz, %ld to %ld frames)", name,
                  out.channels, out.rate, out.frames, channels, rate, minFrames, maxFrames);
    return check->Expect(
        out.channels == channels && out.rate == rate && out.frames >= minFrames && out.frames <= maxFrames,
        what);
}

// Normalised correlation of the 48 kHz output, taken every third frame from `phase`
// on and `lag` input frames late, with one input channel.
double Correlation(const Pcm& out, const Pcm& input, int channel, int phase, int lag) {
    const long recording = RecordingFrames(input);
    double xy = 0.0, xx = 0.0, yy = 0.0;
    for (long f = 0; f < recording; ++f) {
        long o = (f + lag) * 3 + phase;
        if (o >= out.frames) {
            break;
        }
        double x = out.At(o, 0);
        double y = InputAt(input, f, channel);
        xy += x * y;
        xx += x * x;
        yy += y * y;
    }
    return xx == 0.0 || yy == 0.0 ? 0.0 : xy / std::sqrt(xx * yy);
}

void CheckAo1(const Pcm& out, const Pcm& input, long ao0Frames, Checker* check) {
    const int ratio = kAo1CardRate / kRate;
    if (!CheckFormat("AO 1 WAV", out, kAo1CardChannels, kAo1CardRate, ao0Frames * ratio, ao0Frames * ratio,
                     check)) {
        return;
    }
    const long recording = RecordingFrames(input);
    double best = -1.0;
    int bestPhase = 0;
    int bestLag = 0;
    for (int phase = 0; phase < ratio; ++phase) {
        for (int lag = 0; lag <= kMaxResampleLag; ++lag) {
            double r = Correlation(out, input, 2, phase, lag);
            if (r > best) {
                best = r;
                bestPhase = phase;
                bestLag = lag;
            }
        }
    }
    double dropped = Correlation(out, input, 3, bestPhase, bestLag);
    char what[256];
    std::snprintf(what, sizeof(what),
                  "AO 1 follows in2: correlation %.4f (at least %.2f), with the dropped in3 %.4f", best,
                  kMinCorrelation, dropped);
    check->Expect(best >= kMinCorrelation && std::fabs(dropped) <= kMaxDroppedCorrelation, what);

    // Over the same stretch of the recording: the input's frames, where the output has them.
    Level got = MeasureChannel(out, 0, static_cast<long>(bestLag) * ratio + bestPhase, input.frames * ratio);
    Level want = MeasureChannel(input, 2, 0, input.frames);
    std::snprintf(what, sizeof(what),
                  "AO 1 level over the recording: rms %s dBFS, in2 %s dBFS (within %.1f dB)",
                  FormatDb(got.rmsDb).c_str(), FormatDb(want.rmsDb).c_str(), kLevelToleranceDb);
    check->Expect(!std::isinf(got.rmsDb) && std::fabs(got.rmsDb - want.rmsDb) <= kLevelToleranceDb, what);

    Level tail = MeasureChannel(out, 0, (recording + kMaxResampleLag + 1) * ratio, out.frames);
    check->Expect(std::isinf(tail.peakDb), "AO 1 is silent after the recording");
}

int Check(const std::string& inputPath, const std::string& dir) {
    Checker check;
    Pcm input, ao0, ao1, dump;
    std::string error;
    if (!ReadRawFile(inputPath, kRate, kInputChannels, &input, &error) || input.frames == 0 ||
        !ReadSoundFile(dir + "/" + kAo0Wav, &ao0, &error) ||
        !ReadSoundFile(dir + "/" + kAo1Wav, &ao1, &error) ||
        !ReadRawFile(dir + "/" + kDumpFile, kRate, kGroupChannels, &dump, &error)) {
        check.Expect(false, error.empty() ? inputPath + " is empty" : error);
        return 1;
    }
    const long recording = RecordingFrames(input);
    const long most = recording + static_cast<long>(kTailPeriods) * kPeriodFrames;
    if (CheckFormat("AO 0 WAV", ao0, kGroupChannels, kRate, recording, most, &check)) {
        check.Expect(ao0.frames % kPeriodFrames == 0, "AO 0 WAV holds whole periods");
        CheckExact("AO 0 WAV", ao0, input, {&Ao0Left, &Ao0Right}, &check);
    }
    if (CheckFormat("dump", dump, kGroupChannels, kRate, ao0.frames, ao0.frames, &check)) {
        CheckExact("dump", dump, input, {&DumpLeft, &DumpRight}, &check);
    }
    CheckAo1(ao1, input, ao0.frames, &check);
    std::printf("%s\n",
                check.Failed() ? "demonstration output check FAILED" : "demonstration output as predicted");
    return check.Failed() ? 1 : 0;
}

}  // namespace
}  // namespace demo

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s INPUT.pcm OUTPUT_DIR\n", argv[0]);
        return 2;
    }
    return demo::Check(argv[1], argv[2]);
}
