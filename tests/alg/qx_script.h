// A scripted voice-processing library: records each call with the bytes it reads (ASan).
#ifndef AUDIOMW_TESTS_ALG_QX_SCRIPT_H
#define AUDIOMW_TESTS_ALG_QX_SCRIPT_H

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "qx_audio_alg.h"

namespace qx_script {

struct InitCall {
    std::vector<uint8_t> param;  // the initialisation block
    int errIn;                   // *err on entry
};

struct ProcCall {
    void* handle;
    const short *mic, *ref;
    short* out;
    short resultIn;
    std::vector<uint8_t> micBytes, refBytes;
};

// The answers and the record; tests set and read it while no stream thread runs.
struct Script {
    int initErr = 0, procRet = 0;  // initErr not 0: init fails with it
    short procResult = 0;
    std::string version = "V1032b";
    float micRet = -20;
    std::vector<float> micLevels = {-30, -31, -32, -33, -34, -35};
    bool recording = true;  // off: process records and allocates nothing
    int yields = 0;         // sched_yield calls inside each process call
    std::vector<InitCall> inits;
    std::vector<ProcCall> procs;
    int versionCalls = 0, micVolCalls = 0;
};

extern std::mutex mtx;
extern Script g;
extern std::atomic<int> procCount, maxInside;  // maxInside: most process calls at once
void Reset();
// Forgets the instances made so far (a new process's library); only while none is in use.
void ForgetInstances();

}  // namespace qx_script

#endif  // AUDIOMW_TESTS_ALG_QX_SCRIPT_H
