// The rematrix heads of each instruction set, in the file compiled for that set: each
// converts the leading whole vectors of frames of the shapes it knows and returns how
// many frames it wrote (0 for any other shape). `in` and `out` must not overlap.
#ifndef AUDIOMW_SRC_CONVERT_REMATRIX_KERNEL_HEADS_H
#define AUDIOMW_SRC_CONVERT_REMATRIX_KERNEL_HEADS_H

#include <cstddef>

namespace audiomw {

#if defined(__x86_64__)
// Only for processors with AVX2.
size_t RematrixHeadAvx2(const unsigned char* in, unsigned char* out, size_t n, int inChn, int outChn);
#endif
#if defined(__aarch64__)
size_t RematrixHeadNeon(const unsigned char* in, unsigned char* out, size_t n, int inChn, int outChn);
#endif

}  // namespace audiomw

#endif  // AUDIOMW_SRC_CONVERT_REMATRIX_KERNEL_HEADS_H
