// check_demo_run: checks what `audiomw run` made of the demonstration's configuration
// (audiomw_demo.xml) against what its nodes predict.
//
//   dump/line_in.pcm   the line-in input as read (after the file input's lead-in of 48
//                      filler periods): 2 channels, every sample, whole periods
//   dump/swapped.pcm   split, swap 1:0, merge: (right, left) of every frame
//   dump/mono.pcm      split and mixin of block 1 into block 0: (right + left) / 2
//   speaker.wav        AO 0, the line-in source: silent periods while the line-in was
//                      unplugged, then (right, left) of the same input periods
//   uplink.wav         AO 1 at 48 kHz: microphone 0 of the capture, resampled
//
//   check_demo_run OUTPUT_DIR
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>

#include "pcm_levels.h"

namespace demo {
namespace {

constexpr int kRate = 16000;
constexpr int kPeriod = 160;
constexpr int kUplinkRate = 48000;
constexpr long kMinPeriods = 150;  // of about 400 per stream in the 8 s run
constexpr double kMinCorrelation = 0.98;
constexpr double kLevelToleranceDb = 1.0;
constexpr int kMaxResampleLag = 4;
constexpr long kLeadPeriods = 48;
constexpr int kFiller = static_cast<int16_t>(0xA5A5);

class Checker {
  public:
    bool Expect(bool ok, const std::string& what) {
        std::printf("%s: %s\n", ok ? "ok" : "FAILED", what.c_str());
        m_failed = m_failed || !ok;
        return ok;
    }
    bool Failed() const { return m_failed; }

