// A scripted stand-in of the voice-processing library for the node tests. The test
// programs link it ahead of libaudiomw.so, so its four functions answer the calls that
// libaudiomw.so imports. Every call is recorded: its arguments and the bytes the library
// would read (the microphone and line-in blocks of the geometry the instance was made
// with, one reference block), so a read outside the stream's buffer shows under ASan.
#ifndef AUDIOMW_TESTS_ALG_QX_SCRIPT_H
#define AUDIOMW_TESTS_ALG_QX_SCRIPT_H

#include <cstdint>
#include <string>
#include <vector>

#include "qx_audio_alg.h"

namespace qx_script {

struct InitCall {
    std::vector<uint8_t> param;  // the 136 bytes of the initialisation block
    int errIn;                   // *err on entry
};

struct ProcCall {
    void* handle;
    const short* mic;
    const short* ref;
    short* out;
    short resultIn;                 // *result on entry
    std::vector<uint8_t> micBytes;  // (mic + line-in) x frame x 2 bytes from mic
    std::vector<uint8_t> refBytes;  // frame x 2 bytes from ref
};

// Forgets every call and restores the defaults: init succeeds, process returns 0 with
// result 0, version "V1032b", getMicVol returns -20 with levels -30, -31, ...
void Reset();
void SetInitFailure(int err);  // init returns null with *err = err
void SetProc(int ret, short result);
void SetVersion(const std::string& version);
void SetMicVol(float ret, const std::vector<float>& levels);
// Off: process records nothing and allocates nothing (for the allocation test).
void SetRecording(bool on);
// Each process call yields the processor this many times while it is inside, so that
// calls from two threads would overlap if nothing serialised them.
void SetProcYields(int yields);

std::vector<InitCall> InitCalls();
std::vector<ProcCall> ProcCalls();
int ProcCount();
int VersionCalls();
int MicVolCalls();
// Most process calls seen inside the library at the same time.
int MaxConcurrentProc();

}  // namespace qx_script

#endif  // AUDIOMW_TESTS_ALG_QX_SCRIPT_H
