// The operations table every PCM backend implements. pcm.cpp checks arguments and
// state, then calls the backend chosen for the card; a backend never sees a null
// handle, a closed handle or a transfer in the wrong direction.
#ifndef TINYALSA_SRC_PCM_OPS_H
#define TINYALSA_SRC_PCM_OPS_H

#include <ctime>

#include "pcm_handle.h"

namespace tinyalsa {

struct PcmOps {
    const char* name;
    // Fills what card/device offers in the direction of `flags`; false when the
    // device does not exist.
    bool (*params_get)(unsigned int card, unsigned int device, unsigned int flags, ParamRanges* ranges);
    // Opens handle->card/device for handle->flags and handle->config; 0, or a
    // negative errno with handle->error set. On success handle->impl may be set.
    int (*open)(pcm* handle);
    // Releases handle->impl.
    void (*close)(pcm* handle);
    int (*prepare)(pcm* handle);
    // Blocking transfers: frames moved, or a negative errno with handle->error set.
    int (*readi)(pcm* handle, void* data, unsigned int frames);
    int (*writei)(pcm* handle, const void* data, unsigned int frames);
    int (*get_htimestamp)(pcm* handle, unsigned int* avail, timespec* stamp);
};

// Virtual cards, served in process.
const PcmOps& VirtualBackend();
// The kernel's ALSA PCM devices.
const PcmOps& KernelBackend();

}  // namespace tinyalsa

#endif  // TINYALSA_SRC_PCM_OPS_H
