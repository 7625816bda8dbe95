// Channel rematrix kernels over interleaved 16-bit samples. Callers have validated the
// shape: frames > 0, inChn > 0, outChn >= 0. Output channel c of a frame is input
// channel (c mod inChn) when widening (inChn <= outChn), input channel c when narrowing.
#ifndef AUDIOMW_SRC_CONVERT_REMATRIX_KERNEL_H
#define AUDIOMW_SRC_CONVERT_REMATRIX_KERNEL_H

namespace audiomw {

// The plain definition, one sample at a time. Widening runs from the last frame and
// the last channel down, narrowing from the first frame up, so `out` == `in` works.
void RematrixReference(const unsigned char* in, unsigned char* out, int frames, int inChn, int outChn);

// Loops specialised by shape, written for the compiler to vectorise. `in` and `out`
// must not overlap.
void RematrixPortable(const unsigned char* in, unsigned char* out, int frames, int inChn, int outChn);

#if defined(__x86_64__)
// True when the processor runs AVX2.
bool RematrixHasAvx2();
// AVX2 versions of the common shapes (1->2, 2->1, 2->4, 4->2). Returns false, having
// written nothing, for any other shape. Only call when RematrixHasAvx2().
bool RematrixAvx2(const unsigned char* in, unsigned char* out, int frames, int inChn, int outChn);
#endif

// The fastest kernel this processor runs for the shape. `in` and `out` must not overlap.
void RematrixFast(const unsigned char* in, unsigned char* out, int frames, int inChn, int outChn);

}  // namespace audiomw

#endif  // AUDIOMW_SRC_CONVERT_REMATRIX_KERNEL_H
