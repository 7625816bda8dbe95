// One virtual PCM: its settings, its counters, its memory sink buffer and whether it
// is open. Shared between the registry, the control functions and the open stream
// (which keeps it alive after it was removed); every member function locks.
#ifndef TINYALSA_SRC_VIRTUAL_PCM_H
#define TINYALSA_SRC_VIRTUAL_PCM_H

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "pcm_handle.h"
#include "vcard_settings.h"

namespace tinyalsa {

class VirtualPcm {
  public:
    explicit VirtualPcm(const PcmSettings& settings);
    VirtualPcm(const VirtualPcm&) = delete;
    VirtualPcm& operator=(const VirtualPcm&) = delete;

    const vcard_pcm_desc& Desc() const { return m_desc; }
    // Ranges as pcm_params_get reports them; false while the PCM is absent.
    bool Params(ParamRanges* ranges) const;

    void SetSource(const SourceSettings& source);
    // A memory sink reserves its capacity here, so writes never allocate.
    void SetSink(const SinkSettings& sink);
    void SetClock(vcard_clock clock);
    // Restarts the transfer count that the plan's indices refer to.
    void SetFaults(const FaultPlan& faults);

    // pcm_open: checks the fault plan, the configuration and that the PCM is free;
    // on success the PCM is held and *settings is what to build the stream from,
    // otherwise *error tells why.
    bool Claim(unsigned int flags, const pcm_config& config, PcmSettings* settings, std::string* error);
    // Ends a successful Claim: counts the open, or frees the PCM when the stream
    // could not be built.
    void FinishOpen(bool opened);
    // pcm_close of the holder.
    void Release();
    // The holder gave the PCM up without closing (a prepare left it unready): free
    // for other opens, not counted as a close.
    void Abandon();

    // pcm_prepare: counts it and answers the planned outcome.
    vcard_prepare_fault Prepare();

    struct Gate {
        int error;  // 0, -EPIPE or -EIO
        vcard_clock clock;
    };
    // Before a transfer: counts it against the fault plan.
    Gate BeginTransfer();
    // After a successful transfer of `frames` frames.
    void EndTransfer(bool capture, unsigned int frames);

    // Memory sink: appends what fits, counts the rest as dropped.
    void AppendMemory(const uint8_t* data, size_t bytes);
    // -EINVAL when the sink is not a memory sink; otherwise byte counts.
    long MemorySize() const;
    long MemoryRead(size_t offset, void* dst, size_t max) const;
    long MemoryTake(void* dst, size_t max);
    long MemoryClear();

    vcard_counters Counters() const;
    void ResetCounters();

  private:
    bool CheckConfig(const pcm_config& config, std::string* error) const;

    const vcard_pcm_desc m_desc;
    mutable std::mutex m_mutex;
    PcmSettings m_settings;
    vcard_counters m_counters{};
    unsigned long long m_transfersSincePlan = 0;
    bool m_claimed = false;
    std::vector<uint8_t> m_memory;  // capacity of the memory sink
    size_t m_memoryUsed = 0;
};

}  // namespace tinyalsa

#endif  // TINYALSA_SRC_VIRTUAL_PCM_H
