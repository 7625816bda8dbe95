// audiomw_demo: what a voice device does, built through libaudiomw's exported interface.
//
// A file input (AI 0) of four channels at 16 kHz feeds stream 0, whose nodes cut the
// interleaved input into mono blocks (split), mix one channel into another (mixin),
// reorder blocks (swap), join stereo groups (merge), dump one group into a raw file
// (dump) and send two groups out (output): to AO 0, a virtual card that takes the
// stream's 2 channels at 16 kHz as they are, and to AO 1, a virtual card with one
// channel at 48 kHz only, so that the output rematrixes and resamples. The virtual
// cards (libtinyalsa) write their playback into WAV files and run in real time.
//
// The program prints what it set up, its progress and a summary: periods read, frames
// written per output, underruns, the level of every channel it produced and where the
// files are. It exits 0 when everything ran as expected.
//
//   audiomw_demo [--input FILE] [--out DIR] [--verbose]
#include <getopt.h>
#include <time.h>
#include <unistd.h>

#include <tinyalsa/vcard.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

#include "audio_ai.h"
#include "audio_ao.h"
#include "audio_astream.h"
#include "audio_ext.h"
#include "demo_layout.h"
#include "host_test.h"
#include "pcm_levels.h"

#ifndef AUDIOMW_DEMO_INPUT
#define AUDIOMW_DEMO_INPUT "demo_input.pcm"
#endif

namespace demo {
namespace {

namespace fs = std::filesystem;

constexpr int kAiId = 0;
constexpr int kStreamId = 0;
constexpr int kAo0 = 0;
constexpr int kAo1 = 1;
constexpr unsigned int kAo0Card = 1;
constexpr unsigned int kAo1Card = 2;
constexpr int kInputFrameBytes = kInputChannels * 2;
// A file input delivers this many blocks of filler (bytes 0xA5) before the file's first
// byte; the program reads them itself so that the stream starts with the recording.
constexpr int kFileLeadInBlocks = 48;
constexpr unsigned char kFiller = 0xA5;
constexpr long kPollNs = 20 * 1000 * 1000;
constexpr double kStallSeconds = 3.0;
constexpr double kSpareSeconds = 15.0;

struct Options {
    std::string input = AUDIOMW_DEMO_INPUT;
    std::string out = "demo-output";
    bool verbose = false;
};

void Usage(const char* argv0) {
    std::fprintf(stderr,
                 "usage: %s [--input FILE] [--out DIR] [--verbose]\n"
                 "  --input FILE  raw signed 16-bit little-endian PCM, 4 channels at 16000 Hz\n"
                 "                (default: %s)\n"
                 "  --out DIR     where the WAV files, the dump and the logs go (default: demo-output)\n"
                 "  --verbose     also copy the library's log lines to standard error\n",
                 argv0, AUDIOMW_DEMO_INPUT);
}

bool ParseArgs(int argc, char** argv, Options* o) {
    static const option kLong[] = {{"input", required_argument, nullptr, 'i'},
                                   {"out", required_argument, nullptr, 'o'},
                                   {"verbose", no_argument, nullptr, 'v'},
                                   {"help", no_argument, nullptr, 'h'},
                                   {nullptr, 0, nullptr, 0}};
    int c = 0;
    while ((c = getopt_long(argc, argv, "i:o:vh", kLong, nullptr)) != -1) {
        switch (c) {
            case 'i':
                o->input = optarg;
                break;
            case 'o':
                o->out = optarg;
                break;
            case 'v':
                o->verbose = true;
                break;
            default:
                return false;
        }
    }
    return optind == argc;
}

double NowSeconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

void SleepPoll() {
    timespec pause{0, kPollNs};
    while (nanosleep(&pause, &pause) == -1 && errno == EINTR) {
    }
}

// ---- The library's log ------------------------------------------------------------------

// Receives the library's log lines: writes them to library.log (and standard error with
// --verbose), counts warnings and errors, and keeps the recent lines for the report.
class LibraryLog {
  public:
    bool Open(const std::string& path, bool echo) {
        m_file = std::fopen(path.c_str(), "w");
        m_echo = echo;
        if (m_file == nullptr) {
            return false;
        }
        UTIL_LOG_SetThreshold(UTIL_LOG_DEBUG);
        UTIL_LOG_SetSink(&LibraryLog::Sink, this);
        return true;
    }

