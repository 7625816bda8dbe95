// The tinyalsa functions: argument and state checks, then the backend of the card.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <mutex>
#include <new>
#include <vector>

#include "pcm_format.h"
#include "pcm_handle.h"
#include "pcm_ops.h"
#include "vcard_registry.h"

using tinyalsa::SetPcmError;

namespace {

// Handed out when even the handle cannot be allocated; pcm_close ignores it.
pcm* BadPcm() {
    static pcm* s_bad = [] {
        static pcm s_handle;
        std::snprintf(s_handle.error, sizeof(s_handle.error), "cannot allocate a PCM handle");
        return &s_handle;
    }();
    return s_bad;
}

// Open handles, kept reachable until pcm_close. A caller that drops a handle it may
// not close (one pcm_is_ready refuses, as after a failed open) therefore holds it
// like any long-lived resource rather than losing it.
struct HandleList {
    std::mutex mutex;
    std::vector<pcm*> handles;
};

HandleList& Handles() {
    static HandleList* s_list = new HandleList;
    return *s_list;
}

void Track(pcm* handle) {
    HandleList& list = Handles();
    std::lock_guard<std::mutex> lock(list.mutex);
    list.handles.push_back(handle);
}

void Untrack(pcm* handle) {
    HandleList& list = Handles();
    std::lock_guard<std::mutex> lock(list.mutex);
    for (size_t i = 0; i < list.handles.size(); ++i) {
        if (list.handles[i] == handle) {
            list.handles[i] = list.handles.back();
            list.handles.pop_back();
            return;
        }
    }
}

const tinyalsa::PcmOps& BackendFor(unsigned int card) {
    return tinyalsa::VcardRegistry::Instance().IsVirtual(card) ? tinyalsa::VirtualBackend()
                                                               : tinyalsa::KernelBackend();
}

pcm_config DefaultConfig() {
    pcm_config config{};
    config.channels = 2;
    config.rate = 48000;
    config.period_size = 1024;
    config.period_count = 4;
    config.format = PCM_FORMAT_S16_LE;
    return config;
}

bool IsOpen(const pcm* handle) {
    return handle != nullptr && handle->ops != nullptr && handle->ready.load() != 0;
}

}  // namespace

extern "C" {

struct pcm_params* pcm_params_get(unsigned int card, unsigned int device, unsigned int flags) {
    tinyalsa::ParamRanges ranges{};
    if (!BackendFor(card).params_get(card, device, flags, &ranges)) {
        return nullptr;
    }
    return new (std::nothrow) pcm_params{ranges};
}

void pcm_params_free(struct pcm_params* pcm_params) {
    delete pcm_params;
}

unsigned int pcm_params_get_min(const struct pcm_params* pcm_params, enum pcm_param param) {
    if (pcm_params == nullptr || param < 0 || param >= tinyalsa::kParamCount) {
        return 0;
    }
    return pcm_params->ranges.min[param];
}

unsigned int pcm_params_get_max(const struct pcm_params* pcm_params, enum pcm_param param) {
    if (pcm_params == nullptr || param < 0 || param >= tinyalsa::kParamCount) {
        return 0;
    }
    return pcm_params->ranges.max[param];
}

struct pcm* pcm_open(unsigned int card, unsigned int device, unsigned int flags,
                     const struct pcm_config* config) {
    pcm* handle = new (std::nothrow) pcm;
    if (handle == nullptr) {
        return BadPcm();
    }
    handle->card = card;
    handle->device = device;
    handle->flags = flags;
    handle->config = config != nullptr ? *config : DefaultConfig();
    Track(handle);
    const tinyalsa::PcmOps& ops = BackendFor(card);
    if (ops.open(handle) == 0) {
        handle->ops = &ops;
        handle->ready.store(1);
    }
    return handle;
}

int pcm_close(struct pcm* pcm) {
    if (pcm == nullptr || pcm == BadPcm()) {
        return 0;
    }
    if (pcm->ops != nullptr) {
        pcm->ops->close(pcm);
    }
    Untrack(pcm);
    delete pcm;
    return 0;
}

int pcm_is_ready(const struct pcm* pcm) {
    return IsOpen(pcm) ? 1 : 0;
}

const char* pcm_get_error(const struct pcm* pcm) {
    return pcm != nullptr ? pcm->error : "no PCM handle";
}

int pcm_prepare(struct pcm* pcm) {
    if (pcm == nullptr) {
        return -EINVAL;
    }
    if (!IsOpen(pcm)) {
        return -EBADFD;  // the error text still tells why the PCM is not ready
    }
    return pcm->ops->prepare(pcm);
}

int pcm_readi(struct pcm* pcm, void* data, unsigned int frame_count) {
    if (pcm == nullptr) {
        return -EINVAL;
    }
    if (!IsOpen(pcm)) {
        return -EBADFD;
    }
    if ((pcm->flags & PCM_IN) == 0) {
        return SetPcmError(pcm, EINVAL, "cannot read from a playback PCM");
    }
    if (frame_count > INT_MAX || (data == nullptr && frame_count > 0)) {
        return SetPcmError(pcm, EINVAL, "cannot read stream data");
    }
    if (frame_count == 0) {
        return 0;
    }
    int result = pcm->ops->readi(pcm, data, frame_count);
    if (result == -EPIPE) {
        pcm->underruns.fetch_add(1);
    }
    return result;
}

int pcm_writei(struct pcm* pcm, const void* data, unsigned int frame_count) {
    if (pcm == nullptr) {
        return -EINVAL;
    }
    if (!IsOpen(pcm)) {
        return -EBADFD;
    }
    if ((pcm->flags & PCM_IN) != 0) {
        return SetPcmError(pcm, EINVAL, "cannot write to a capture PCM");
    }
    if (frame_count > INT_MAX || (data == nullptr && frame_count > 0)) {
        return SetPcmError(pcm, EINVAL, "cannot write stream data");
    }
    if (frame_count == 0) {
        return 0;
    }
    int result = pcm->ops->writei(pcm, data, frame_count);
    if (result == -EPIPE) {
        pcm->underruns.fetch_add(1);
    }
    return result;
}

int pcm_get_htimestamp(struct pcm* pcm, unsigned int* avail, struct timespec* tstamp) {
    if (!IsOpen(pcm) || avail == nullptr || tstamp == nullptr) {
        return -1;
    }
    return pcm->ops->get_htimestamp(pcm, avail, tstamp);
}

int pcm_get_underruns(const struct pcm* pcm) {
    return pcm != nullptr ? pcm->underruns.load() : 0;
}

unsigned int pcm_format_to_bits(enum pcm_format format) {
    return tinyalsa::FormatBits(format);
}

unsigned int pcm_frames_to_bytes(const struct pcm* pcm, unsigned int frames) {
    if (pcm == nullptr) {
        return 0;
    }
    return frames * tinyalsa::FrameBytes(pcm->config.format, pcm->config.channels);
}

unsigned int pcm_bytes_to_frames(const struct pcm* pcm, unsigned int bytes) {
    unsigned int frameBytes =
        pcm != nullptr ? tinyalsa::FrameBytes(pcm->config.format, pcm->config.channels) : 0;
    return frameBytes != 0 ? bytes / frameBytes : 0;
}

unsigned int pcm_get_buffer_size(const struct pcm* pcm) {
    return pcm != nullptr ? pcm->config.period_size * pcm->config.period_count : 0;
}

}  // extern "C"
