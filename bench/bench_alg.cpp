// The algorithm node with the PC voice-processing library, 4 microphones + 1 reference at
// 16 kHz, 256-frame periods (16 ms). Each iteration processes one period through the node
// (under its mutex, as a worker runs it) and the same period through a second library
// instance called directly, each timed on the thread's CPU clock.
// node_us and lib_us are CPU microseconds per period; period_pct = node_us over the
// period's 16 ms (the share of one core the node takes); overhead_us = node_us - lib_us
// and overhead_pct its share of lib_us.
#include <benchmark/benchmark.h>
#include <time.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "audio_ai.h"
#include "audio_alg.h"
#include "audio_astream.h"
#include "qx_audio_alg.h"

namespace {

constexpr int kRate = 16000;
constexpr int kFrames = 256;
constexpr int kMics = 4;
constexpr int kChn = kMics + 1;  // the reference is block 4
constexpr int kPeriods = 125;    // two seconds of signal, cycled
constexpr double kPeriodUs = 1e6 * kFrames / kRate;

double CpuNow() {
    timespec ts = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
}

// Periods in the stream's block layout: a far-end signal (tones under a slow envelope,
// with noise) in the reference block and its delayed, attenuated echo plus noise in
// each microphone block.
std::vector<int16_t> MakeSignal() {
    const int total = kPeriods * kFrames;
    std::vector<double> far(total);
    uint32_t seed = 12345;
    auto noise = [&seed] {
        seed = seed * 1664525u + 1013904223u;
        return double(int32_t(seed >> 8) - (1 << 23)) / double(1 << 23);
    };
    for (int i = 0; i < total; i++) {
        double t = double(i) / kRate;
        double env = 0.5 + 0.5 * std::sin(2 * M_PI * 3 * t);
        far[i] =
            8000 * env * (std::sin(2 * M_PI * 300 * t) + 0.5 * std::sin(2 * M_PI * 1100 * t)) + 300 * noise();
    }
    std::vector<int16_t> s(size_t(total) * kChn);
    for (int p = 0; p < kPeriods; p++) {
        int16_t* period = &s[size_t(p) * kChn * kFrames];
        for (int i = 0; i < kFrames; i++) {
            const int at = p * kFrames + i;
            for (int m = 0; m < kMics; m++) {
                const int d = at - 40 - 8 * m;
                period[m * kFrames + i] = int16_t(std::lrint((d >= 0 ? 0.4 * far[d] : 0.0) + 100 * noise()));
            }
            period[kMics * kFrames + i] = int16_t(std::lrint(far[at]));
        }
    }
    return s;
}

void BM_AlgNodeVsLibrary(benchmark::State& state) {
    AI_ATTR_S ai;
    std::memset(&ai, 0, sizeof(ai));
    ai.eType = AI_DEV_TYPE_FILE;
    ai.eSampleRate = AI_SAMPLE_RATE_16000;
    ai.s32Channel = kChn;
    ai.s32FrameLen = kFrames;
    AUDIO_AI_Create(0, &ai);
    ASTREAM_HANDLER_S stream;
    stream.s32AiId = 0;
    stream.s32Chn = kChn;
    stream.u32BufLen = kChn * kFrames * 2;
    ASTREAM_ATTR_S attr;
    attr.s32AiId = 0;
    attr.s32WorkerNum = 1;
    ASTREAM_NODE_ATTR_S node;
    std::memset(&node, 0, sizeof(node));
    node.eType = ASTREAM_NODE_TYPE_E_ORVANE_ALG;
    node.unAttr.stOrvaneAlg = {0, kMics, 0, kMics, kMics, kMics, nullptr, nullptr};
    attr.lstNodeAttr.push_back(node);
    if (AUDIO_ASTREAM_InitPipeline(&stream, &attr) != 0 || g_OrvaneAlgHandler == nullptr) {
        state.SkipWithError("node init failed");
        return;
    }
    AUDIO_ALG_SetRefInParam(tagVOR_AUDIO_REF_IN_RES{1, 0, 0, 0});
    ASTREAM_NODE_S* pNode = stream.lstNode.front();

    QX_AUDIO_ALG_PARAM_S param;
    std::memset(&param, 0, sizeof(param));
    param.s32SampleRate = kRate;
    param.s32FrameLen = kFrames;
    param.s32MicChnCnt = kMics;
    int err = 0;
    void* lib = QX_AudioAlgInit(&param, &err);

    std::vector<int16_t> signal = MakeSignal();
    std::vector<int16_t> in(size_t(kChn) * kFrames), out(in.size()), libOut(kFrames);
    double nodeSeconds = 0, libSeconds = 0;
    int p = 0;
    for (auto _ : state) {
        const int16_t* period = &signal[size_t(p) * kChn * kFrames];
        p = (p + 1) % kPeriods;
        std::memcpy(in.data(), period, in.size() * 2);
        double t0 = CpuNow();
        pthread_mutex_lock(&pNode->_mMutex);
        bool inPlace = false;
        pNode->process(reinterpret_cast<char*>(in.data()), reinterpret_cast<char*>(out.data()), inPlace);
        pthread_mutex_unlock(&pNode->_mMutex);
        double t1 = CpuNow();
        short result = 0;
        QX_AudioAlgFrmProc(lib, const_cast<short*>(period), const_cast<short*>(period + kMics * kFrames),
                           libOut.data(), &result);
        double t2 = CpuNow();
        benchmark::DoNotOptimize(result);
        nodeSeconds += t1 - t0;
        libSeconds += t2 - t1;
    }
    const double n = double(state.iterations());
    const double nodeUs = nodeSeconds / n * 1e6, libUs = libSeconds / n * 1e6;
    state.counters["node_us"] = nodeUs;
    state.counters["lib_us"] = libUs;
    state.counters["period_pct"] = 100.0 * nodeUs / kPeriodUs;
    state.counters["overhead_us"] = nodeUs - libUs;
    state.counters["overhead_pct"] = libUs > 0 ? 100.0 * (nodeUs - libUs) / libUs : 0;
    AUDIO_ASTREAM_DestroyPipeline(&stream);
    AUDIO_AI_Destroy(0);
}
BENCHMARK(BM_AlgNodeVsLibrary)->Unit(benchmark::kMicrosecond)->MinTime(2.0);

}  // namespace

BENCHMARK_MAIN();