    void Close() {
        UTIL_LOG_SetSink(nullptr, nullptr);
        UTIL_LOG_SetThreshold(UTIL_LOG_INFO);
        if (m_file != nullptr) {
            std::fclose(m_file);
            m_file = nullptr;
        }
    }

    // Lines logged since the last call whose message contains `key`, prefix removed.
    std::vector<std::string> TakeRecent(const char* key) {
        std::lock_guard<std::mutex> lock(m_mutex);
        std::vector<std::string> found;
        for (const std::string& line : m_recent) {
            size_t start = line.find("] ");
            std::string message = start == std::string::npos ? line : line.substr(start + 2);
            while (!message.empty() && (message.back() == ' ' || message.back() == '\n')) {
                message.pop_back();
            }
            if (message.find(key) != std::string::npos) {
                found.push_back(message);
            }
        }
        m_recent.clear();
        return found;
    }

    int Lines() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_lines;
    }
    std::vector<std::string> Problems() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_problems;
    }

  private:
    static void Sink(int level, const char* text, void* ctx) {
        static_cast<LibraryLog*>(ctx)->Add(level, text);
    }

    void Add(int level, const char* text) {
        std::string line(text);
        while (!line.empty() && line.back() == '\n') {
            line.pop_back();
        }
        const char* tag = level <= UTIL_LOG_ERR    ? "E"
                          : level == UTIL_LOG_WARN ? "W"
                          : level == UTIL_LOG_INFO ? "I"
                                                   : "D";
        std::lock_guard<std::mutex> lock(m_mutex);
        std::fprintf(m_file, "%s/%s\n", tag, line.c_str());
        if (m_echo) {
            std::fprintf(stderr, "%s/%s\n", tag, line.c_str());
        }
        ++m_lines;
        if (level <= UTIL_LOG_WARN) {
            m_problems.push_back(std::string(tag) + "/" + line);
        }
        if (m_recent.size() < kRecentMax) {
            m_recent.push_back(line);
        }
    }

    static constexpr size_t kRecentMax = 256;

    std::mutex m_mutex;
    FILE* m_file = nullptr;
    bool m_echo = false;
    int m_lines = 0;
    std::vector<std::string> m_problems;
    std::vector<std::string> m_recent;
};

// ---- Set-up -------------------------------------------------------------------------------

// Copies the input into the output directory (a file input plays a path of at most 39
// characters, opened for reading and writing), padded with silence to whole periods and
// followed by kTailPeriods of silence. Returns the periods of the recording, 0 on failure.
long CopyInput(const std::string& from, const char* to) {
    std::ifstream in(from, std::ios::binary);
    if (!in.is_open()) {
        std::printf("cannot open %s: %s\n", from.c_str(), std::strerror(errno));
        return 0;
    }
    std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad()) {
        std::printf("cannot read %s\n", from.c_str());
        return 0;
    }
    if (bytes.empty() || bytes.size() % kInputFrameBytes != 0) {
        std::printf("%s: %zu bytes is not a whole number of %d-channel 16-bit frames (or is empty)\n",
                    from.c_str(), bytes.size(), kInputChannels);
        return 0;
    }
    const size_t periodBytes = static_cast<size_t>(kInputFrameBytes) * kPeriodFrames;
    long periods = static_cast<long>((bytes.size() + periodBytes - 1) / periodBytes);
    bytes.resize(static_cast<size_t>(periods + kTailPeriods) * periodBytes, 0);
    std::ofstream out(to, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out.close();
    if (!out) {
        std::printf("cannot write %s\n", to);
        return 0;
    }
    return periods;
}

