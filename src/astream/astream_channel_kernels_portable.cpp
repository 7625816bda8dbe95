// The channel kernels every processor runs: the fixed-count kernels in 16-byte vectors
// of the compiler's generic form (SSE2 on x86-64, NEON on arm64), mixin as the loop the
// compiler vectorises.
#include "astream_channel_kernels_fixed.h"

namespace audiomw {
namespace astream {
namespace {

struct PortableIsa {
    static constexpr int kBytes = 16;
    static constexpr bool kAny16 = false;
    static constexpr int kMaxInputs16 = 3;

    template <uint32_t C>
    static void Mixin(uint8_t* pTarget, const uint8_t* pGroup, uint32_t u32Frames) {
        MixinLoop<C>(pTarget, pGroup, u32Frames);
    }
};

}  // namespace

constexpr ChannelKernelTable kPortableChannelKernels = MakeTable<PortableIsa>();

}  // namespace astream
}  // namespace audiomw
