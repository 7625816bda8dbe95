// One open kernel PCM device node, driven through the kernel's PCM ioctls: blocking
// interleaved transfers, no mmap. Transfers come from one thread at a time; Prepare
// and Timestamp may come from any other thread meanwhile.
#ifndef TINYALSA_SRC_KERNEL_PCM_H
#define TINYALSA_SRC_KERNEL_PCM_H

#include <ctime>
#include <mutex>

#include "pcm_handle.h"

namespace tinyalsa {

class KernelPcm {
  public:
    // Takes ownership of fd, a node with hardware and software parameters installed.
    KernelPcm(int fd, unsigned int flags, unsigned int frameBytes);
    ~KernelPcm();
    KernelPcm(const KernelPcm&) = delete;
    KernelPcm& operator=(const KernelPcm&) = delete;

    // Opens handle->card/device for handle->flags and handle->config; writes the
    // period size and count the kernel chose back into handle->config. 0, or a
    // negative errno with handle->error set.
    static int Open(pcm* handle, KernelPcm** out);

    // Prepares a stream that is not prepared yet or was stopped by an xrun; 0 for one
    // already prepared or running.
    int Prepare(pcm* handle);
    int Read(pcm* handle, void* data, unsigned int frames);
    int Write(pcm* handle, const void* data, unsigned int frames);
    int Timestamp(unsigned int* avail, timespec* stamp) const;

  private:
    // Moves frames through one ioctl after another until all have moved. A first
    // xrun is counted, recovered by prepare and the transfer goes on (unless
    // PCM_NORESTART); a second one in the same call ends it with -EPIPE.
    int Transfer(pcm* handle, unsigned char* data, unsigned int frames);
    // Makes the stream ready to move data: prepared, and a capture stream started.
    int Ready(pcm* handle);
    // Prepare with m_stateMutex held.
    int PrepareLocked(pcm* handle);
    // Notes that an xrun stopped the stream.
    void Stopped();

    int m_fd;
    unsigned int m_flags;
    unsigned int m_frameBytes;
    // Guards the two flags and the prepare and start ioctls that change them; never
    // held across a transfer, which may block for a period or more.
    std::mutex m_stateMutex;
    bool m_prepared = false;
    bool m_running = false;
};

}  // namespace tinyalsa

#endif  // TINYALSA_SRC_KERNEL_PCM_H
