#include "qx_script.h"

#include <sched.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>

namespace qx_script {
namespace {

struct Instance {
    int frame;
    int blocks;  // mic + line-in
};

struct State {
    std::mutex mtx;
    bool initFails = false;
    int initErr = 0;
    int procRet = 0;
    short procResult = 0;
    std::string version = "V1032b";
    float micRet = -20.0f;
    std::vector<float> micLevels = {-30, -31, -32, -33, -34, -35};
    bool recording = true;
    int yields = 0;
    std::vector<InitCall> inits;
    std::vector<ProcCall> procs;
    int versionCalls = 0;
    int micVolCalls = 0;
    Instance instances[8] = {};
    int instanceCount = 0;
};

State& S() {
    static State s;
    return s;
}

std::atomic<int> g_inside{0};
std::atomic<int> g_maxInside{0};
std::atomic<int> g_procCount{0};

}  // namespace

void Reset() {
    State& s = S();
    std::lock_guard<std::mutex> lk(s.mtx);
    s.initFails = false;
    s.initErr = 0;
    s.procRet = 0;
    s.procResult = 0;
    s.version = "V1032b";
    s.micRet = -20.0f;
    s.micLevels = {-30, -31, -32, -33, -34, -35};
    s.recording = true;
    s.yields = 0;
    s.inits.clear();
    s.procs.clear();
    s.versionCalls = 0;
    s.micVolCalls = 0;
    g_maxInside = 0;
    g_procCount = 0;
}

void SetInitFailure(int err) {
    std::lock_guard<std::mutex> lk(S().mtx);
    S().initFails = true;
    S().initErr = err;
}

void SetProc(int ret, short result) {
    std::lock_guard<std::mutex> lk(S().mtx);
    S().procRet = ret;
    S().procResult = result;
}

void SetVersion(const std::string& version) {
    std::lock_guard<std::mutex> lk(S().mtx);
    S().version = version;
}

void SetMicVol(float ret, const std::vector<float>& levels) {
    std::lock_guard<std::mutex> lk(S().mtx);
    S().micRet = ret;
    S().micLevels = levels;
}

void SetRecording(bool on) {
    std::lock_guard<std::mutex> lk(S().mtx);
    S().recording = on;
}

void SetProcYields(int yields) {
    std::lock_guard<std::mutex> lk(S().mtx);
    S().yields = yields;
}

std::vector<InitCall> InitCalls() {
    std::lock_guard<std::mutex> lk(S().mtx);
    return S().inits;
}

std::vector<ProcCall> ProcCalls() {
    std::lock_guard<std::mutex> lk(S().mtx);
    return S().procs;
}

int ProcCount() {
    return g_procCount.load();
}

int VersionCalls() {
    std::lock_guard<std::mutex> lk(S().mtx);
    return S().versionCalls;
}

int MicVolCalls() {
    std::lock_guard<std::mutex> lk(S().mtx);
    return S().micVolCalls;
}

int MaxConcurrentProc() {
    return g_maxInside.load();
}

}  // namespace qx_script

using qx_script::S;

extern "C" {

void* QX_AudioAlgInit(QX_AUDIO_ALG_PARAM_S* pstParam, int* ps32Err) {
    auto& s = S();
    std::lock_guard<std::mutex> lk(s.mtx);
    qx_script::InitCall call;
    const auto* bytes = reinterpret_cast<const uint8_t*>(pstParam);
    call.param.assign(bytes, bytes + sizeof(QX_AUDIO_ALG_PARAM_S));
    call.errIn = *ps32Err;
    s.inits.push_back(call);
    if (s.initFails || s.instanceCount >= 8) {
        *ps32Err = s.initErr;
        return nullptr;
    }
    qx_script::Instance& inst = s.instances[s.instanceCount++];
    inst.frame = pstParam->s32FrameLen;
    inst.blocks = pstParam->s32MicChnCnt + pstParam->s32LineInChnCnt;
    return &inst;
}

int QX_AudioAlgFrmProc(void* pHandle, short* ps16Mic, short* ps16Ref, short* ps16Out, short* ps16Result) {
    const int inside = ++qx_script::g_inside;
    int seen = qx_script::g_maxInside.load();
    while (inside > seen && !qx_script::g_maxInside.compare_exchange_weak(seen, inside)) {
    }
    auto& s = S();
    std::unique_lock<std::mutex> lk(s.mtx);
    const auto* inst = static_cast<const qx_script::Instance*>(pHandle);
    const size_t frameBytes = static_cast<size_t>(inst->frame) * 2;
    if (s.recording) {
        qx_script::ProcCall call{pHandle, ps16Mic, ps16Ref, ps16Out, *ps16Result, {}, {}};
        const auto* mic = reinterpret_cast<const uint8_t*>(ps16Mic);
        const auto* ref = reinterpret_cast<const uint8_t*>(ps16Ref);
        call.micBytes.assign(mic, mic + frameBytes * static_cast<size_t>(inst->blocks));
        call.refBytes.assign(ref, ref + frameBytes);
        s.procs.push_back(std::move(call));
    }
    // The processed first microphone: here the first microphone block as it came.
    std::memcpy(ps16Out, ps16Mic, frameBytes);
    *ps16Result = s.procResult;
    const int ret = s.procRet;
    const int yields = s.yields;
    lk.unlock();
    for (int i = 0; i < yields; i++) {
        sched_yield();
    }
    ++qx_script::g_procCount;
    --qx_script::g_inside;
    return ret;
}

int QX_AudioAlgGetVersion(void* pHandle, char* pcBuf, int s32Size) {
    (void)pHandle;
    auto& s = S();
    std::lock_guard<std::mutex> lk(s.mtx);
    s.versionCalls++;
    std::strncpy(pcBuf, s.version.c_str(), static_cast<size_t>(s32Size) - 1);
    return 0;
}

float getMicVol(void* pHandle, float* pfLevels) {
    (void)pHandle;
    auto& s = S();
    std::lock_guard<std::mutex> lk(s.mtx);
    s.micVolCalls++;
    std::copy(s.micLevels.begin(), s.micLevels.begin() + std::min<size_t>(6, s.micLevels.size()), pfLevels);
    return s.micRet;
}

}  // extern "C"
