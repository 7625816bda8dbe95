// AUDIO_AI_Read on free-running virtual capture cards, each shape against baselines timed
// in the same iterations:
// - every shape against pcm_readi alone of the same card period on an identical PCM
//   (what the device adds: zero-fill, conversions, marker tests, timestamp, locking);
// - the resampling shapes also against pcm_readi plus a bare libsamplerate
//   zero-order-hold call with its short<->float conversions;
// - the line-in capture check of card 1 (4 channels, active, silencing channels 2 and
//   3) against memcpy of the block: its pass over the frames (the library's own code,
//   built into this program) and its test of the "/var/debuglog" marker (the root joined
//   under a lock, then access(), as the read path makes it), each timed on its own.
// Each iteration times a batch of library calls, then a batch of each baseline, on the
// thread's CPU clock. lib_ns and the baselines' *_ns are per block; ratio_* = library /
// baseline over the whole run.
#include <benchmark/benchmark.h>
#include <pthread.h>
#include <samplerate.h>
#include <stdlib.h>
#include <tinyalsa/pcm.h>
#include <tinyalsa/vcard.h>

#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "audio_ai.h"
#include "audio_ext.h"
#include "host_test.h"
#include "ai/line_in_check.h"
#include "util.h"

namespace {

constexpr int kBatch = 64;
constexpr unsigned int kBaseCard = 5;  // the baseline's own PCM, shaped like the AI's card

struct Shape {
    unsigned int chMin, chMax, rate;  // the card (one rate)
    int aiRate, aiChannels, frames;   // the AI
};

constexpr Shape kDirect = {2, 2, 16000, 16000, 2, 160};
constexpr Shape kRematrix = {1, 2, 16000, 16000, 4, 160};
constexpr Shape kResample = {2, 2, 48000, 16000, 2, 320};
constexpr Shape kBoth = {1, 2, 48000, 16000, 4, 320};

double CpuNow() {
    timespec ts = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
}

// Reads `count` blocks of AI `id` into block; the number of reads that failed.
int ReadBlocks(int id, std::vector<unsigned char>& block, int count) {
    unsigned int len = 0;
    unsigned long long ts = 0;
    int failures = 0;
    for (int i = 0; i < count; ++i) {
        failures +=
            AUDIO_AI_Read(id, block.data(), static_cast<unsigned int>(block.size()), len, ts, -1) != 0;
    }
    return failures;
}

// A scratch root, so that the marker tests of the read path look at an empty directory
// (card 4 finds no USB id there and stays on device 0). Returns the root.
const std::string& UseScratchRoot() {
    static std::string dir;
    if (dir.empty()) {
        char tmpl[] = "/tmp/audiomw-bench-XXXXXX";
        dir = mkdtemp(tmpl) ? tmpl : "/nonexistent-audiomw-bench";
        atexit([] { std::filesystem::remove_all(dir); });
    }
    AUDIO_EXT_SetRootDir(dir.c_str());
    return dir;
}

// One test of a marker file under `root`, made as the read path makes it: the root
// joined to the fixed path under a lock, then access(). Its answer, so it is not elided.
int MarkerTest(const std::string& root, const char* fixed) {
    static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    char path[512];
    pthread_mutex_lock(&mutex);
    std::snprintf(path, sizeof(path), "%s%s", root.c_str(), fixed);
    pthread_mutex_unlock(&mutex);
    return access(path, F_OK) == 0;
}

bool AddCapture(unsigned int card, const Shape& s) {
    vcard_pcm_desc d;
    vcard_pcm_desc_init(&d, card, 0, VCARD_CAPTURE);
    d.channels_min = s.chMin;
    d.channels_max = s.chMax;
    d.rate_min = d.rate_max = s.rate;
    return vcard_add_pcm(&d) == 0 && vcard_set_source_pattern(card, 0) == 0 &&
           vcard_set_clock(card, 0, VCARD_CAPTURE, VCARD_CLOCK_FREE) == 0;
}

// AI `id` on `card` shaped by `s`, open; false when it did not open.
bool OpenAi(int id, unsigned int card, const Shape& s) {
    AI_ATTR_S a;
    std::memset(&a, 0, sizeof(a));
    a.eType = AI_DEV_TYPE_ALSA;
    a.stAlsaDev.s32CardId = static_cast<int>(card);
    a.bEnable = ZN_TRUE;
    a.eSampleRate = static_cast<tagAI_SAMPLE_RATE_E>(s.aiRate);
    a.s32Channel = s.aiChannels;
    a.s32FrameLen = s.frames;
    return AddCapture(card, s) && AUDIO_AI_Create(id, &a) == 0 && AUDIO_AI_isInitd(id) &&
           AUDIO_AI_Open(id) == 0;
}

void CloseAll() {
    for (int id = 0; id < 2; ++id) {
        if (gs_pAiHandler[id] != nullptr) {
            AUDIO_AI_Close(id);
            AUDIO_AI_SetEnable(id, ZN_FALSE);
            AUDIO_AI_Destroy(id);
        }
    }
    vcard_reset();
}

// The baseline PCM, opened with the configuration the AI's card was given.
struct pcm* OpenBaseline(unsigned int aiCard, const Shape& s) {
    vcard_counters n{};
    vcard_get_counters(aiCard, 0, VCARD_CAPTURE, &n);
    if (!AddCapture(kBaseCard, s)) {
        return nullptr;
    }
    return pcm_open(kBaseCard, 0, PCM_IN, &n.last_config);
}

// The bare libsamplerate conversion of one card period, as a baseline.
struct BareSrc {
    SRC_STATE* state = nullptr;
    SRC_DATA data = {};
    std::vector<float> in, out;
    std::vector<int16_t> shorts;

