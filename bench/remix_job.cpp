// The demonstration's job as a measurement: a 4-channel 16 kHz raw file through a file
// input, a stream that splits, mixes, swaps and merges its channels and sends two
// stereo groups to two outputs on virtual cards, one stereo and one mono, both 48 kHz
// only, so that each output converts rate (and the second one channels) itself. The
// cards discard what they get. By default they run free (as fast as the stream goes) and
// the program ends when the whole file has been played; with --realtime they run at the
// card's pace for the file's duration. With --convert-only it runs, over the same
// number of periods, nothing but the two outputs' rate conversions (a stereo and a mono
// RESAMPLE handler, 16 kHz to 48 kHz): the floor that the converter alone sets.
//
//   audiomw_remix_job WORKDIR [--realtime | --convert-only]
//
// WORKDIR holds input.pcm. Prints one line, key=value: the periods of the file, the
// frames each card took, wall and CPU seconds of the run (start to stop) and the CPU load;
// with --convert-only the periods, the audio seconds converted and the CPU seconds.
#include <sys/resource.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <list>
#include <vector>

#include <tinyalsa/vcard.h>

#include "audio_ai.h"
#include "audio_ao.h"
#include "audio_astream.h"
#include "audio_ext.h"
#include "audio_resample.h"
#include "host_test.h"

