// Sound files read back for the demonstration's summary and its check: WAV files and
// raw 16-bit PCM through libsndfile, and per-channel levels in dBFS.
#ifndef AUDIOMW_DEMO_PCM_LEVELS_H
#define AUDIOMW_DEMO_PCM_LEVELS_H

#include <cstdint>
#include <string>
#include <vector>

namespace demo {

// Interleaved 16-bit samples of a whole file.
struct Pcm {
    int rate = 0;
    int channels = 0;
    long frames = 0;
    std::vector<int16_t> samples;

    int16_t At(long frame, int channel) const {
        return samples[static_cast<size_t>(frame) * static_cast<size_t>(channels) +
                       static_cast<size_t>(channel)];
    }
};

// Any file libsndfile reads with a header (WAV here). False with a message on failure.
bool ReadSoundFile(const std::string& path, Pcm* pcm, std::string* error);
// Headerless signed 16-bit little-endian PCM of the given layout.
bool ReadRawFile(const std::string& path, int rate, int channels, Pcm* pcm, std::string* error);

struct Level {
    double rmsDb;   // -infinity for silence
    double peakDb;  // -infinity for silence
};

// Level of one channel over frames [first, first + count) (clipped to the file).
Level MeasureChannel(const Pcm& pcm, int channel, long first, long count);
std::vector<Level> MeasureAll(const Pcm& pcm);

// "-15.1" or "silent".
std::string FormatDb(double db);

}  // namespace demo

#endif  // AUDIOMW_DEMO_PCM_LEVELS_H