    BareSrc(const pcm_config& c, const Shape& s)
        : in(c.period_size * c.channels), out(s.frames * c.channels) {
        int err = 0;
        state = src_new(SRC_ZERO_ORDER_HOLD, static_cast<int>(c.channels), &err);
        shorts.resize(out.size());
        data.data_in = in.data();
        data.data_out = out.data();
        data.input_frames = c.period_size;
        data.output_frames = s.frames;
        data.src_ratio = double(s.aiRate) / c.rate;
    }
    ~BareSrc() { src_delete(state); }
    void Run(const int16_t* period) {
        src_short_to_float_array(period, in.data(), static_cast<int>(in.size()));
        src_process(state, &data);
        src_float_to_short_array(out.data(), shorts.data(), static_cast<int>(out.size()));
    }
};

void BM_AiRead(benchmark::State& state, Shape s) {
    UTIL_LOG_SetThreshold(UTIL_LOG_ERR);
    (void)UseScratchRoot();
    vcard_reset();
    struct pcm* base = OpenAi(0, 0, s) ? OpenBaseline(0, s) : nullptr;
    if (!pcm_is_ready(base)) {
        state.SkipWithError("cannot open the capture");
        pcm_close(base);
        CloseAll();
        return;
    }
    vcard_counters n{};
    vcard_get_counters(0, 0, VCARD_CAPTURE, &n);
    const pcm_config cfg = n.last_config;
    const bool resample = cfg.rate != unsigned(s.aiRate);
    BareSrc src(cfg, s);
    std::vector<unsigned char> block(static_cast<size_t>(AUDIO_AI_GetRecommendReadBufferSize(0)));
    std::vector<int16_t> period(cfg.period_size * cfg.channels);
    int failures = 0;
    double lib = 0, readi = 0, bare = 0;
    for (auto _ : state) {
        double t0 = CpuNow();
        failures += ReadBlocks(0, block, kBatch);
        benchmark::ClobberMemory();
        double t1 = CpuNow();
        for (int i = 0; i < kBatch; ++i) {
            failures += pcm_readi(base, period.data(), cfg.period_size) <= 0;
        }
        benchmark::ClobberMemory();
        double t2 = CpuNow();
        for (int i = 0; resample && i < kBatch; ++i) {
            failures += pcm_readi(base, period.data(), cfg.period_size) <= 0;
            src.Run(period.data());
        }
        benchmark::ClobberMemory();
        double t3 = CpuNow();
        lib += t1 - t0;
        readi += t2 - t1;
        bare += t3 - t2;
        state.SetIterationTime(t1 - t0);
    }
    pcm_close(base);
    CloseAll();
    if (failures != 0) {
        state.SkipWithError("reads failed");
    }
    const double calls = double(state.iterations()) * kBatch;
    state.SetBytesProcessed(int64_t(calls * double(block.size())));
    state.counters["lib_ns"] = lib / calls * 1e9;
    state.counters["readi_ns"] = readi / calls * 1e9;
    state.counters["ratio_readi"] = readi > 0 ? lib / readi : 0;
    if (resample) {
        state.counters["src_ns"] = bare / calls * 1e9;
        state.counters["ratio_src"] = bare > 0 ? lib / bare : 0;
    }
}

// The line-in check of one block of 4 channels, disconnected, check active (the pattern
// never trips it, so every pass does the same work): the pass and the marker test, each
// against memcpy of the block.
void BM_LineInCheck(benchmark::State& state) {
    UTIL_LOG_SetThreshold(UTIL_LOG_ERR);
    const std::string& root = UseScratchRoot();
    const int channels = 4, frames = int(state.range(0));
    std::vector<unsigned char> block(size_t(channels) * frames * 2), copy(block.size());
    for (int f = 0; f < frames; ++f) {
        for (int c = 0; c < channels; ++c) {
            int16_t v = vcard_pattern_sample(unsigned(c), unsigned(f));
            std::memcpy(&block[(size_t(f) * channels + c) * 2], &v, 2);
        }
    }
    unsigned int counter = audiomw::kLineInIdleBlocks;
    int found = 0;
    double pass = 0, marker = 0, memcpyTime = 0;
    for (auto _ : state) {
        double t0 = CpuNow();
        for (int i = 0; i < kBatch; ++i) {
            audiomw::LineInCheckPass(block.data(), channels, frames, false, counter);
            benchmark::ClobberMemory();
        }
        double t1 = CpuNow();
        for (int i = 0; i < kBatch; ++i) {
            found += MarkerTest(root, "/var/debuglog");
        }
        double t2 = CpuNow();
        for (int i = 0; i < kBatch; ++i) {
            std::memcpy(copy.data(), block.data(), block.size());
            benchmark::DoNotOptimize(copy.data());
            benchmark::ClobberMemory();
        }
        double t3 = CpuNow();
        pass += t1 - t0;
        marker += t2 - t1;
        memcpyTime += t3 - t2;
        state.SetIterationTime(t2 - t0);
    }
    if (found != 0 || counter != audiomw::kLineInIdleBlocks) {
        state.SkipWithError(found != 0 ? "a marker file exists" : "the check reported");
    }
    const double calls = double(state.iterations()) * kBatch;
    state.SetBytesProcessed(int64_t(calls * double(block.size())));
    state.counters["pass_ns"] = pass / calls * 1e9;
    state.counters["marker_ns"] = marker / calls * 1e9;
    state.counters["check_ns"] = (pass + marker) / calls * 1e9;
    state.counters["memcpy_ns"] = memcpyTime / calls * 1e9;
    state.counters["ratio_pass"] = memcpyTime > 0 ? pass / memcpyTime : 0;
    state.counters["ratio_check"] = memcpyTime > 0 ? (pass + marker) / memcpyTime : 0;
}

}  // namespace

BENCHMARK_CAPTURE(BM_AiRead, direct_2ch_16k, kDirect)->UseManualTime();
BENCHMARK_CAPTURE(BM_AiRead, rematrix_2to4_16k, kRematrix)->UseManualTime();
BENCHMARK_CAPTURE(BM_AiRead, resample_48k_to_16k_2ch, kResample)->UseManualTime();
BENCHMARK_CAPTURE(BM_AiRead, both_2to4_48k_to_16k, kBoth)->UseManualTime();
BENCHMARK(BM_LineInCheck)->ArgName("frames")->Arg(160)->Arg(320)->UseManualTime();

BENCHMARK_MAIN();
