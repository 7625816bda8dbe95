// Test doubles for running streams: an input device whose reads are scripted (period
// numbers as sample values, short reads, a read that waits at a gate), and a node that
// records what each job brought and can hold one job at a gate.
#ifndef AUDIOMW_TESTS_ASTREAM_STREAM_PROBES_H
#define AUDIOMW_TESTS_ASTREAM_STREAM_PROBES_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <set>
#include <utility>
#include <vector>

#include "audio_ai.h"
#include "audio_astream.h"

namespace astream_test {

// Callers block in Pass() until Open(); the test waits, with a deadline, for arrivals.
class Gate {
  public:
    void Pass() {
        std::unique_lock<std::mutex> lk(m_mtx);
        m_arrived++;
        m_cv.notify_all();
        m_cv.wait(lk, [&] { return m_open; });
    }
    void Open() {
        std::lock_guard<std::mutex> lk(m_mtx);
        m_open = true;
        m_cv.notify_all();
    }
    bool WaitArrivals(int n, std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
        std::unique_lock<std::mutex> lk(m_mtx);
        return m_cv.wait_for(lk, timeout, [&] { return m_arrived >= n; });
    }

  private:
    std::mutex m_mtx;
    std::condition_variable m_cv;
    int m_arrived = 0;
    bool m_open = false;
};

// An enabled, open AI of `channels` x `frames`. Read n fills the buffer with the sample
// value n (the period number); reads listed in shortReads deliver half a buffer; read
// gateRead waits at `gate` first.
struct ScriptedAi : public AI_DEVICE_S {
    ScriptedAi(int channels, int frames) {
        stAttr.eType = AI_DEV_TYPE_ALSA;
        stAttr.bEnable = ZN_TRUE;
        stAttr.eSampleRate = AI_SAMPLE_RATE_16000;
        stAttr.s32Channel = channels;
        stAttr.s32FrameLen = frames;
        bHasInit = 1;
        bHasOpen = 1;
    }
    int open() override {
        bHasOpen = 1;
        return 0;
    }
    int close() override {
        bHasOpen = 0;
        return 0;
    }
    int _readFrame(unsigned char* pBuf, unsigned int u32Len, unsigned int& u32ReadLen, unsigned long long&,
                   int) override {
        const int n = reads.load();
        if (n == gateRead) {
            gate.Pass();
        }
        const int16_t value = static_cast<int16_t>(n);
        const unsigned int len = shortReads.count(n) ? u32Len / 2 : u32Len;
        for (unsigned int i = 0; i + 1 < len; i += 2) {
            std::memcpy(pBuf + i, &value, 2);
        }
        u32ReadLen = len;
        reads.fetch_add(1);
        return 0;
    }

    std::atomic<int> reads{0};
    std::set<int> shortReads;  // set before the stream starts
    int gateRead = -1;         // set before the stream starts
    Gate gate;
};

// Installs a scripted AI in slot id (the AI table owns it from then on).
inline ScriptedAi* InstallScriptedAi(int id, int channels, int frames) {
    auto* ai = new ScriptedAi(channels, frames);
    ai->s32Id = id;
    gs_pAiHandler[id] = ai;
    return ai;
}

// Records (period number, ring entry) of every job it runs; with a hold period, the job
// of that period waits at `gate` after taking a copy of its buffer, and notes whether
// the buffer was still the same when the gate opened.
struct ProbeNode : public ASTREAM_NODE_S {
    int init(void*) override { return 0; }
    int destroy() override { return 0; }
    int setCfg(ASTREAM_OUTPUT_ATTR_S) override { return 0; }
    int process(char* pIn, char*, bool& bInPlace) override {
        int16_t period = 0;
        std::memcpy(&period, pIn, 2);
        int entry = -1;
        for (int i = 0; i < ASTREAM_JOB_MAX_NUM; i++) {
            if (pIn == _mpHandler->astJob[i].pBufA) {
                entry = i;
            }
        }
        if (period == holdPeriod) {
            std::vector<char> copy(pIn, pIn + _mpHandler->u32BufLen);
            gate.Pass();
            heldBufferKept = std::memcmp(copy.data(), pIn, copy.size()) == 0 ? 1 : 0;
        }
        {
            std::lock_guard<std::mutex> lk(mtx);
            seen.emplace_back(period, entry);
        }
        bInPlace = true;
        return 0;
    }
    std::vector<std::pair<int, int>> Seen() {
        std::lock_guard<std::mutex> lk(mtx);
        return seen;
    }
    size_t Count() {
        std::lock_guard<std::mutex> lk(mtx);
        return seen.size();
    }
    void SetEnable(bool on) { __atomic_store_n(&_mbEnable, on ? ZN_TRUE : ZN_FALSE, __ATOMIC_RELAXED); }

    int holdPeriod = -1;  // set before the stream starts
    Gate gate;
    std::atomic<int> heldBufferKept{-1};
    std::mutex mtx;
    std::vector<std::pair<int, int>> seen;
};

// Counts the periods it runs on, nothing else.
struct CountNode : public ASTREAM_NODE_S {
    int init(void*) override { return 0; }
    int destroy() override { return 0; }
    int setCfg(ASTREAM_OUTPUT_ATTR_S) override { return 0; }
    int process(char*, char*, bool& bInPlace) override {
        count.fetch_add(1);
        bInPlace = true;
        return 0;
    }
    std::atomic<long> count{0};
};

// Appends a test node to a created stream's pipeline; the stream owns and frees it.
template <typename T = ProbeNode>
T* AddProbe(int streamId) {
    auto* probe = new T();
    probe->_meType = static_cast<ASTREAM_NODE_TYPE_E>(200);
    probe->_mbEnable = ZN_TRUE;
    probe->_mpHandler = gs_AstreamHandler[streamId];
    gs_AstreamHandler[streamId]->lstNode.push_back(probe);
    return probe;
}

}  // namespace astream_test

#endif  // AUDIOMW_TESTS_ASTREAM_STREAM_PROBES_H
