// Format conversion throughput, each against a baseline timed in the same iterations:
// - RESAMPLE_Process against a bare libsamplerate zero-order-hold src_process with the
//   same short<->float conversions on the same data;
// - REMATRIX_Process against memcpy of the same number of output bytes.
// Each iteration times a batch of library calls, then a batch of baseline calls, on the
// thread's CPU clock (so other processes on a shared machine do not land in one side).
// Time is the library's per batch of calls, bytes_per_second its output bytes;
// lib_ns and base_ns are per call, ratio = library / baseline over the whole run.
#include <benchmark/benchmark.h>
#include <samplerate.h>

#include <time.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "audio_rematrix.h"
#include "audio_resample.h"

namespace {

// Calls per timed batch: enough that reading the CPU clock (a system call, some
// hundred nanoseconds) stays below 1% of a batch.
constexpr int kResampleBatch = 32;
constexpr int kRematrixBatch = 4096;

double CpuNow() {
    timespec ts = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
}

// Interleaved 16-bit test signal: a different tone per channel at half scale.
std::vector<int16_t> Tones(int channels, int frames, int rate) {
    std::vector<int16_t> samples(size_t(channels) * frames);
    for (int f = 0; f < frames; f++) {
        for (int c = 0; c < channels; c++) {
            double t = double(f) / rate;
            samples[size_t(f) * channels + c] =
                int16_t(std::lrint(16000.0 * std::sin(2 * 3.14159265 * (440.0 + 220.0 * c) * t)));
        }
    }
    return samples;
}

void Report(benchmark::State& state, int batch, double libSeconds, double baseSeconds,
            size_t outBytesPerCall) {
    const double calls = double(state.iterations()) * batch;
    state.SetBytesProcessed(int64_t(calls * double(outBytesPerCall)));
    state.counters["lib_ns"] = libSeconds / calls * 1e9;
    state.counters["base_ns"] = baseSeconds / calls * 1e9;
    state.counters["ratio"] = baseSeconds > 0 ? libSeconds / baseSeconds : 0;
}

// Args: input rate, output rate, input period (frames), channels.
void BM_Resample(benchmark::State& state) {
    RESAMPLE_ATTR_S attr = {};
    attr.s32InRate = int(state.range(0));
    attr.s32OutRate = int(state.range(1));
    attr.s32InPeriodSize = int(state.range(2));
    attr.s32InChn = attr.s32OutChn = int(state.range(3));
    attr.s32OutPeriodSize = int(int64_t(attr.s32InPeriodSize) * attr.s32OutRate / attr.s32InRate);
    RESAMPLE_HANDLER* handler = RESAMPLE_CreateHandler(&attr);
    if (handler == nullptr) {
        state.SkipWithError("RESAMPLE_CreateHandler refused the shape");
        return;
    }
    const int inSamples = attr.s32InPeriodSize * attr.s32InChn;
    const int outSamples = attr.s32OutPeriodSize * attr.s32OutChn;
    std::vector<int16_t> in = Tones(attr.s32InChn, attr.s32InPeriodSize, attr.s32InRate);
    std::vector<int16_t> libOut(outSamples);
    std::vector<int16_t> baseOut(outSamples);

    int error = 0;
    SRC_STATE* bare = src_new(SRC_ZERO_ORDER_HOLD, attr.s32InChn, &error);
    std::vector<float> floatIn(inSamples);
    std::vector<float> floatOut(outSamples);
    SRC_DATA data = {};
    data.data_in = floatIn.data();
    data.data_out = floatOut.data();
    data.input_frames = attr.s32InPeriodSize;
    data.output_frames = attr.s32OutPeriodSize;
    data.src_ratio = double(attr.s32OutRate) / attr.s32InRate;
    src_set_ratio(bare, data.src_ratio);

    double libSeconds = 0;
    double baseSeconds = 0;
    for (auto _ : state) {
        double t0 = CpuNow();
        for (int i = 0; i < kResampleBatch; i++) {
            int n =
                RESAMPLE_Process(handler, reinterpret_cast<unsigned char*>(in.data()), attr.s32InPeriodSize,
                                 reinterpret_cast<unsigned char*>(libOut.data()), attr.s32OutPeriodSize);
            benchmark::DoNotOptimize(n);
        }
        benchmark::ClobberMemory();
        double t1 = CpuNow();
        for (int i = 0; i < kResampleBatch; i++) {
            src_short_to_float_array(in.data(), floatIn.data(), inSamples);
            int rc = src_process(bare, &data);
            src_float_to_short_array(floatOut.data(), baseOut.data(), outSamples);
            benchmark::DoNotOptimize(rc);
        }
        benchmark::ClobberMemory();
        double t2 = CpuNow();
        libSeconds += t1 - t0;
        baseSeconds += t2 - t1;
        state.SetIterationTime(t1 - t0);
    }
    Report(state, kResampleBatch, libSeconds, baseSeconds, size_t(outSamples) * 2);
    if (libOut != baseOut) {
        state.SkipWithError("library and bare libsamplerate outputs differ");
    }
    src_delete(bare);
    RESAMPLE_Destroy(&handler);
}

// Args: input channels, output channels, frames.
void BM_Rematrix(benchmark::State& state) {
    REMATRIX_ATTR_S attr = {int(state.range(0)), int(state.range(1))};
    const int frames = int(state.range(2));
    REMATRIX_HANDLER* handler = REMATRIX_CreateHandler(&attr);
    std::vector<int16_t> tones = Tones(attr.s32InChn, frames, 48000);
    const size_t inBytes = tones.size() * 2;
    const size_t outBytes = size_t(frames) * attr.s32OutChn * 2;
    // Both sides read the same source buffer and write the same destination, so buffer
    // placement favours neither.
    std::vector<unsigned char> src(std::max(inBytes, outBytes));
    std::memcpy(src.data(), tones.data(), inBytes);
    std::vector<unsigned char> dst(outBytes);

    double libSeconds = 0;
    double baseSeconds = 0;
    for (auto _ : state) {
        double t0 = CpuNow();
        for (int i = 0; i < kRematrixBatch; i++) {
            int n = REMATRIX_Process(handler, src.data(), frames, dst.data(), frames + 2);
            benchmark::DoNotOptimize(n);
            benchmark::ClobberMemory();
        }
        double t1 = CpuNow();
        for (int i = 0; i < kRematrixBatch; i++) {
            std::memcpy(dst.data(), src.data(), outBytes);
            benchmark::DoNotOptimize(dst.data());
            benchmark::ClobberMemory();
        }
        double t2 = CpuNow();
        libSeconds += t1 - t0;
        baseSeconds += t2 - t1;
        state.SetIterationTime(t1 - t0);
    }
    Report(state, kRematrixBatch, libSeconds, baseSeconds, outBytes);
    REMATRIX_Destroy(&handler);
}

}  // namespace

BENCHMARK(BM_Resample)
    ->ArgNames({"in_hz", "out_hz", "in_frames", "chn"})
    ->Args({16000, 48000, 160, 1})
    ->Args({16000, 48000, 320, 1})
    ->Args({16000, 48000, 160, 2})
    ->Args({16000, 48000, 320, 2})
    ->Args({48000, 16000, 960, 2})
    ->Args({8000, 48000, 160, 2})
    ->UseManualTime();

BENCHMARK(BM_Rematrix)
    ->ArgNames({"in_chn", "out_chn", "frames"})
    ->Args({4, 2, 256})
    ->Args({4, 2, 960})
    ->Args({1, 2, 256})
    ->Args({1, 2, 960})
    ->Args({2, 1, 256})
    ->Args({2, 1, 960})
    ->Args({2, 4, 256})
    ->Args({2, 4, 960})
    ->Args({3, 4, 960})
    ->Args({2, 2, 960})
    ->UseManualTime();

BENCHMARK_MAIN();
