// AUDIO_AO_Write throughput on a free-running virtual card with a discard sink: frames of
// the written format per second without conversion, with a 4 => 2 rematrix and with a
// 16000 => 48000 resample. The baseline copies one period of the same bytes with memcpy.
#include <benchmark/benchmark.h>
#include <tinyalsa/vcard.h>

#include <cstring>
#include <vector>

#include "audio_ao.h"
#include "host_test.h"
#include "util.h"

namespace {

struct Case {
    unsigned int chMin, chMax, rateMin, rateMax;  // the card
    int rate, channels, frames;                   // the output
};

constexpr Case kDirect = {2, 2, 48000, 48000, 48000, 2, 480};
constexpr Case kRematrix = {1, 2, 48000, 48000, 48000, 4, 480};
constexpr Case kResample = {2, 2, 48000, 48000, 16000, 2, 160};

// A playback PCM on card 0 device 0 and AO 0 opened on it; false when the open failed.
bool OpenOutput(const Case& c) {
    UTIL_LOG_SetThreshold(UTIL_LOG_ERR);
    vcard_reset();
    vcard_pcm_desc d;
    vcard_pcm_desc_init(&d, 0, 0, VCARD_PLAYBACK);
    d.channels_min = c.chMin;
    d.channels_max = c.chMax;
    d.rate_min = c.rateMin;
    d.rate_max = c.rateMax;
    if (vcard_add_pcm(&d) != 0 || vcard_set_sink_discard(0, 0) != 0 ||
        vcard_set_clock(0, 0, VCARD_PLAYBACK, VCARD_CLOCK_FREE) != 0) {
        return false;
    }
    AO_ATTR_S a;
    std::memset(&a, 0, sizeof(a));
    a.eSampleRate = static_cast<tagAI_SAMPLE_RATE_E>(c.rate);
    a.s32Channel = c.channels;
    a.s32FrameSize = c.frames;
    return AUDIO_AO_Create(0, &a) == 0 && AUDIO_AO_SetEnable(0, ZN_TRUE) == 0 && AUDIO_AO_isReady(0);
}

void CloseOutput() {
    AUDIO_AO_SetEnable(0, ZN_FALSE);
    AUDIO_AO_Destroy(0);
    vcard_reset();
}

void BM_AoWrite(benchmark::State& state, Case c) {
    if (!OpenOutput(c)) {
        state.SkipWithError("cannot open the output");
        CloseOutput();
        return;
    }
    std::vector<unsigned char> period(static_cast<size_t>(c.frames) * c.channels * 2);
    for (size_t i = 0; i < period.size(); ++i) {
        period[i] = static_cast<unsigned char>(i * 7);
    }
    int failures = 0;
    for (auto _ : state) {
        failures += AUDIO_AO_Write(0, period.data(), static_cast<unsigned int>(period.size())) != 0;
    }
    CloseOutput();
    if (failures != 0) {
        state.SkipWithError("writes failed");
    }
    state.SetItemsProcessed(state.iterations() * c.frames);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(period.size()));
}

void BM_MemcpyPeriod(benchmark::State& state, Case c) {
    std::vector<unsigned char> src(static_cast<size_t>(c.frames) * c.channels * 2, 1), dst(src.size());
    for (auto _ : state) {
        std::memcpy(dst.data(), src.data(), src.size());
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * c.frames);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(src.size()));
}

}  // namespace

BENCHMARK_CAPTURE(BM_MemcpyPeriod, stereo_480, kDirect);
BENCHMARK_CAPTURE(BM_AoWrite, direct_2ch_48k, kDirect);
BENCHMARK_CAPTURE(BM_AoWrite, rematrix_4to2_48k, kRematrix);
BENCHMARK_CAPTURE(BM_AoWrite, resample_16k_to_48k_2ch, kResample);

BENCHMARK_MAIN();
