// The backend of the kernel's ALSA PCM devices. Until the ioctl implementation
// lands, every device reports that it cannot be opened: the node's own error when
// it is missing, "Function not implemented" otherwise.
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "pcm_ops.h"

namespace tinyalsa {
namespace {

bool KernelParamsGet(unsigned int, unsigned int, unsigned int, ParamRanges*) {
    return false;
}

int KernelOpen(pcm* handle) {
    char path[64];
    std::snprintf(path, sizeof(path), "/dev/snd/pcmC%uD%u%c", handle->card, handle->device,
                  DirectionLetter(handle->flags));
    if (access(path, F_OK) != 0) {
        return SetPcmError(handle, errno, "cannot open device '%s'", path);
    }
    return SetPcmError(handle, ENOSYS, "cannot open device '%s' (kernel PCM backend not built)", path);
}

void KernelClose(pcm*) {}

int KernelPrepare(pcm*) {
    return -ENOSYS;
}

int KernelReadi(pcm*, void*, unsigned int) {
    return -ENOSYS;
}

int KernelWritei(pcm*, const void*, unsigned int) {
    return -ENOSYS;
}

int KernelGetHtimestamp(pcm*, unsigned int*, timespec*) {
    return -1;
}

const PcmOps kKernelOps = {
    "kernel",      KernelParamsGet, KernelOpen,   KernelClose,
    KernelPrepare, KernelReadi,     KernelWritei, KernelGetHtimestamp,
};

}  // namespace

const PcmOps& KernelBackend() {
    return kKernelOps;
}

}  // namespace tinyalsa