// The two playback cards, written to a file in the libtinyalsa card format and loaded
// from it (sink paths are taken relative to that file).
bool SetUpCards() {
    char text[1024];
    std::snprintf(text, sizeof(text),
                  "# Virtual cards of the audiomw demonstration.\n"
                  "# AO 0: a stereo card at 16 kHz, the stream's own format.\n"
                  "pcm card=%u device=0 dir=playback channels=%d rates=%d sink=wav:%s clock=realtime\n"
                  "# AO 1: a mono card at 48 kHz only: the output rematrixes and resamples.\n"
                  "pcm card=%u device=0 dir=playback channels=%d rates=%d sink=wav:%s clock=realtime\n",
                  kAo0Card, kGroupChannels, kRate, kAo0Wav, kAo1Card, kAo1CardChannels, kAo1CardRate,
                  kAo1Wav);
    FILE* file = std::fopen(kCardsFile, "w");
    if (file == nullptr || std::fputs(text, file) < 0 || std::fclose(file) != 0) {
        std::printf("cannot write %s\n", kCardsFile);
        return false;
    }
    if (vcard_load_file(kCardsFile) != 0) {
        std::printf("cannot load %s: %s\n", kCardsFile, vcard_last_error());
        return false;
    }
    std::printf("Virtual cards (%s):\n", kCardsFile);
    std::printf("  card %u device 0 playback: %d channels, %d Hz, real-time clock, sink %s\n", kAo0Card,
                kGroupChannels, kRate, kAo0Wav);
    std::printf("  card %u device 0 playback: %d channel, %d Hz, real-time clock, sink %s\n", kAo1Card,
                kAo1CardChannels, kAo1CardRate, kAo1Wav);
    return true;
}

// AI 0 plays the input copy. A file input takes its path over when an attribute change
// names an existing file, so it is created disabled and then enabled. It is opened here
// and its lead-in filler read, so that the stream's first period is the recording's.
bool SetUpInput() {
    AI_ATTR_S attr;
    std::memset(&attr, 0, sizeof(attr));
    attr.eType = AI_DEV_TYPE_FILE;
    std::snprintf(attr.acFilePath, sizeof(attr.acFilePath), "%s", kInputCopy);
    attr.bEnable = ZN_FALSE;
    attr.eSampleRate = AI_SAMPLE_RATE_16000;
    attr.s32Channel = kInputChannels;
    attr.s32FrameLen = kPeriodFrames;
    attr.s32Volume = 100;
    if (AUDIO_AI_Create(kAiId, &attr) != 0 || AUDIO_AI_SetEnable(kAiId, ZN_TRUE) != 0 ||
        AUDIO_AI_Open(kAiId) != 0) {
        std::printf("cannot set up AI %d on %s\n", kAiId, kInputCopy);
        return false;
    }
    std::vector<unsigned char> block(static_cast<size_t>(AUDIO_AI_GetRecommendReadBufferSize(kAiId)));
    for (int i = 0; i < kFileLeadInBlocks; ++i) {
        unsigned int got = 0;
        unsigned long long stamp = 0;
        if (AUDIO_AI_Read(kAiId, block.data(), static_cast<unsigned int>(block.size()), got, stamp, -1) !=
                0 ||
            got != block.size() || block.front() != kFiller || block.back() != kFiller) {
            std::printf("AI %d did not deliver its lead-in filler block %d\n", kAiId, i + 1);
            return false;
        }
    }
    std::printf(
        "AI %d: file input \"%s\", %d channels, %d Hz, %d frames a period (%zu bytes); its %d lead-in "
        "filler blocks read and dropped\n",
        kAiId, kInputCopy, kInputChannels, kRate, kPeriodFrames, block.size(), kFileLeadInBlocks);
    return true;
}

// Both outputs are sent the stream's format: 2 channels, 16 kHz, one period per write.
// They are created disabled; the stream's output nodes enable them.
bool SetUpOutput(int id, unsigned int card) {
    AO_ATTR_S attr;
    std::memset(&attr, 0, sizeof(attr));
    attr.eType = 0;
    attr.stAlsaDev.s32CardId = static_cast<int>(card);
    attr.stAlsaDev.s32DevId = 0;
    attr.eSampleRate = AI_SAMPLE_RATE_16000;
    attr.s32Channel = kGroupChannels;
    attr.s32FrameSize = kPeriodFrames;
    attr.s32Volume = 100;
    if (AUDIO_AO_Create(id, &attr) != 0) {
        std::printf("cannot create AO %d\n", id);
        return false;
    }
    std::printf("AO %d: card %u device 0, sent %d channels at %d Hz, %d frames a write\n", id, card,
                kGroupChannels, kRate, kPeriodFrames);
    return true;
}

// ---- The stream -------------------------------------------------------------------------

struct NodeStep {
    ASTREAM_NODE_ATTR_S attr;
    std::string what;
    const char* layout;  // the channel blocks after the node; [] groups interleaved blocks
};

ASTREAM_NODE_ATTR_S NodeAttr(ASTREAM_NODE_TYPE_E type) {
    ASTREAM_NODE_ATTR_S attr;
    std::memset(&attr, 0, sizeof(attr));
    attr.eType = type;
    return attr;
}

