// play_raw: plays a raw interleaved 16-bit PCM file to an audio output through the
// exported AUDIO_AO_* functions, one period per write (the last one padded with
// silence). On a PC, TINYALSA_VCARDS may name a virtual-card file whose playback sink
// is a WAV file: the audio then lands in that file.
//
//   play_raw [--card N] [--device N] [--rate HZ] [--channels N] [--period FRAMES] FILE
#include <getopt.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "audio_ao.h"

namespace {

struct Options {
    int card = 0;
    int device = 0;
    int rate = 48000;
    int channels = 2;
    int period = 480;
    const char* path = nullptr;
};

void Usage(const char* argv0) {
    std::fprintf(stderr,
                 "usage: %s [--card N] [--device N] [--rate HZ] [--channels N] [--period FRAMES] FILE\n"
                 "  FILE: raw interleaved signed 16-bit little-endian PCM\n"
                 "  defaults: card 0, device 0, 48000 Hz, 2 channels, 480 frames a period\n",
                 argv0);
}

bool ParseInt(const char* text, int min, int* out) {
    char* end = nullptr;
    errno = 0;
    long v = std::strtol(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || v < min || v > 1000000) {
        return false;
    }
    *out = static_cast<int>(v);
    return true;
}

bool ParseArgs(int argc, char** argv, Options* o) {
    static const option kLong[] = {{"card", required_argument, nullptr, 'c'},
                                   {"device", required_argument, nullptr, 'd'},
                                   {"rate", required_argument, nullptr, 'r'},
                                   {"channels", required_argument, nullptr, 'n'},
                                   {"period", required_argument, nullptr, 'p'},
                                   {"help", no_argument, nullptr, 'h'},
                                   {nullptr, 0, nullptr, 0}};
    int c = 0;
    while ((c = getopt_long(argc, argv, "c:d:r:n:p:h", kLong, nullptr)) != -1) {
        bool ok = true;
        switch (c) {
            case 'c':
                ok = ParseInt(optarg, 0, &o->card);
                break;
            case 'd':
                ok = ParseInt(optarg, 0, &o->device);
                break;
            case 'r':
                ok = ParseInt(optarg, 1, &o->rate);
                break;
            case 'n':
                ok = ParseInt(optarg, 1, &o->channels);
                break;
            case 'p':
                ok = ParseInt(optarg, 1, &o->period);
                break;
            default:
                return false;
        }
        if (!ok) {
            std::fprintf(stderr, "bad value '%s'\n", optarg);
            return false;
        }
    }
    if (optind + 1 != argc) {
        return false;
    }
    o->path = argv[optind];
    return true;
}

// Creates and enables an output in the first free slot; its id, or -1.
int OpenOutput(const Options& o) {
    int id = AUDIO_AO_GetNewId();
    if (id < 0) {
        std::fprintf(stderr, "no free audio output\n");
        return -1;
    }
    AO_ATTR_S attr;
    std::memset(&attr, 0, sizeof(attr));
    attr.eType = 0;
    attr.stAlsaDev.s32CardId = o.card;
    attr.stAlsaDev.s32DevId = o.device;
    attr.eSampleRate = static_cast<tagAI_SAMPLE_RATE_E>(o.rate);
    attr.s32Channel = o.channels;
    attr.s32FrameSize = o.period;
    if (AUDIO_AO_Create(id, &attr) != 0) {
        return -1;
    }
    if (AUDIO_AO_SetEnable(id, ZN_TRUE) != 0 || !AUDIO_AO_isReady(id)) {
        std::fprintf(stderr, "cannot open card %d device %d\n", o.card, o.device);
        AUDIO_AO_SetEnable(id, ZN_FALSE);
        AUDIO_AO_Destroy(id);
        return -1;
    }
    return id;
}

// Writes the file period by period; the number of failed writes, or -1 when the file
// cannot be read.
long Play(int id, const Options& o, unsigned long* periods) {
    std::FILE* f = std::fopen(o.path, "rb");
    if (f == nullptr) {
        std::fprintf(stderr, "cannot open %s: %s\n", o.path, std::strerror(errno));
        return -1;
    }
    std::vector<unsigned char> buf(static_cast<size_t>(o.period) * o.channels * 2);
    long failures = 0;
    size_t got = 0;
    while ((got = std::fread(buf.data(), 1, buf.size(), f)) > 0) {
        std::memset(buf.data() + got, 0, buf.size() - got);
        failures += AUDIO_AO_Write(id, buf.data(), static_cast<unsigned int>(buf.size())) != 0;
        ++*periods;
    }
    bool readError = std::ferror(f) != 0;
    std::fclose(f);
    if (readError) {
        std::fprintf(stderr, "cannot read %s\n", o.path);
        return -1;
    }
    return failures;
}

}  // namespace

int main(int argc, char** argv) {
    Options o;
    if (!ParseArgs(argc, argv, &o)) {
        Usage(argv[0]);
        return 2;
    }
    int id = OpenOutput(o);
    if (id < 0) {
        return 1;
    }
    unsigned long periods = 0;
    long failures = Play(id, o, &periods);
    // Disabling closes the card (and finalises a WAV sink) before the slot is freed.
    AUDIO_AO_SetEnable(id, ZN_FALSE);
    AUDIO_AO_Destroy(id);
    if (failures < 0) {
        return 1;
    }
    std::printf("played %lu periods of %d frames (%d channels, %d Hz) to card %d device %d, %ld failed\n",
                periods, o.period, o.channels, o.rate, o.card, o.device, failures);
    return failures == 0 ? 0 : 1;
}
