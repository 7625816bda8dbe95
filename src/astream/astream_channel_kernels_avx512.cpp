// The channel kernels for x86-64 processors with AVX-512 (F, BW, VL and VBMI): the
// fixed-count gathers in 64-byte vectors, where one two-source word permute (vpermt2w)
// gathers any 32 samples of two vectors, and the AVX2 mixin kernels. Only the code below
// the target switch is built for AVX-512; the headers above it are compiled for the
// baseline, so no inline function of a header that another file also instantiates
// carries AVX-512 instructions. The dispatch picks this table only where the processor
// has all four extensions.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

#include "astream_channel_kernels_table.h"

#if defined(__x86_64__)
#include <immintrin.h>

#pragma GCC push_options
#pragma GCC target("avx2,avx512f,avx512bw,avx512vl,avx512vbmi")

#include "astream_channel_kernels_fixed.h"
#include "astream_channel_kernels_mixin_avx2.h"

namespace audiomw {
namespace astream {
namespace {

struct Avx512Isa {
    static constexpr int kBytes = 64;
    static constexpr bool kAny16 = true;
    static constexpr int kMaxInputs16 = 8;

    template <uint32_t C>
    static void Mixin(uint8_t* pTarget, const uint8_t* pGroup, uint32_t u32Frames) {
        MixinAvx2<C>(pTarget, pGroup, u32Frames);
    }
};

}  // namespace

constexpr ChannelKernelTable kAvx512ChannelKernels = MakeTable<Avx512Isa>();

}  // namespace astream
}  // namespace audiomw

#pragma GCC pop_options
#endif  // __x86_64__
