#include "pcm_levels.h"

#include <sndfile.h>

#include <cmath>
#include <cstdio>
#include <limits>

namespace demo {

namespace {

constexpr double kFullScale = 32768.0;

bool ReadAll(SNDFILE* file, const SF_INFO& info, const std::string& path, Pcm* pcm, std::string* error) {
    pcm->rate = info.samplerate;
    pcm->channels = info.channels;
    pcm->frames = static_cast<long>(info.frames);
    pcm->samples.assign(static_cast<size_t>(info.frames) * static_cast<size_t>(info.channels), 0);
    sf_count_t got = sf_readf_short(file, pcm->samples.data(), info.frames);
    sf_close(file);
    if (got != info.frames) {
        *error = path + ": read " + std::to_string(got) + " of " + std::to_string(info.frames) + " frames";
        return false;
    }
    return true;
}

}  // namespace

bool ReadSoundFile(const std::string& path, Pcm* pcm, std::string* error) {
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (file == nullptr) {
        *error = path + ": " + sf_strerror(nullptr);
        return false;
    }
    return ReadAll(file, info, path, pcm, error);
}

bool ReadRawFile(const std::string& path, int rate, int channels, Pcm* pcm, std::string* error) {
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    info.format = SF_FORMAT_RAW | SF_FORMAT_PCM_16 | SF_ENDIAN_LITTLE;
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (file == nullptr) {
        *error = path + ": " + sf_strerror(nullptr);
        return false;
    }
    return ReadAll(file, info, path, pcm, error);
}

Level MeasureChannel(const Pcm& pcm, int channel, long first, long count) {
    long end = first + count < pcm.frames ? first + count : pcm.frames;
    double sumSquares = 0.0;
    int peak = 0;
    for (long f = first; f < end; ++f) {
        int s = pcm.At(f, channel);
        sumSquares += static_cast<double>(s) * s;
        int magnitude = s < 0 ? -s : s;
        peak = magnitude > peak ? magnitude : peak;
    }
    const double kSilent = -std::numeric_limits<double>::infinity();
    if (end <= first || peak == 0) {
        return {kSilent, kSilent};
    }
    double rms = std::sqrt(sumSquares / static_cast<double>(end - first));
    return {20.0 * std::log10(rms / kFullScale), 20.0 * std::log10(peak / kFullScale)};
}

std::vector<Level> MeasureAll(const Pcm& pcm) {
    std::vector<Level> levels;
    for (int c = 0; c < pcm.channels; ++c) {
        levels.push_back(MeasureChannel(pcm, c, 0, pcm.frames));
    }
    return levels;
}

std::string FormatDb(double db) {
    if (std::isinf(db)) {
        return "silent";
    }
    char text[32];
    std::snprintf(text, sizeof(text), "%.1f", db);
    return text;
}

}  // namespace demo