NodeStep Split(int offset, int a, int b, const char* layout) {
    NodeStep step{NodeAttr(ASTREAM_NODE_TYPE_E_SPLIT), "", layout};
    step.attr.unAttr.stSplit = {offset, a, b};
    step.what = "Split   group at block " + std::to_string(offset) + " into " + std::to_string(a) + " + " +
                std::to_string(b) + " channels";
    return step;
}

NodeStep Merge(int offset, int a, int b, const char* layout) {
    NodeStep step{NodeAttr(ASTREAM_NODE_TYPE_E_MERGE), "", layout};
    step.attr.unAttr.stMerge = {offset, a, b};
    step.what = "Merge   blocks " + std::to_string(offset) + " and " + std::to_string(offset + a) +
                " into a " + std::to_string(a + b) + "-channel group";
    return step;
}

NodeStep Mixin(int target, int offset, int count, const char* layout) {
    NodeStep step{NodeAttr(ASTREAM_NODE_TYPE_E_MIXIN), "", layout};
    step.attr.unAttr.stMixin = {target, offset, count};
    step.what =
        "Mixin   block " + std::to_string(offset) + " into block " + std::to_string(target) + ", averaged";
    return step;
}

NodeStep Swap(const std::vector<int>& map, const char* layout) {
    NodeStep step{NodeAttr(ASTREAM_NODE_TYPE_E_SWAP), "Swap    blocks to", layout};
    for (size_t i = 0; i < map.size(); ++i) {
        step.attr.unAttr.stSwap.as32Map[i] = map[i];
        step.what += (i == 0 ? " " : ",") + std::to_string(map[i]);
    }
    return step;
}

NodeStep Dump(int offset, int count, const char* path, const char* layout) {
    NodeStep step{NodeAttr(ASTREAM_NODE_TYPE_E_DEBUG_DUMP), "", layout};
    std::snprintf(step.attr.unAttr.stDump.acPath, sizeof(step.attr.unAttr.stDump.acPath), "%s", path);
    step.attr.unAttr.stDump.s32ChnOffset = offset;
    step.attr.unAttr.stDump.s32ChnCnt = count;
    step.what =
        "Dump    blocks " + std::to_string(offset) + "-" + std::to_string(offset + count - 1) + " to " + path;
    return step;
}

NodeStep Output(int ao, int offset, int count, const char* layout) {
    NodeStep step{NodeAttr(ASTREAM_NODE_TYPE_E_OUTPUT), "", layout};
    // An ordinary source (not the line-in) and no frames dropped at start.
    step.attr.unAttr.stOutput = {ao, offset, count, -1, ZN_FALSE, -1};
    step.what = "Output  blocks " + std::to_string(offset) + "-" + std::to_string(offset + count - 1) +
                " to AO " + std::to_string(ao);
    return step;
}

// The node chain of demo_layout.h. in0..in3 are the input's channels.
std::vector<NodeStep> StreamNodes() {
    return {
        Split(0, 1, 3, "[in0] [in1 in2 in3]"),
        Split(1, 1, 2, "[in0] [in1] [in2 in3]"),
        Split(2, 1, 1, "[in0] [in1] [in2] [in3]"),
        Mixin(0, 3, 1, "[mix] [in1] [in2] [in3]   mix = (in0 + in3) / 2"),
        Swap({1, 0, 2, 3}, "[in1] [mix] [in2] [in3]"),
        Merge(0, 1, 1, "[in1 mix] [in2] [in3]"),
        Merge(2, 1, 1, "[in1 mix] [in2 in3]"),
        Dump(2, 2, kDumpFile, "(unchanged)"),
        Output(kAo0, 0, 2, "(unchanged)"),
        Output(kAo1, 2, 2, "(unchanged)"),
    };
}

bool CreateStream() {
    std::vector<NodeStep> steps = StreamNodes();
    ASTREAM_ATTR_S attr;
    attr.s32AiId = kAiId;
    // One worker keeps the periods in order on their way to the cards.
    attr.s32WorkerNum = 1;
    for (const NodeStep& step : steps) {
        attr.lstNodeAttr.push_back(step.attr);
    }
    std::printf("Stream %d: AI %d, %d worker, %zu nodes (input blocks: [in0 in1 in2 in3])\n", kStreamId,
                kAiId, attr.s32WorkerNum, steps.size());
    for (size_t i = 0; i < steps.size(); ++i) {
        std::printf("  %2zu. %-48s -> %s\n", i + 1, steps[i].what.c_str(), steps[i].layout);
    }
    if (AUDIO_ASTREAM_Create(kStreamId, &attr) != 0) {
        std::printf("cannot create stream %d\n", kStreamId);
        return false;
    }
    return true;
}