  private:
    bool m_failed = false;
};

// A file input delivers kLeadPeriods periods of filler before the file, and filler
// after its end.
int In(const Pcm& in, long frame, int channel) {
    long at = frame - kLeadPeriods * kPeriod;
    return at >= 0 && at < in.frames ? in.At(at, channel) : kFiller;
}

using Predict = int (*)(const Pcm& in, long frame, int channel);

int AsRead(const Pcm& in, long f, int c) {
    return In(in, f, c);
}
int Swapped(const Pcm& in, long f, int c) {
    return In(in, f, 1 - c);
}
int Mixed(const Pcm& in, long f, int) {
    return (In(in, f, 1) + In(in, f, 0)) / 2;
}

// Samples of frames [first, first + count) that differ from the prediction.
long Mismatches(const Pcm& out, const Pcm& in, Predict predict, long first, long count) {
    long bad = 0;
    for (long f = first; f < first + count && f < out.frames; ++f) {
        for (int c = 0; c < out.channels; ++c) {
            bad += out.At(f, c) != predict(in, f, c) ? 1 : 0;
        }
    }
    return bad;
}

bool PeriodSilent(const Pcm& out, long period) {
    for (long f = period * kPeriod; f < (period + 1) * kPeriod && f < out.frames; ++f) {
        for (int c = 0; c < out.channels; ++c) {
            if (out.At(f, c) != 0) {
                return false;
            }
        }
    }
    return true;
}

void CheckDump(const std::string& dir, const char* name, int channels, const Pcm& in, Predict predict,
               Checker* check, long* periods) {
    Pcm dump;
    std::string error;
    if (!check->Expect(ReadRawFile(dir + "/dump/" + name, kRate, channels, &dump, &error),
                       std::string("read ") + name + " " + error)) {
        return;
    }
    *periods = dump.frames / kPeriod;
    char what[200];
    std::snprintf(what, sizeof what, "dump/%s: %ld frames = %ld whole periods (at least %ld)", name,
                  dump.frames, *periods, kMinPeriods);
    check->Expect(dump.frames % kPeriod == 0 && *periods >= kMinPeriods, what);
    long bad = Mismatches(dump, in, predict, 0, dump.frames);
    std::snprintf(what, sizeof what, "dump/%s: %ld samples differ from the prediction", name, bad);
    check->Expect(bad == 0, what);
}

void CheckSpeaker(const std::string& dir, const Pcm& in, long dumped, Checker* check) {
    Pcm out;
    std::string error;
    if (!check->Expect(ReadSoundFile(dir + "/speaker.wav", &out, &error), "read speaker.wav " + error)) {
        return;
    }
    long periods = out.frames / kPeriod;
    long silent = 0;
    while (silent < periods && PeriodSilent(out, silent)) {
        ++silent;
    }
    long bad = Mismatches(out, in, Swapped, silent * kPeriod, out.frames - silent * kPeriod);
    char what[240];
    std::snprintf(what, sizeof what, "speaker.wav: %d ch at %d Hz, %ld periods (the stream read %ld)",
                  out.channels, out.rate, periods, dumped);
    check->Expect(out.channels == 2 && out.rate == kRate && out.frames % kPeriod == 0 && periods <= dumped,
                  what);
    std::snprintf(
        what, sizeof what,
        "speaker.wav: %ld silent periods while unplugged, then %ld periods of (right, left), %ld samples "
        "differ",
        silent, periods - silent, bad);
    check->Expect(silent >= kMinPeriods / 2 && periods - silent >= kMinPeriods / 2 && bad == 0, what);
    for (int c = 0; c < 2; ++c) {
        Level level = MeasureChannel(out, c, silent * kPeriod, out.frames);
        std::printf("    ch%d (%s)   rms %6s dBFS, peak %6s dBFS\n", c,
                    c == 0 ? "line-in right" : "line-in left ", FormatDb(level.rmsDb).c_str(),
                    FormatDb(level.peakDb).c_str());
    }
}

// Normalised correlation of the 48 kHz output, every third frame from phase on and lag
// input frames late, with one input channel.
double Correlation(const Pcm& out, const Pcm& in, int channel, int phase, int lag) {
    double xy = 0.0, xx = 0.0, yy = 0.0;
    for (long f = 0; (f + lag) * 3 + phase < out.frames && f < in.frames; ++f) {
        double x = out.At((f + lag) * 3 + phase, 0);
        double y = in.At(f, channel);
        xy += x * y;
        xx += x * x;
        yy += y * y;
    }
    return xx == 0.0 || yy == 0.0 ? 0.0 : xy / std::sqrt(xx * yy);
}

void CheckUplink(const std::string& dir, const Pcm& mics, Checker* check) {
    Pcm out;
    std::string error;
    if (!check->Expect(ReadSoundFile(dir + "/uplink.wav", &out, &error), "read uplink.wav " + error)) {
        return;
    }
    const int ratio = kUplinkRate / kRate;
    long periods = out.frames / (kPeriod * ratio);
    char what[240];
    std::snprintf(what, sizeof what, "uplink.wav: %d ch at %d Hz, %ld periods of the Voice stream",
                  out.channels, out.rate, periods);
    if (!check->Expect(out.channels == 1 && out.rate == kUplinkRate && periods >= kMinPeriods, what)) {
        return;
    }
    double best = -1.0;
    int bestLag = 0, bestPhase = 0;
    for (int phase = 0; phase < ratio; ++phase) {
        for (int lag = 0; lag <= kMaxResampleLag; ++lag) {
            double r = Correlation(out, mics, 0, phase, lag);
            if (r > best) {
                best = r, bestLag = lag, bestPhase = phase;
            }
        }
    }
    std::snprintf(what, sizeof what, "uplink.wav follows microphone 0: correlation %.4f (at least %.2f)",
                  best, kMinCorrelation);
    check->Expect(best >= kMinCorrelation, what);
    long inFrames = out.frames / ratio - bestLag;
    Level got = MeasureChannel(out, 0, static_cast<long>(bestLag) * ratio + bestPhase, inFrames * ratio);
    Level want = MeasureChannel(mics, 0, 0, inFrames);
    std::snprintf(what, sizeof what, "uplink.wav level: rms %s dBFS, microphone 0 %s dBFS (within %.1f dB)",
                  FormatDb(got.rmsDb).c_str(), FormatDb(want.rmsDb).c_str(), kLevelToleranceDb);
    check->Expect(std::fabs(got.rmsDb - want.rmsDb) <= kLevelToleranceDb, what);
}

int Check(const std::string& dir) {
    Checker check;
    Pcm lineIn, mics;
    std::string error;
    if (!check.Expect(ReadRawFile(dir + "/line_in.pcm", kRate, 2, &lineIn, &error) &&
                          ReadSoundFile(dir + "/capture_mics.wav", &mics, &error),
                      "read the demonstration's signals " + error)) {
        return 1;
    }
    long periods = 0, ignored = 0;
    CheckDump(dir, "line_in.pcm", 2, lineIn, AsRead, &check, &periods);
    CheckDump(dir, "swapped.pcm", 2, lineIn, Swapped, &check, &ignored);
    CheckDump(dir, "mono.pcm", 1, lineIn, Mixed, &check, &ignored);
    CheckSpeaker(dir, lineIn, periods, &check);
    CheckUplink(dir, mics, &check);
    std::printf("%s\n",
                check.Failed() ? "demonstration output check FAILED" : "demonstration output as predicted");
    return check.Failed() ? 1 : 0;
}

}  // namespace
}  // namespace demo

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s OUTPUT_DIR\n", argv[0]);
        return 2;
    }
    return demo::Check(argv[1]);
}
