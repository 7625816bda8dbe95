// Stream engine throughput.
// - Channel nodes (swap, split, merge, mixin) on 8 ch x 256 frames and 2 ch x 160 frames,
//   each against memcpy of the bytes the node reads (its source blocks, plus the blocks
//   that split and merge copy to complete the period), timed in the same iterations on
//   the thread's CPU clock. Time and bytes_per_second are the node's per call; base_ns
//   is memcpy per call and ratio = node / memcpy over the whole run.
// - One stream running free on a file AI (8 ch x 256 frames, swap/split/mixin/merge):
//   frame periods per second and the real-time factor at 16 kHz.
// - Worker hand-over: from the end of the AI read to the first node of the job, for a
//   stream on an AI that stamps each period with the time its read ended.
#include <benchmark/benchmark.h>

#include <time.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "astream/astream_merge_node.h"
#include "astream/astream_mixin_node.h"
#include "astream/astream_split_node.h"
#include "astream/astream_swap_node.h"
#include "audio_ai.h"
#include "audio_astream.h"
#include "audio_ext.h"

namespace {

constexpr int kBatch = 64;

double CpuNow() {
    timespec ts = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
}

int64_t MonoNs() {
    timespec ts = {};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return int64_t(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

ASTREAM_NODE_ATTR_S NodeAttr(ASTREAM_NODE_TYPE_E type) {
    ASTREAM_NODE_ATTR_S a;
    std::memset(&a, 0, sizeof(a));
    a.eType = type;
    return a;
}

ASTREAM_NODE_ATTR_S Swap(int chn) {
    ASTREAM_NODE_ATTR_S a = NodeAttr(ASTREAM_NODE_TYPE_E_SWAP);
    for (int i = 0; i < chn; i++) {
        a.unAttr.stSwap.as32Map[i] = chn - 1 - i;
    }
    return a;
}

ASTREAM_NODE_ATTR_S Split(int o, int ca, int cb) {
    ASTREAM_NODE_ATTR_S a = NodeAttr(ASTREAM_NODE_TYPE_E_SPLIT);
    a.unAttr.stSplit = {o, ca, cb};
    return a;
}

ASTREAM_NODE_ATTR_S Merge(int o, int ca, int cb) {
    ASTREAM_NODE_ATTR_S a = NodeAttr(ASTREAM_NODE_TYPE_E_MERGE);
    a.unAttr.stMerge = {o, ca, cb};
    return a;
}

ASTREAM_NODE_ATTR_S Mixin(int t, int o, int c) {
    ASTREAM_NODE_ATTR_S a = NodeAttr(ASTREAM_NODE_TYPE_E_MIXIN);
    a.unAttr.stMixin = {t, o, c};
    return a;
}

std::unique_ptr<ASTREAM_NODE_S> MakeNode(ASTREAM_NODE_TYPE_E type) {
    switch (type) {
        case ASTREAM_NODE_TYPE_E_SWAP:
            return std::make_unique<ASTREAM_SWAP_NODE_S>();
        case ASTREAM_NODE_TYPE_E_SPLIT:
            return std::make_unique<ASTREAM_SPLIT_NODE_S>();
        case ASTREAM_NODE_TYPE_E_MERGE:
            return std::make_unique<ASTREAM_MERGE_NODE_S>();
        default:
            return std::make_unique<ASTREAM_MIXIN_NODE_S>();
    }
}

// Bytes the node reads per call: what memcpy is given as the baseline.
size_t SourceBytes(const ASTREAM_NODE_ATTR_S& a, int chn, size_t block) {
    switch (a.eType) {
        case ASTREAM_NODE_TYPE_E_SWAP:
            return chn * block;
        case ASTREAM_NODE_TYPE_E_SPLIT:
        case ASTREAM_NODE_TYPE_E_MERGE: {
            const int n = a.unAttr.stSplit.s32ChnCntA + a.unAttr.stSplit.s32ChnCntB;
            return n * block + (n < (chn >> 1) ? n * block : (chn - n) * block);
        }
        default:
            return (a.unAttr.stMixin.s32ChnCnt + 1) * block;
    }
}

void BM_Node(benchmark::State& state, ASTREAM_NODE_ATTR_S attr, int chn, int frames) {
    ASTREAM_HANDLER_S h{};
    h.s32Chn = chn;
    h.u32BufLen = uint32_t(chn * frames * 2);
    std::unique_ptr<ASTREAM_NODE_S> node = MakeNode(attr.eType);
    node->_mpHandler = &h;
    node->_meType = attr.eType;
    node->_mbEnable = ZN_TRUE;
    if (node->init(&attr.unAttr) != 0) {
        state.SkipWithError("record refused");
        return;
    }
    std::vector<char> in(h.u32BufLen), out(h.u32BufLen);
    for (size_t i = 0; i < in.size(); i++) {
        in[i] = char(i * 7);
    }
    const size_t baseBytes = SourceBytes(attr, chn, size_t(frames) * 2);
    std::vector<char> baseIn(baseBytes, 0x5A), baseOut(baseBytes);

    double nodeSeconds = 0;
    double baseSeconds = 0;
    for (auto _ : state) {
        double t0 = CpuNow();
        for (int i = 0; i < kBatch; i++) {
            bool inPlace = false;
            int rc = node->process(in.data(), out.data(), inPlace);
            benchmark::DoNotOptimize(rc);
            benchmark::ClobberMemory();
        }
        double t1 = CpuNow();
        for (int i = 0; i < kBatch; i++) {
            std::memcpy(baseOut.data(), baseIn.data(), baseBytes);
            benchmark::DoNotOptimize(baseOut.data());
            benchmark::ClobberMemory();
        }
        double t2 = CpuNow();
        nodeSeconds += t1 - t0;
        baseSeconds += t2 - t1;
        state.SetIterationTime((t1 - t0) / kBatch);
    }
    const double calls = double(state.iterations()) * kBatch;
    state.SetBytesProcessed(int64_t(state.iterations() * baseBytes));
    state.counters["base_ns"] = baseSeconds / calls * 1e9;
    state.counters["ratio"] = baseSeconds > 0 ? nodeSeconds / baseSeconds : 0;
    node->destroy();
}

// ---- Streams ----------------------------------------------------------------------------

// Counts periods; with a stamping AI, also records read-end -> first-node latencies.
struct MeterNode : public ASTREAM_NODE_S {
    int init(void*) override { return 0; }
    int destroy() override { return 0; }
    int setCfg(ASTREAM_OUTPUT_ATTR_S) override { return 0; }
    int process(char* pIn, char*, bool& bInPlace) override {
        if (stamped) {
            int64_t t = 0;
            std::memcpy(&t, pIn, sizeof(t));
            long n = count.load(std::memory_order_relaxed);
            if (t != 0 && n < long(latencies.size())) {
                latencies[n] = MonoNs() - t;
            }
        }
        count.fetch_add(1, std::memory_order_relaxed);
        bInPlace = true;
        return 0;
    }
    bool stamped = false;
    std::vector<int64_t> latencies;
    std::atomic<long> count{0};
};

// An always-open AI that delivers at once and writes the time its read ended into the
// first 8 bytes of the period.
struct StampAi : public AI_DEVICE_S {
    StampAi(int chn, int frames) {
        stAttr.bEnable = ZN_TRUE;
        stAttr.s32Channel = chn;
        stAttr.s32FrameLen = frames;
        stAttr.eSampleRate = AI_SAMPLE_RATE_16000;
        bHasInit = bHasOpen = 1;
    }
    int _readFrame(unsigned char* pBuf, unsigned int u32Len, unsigned int& u32ReadLen, unsigned long long&,
                   int) override {
        int64_t t = MonoNs();
        std::memcpy(pBuf, &t, sizeof(t));
        u32ReadLen = u32Len;
        return 0;
    }
};

std::string ScratchDir() {
    char tmpl[] = "/tmp/audiomw-bench-XXXXXX";
    return mkdtemp(tmpl) ? tmpl : "/tmp";
}

// Runs stream 0 on AI `ai` with `workers` and the given nodes plus a meter until the
// meter saw `periods`; returns the wall seconds from start to that point.
double RunStream(int ai, int workers, std::vector<ASTREAM_NODE_ATTR_S> nodes, MeterNode*& meter, long periods,
                 bool stamped) {
    ASTREAM_ATTR_S attr;
    attr.s32AiId = ai;
    attr.s32WorkerNum = workers;
    attr.lstNodeAttr.assign(nodes.begin(), nodes.end());
    if (AUDIO_ASTREAM_Create(0, &attr) != 0) {
        return -1;
    }
    meter = new MeterNode();
    meter->stamped = stamped;
    meter->latencies.assign(stamped ? size_t(periods) : 0, 0);
    meter->_meType = ASTREAM_NODE_TYPE_E(200);
    meter->_mbEnable = ZN_TRUE;
    meter->_mpHandler = gs_AstreamHandler[0];
    if (stamped) {
        gs_AstreamHandler[0]->lstNode.push_front(meter);
    } else {
        gs_AstreamHandler[0]->lstNode.push_back(meter);
    }
    int64_t t0 = MonoNs();
    AUDIO_ASTREAM_Start(0);
    while (meter->count.load() < periods) {
        timespec ts = {0, 200000};
        nanosleep(&ts, nullptr);
    }
    double seconds = double(MonoNs() - t0) * 1e-9;
    AUDIO_ASTREAM_Stop(0);
    return seconds;
}

// Args: workers. A file AI of 8 x 256 at 16 kHz, free-running.
void BM_StreamFileAi(benchmark::State& state) {
    const int workers = int(state.range(0));
    const std::string dir = ScratchDir();
    const std::string path = dir + "/in.pcm";
    {
        std::vector<char> bytes(size_t(8) * 256 * 2 * 1000);
        for (size_t i = 0; i < bytes.size(); i++) {
            bytes[i] = char(i * 13);
        }
        FILE* f = std::fopen(path.c_str(), "wb");
        std::fwrite(bytes.data(), 1, bytes.size(), f);
        std::fclose(f);
    }
    const long periods = 20000;
    double seconds = 0;
    for (auto _ : state) {
        AI_ATTR_S ai;
        std::memset(&ai, 0, sizeof(ai));
        ai.eType = AI_DEV_TYPE_FILE;
        std::snprintf(ai.acFilePath, sizeof(ai.acFilePath), "%s", path.c_str());
        ai.eSampleRate = AI_SAMPLE_RATE_16000;
        ai.s32Channel = 8;
        ai.s32FrameLen = 256;
        AUDIO_AI_Create(0, &ai);
        MeterNode* meter = nullptr;
        double s = RunStream(0, workers, {Swap(8), Split(0, 2, 6), Mixin(0, 2, 2), Merge(0, 2, 6)}, meter,
                             periods, false);
        AUDIO_ASTREAM_Destroy(0);
        AUDIO_AI_Close(0);
        AUDIO_AI_SetEnable(0, ZN_FALSE);
        AUDIO_AI_Destroy(0);
        if (s <= 0) {
            state.SkipWithError("stream did not run");
            break;
        }
        seconds += s;
        state.SetIterationTime(s);
    }
    std::remove(path.c_str());
    std::remove(dir.c_str());
    const double perSecond = double(periods) * double(state.iterations()) / seconds;
    state.counters["periods_per_s"] = perSecond;
    state.counters["x_realtime"] = perSecond * 256.0 / 16000.0;
}

// Args: workers. Latency from the end of an AI read to the start of its job's first node.
void BM_WorkerHandOver(benchmark::State& state) {
    const int workers = int(state.range(0));
    const int aiId = 7;
    const long periods = 20000;
    std::vector<int64_t> all;
    for (auto _ : state) {
        StampAi* ai = new StampAi(2, 160);
        ai->s32Id = aiId;
        gs_pAiHandler[aiId] = ai;
        MeterNode* meter = nullptr;
        double s = RunStream(aiId, workers, {Swap(2)}, meter, periods, true);
        if (s <= 0) {
            state.SkipWithError("stream did not run");
            break;
        }
        all.insert(all.end(), meter->latencies.begin(), meter->latencies.end());
        AUDIO_ASTREAM_Destroy(0);
        AUDIO_AI_Destroy(aiId);
        state.SetIterationTime(s);
    }
    all.erase(std::remove(all.begin(), all.end(), 0), all.end());
    if (all.empty()) {
        return;
    }
    std::sort(all.begin(), all.end());
    double sum = 0;
    for (int64_t v : all) {
        sum += double(v);
    }
    state.counters["mean_us"] = sum / double(all.size()) / 1000.0;
    state.counters["p50_us"] = double(all[all.size() / 2]) / 1000.0;
    state.counters["p99_us"] = double(all[all.size() * 99 / 100]) / 1000.0;
}

}  // namespace

BENCHMARK_CAPTURE(BM_Node, swap_8x256, Swap(8), 8, 256)->MinTime(0.01)->UseManualTime();
BENCHMARK_CAPTURE(BM_Node, split_8x256_o0a2b6, Split(0, 2, 6), 8, 256)->MinTime(0.01)->UseManualTime();
BENCHMARK_CAPTURE(BM_Node, split_8x256_o0a1b1, Split(0, 1, 1), 8, 256)->MinTime(0.01)->UseManualTime();
BENCHMARK_CAPTURE(BM_Node, split_8x256_o0a1b3, Split(0, 1, 3), 8, 256)->MinTime(0.01)->UseManualTime();
BENCHMARK_CAPTURE(BM_Node, split_8x256_o0a3b5, Split(0, 3, 5), 8, 256)->MinTime(0.01)->UseManualTime();
BENCHMARK_CAPTURE(BM_Node, merge_8x256_o0a2b6, Merge(0, 2, 6), 8, 256)->MinTime(0.01)->UseManualTime();
BENCHMARK_CAPTURE(BM_Node, merge_8x256_o0a1b1, Merge(0, 1, 1), 8, 256)->MinTime(0.01)->UseManualTime();
BENCHMARK_CAPTURE(BM_Node, merge_8x256_o0a1b3, Merge(0, 1, 3), 8, 256)->MinTime(0.01)->UseManualTime();
BENCHMARK_CAPTURE(BM_Node, merge_8x256_o0a3b5, Merge(0, 3, 5), 8, 256)->MinTime(0.01)->UseManualTime();
BENCHMARK_CAPTURE(BM_Node, mixin_8x256_t0o1c2, Mixin(0, 1, 2), 8, 256)->MinTime(0.01)->UseManualTime();
BENCHMARK_CAPTURE(BM_Node, mixin_8x256_t0o1c7, Mixin(0, 1, 7), 8, 256)->MinTime(0.01)->UseManualTime();
BENCHMARK_CAPTURE(BM_Node, swap_2x160, Swap(2), 2, 160)->MinTime(0.01)->UseManualTime();
BENCHMARK_CAPTURE(BM_Node, split_2x160_o0a1b1, Split(0, 1, 1), 2, 160)->MinTime(0.01)->UseManualTime();
BENCHMARK_CAPTURE(BM_Node, merge_2x160_o0a1b1, Merge(0, 1, 1), 2, 160)->MinTime(0.01)->UseManualTime();
BENCHMARK_CAPTURE(BM_Node, mixin_8x256_t0o1c4, Mixin(0, 1, 4), 8, 256)->MinTime(0.01)->UseManualTime();
BENCHMARK_CAPTURE(BM_Node, mixin_2x160_t0o1c1, Mixin(0, 1, 1), 2, 160)->MinTime(0.01)->UseManualTime();
BENCHMARK(BM_StreamFileAi)
    ->ArgName("workers")
    ->Arg(1)
    ->Arg(2)
    ->Arg(4)
    ->Iterations(3)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WorkerHandOver)
    ->ArgName("workers")
    ->Arg(1)
    ->Arg(4)
    ->Iterations(3)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
