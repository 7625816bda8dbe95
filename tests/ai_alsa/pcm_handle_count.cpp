#include <dlfcn.h>
#include <tinyalsa/pcm.h>

#include <atomic>

#include "ai_capture_util.h"

namespace {

std::atomic<int> gs_live{0};

template <typename Fn>
Fn Next(const char* name) {
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

}  // namespace

namespace audiomw_test {

int LivePcmHandles() {
    return gs_live.load();
}

}  // namespace audiomw_test

extern "C" struct pcm* pcm_open(unsigned int card, unsigned int device, unsigned int flags,
                                const struct pcm_config* config) {
    static auto next =
        Next<struct pcm* (*)(unsigned int, unsigned int, unsigned int, const pcm_config*)>("pcm_open");
    struct pcm* handle = next(card, device, flags, config);
    gs_live += handle != nullptr;
    return handle;
}

extern "C" int pcm_close(struct pcm* handle) {
    static auto next = Next<int (*)(struct pcm*)>("pcm_close");
    gs_live -= handle != nullptr;
    return next(handle);
}
