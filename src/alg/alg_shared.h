// The process-wide state behind every algorithm node and the AUDIO_ALG_* functions: the
// one library instance with the geometry it was made for, the lock that serialises every
// call into it, the reference selection and the debug report level.
//
// Lock order: a worker holds its node's mutex and then takes the instance lock around
// the library call; nothing takes a node mutex while holding the instance lock. The
// frame callback runs after the instance lock is released, so it may call AUDIO_ALG_*.
#ifndef AUDIOMW_SRC_ALG_ALG_SHARED_H
#define AUDIOMW_SRC_ALG_ALG_SHARED_H

#include <cstdint>
#include <cstdio>

#include "audio_alg.h"

namespace audiomw {
namespace alg {

// What the library instance was made with: it reads s32FrameLen samples of each of
// s32MicCnt + s32LineInCnt blocks from the microphone pointer, and one block from the
// reference pointer.
struct AlgGeometry {
    int s32Rate;
    int s32FrameLen;
    int s32MicCnt;
    int s32LineInCnt;
};

inline bool SameGeometry(const AlgGeometry& a, const AlgGeometry& b) {
    return a.s32Rate == b.s32Rate && a.s32FrameLen == b.s32FrameLen && a.s32MicCnt == b.s32MicCnt &&
           a.s32LineInCnt == b.s32LineInCnt;
}

// Serialises every call into the instance and the access to the state below.
void LockInstance();
void UnlockInstance();

class InstanceGuard {
  public:
    InstanceGuard() { LockInstance(); }
    ~InstanceGuard() { UnlockInstance(); }
    InstanceGuard(const InstanceGuard&) = delete;
    InstanceGuard& operator=(const InstanceGuard&) = delete;
};

// Under the instance lock: the geometry of g_OrvaneAlgHandler (set with it).
AlgGeometry& InstanceGeometry();
// Under the instance lock: the open reference dump file, null when none.
FILE*& RefInDumpFile();

// The current selection, read as one 32-bit load (written by the application's thread).
tagVOR_AUDIO_REF_IN_RES LoadRefIn();
// The report level; TakeOneShotReport turns a pending level-1 request into exactly one
// report, also when several nodes process at once.
uint8_t RefInDbgLevel();
bool TakeOneShotReport();

}  // namespace alg
}  // namespace audiomw

#endif  // AUDIOMW_SRC_ALG_ALG_SHARED_H
