#include "qx_script.h"

#include <sched.h>

#include <algorithm>
#include <cstring>

namespace qx_script {
std::mutex mtx;
Script g;
std::atomic<int> procCount{0}, maxInside{0};

void Reset() {
    std::lock_guard<std::mutex> lk(mtx);
    g = Script();
    procCount = maxInside = 0;
}
}  // namespace qx_script

namespace {
struct Instance {
    int frame, blocks;  // blocks: microphones + line-in
} g_instances[8];
int g_instanceCount = 0;
std::atomic<int> g_inside{0};
}  // namespace

void qx_script::ForgetInstances() {
    std::lock_guard<std::mutex> lk(mtx);
    g_instanceCount = 0;
}

using qx_script::g;

extern "C" {

void* QX_AudioAlgInit(QX_AUDIO_ALG_PARAM_S* pstParam, int* ps32Err) {
    std::lock_guard<std::mutex> lk(qx_script::mtx);
    const auto* bytes = reinterpret_cast<const uint8_t*>(pstParam);
    g.inits.push_back({std::vector<uint8_t>(bytes, bytes + sizeof(*pstParam)), *ps32Err});
    if (g.initErr != 0 || g_instanceCount >= 8) {
        *ps32Err = g.initErr;
        return nullptr;
    }
    g_instances[g_instanceCount] = {pstParam->s32FrameLen,
                                    pstParam->s32MicChnCnt + pstParam->s32LineInChnCnt};
    return &g_instances[g_instanceCount++];
}

int QX_AudioAlgFrmProc(void* pHandle, short* ps16Mic, short* ps16Ref, short* ps16Out, short* ps16Result) {
    const int inside = ++g_inside;
    for (int seen = qx_script::maxInside;
         inside > seen && !qx_script::maxInside.compare_exchange_weak(seen, inside);) {
    }
    std::unique_lock<std::mutex> lk(qx_script::mtx);
    const size_t frameBytes = static_cast<size_t>(static_cast<const Instance*>(pHandle)->frame) * 2;
    const size_t micBytes = frameBytes * static_cast<const Instance*>(pHandle)->blocks;
    const auto* mic = reinterpret_cast<const uint8_t*>(ps16Mic);
    const auto* ref = reinterpret_cast<const uint8_t*>(ps16Ref);
    if (g.recording)
        g.procs.push_back({pHandle, ps16Mic, ps16Ref, ps16Out, *ps16Result,
                           std::vector<uint8_t>(mic, mic + micBytes),
                           std::vector<uint8_t>(ref, ref + frameBytes)});
    std::memcpy(ps16Out, ps16Mic, frameBytes);  // the "processed" first microphone
    *ps16Result = g.procResult;
    const int ret = g.procRet, yields = g.yields;
    lk.unlock();
    for (int i = 0; i < yields; i++)
        sched_yield();
    ++qx_script::procCount;
    --g_inside;
    return ret;
}

int QX_AudioAlgGetVersion(void*, char* pcBuf, int s32Size) {
    std::lock_guard<std::mutex> lk(qx_script::mtx);
    g.versionCalls++;
    std::strncpy(pcBuf, g.version.c_str(), static_cast<size_t>(s32Size) - 1);
    return 0;
}

float getMicVol(void*, float* pfLevels) {
    std::lock_guard<std::mutex> lk(qx_script::mtx);
    g.micVolCalls++;
    std::copy_n(g.micLevels.begin(), std::min<size_t>(6, g.micLevels.size()), pfLevels);
    return g.micRet;
}

}  // extern "C"