// ---- Running ----------------------------------------------------------------------------

struct CardCounters {
    vcard_counters ao0{};
    vcard_counters ao1{};
};

bool ReadCounters(CardCounters* c) {
    return vcard_get_counters(kAo0Card, 0, VCARD_PLAYBACK, &c->ao0) == 0 &&
           vcard_get_counters(kAo1Card, 0, VCARD_PLAYBACK, &c->ao1) == 0;
}

// Periods both cards have played (AO 1's card lags AO 0's by up to one write).
void PrintProgress(const CardCounters& c, long periods, bool tty, bool last) {
    long played0 = static_cast<long>(c.ao0.frames_written / kPeriodFrames);
    long played1 = static_cast<long>(c.ao1.frames_written / (kPeriodFrames * kAo1CardRate / kRate));
    long played = played0 < played1 ? played0 : played1;
    std::printf("%s  played %ld of %ld periods (AO 0: %llu frames, AO 1: %llu frames)%s", tty ? "\r" : "",
                played, periods, c.ao0.frames_written, c.ao1.frames_written, !tty || last ? "\n" : "");
    std::fflush(stdout);
}

// Waits until both cards have played the whole recording, with a deadline, and gives up
// when nothing moves for a while.
bool WaitForRecording(long periods) {
    const unsigned long long want0 = static_cast<unsigned long long>(periods) * kPeriodFrames;
    const unsigned long long want1 = want0 * kAo1CardRate / kRate;
    const bool tty = isatty(STDOUT_FILENO) != 0;
    const double start = NowSeconds();
    const double deadline = start + static_cast<double>(periods) * kPeriodFrames / kRate + kSpareSeconds;
    double lastMove = start;
    double lastPrint = 0.0;
    unsigned long long seen = 0;
    CardCounters c;
    while (ReadCounters(&c)) {
        double now = NowSeconds();
        unsigned long long moved = c.ao0.frames_written + c.ao1.frames_written;
        if (moved != seen) {
            seen = moved;
            lastMove = now;
        }
        bool done = c.ao0.frames_written >= want0 && c.ao1.frames_written >= want1;
        if (done || now - lastPrint >= (tty ? 0.1 : 1.0)) {
            PrintProgress(c, periods, tty, done);
            lastPrint = now;
        }
        if (done) {
            return true;
        }
        if (now > deadline || now - lastMove > kStallSeconds) {
            if (tty) {
                std::printf("\n");
            }
            std::printf("the cards stopped short of the recording's %ld periods (%s)\n", periods,
                        now > deadline ? "deadline passed" : "nothing played for 3 s");
            return false;
        }
        SleepPoll();
    }
    std::printf("cannot read the virtual cards' counters: %s\n", vcard_last_error());
    return false;
}

// ---- Tear-down and report ------------------------------------------------------------------

// Stops and destroys the stream (its output nodes disable the AOs, which closes the
// cards and finishes the WAV files), then the outputs and the input. Safe on any
// partial set-up.
void TearDown() {
    if (AUDIO_ASTREAM_isReady(kStreamId)) {
        AUDIO_ASTREAM_Stop(kStreamId);
        AUDIO_ASTREAM_Destroy(kStreamId);
    }
    for (int id : {kAo0, kAo1}) {
        if (AUDIO_AO_isEnabled(id)) {
            AUDIO_AO_SetEnable(id, ZN_FALSE);
        }
        AUDIO_AO_Destroy(id);
    }
    if (AUDIO_AI_isOpen(kAiId)) {
        AUDIO_AI_Close(kAiId);
    }
    if (AUDIO_AI_isEnabled(kAiId)) {
        AUDIO_AI_SetEnable(kAiId, ZN_FALSE);
    }
    AUDIO_AI_Destroy(kAiId);
}