namespace {

const int kAi = 0;
const int kStream = 0;
const int kChannels = 4;
const int kRate = 16000;
const int kPeriod = 320;
const int kLeadBlocks = 48;
const unsigned int kStereoCard = 1;
const unsigned int kMonoCard = 2;
const int kCardRate = 48000;
const char* kInput = "input.pcm";

double Now(clockid_t clock) {
    timespec ts{};
    clock_gettime(clock, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

bool SetUpCards(bool realtime) {
    char text[512];
    const char* clock = realtime ? "realtime" : "free";
    std::snprintf(text, sizeof(text),
                  "pcm card=%u device=0 dir=playback channels=2 rates=%d sink=discard clock=%s\n"
                  "pcm card=%u device=0 dir=playback channels=1 rates=%d sink=discard clock=%s\n",
                  kStereoCard, kCardRate, clock, kMonoCard, kCardRate, clock);
    if (vcard_load_text(text, "remix_job") != 0) {
        std::fprintf(stderr, "remix_job: cards: %s\n", vcard_last_error());
        return false;
    }
    return true;
}

// The file input takes its path over when enabled; its lead-in filler is read here so
// that the stream's first period is the file's.
bool SetUpInput() {
    AI_ATTR_S attr;
    std::memset(&attr, 0, sizeof(attr));
    attr.eType = AI_DEV_TYPE_FILE;
    std::snprintf(attr.acFilePath, sizeof(attr.acFilePath), "%s", kInput);
    attr.eSampleRate = AI_SAMPLE_RATE_16000;
    attr.s32Channel = kChannels;
    attr.s32FrameLen = kPeriod;
    attr.s32Volume = 100;
    if (AUDIO_AI_Create(kAi, &attr) != 0 || AUDIO_AI_SetEnable(kAi, ZN_TRUE) != 0 ||
        AUDIO_AI_Open(kAi) != 0) {
        return false;
    }
    std::vector<unsigned char> block(static_cast<size_t>(AUDIO_AI_GetRecommendReadBufferSize(kAi)));
    for (int i = 0; i < kLeadBlocks; i++) {
        unsigned int got = 0;
        unsigned long long stamp = 0;
        if (AUDIO_AI_Read(kAi, block.data(), block.size(), got, stamp, -1) != 0 || got != block.size()) {
            return false;
        }
    }
    return true;
}

bool SetUpOutput(int id, unsigned int card) {
    AO_ATTR_S attr;
    std::memset(&attr, 0, sizeof(attr));
    attr.stAlsaDev.s32CardId = static_cast<int>(card);
    attr.eSampleRate = AI_SAMPLE_RATE_16000;
    attr.s32Channel = 2;
    attr.s32FrameSize = kPeriod;
    attr.s32Volume = 100;
    return AUDIO_AO_Create(id, &attr) == 0;
}

ASTREAM_NODE_ATTR_S Node(ASTREAM_NODE_TYPE_E type, int a, int b, int c) {
    ASTREAM_NODE_ATTR_S node;
    std::memset(&node, 0, sizeof(node));
    node.eType = type;
    node.unAttr.stSplit = {a, b, c};  // split, merge and mixin records share this layout
    return node;
}

// [in0 in1 in2 in3] -> [in1 (in0+in3)/2] to the stereo card, [in2 in3] to the mono card.
bool CreateStream() {
    ASTREAM_ATTR_S attr;
    attr.s32AiId = kAi;
    attr.s32WorkerNum = 1;
    attr.lstNodeAttr.push_back(Node(ASTREAM_NODE_TYPE_E_SPLIT, 0, 1, 3));
    attr.lstNodeAttr.push_back(Node(ASTREAM_NODE_TYPE_E_SPLIT, 1, 1, 2));
    attr.lstNodeAttr.push_back(Node(ASTREAM_NODE_TYPE_E_SPLIT, 2, 1, 1));
    attr.lstNodeAttr.push_back(Node(ASTREAM_NODE_TYPE_E_MIXIN, 0, 3, 1));
    ASTREAM_NODE_ATTR_S swap = Node(ASTREAM_NODE_TYPE_E_SWAP, 0, 0, 0);
    const int map[] = {1, 0, 2, 3};
    std::memcpy(swap.unAttr.stSwap.as32Map, map, sizeof(map));
    attr.lstNodeAttr.push_back(swap);
    attr.lstNodeAttr.push_back(Node(ASTREAM_NODE_TYPE_E_MERGE, 0, 1, 1));
    attr.lstNodeAttr.push_back(Node(ASTREAM_NODE_TYPE_E_MERGE, 2, 1, 1));
    for (int ao = 0; ao < 2; ao++) {
        ASTREAM_NODE_ATTR_S out = Node(ASTREAM_NODE_TYPE_E_OUTPUT, 0, 0, 0);
        out.unAttr.stOutput = {ao, ao * 2, 2, -1, ZN_FALSE, -1};
        attr.lstNodeAttr.push_back(out);
    }
    return AUDIO_ASTREAM_Create(kStream, &attr) == 0 && AUDIO_AO_isReady(0) && AUDIO_AO_isReady(1);
}

unsigned long long FramesWritten(unsigned int card) {
    vcard_counters c{};
    return vcard_get_counters(card, 0, VCARD_PLAYBACK, &c) == 0 ? c.frames_written : 0;
}

// Until the stereo card has taken every period of the file; false when it has not after
// the file's duration and 30 s more (a stream that stalled).
bool WaitForFile(long periods) {
    const unsigned long long want = static_cast<unsigned long long>(periods) * kPeriod * (kCardRate / kRate);
    const double deadline = Now(CLOCK_MONOTONIC) + static_cast<double>(periods) * kPeriod / kRate + 30.0;
    const timespec pause{0, 1000000};
    while (FramesWritten(kStereoCard) < want) {
        if (Now(CLOCK_MONOTONIC) > deadline) {
            return false;
        }
        nanosleep(&pause, nullptr);
    }
    return true;
}

void TearDown() {
    if (AUDIO_ASTREAM_isReady(kStream)) {
        AUDIO_ASTREAM_Stop(kStream);
        AUDIO_ASTREAM_Destroy(kStream);
    }
    for (int id = 0; id < 2; id++) {
        if (AUDIO_AO_isEnabled(id)) {
            AUDIO_AO_SetEnable(id, ZN_FALSE);
        }
        AUDIO_AO_Destroy(id);
    }
    AUDIO_AI_Close(kAi);
    AUDIO_AI_SetEnable(kAi, ZN_FALSE);
    AUDIO_AI_Destroy(kAi);
}

int Run(bool realtime) {
    struct stat st {};
    if (stat(kInput, &st) != 0 || st.st_size < kChannels * kPeriod * 2) {
        std::fprintf(stderr, "remix_job: no usable %s\n", kInput);
        return 1;
    }
    const long periods = static_cast<long>(st.st_size / (kChannels * kPeriod * 2));
    if (!SetUpCards(realtime) || !SetUpInput() || !SetUpOutput(0, kStereoCard) ||
        !SetUpOutput(1, kMonoCard) || !CreateStream()) {
        std::fprintf(stderr, "remix_job: set-up failed\n");
        return 1;
    }
    const double wall0 = Now(CLOCK_MONOTONIC);
    const double cpu0 = Now(CLOCK_PROCESS_CPUTIME_ID);
    if (AUDIO_ASTREAM_Start(kStream) != 0) {
        std::fprintf(stderr, "remix_job: the stream did not start\n");
        return 1;
    }
    const bool played = WaitForFile(periods);
    AUDIO_ASTREAM_Stop(kStream);
    if (!played) {
        std::fprintf(stderr, "remix_job: the cards took %llu of %ld periods\n",
                     FramesWritten(kStereoCard) / (kPeriod * (kCardRate / kRate)), periods);
        return 1;
    }
    const double wall = Now(CLOCK_MONOTONIC) - wall0;
    const double cpu = Now(CLOCK_PROCESS_CPUTIME_ID) - cpu0;
    const unsigned long long stereo = FramesWritten(kStereoCard);
    const unsigned long long mono = FramesWritten(kMonoCard);
    std::printf(
        "periods=%ld stereo_frames=%llu mono_frames=%llu audio_s=%.3f wall_s=%.3f cpu_s=%.3f load_pct=%.2f\n",
        periods, stereo, mono, static_cast<double>(stereo) / kCardRate, wall, cpu, 100.0 * cpu / wall);
    return 0;
}

// The conversions alone: each period of the file, its first two channels through the
// stereo converter and its third through the mono one, as the outputs convert them.
int ConvertOnly() {
    std::FILE* in = std::fopen(kInput, "rb");
    if (in == nullptr) {
        std::fprintf(stderr, "remix_job: no usable %s\n", kInput);
        return 1;
    }
    const int outPeriod = kPeriod * (kCardRate / kRate);
    RESAMPLE_ATTR_S stereoAttr = {kRate, 2, kPeriod, kCardRate, 2, outPeriod};
    RESAMPLE_ATTR_S monoAttr = {kRate, 1, kPeriod, kCardRate, 1, outPeriod};
    RESAMPLE_HANDLER* stereo = RESAMPLE_CreateHandler(&stereoAttr);
    RESAMPLE_HANDLER* mono = RESAMPLE_CreateHandler(&monoAttr);
    std::vector<int16_t> block(kPeriod * kChannels), stereoIn(kPeriod * 2), monoIn(kPeriod);
    std::vector<int16_t> stereoOut(outPeriod * 2), monoOut(outPeriod);
    long periods = 0;
    const double cpu0 = Now(CLOCK_PROCESS_CPUTIME_ID);
    while (stereo != nullptr && mono != nullptr &&
           std::fread(block.data(), sizeof(int16_t), block.size(), in) == block.size()) {
        for (int f = 0; f < kPeriod; f++) {
            stereoIn[2 * f] = block[kChannels * f];
            stereoIn[2 * f + 1] = block[kChannels * f + 1];
            monoIn[f] = block[kChannels * f + 2];
        }
        RESAMPLE_Process(stereo, reinterpret_cast<unsigned char*>(stereoIn.data()), kPeriod,
                         reinterpret_cast<unsigned char*>(stereoOut.data()), outPeriod);
        RESAMPLE_Process(mono, reinterpret_cast<unsigned char*>(monoIn.data()), kPeriod,
                         reinterpret_cast<unsigned char*>(monoOut.data()), outPeriod);
        periods++;
    }
    const double cpu = Now(CLOCK_PROCESS_CPUTIME_ID) - cpu0;
    std::fclose(in);
    const bool made = stereo != nullptr && mono != nullptr;
    RESAMPLE_Destroy(&stereo);
    RESAMPLE_Destroy(&mono);
    if (!made) {
        std::fprintf(stderr, "remix_job: converters refused\n");
        return 1;
    }
    std::printf("periods=%ld audio_s=%.3f cpu_s=%.3f\n", periods, static_cast<double>(periods) * kPeriod / kRate,
                cpu);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const char* mode = argc == 3 ? argv[2] : "";
    if (argc < 2 || argc > 3 || (argc == 3 && std::strcmp(mode, "--realtime") != 0 &&
                                 std::strcmp(mode, "--convert-only") != 0) ||
        chdir(argv[1]) != 0) {
        std::fprintf(stderr, "usage: audiomw_remix_job WORKDIR [--realtime | --convert-only]\n");
        return 2;
    }
    if (std::strcmp(mode, "--convert-only") == 0) {
        return ConvertOnly();
    }
    // Marker and recording files of the library resolve inside the work directory.
    char cwd[256];
    if (getcwd(cwd, sizeof(cwd)) == nullptr || AUDIO_EXT_SetRootDir(cwd) != 0) {
        std::fprintf(stderr, "remix_job: the work directory's path is too long\n");
        return 2;
    }
    UTIL_LOG_SetThreshold(UTIL_LOG_WARN);
    int rc = Run(std::strcmp(mode, "--realtime") == 0);
    TearDown();
    return rc;
}
