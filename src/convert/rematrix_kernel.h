// Channel rematrix kernels over interleaved 16-bit samples. Callers have validated the
// shape: frames > 0, inChn > 0, outChn >= 0. Output channel c of a frame is input
// channel (c mod inChn) when widening (inChn <= outChn), input channel c when narrowing.
// The reference is the definition (rematrix_kernel_reference.cpp); the portable loops
// and the vector versions of each instruction set equal it byte for byte.
#ifndef AUDIOMW_SRC_CONVERT_REMATRIX_KERNEL_H
#define AUDIOMW_SRC_CONVERT_REMATRIX_KERNEL_H

#include <cstddef>

namespace audiomw {

// The plain definition, one sample at a time. Widening runs from the last frame and
// the last channel down, narrowing from the first frame up, so `out` == `in` works.
void RematrixReference(const unsigned char* in, unsigned char* out, int frames, int inChn, int outChn);

// Loops specialised by shape, written for the compiler to vectorise. `in` and `out`
// must not overlap.
void RematrixPortable(const unsigned char* in, unsigned char* out, int frames, int inChn, int outChn);

// One instruction set's rematrix. `in` and `out` must not overlap.
struct RematrixKernelSet {
    const char* pcName;
    void (*pfnRematrix)(const unsigned char* in, unsigned char* out, int frames, int inChn, int outChn);
};

// The sets this build holds that this processor runs: "portable" first, then "avx2" or
// "neon" where there is one; the last is the one RematrixFast runs. *count receives
// their number.
const RematrixKernelSet* RematrixKernelSets(size_t* count);

// The fastest kernel this processor runs for the shape. `in` and `out` must not overlap.
void RematrixFast(const unsigned char* in, unsigned char* out, int frames, int inChn, int outChn);

}  // namespace audiomw

#endif  // AUDIOMW_SRC_CONVERT_REMATRIX_KERNEL_H