// One line per channel; labels[c] names what channel c carries.
std::string LevelsText(const Pcm& pcm, const std::vector<const char*>& labels) {
    std::string text;
    std::vector<Level> levels = MeasureAll(pcm);
    for (size_t c = 0; c < levels.size(); ++c) {
        char line[160];
        std::snprintf(line, sizeof(line), "      ch%zu %-16s rms %6s dBFS, peak %6s dBFS\n", c,
                      c < labels.size() ? labels[c] : "", FormatDb(levels[c].rmsDb).c_str(),
                      FormatDb(levels[c].peakDb).c_str());
        text += line;
    }
    return text;
}

struct Report {
    std::vector<std::string> failures;

    void Expect(bool ok, const std::string& what) {
        if (!ok) {
            failures.push_back(what);
        }
    }
};

// One output: its card's counters against its WAV file.
void ReportOutput(int ao, unsigned int card, const vcard_counters& counters, int underruns, const char* wav,
                  int channels, int rate, unsigned long long wantFrames,
                  const std::vector<const char*>& labels, Report* report) {
    std::printf("  AO %d -> card %u: %llu frames in %llu writes, underruns %d, card xruns %llu\n", ao, card,
                counters.frames_written, counters.writes, underruns, counters.xruns);
    Pcm pcm;
    std::string error;
    if (!ReadSoundFile(wav, &pcm, &error)) {
        report->Expect(false, error);
        return;
    }
    std::printf("    %s: %d channel%s, %d Hz, %ld frames (%.2f s)\n%s", wav, pcm.channels,
                pcm.channels == 1 ? "" : "s", pcm.rate, pcm.frames,
                static_cast<double>(pcm.frames) / pcm.rate, LevelsText(pcm, labels).c_str());
    std::string name = "AO " + std::to_string(ao) + ": ";
    report->Expect(pcm.channels == channels && pcm.rate == rate, name + wav + " has the wrong format");
    report->Expect(static_cast<unsigned long long>(pcm.frames) == counters.frames_written,
                   name + wav + " does not hold what the card was written");
    report->Expect(counters.frames_written >= wantFrames, name + "the card did not get the whole recording");
    report->Expect(underruns == 0 && counters.xruns == 0 && counters.failed_transfers == 0,
                   name + "the card reported underruns or failed writes");
}

// The dump file holds one period of the AO 1 group per period the stream processed.
void ReportDump(const Pcm& dump, long periods, Report* report) {
    std::printf("  dump of blocks 2-3 (what AO 1 is sent): %s: raw, %d channels, %d Hz, %ld frames\n%s",
                kDumpFile, dump.channels, dump.rate, dump.frames,
                LevelsText(dump, {"(in2)", "(in3)"}).c_str());
    report->Expect(dump.frames % kPeriodFrames == 0 && dump.frames / kPeriodFrames >= periods,
                   "the dump does not hold every period of the recording");
}

// `shownDir` is the output directory as the user named it.
int Summarize(long periods, int underruns0, int underruns1, LibraryLog* log, const fs::path& shownDir) {
    Report report;
    CardCounters c;
    if (!ReadCounters(&c)) {
        std::printf("cannot read the virtual cards' counters: %s\n", vcard_last_error());
        return 1;
    }
    Pcm dump;
    std::string error;
    report.Expect(ReadRawFile(kDumpFile, kRate, kGroupChannels, &dump, &error), error);
    long processed = dump.frames / kPeriodFrames;
    std::printf("\nSummary\n");
    std::printf("  periods read by the stream: %ld (%ld of the recording, %ld of the silence after it)\n",
                processed, periods, processed - periods);
    const unsigned long long want0 = static_cast<unsigned long long>(periods) * kPeriodFrames;
    ReportOutput(kAo0, kAo0Card, c.ao0, underruns0, kAo0Wav, kGroupChannels, kRate, want0,
                 {"(in1)", "(in0 + in3) / 2"}, &report);
    ReportOutput(kAo1, kAo1Card, c.ao1, underruns1, kAo1Wav, kAo1CardChannels, kAo1CardRate,
                 want0 * kAo1CardRate / kRate, {"(in2)"}, &report);
    ReportDump(dump, periods, &report);
    report.Expect(processed * kPeriodFrames == static_cast<long>(c.ao0.frames_written),
                  "AO 0 did not play every period the stream read");
    report.Expect(processed - periods < kTailPeriods, "the stream read past the silence after the recording");
    std::vector<std::string> problems = log->Problems();
    std::printf("  library log: %d lines, %zu warnings or errors\n", log->Lines(), problems.size());
    for (const std::string& line : problems) {
        report.Expect(false, "library: " + line);
    }
    std::printf("Files:\n");
    for (const char* name : {kAo0Wav, kAo1Wav, kDumpFile, kInputCopy, kCardsFile, kLibraryLog}) {
        std::printf("  %s\n", (shownDir / name).c_str());
    }
    for (const std::string& failure : report.failures) {
        std::printf("FAILED: %s\n", failure.c_str());
    }
    std::printf("%s\n", report.failures.empty() ? "Demonstration complete." : "Demonstration failed.");
    return report.failures.empty() ? 0 : 1;
}

