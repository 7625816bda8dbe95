// The records behind the opaque tinyalsa handles, shared by the dispatch layer and
// the backends.
#ifndef TINYALSA_SRC_PCM_HANDLE_H
#define TINYALSA_SRC_PCM_HANDLE_H

#include <atomic>

#include "tinyalsa/pcm.h"

namespace tinyalsa {

struct PcmOps;

// One past the last parameter id.
constexpr int kParamCount = PCM_PARAM_TICK_TIME + 1;

// Minimum and maximum of every parameter, indexed by enum pcm_param.
struct ParamRanges {
    unsigned int min[kParamCount];
    unsigned int max[kParamCount];
};

}  // namespace tinyalsa

struct pcm_params {
    tinyalsa::ParamRanges ranges;
};

struct pcm {
    const tinyalsa::PcmOps* ops = nullptr;  // null for a handle that never opened
    void* impl = nullptr;                   // the backend's state of this PCM
    unsigned int card = 0;
    unsigned int device = 0;
    unsigned int flags = 0;
    pcm_config config{};
    // Read by status queries on other threads than the one transferring.
    std::atomic<int> ready{0};
    std::atomic<int> underruns{0};
    char error[PCM_ERROR_MAX] = {0};
};

namespace tinyalsa {

// Writes the handle's error text from a printf format; when errnum is not 0,
// ": <strerror(errnum)>" follows. Returns -errnum, or -EIO when errnum is 0.
int SetPcmError(pcm* handle, int errnum, const char* format, ...) __attribute__((format(printf, 3, 4)));

// 'c' for a capture flag set, 'p' otherwise (as in the device node name).
inline char DirectionLetter(unsigned int flags) {
    return (flags & PCM_IN) ? 'c' : 'p';
}

}  // namespace tinyalsa

#endif  // TINYALSA_SRC_PCM_HANDLE_H
