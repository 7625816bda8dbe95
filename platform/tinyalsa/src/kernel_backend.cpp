// The backend of the kernel's ALSA PCM devices: /dev/snd/pcmC<card>D<device>{c,p}
// driven through the kernel's PCM ioctls, blocking and interleaved.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "kernel_hw_params.h"
#include "node_path.h"
#include "kernel_pcm.h"
#include "pcm_ops.h"

namespace tinyalsa {
namespace {

KernelPcm* PcmOf(pcm* handle) {
    return static_cast<KernelPcm*>(handle->impl);
}

// Refines an all-open parameter set on the node: what the device can do at all, as
// far as the other users of the card (a loopback's other end, for one) allow now.
bool KernelParamsGet(unsigned int card, unsigned int device, unsigned int flags, ParamRanges* ranges) {
    NodePath path(card, device, flags);
    int fd = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    snd_pcm_hw_params params;
    InitOpenHwParams(&params);
    bool refined = ioctl(fd, SNDRV_PCM_IOCTL_HW_REFINE, &params) == 0;
    close(fd);
    if (refined) {
        RangesFromHwParams(params, ranges);
    }
    return refined;
}

int KernelOpen(pcm* handle) {
    KernelPcm* kernelPcm = nullptr;
    int result = KernelPcm::Open(handle, &kernelPcm);
    if (result == 0) {
        handle->impl = kernelPcm;
    }
    return result;
}

void KernelClose(pcm* handle) {
    delete PcmOf(handle);
    handle->impl = nullptr;
}

int KernelPrepare(pcm* handle) {
    return PcmOf(handle)->Prepare(handle);
}

int KernelReadi(pcm* handle, void* data, unsigned int frames) {
    return PcmOf(handle)->Read(handle, data, frames);
}

int KernelWritei(pcm* handle, const void* data, unsigned int frames) {
    return PcmOf(handle)->Write(handle, data, frames);
}

int KernelGetHtimestamp(pcm* handle, unsigned int* avail, timespec* stamp) {
    return PcmOf(handle)->Timestamp(avail, stamp);
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
