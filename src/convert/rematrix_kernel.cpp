// The dispatch of the rematrix: the vector head of the best instruction set this
// processor runs, chosen once, with the portable loops for the frames it leaves and for
// the shapes it does not know.
#include "rematrix_kernel.h"

#include "rematrix_kernel_heads.h"

namespace audiomw {

namespace {

using HeadFn = size_t (*)(const unsigned char* in, unsigned char* out, size_t n, int inChn, int outChn);

// Runs the head, then the portable loops on the rest.
template <HeadFn H>
void WithHead(const unsigned char* in, unsigned char* out, int frames, int inChn, int outChn) {
    const size_t done = H(in, out, static_cast<size_t>(frames), inChn, outChn);
    const int rest = frames - static_cast<int>(done);
    if (rest > 0) {
        RematrixPortable(in + done * static_cast<size_t>(inChn) * 2,
                         out + done * static_cast<size_t>(outChn) * 2, rest, inChn, outChn);
    }
}

struct Dispatch {
    RematrixKernelSet astSets[2];
    size_t count;
};

Dispatch Choose() {
    Dispatch d = {{{"portable", RematrixPortable}}, 1};
#if defined(__x86_64__)
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx2")) {
        d.astSets[d.count++] = {"avx2", WithHead<RematrixHeadAvx2>};
    }
#elif defined(__aarch64__)
    d.astSets[d.count++] = {"neon", WithHead<RematrixHeadNeon>};
#endif
    return d;
}

const Dispatch& TheDispatch() {
    static const Dispatch d = Choose();
    return d;
}

}  // namespace

const RematrixKernelSet* RematrixKernelSets(size_t* count) {
    *count = TheDispatch().count;
    return TheDispatch().astSets;
}

void RematrixFast(const unsigned char* in, unsigned char* out, int frames, int inChn, int outChn) {
    const Dispatch& d = TheDispatch();
    d.astSets[d.count - 1].pfnRematrix(in, out, frames, inChn, outChn);
}

}  // namespace audiomw
