// Exported rematrix functions: argument checks, then the kernel for the shape.
#include "audio_rematrix.h"

#include <cstdint>
#include <new>

#include "convert_print.h"
#include "rematrix_kernel.h"

namespace {

// Every output channel needs an input channel to repeat; an empty output frame needs none.
bool ChannelsMappable(int inChn, int outChn) {
    return inChn >= 0 && outChn >= 0 && (inChn > 0 || outChn == 0);
}

bool Overlap(const unsigned char* in, size_t inBytes, const unsigned char* out, size_t outBytes) {
    const uintptr_t a = reinterpret_cast<uintptr_t>(in);
    const uintptr_t b = reinterpret_cast<uintptr_t>(out);
    return a < b + outBytes && b < a + inBytes;
}

}  // namespace

REMATRIX_HANDLER* REMATRIX_CreateHandler(REMATRIX_ATTR_S* attr) {
    if (attr == nullptr) {
        CONVERT_PRINT("attr is null!\n");
        return nullptr;
    }
    REMATRIX_HANDLER* handler = new (std::nothrow) REMATRIX_HANDLER();
    if (handler == nullptr) {
        CONVERT_PRINT("no memory for rematrix handler!\n");
        return nullptr;
    }
    handler->stAttr = *attr;
    return handler;
}

int REMATRIX_Process(REMATRIX_HANDLER* handler, unsigned char* in, int inFrames, unsigned char* out,
                     int outFrames) {
    (void)outFrames;
    if (handler == nullptr) {
        return -1;
    }
    if (inFrames <= 0) {
        return inFrames;
    }
    if (in == nullptr || out == nullptr) {
        CONVERT_PRINT("in or out buffer is null!\n");
        return -1;
    }
    const int inChn = handler->stAttr.s32InChn;
    const int outChn = handler->stAttr.s32OutChn;
    if (!ChannelsMappable(inChn, outChn)) {
        CONVERT_PRINT("cannot map %d channels to %d!\n", inChn, outChn);
        return -1;
    }
    if (outChn == 0) {
        return inFrames;
    }
    const size_t frames = static_cast<size_t>(inFrames);
    if (Overlap(in, frames * inChn * 2, out, frames * outChn * 2)) {
        // The reference kernel's frame order makes the in-place case (out == in) exact.
        audiomw::RematrixReference(in, out, inFrames, inChn, outChn);
    } else {
        audiomw::RematrixFast(in, out, inFrames, inChn, outChn);
    }
    return inFrames;
}

int REMATRIX_Destroy(REMATRIX_HANDLER** handler) {
    if (handler == nullptr) {
        return 0;
    }
    delete *handler;
    *handler = nullptr;
    return 0;
}
