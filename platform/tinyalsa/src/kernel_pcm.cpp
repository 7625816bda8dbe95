#include "kernel_pcm.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <new>

#include "kernel_hw_params.h"
#include "node_path.h"
#include "pcm_format.h"

namespace tinyalsa {
namespace {

// Flags of tinyalsa's mmap and non-blocking modes, which this backend does not offer.
struct RefusedFlag {
    unsigned int flag;
    const char* name;
};
constexpr RefusedFlag kRefusedFlags[] = {
    {PCM_MMAP, "PCM_MMAP"},
    {PCM_NOIRQ, "PCM_NOIRQ"},
    {PCM_NONBLOCK, "PCM_NONBLOCK"},
};

// Thresholds of the configuration; where it gives 0, tinyalsa's defaults for start and
// stop (a full buffer) and this library's choice for avail_min (a wake-up per period);
// no silence filling unless asked for.
void FillSwParams(const pcm_config& config, unsigned int flags, snd_pcm_sw_params* sw) {
    const unsigned long buffer = static_cast<unsigned long>(config.period_size) * config.period_count;
    *sw = snd_pcm_sw_params{};
    sw->tstamp_mode = SNDRV_PCM_TSTAMP_ENABLE;
    sw->period_step = 1;
    sw->avail_min = config.avail_min != 0 ? config.avail_min : config.period_size;
    sw->start_threshold = config.start_threshold != 0 ? config.start_threshold : buffer;
    sw->stop_threshold = config.stop_threshold != 0 ? config.stop_threshold : buffer;
    sw->silence_threshold = config.silence_threshold;
    sw->silence_size = config.silence_size;
    sw->xfer_align = config.period_size;
    sw->proto = SNDRV_PCM_VERSION;
    sw->tstamp_type =
        (flags & PCM_MONOTONIC) != 0 ? SNDRV_PCM_TSTAMP_TYPE_MONOTONIC : SNDRV_PCM_TSTAMP_TYPE_GETTIMEOFDAY;
}

// Installs hardware then software parameters on fd; 0 or a negative errno with the
// handle's error set. The period size and count the kernel chose go back into the
// handle's configuration.
int InstallParams(pcm* handle, int fd, int kernelFormat) {
    snd_pcm_hw_params hw;
    InitOpenHwParams(&hw);
    ConstrainHwParams(&hw, kernelFormat, handle->config);
    if (ioctl(fd, SNDRV_PCM_IOCTL_HW_PARAMS, &hw) != 0) {
        return SetPcmError(handle, errno, "cannot set hw params");
    }
    handle->config.period_size = ChosenValue(hw, SNDRV_PCM_HW_PARAM_PERIOD_SIZE);
    handle->config.period_count = ChosenValue(hw, SNDRV_PCM_HW_PARAM_PERIODS);
    snd_pcm_sw_params sw;
    FillSwParams(handle->config, handle->flags, &sw);
    if (ioctl(fd, SNDRV_PCM_IOCTL_SW_PARAMS, &sw) != 0) {
        return SetPcmError(handle, errno, "cannot set sw params");
    }
    return 0;
}

// Opens the node without waiting for a busy substream, then makes it blocking.
int OpenNode(pcm* handle, const char* path) {
    int fd = open(path, O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        return SetPcmError(handle, errno, "cannot open device '%s'", path);
    }
    int fileFlags = fcntl(fd, F_GETFL);
    if (fileFlags < 0 || fcntl(fd, F_SETFL, fileFlags & ~O_NONBLOCK) != 0) {
        int err = errno;
        close(fd);
        return SetPcmError(handle, err, "cannot open device '%s'", path);
    }
    return fd;
}

}  // namespace

KernelPcm::KernelPcm(int fd, unsigned int flags, unsigned int frameBytes)
    : m_fd(fd), m_flags(flags), m_frameBytes(frameBytes) {}

KernelPcm::~KernelPcm() {
    close(m_fd);
}

int KernelPcm::Open(pcm* handle, KernelPcm** out) {
    NodePath path(handle->card, handle->device, handle->flags);
    for (const RefusedFlag& refused : kRefusedFlags) {
        if ((handle->flags & refused.flag) != 0) {
            return SetPcmError(handle, EINVAL, "cannot open device '%s' (%s not supported)", path.c_str(),
                               refused.name);
        }
    }
    int kernelFormat = KernelFormat(handle->config.format);
    if (kernelFormat < 0) {
        return SetPcmError(handle, EINVAL, "cannot set hw params (format %d not offered)",
                           static_cast<int>(handle->config.format));
    }
    int fd = OpenNode(handle, path.c_str());
    if (fd < 0) {
        return fd;
    }
    int result = InstallParams(handle, fd, kernelFormat);
    if (result == 0) {
        *out = new (std::nothrow)
            KernelPcm(fd, handle->flags, FrameBytes(handle->config.format, handle->config.channels));
        if (*out != nullptr) {
            return 0;
        }
        result = SetPcmError(handle, ENOMEM, "cannot open device '%s'", path.c_str());
    }
    close(fd);
    return result;
}

int KernelPcm::Prepare(pcm* handle) {
    std::lock_guard<std::mutex> lock(m_stateMutex);
    return PrepareLocked(handle);
}

int KernelPcm::PrepareLocked(pcm* handle) {
    if (m_prepared) {
        return 0;  // prepared, or running since: nothing to do
    }
    if (ioctl(m_fd, SNDRV_PCM_IOCTL_PREPARE) != 0) {
        return SetPcmError(handle, errno, "cannot prepare channel");
    }
    m_prepared = true;
    m_running = false;
    return 0;
}

void KernelPcm::Stopped() {
    std::lock_guard<std::mutex> lock(m_stateMutex);
    m_prepared = false;
}

int KernelPcm::Ready(pcm* handle) {
    std::lock_guard<std::mutex> lock(m_stateMutex);
    int result = PrepareLocked(handle);
    if (result != 0) {
        return result;
    }
    // Playback starts by itself at the start threshold; capture is started here,
    // so that a read shorter than the threshold does not wait for ever.
    if ((m_flags & PCM_IN) != 0 && !m_running) {
        if (ioctl(m_fd, SNDRV_PCM_IOCTL_START) != 0) {
            return SetPcmError(handle, errno, "cannot start channel");
        }
        m_running = true;
    }
    return 0;
}

int KernelPcm::Transfer(pcm* handle, unsigned char* data, unsigned int frames) {
    const bool capture = (m_flags & PCM_IN) != 0;
    const unsigned long request = capture ? SNDRV_PCM_IOCTL_READI_FRAMES : SNDRV_PCM_IOCTL_WRITEI_FRAMES;
    const char* failure = capture ? "cannot read stream data" : "cannot write stream data";
    unsigned int done = 0;
    bool recovered = false;
    while (done < frames) {
        int result = Ready(handle);
        if (result != 0) {
            return result;
        }
        snd_xferi xfer{};
        xfer.buf = data + static_cast<size_t>(done) * m_frameBytes;
        xfer.frames = frames - done;
        if (ioctl(m_fd, request, &xfer) == 0) {
            if (xfer.result <= 0) {
                break;  // a blocking transfer always moves frames; never spin
            }
            done += static_cast<unsigned int>(xfer.result);
            continue;
        }
        int err = errno;
        if (err == EINTR) {
            continue;
        }
        if (err != EPIPE) {
            return SetPcmError(handle, err, "%s", failure);
        }
        // An xrun stopped the stream: it is prepared again before the next move.
        Stopped();
        if ((m_flags & PCM_NORESTART) != 0 || recovered) {
            return SetPcmError(handle, EPIPE, "%s", failure);  // counted by the caller
        }
        handle->underruns.fetch_add(1);
        recovered = true;
    }
    return static_cast<int>(done);
}

int KernelPcm::Read(pcm* handle, void* data, unsigned int frames) {
    return Transfer(handle, static_cast<unsigned char*>(data), frames);
}

int KernelPcm::Write(pcm* handle, const void* data, unsigned int frames) {
    // The kernel only reads from the buffer of a write.
    return Transfer(handle, static_cast<unsigned char*>(const_cast<void*>(data)), frames);
}

int KernelPcm::Timestamp(unsigned int* avail, timespec* stamp) const {
    snd_pcm_status status{};
    if (ioctl(m_fd, SNDRV_PCM_IOCTL_STATUS, &status) != 0) {
        return -1;
    }
    if (status.state != SNDRV_PCM_STATE_RUNNING && status.state != SNDRV_PCM_STATE_DRAINING) {
        return -1;
    }
    // Until the position first moves, the time of the start is the latest there is.
    const timespec& latest =
        status.tstamp.tv_sec != 0 || status.tstamp.tv_nsec != 0 ? status.tstamp : status.trigger_tstamp;
    if (latest.tv_sec == 0 && latest.tv_nsec == 0) {
        return -1;
    }
    *avail = static_cast<unsigned int>(status.avail);
    *stamp = latest;
    return 0;
}

}  // namespace tinyalsa
