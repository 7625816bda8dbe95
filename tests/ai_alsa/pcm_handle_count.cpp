#include <dlfcn.h>
#include <tinyalsa/pcm.h>

#include <atomic>

#include "ai_capture_util.h"

namespace {

std::atomic<int> gs_live{0};

}  // namespace

namespace audiomw_test {

int LivePcmHandles() {
    return gs_live.load();
}

}  // namespace audiomw_test

extern "C" struct pcm* pcm_open(unsigned int card, unsigned int device, unsigned int flags,
                                const struct pcm_config* config) {
    static auto next =
        reinterpret_cast<struct pcm* (*)(unsigned int, unsigned int, unsigned int, const pcm_config*)>(
            dlsym(RTLD_NEXT, "pcm_open"));
    struct pcm* handle = next(card, device, flags, config);
    gs_live += handle != nullptr;
    return handle;
}

extern "C" int pcm_close(struct pcm* handle) {
    static auto next = reinterpret_cast<int (*)(struct pcm*)>(dlsym(RTLD_NEXT, "pcm_close"));
    gs_live -= handle != nullptr;
    return next(handle);
}