// ---- Main -------------------------------------------------------------------------------

// Everything up to the recording played; false at the first failure.
bool SetUpAndRun(long periods, int* underruns0, int* underruns1, LibraryLog* log) {
    if (!SetUpCards() || !SetUpInput() || !SetUpOutput(kAo0, kAo0Card) || !SetUpOutput(kAo1, kAo1Card)) {
        return false;
    }
    // The stream's output nodes open the outputs: show how the library set up each card.
    log->TakeRecent("");
    if (!CreateStream()) {
        return false;
    }
    for (const std::string& line : log->TakeRecent("AO[")) {
        std::printf("  library: %s\n", line.c_str());
    }
    if (!AUDIO_AO_isReady(kAo0) || !AUDIO_AO_isReady(kAo1)) {
        std::printf("the output nodes could not open both outputs (see %s)\n", kLibraryLog);
        return false;
    }
    AUDIO_ASTREAM_enableDumpNode(kStreamId, ZN_TRUE);
    if (AUDIO_ASTREAM_Start(kStreamId) != 0) {
        std::printf("cannot start stream %d\n", kStreamId);
        return false;
    }
    std::printf("Running: %ld periods of %d ms in real time\n", periods, kPeriodFrames * 1000 / kRate);
    if (!WaitForRecording(periods)) {
        return false;
    }
    *underruns0 = AUDIO_AO_GetUnderRunState(kAo0);
    *underruns1 = AUDIO_AO_GetUnderRunState(kAo1);
    return true;
}

int Run(const Options& o) {
    std::error_code ec;
    fs::path input = fs::absolute(o.input, ec);
    fs::create_directories(o.out, ec);
    fs::path outDir = fs::absolute(o.out, ec).lexically_normal();
    if (ec || chdir(outDir.c_str()) != 0) {
        std::printf("cannot use the output directory %s\n", o.out.c_str());
        return 1;
    }
    for (const char* stale : {kAo0Wav, kAo1Wav, kDumpFile}) {
        fs::remove(stale, ec);
    }
    std::printf("audiomw demonstration\n  output directory: %s\n  input: %s\n", outDir.c_str(),
                input.c_str());
    long periods = CopyInput(input.string(), kInputCopy);
    if (periods == 0) {
        return 1;
    }
    std::printf(
        "  channels in0..in3 (of the generated demo_input.pcm: speech, 440 Hz tone, speech at half level, "
        "1000 Hz tone)\n");
    std::printf("  recording: %ld periods of %d frames (%.2f s), then %d periods of silence\n", periods,
                kPeriodFrames, static_cast<double>(periods) * kPeriodFrames / kRate, kTailPeriods);
    // Marker and recording files of the library resolve inside the output directory.
    if (AUDIO_EXT_SetRootDir(outDir.c_str()) != 0) {
        std::printf("the output directory's path is too long for the library's root\n");
        return 1;
    }
    LibraryLog log;
    if (!log.Open(kLibraryLog, o.verbose)) {
        std::printf("cannot write %s\n", kLibraryLog);
        return 1;
    }
    int underruns0 = -1;
    int underruns1 = -1;
    bool ran = SetUpAndRun(periods, &underruns0, &underruns1, &log);
    TearDown();
    int result = 1;
    if (ran) {
        result = Summarize(periods, underruns0, underruns1, &log, fs::path(o.out));
    } else {
        for (const std::string& line : log.Problems()) {
            std::printf("  library: %s\n", line.c_str());
        }
        std::printf("Demonstration failed; the library's log is in %s\n", (outDir / kLibraryLog).c_str());
    }
    log.Close();
    return result;
}

}  // namespace
}  // namespace demo

int main(int argc, char** argv) {
    demo::Options options;
    if (!demo::ParseArgs(argc, argv, &options)) {
        demo::Usage(argv[0]);
        return 2;
    }
    return demo::Run(options);
}
