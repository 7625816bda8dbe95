#include "virtual_pcm.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "pcm_format.h"

namespace tinyalsa {
namespace {

unsigned int Clamp(unsigned long long value) {
    return value > UINT_MAX ? UINT_MAX : static_cast<unsigned int>(value);
}

void SetRange(ParamRanges* ranges, pcm_param param, unsigned long long min, unsigned long long max) {
    ranges->min[param] = Clamp(min);
    ranges->max[param] = Clamp(max);
}

std::string OutsideText(const char* what, unsigned int value, unsigned int min, unsigned int max) {
    char text[96];
    std::snprintf(text, sizeof(text), "%s %u outside %u-%u", what, value, min, max);
    return text;
}

}  // namespace

VirtualPcm::VirtualPcm(const PcmSettings& settings) : m_desc(settings.desc), m_settings(settings) {
    SetSink(settings.sink);
}

bool VirtualPcm::Params(ParamRanges* ranges) const {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_settings.faults.absent) {
            return false;
        }
    }
    const vcard_pcm_desc& d = m_desc;
    bool narrow = (d.formats & VCARD_FORMAT_BIT(PCM_FORMAT_S16_LE)) != 0;
    bool wide = (d.formats & ~VCARD_FORMAT_BIT(PCM_FORMAT_S16_LE)) != 0;
    unsigned long long bitsMin = narrow ? 16 : 32;
    unsigned long long bitsMax = wide ? 32 : 16;
    unsigned long long frameMin = bitsMin / 8 * d.channels_min;
    unsigned long long frameMax = bitsMax / 8 * d.channels_max;
    unsigned long long bufferMin = 1ull * kPeriodSizeMin * kPeriodsMin;
    unsigned long long bufferMax = 1ull * kPeriodSizeMax * kPeriodsMax;
    *ranges = ParamRanges{};
    SetRange(ranges, PCM_PARAM_SAMPLE_BITS, bitsMin, bitsMax);
    SetRange(ranges, PCM_PARAM_FRAME_BITS, frameMin * 8, frameMax * 8);
    SetRange(ranges, PCM_PARAM_CHANNELS, d.channels_min, d.channels_max);
    SetRange(ranges, PCM_PARAM_RATE, d.rate_min, d.rate_max);
    SetRange(ranges, PCM_PARAM_PERIOD_SIZE, kPeriodSizeMin, kPeriodSizeMax);
    SetRange(ranges, PCM_PARAM_PERIOD_BYTES, kPeriodSizeMin * frameMin, kPeriodSizeMax * frameMax);
    SetRange(ranges, PCM_PARAM_PERIODS, kPeriodsMin, kPeriodsMax);
    SetRange(ranges, PCM_PARAM_PERIOD_TIME, kPeriodSizeMin * 1000000ull / d.rate_max,
             kPeriodSizeMax * 1000000ull / d.rate_min);
    SetRange(ranges, PCM_PARAM_BUFFER_SIZE, bufferMin, bufferMax);
    SetRange(ranges, PCM_PARAM_BUFFER_BYTES, bufferMin * frameMin, bufferMax * frameMax);
    SetRange(ranges, PCM_PARAM_BUFFER_TIME, bufferMin * 1000000ull / d.rate_max,
             bufferMax * 1000000ull / d.rate_min);
    return true;
}

void VirtualPcm::SetSource(const SourceSettings& source) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_settings.source = source;
}

void VirtualPcm::SetSink(const SinkSettings& sink) {
    size_t capacity = sink.capacity != 0 ? sink.capacity : kDefaultMemoryCapacity;
    std::vector<uint8_t> buffer(sink.kind == SinkKind::kMemory ? capacity : 0);
    std::lock_guard<std::mutex> lock(m_mutex);
    m_settings.sink = sink;
    m_settings.sink.capacity = buffer.size();
    m_memory.swap(buffer);
    m_memoryUsed = 0;
}

void VirtualPcm::SetClock(vcard_clock clock) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_settings.clock = clock;
}

void VirtualPcm::SetFaults(const FaultPlan& faults) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_settings.faults = faults;
    m_transfersSincePlan = 0;
}

bool VirtualPcm::CheckConfig(const pcm_config& config, std::string* error) const {
    const vcard_pcm_desc& d = m_desc;
    std::string reason;
    if (config.channels < d.channels_min || config.channels > d.channels_max) {
        reason = OutsideText("channels", config.channels, d.channels_min, d.channels_max);
    } else if (config.rate < d.rate_min || config.rate > d.rate_max) {
        reason = OutsideText("rate", config.rate, d.rate_min, d.rate_max);
    } else if (config.format < 0 || config.format >= 32 ||
               (d.formats & VCARD_FORMAT_BIT(config.format)) == 0) {
        const char* name = FormatName(config.format);
        char text[64];
        std::snprintf(text, sizeof(text), "format %d (%s) not accepted", static_cast<int>(config.format),
                      name != nullptr ? name : "unknown");
        reason = text;
    } else if (config.period_size < kPeriodSizeMin || config.period_size > kPeriodSizeMax) {
        reason = OutsideText("period_size", config.period_size, kPeriodSizeMin, kPeriodSizeMax);
    } else if (config.period_count < kPeriodsMin || config.period_count > kPeriodsMax) {
        reason = OutsideText("period_count", config.period_count, kPeriodsMin, kPeriodsMax);
    }
    if (reason.empty()) {
        return true;
    }
    *error = PcmName(d.card, d.device, d.direction) + ": " + reason;
    return false;
}

bool VirtualPcm::Claim(unsigned int flags, const pcm_config& config, PcmSettings* settings,
                       std::string* error) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_counters.has_config = 1;
    m_counters.last_flags = flags;
    m_counters.last_config = config;
    std::string name = PcmName(m_desc.card, m_desc.device, m_desc.direction);
    const FaultPlan& faults = m_settings.faults;
    bool ok = false;
    if (faults.absent) {
        *error = name + ": absent";
    } else if (faults.failOpen) {
        *error = faults.openError.empty() ? name + ": open refused" : faults.openError;
    } else if (m_claimed) {
        *error = name + ": busy, already open";
    } else {
        ok = CheckConfig(config, error);
    }
    if (!ok) {
        m_counters.failed_opens++;
        return false;
    }
    m_claimed = true;
    m_transfersSincePlan = 0;
    *settings = m_settings;
    return true;
}

void VirtualPcm::FinishOpen(bool opened) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (opened) {
        m_counters.opens++;
    } else {
        m_claimed = false;
        m_counters.failed_opens++;
    }
}

void VirtualPcm::Release() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_claimed = false;
    m_counters.closes++;
}

void VirtualPcm::Abandon() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_claimed = false;
}

vcard_prepare_fault VirtualPcm::Prepare() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_counters.prepares++;
    return m_settings.faults.prepare;
}

VirtualPcm::Gate VirtualPcm::BeginTransfer() {
    std::lock_guard<std::mutex> lock(m_mutex);
    const FaultPlan& faults = m_settings.faults;
    unsigned long long index = ++m_transfersSincePlan;
    Gate gate{0, m_settings.clock};
    if (faults.transferFailAt != 0 && index >= faults.transferFailAt &&
        index - faults.transferFailAt < faults.transferFailCount) {
        m_counters.failed_transfers++;
        if (faults.transferKind == VCARD_TRANSFER_XRUN) {
            m_counters.xruns++;
            gate.error = -EPIPE;
        } else {
            gate.error = -EIO;
        }
    }
    return gate;
}

void VirtualPcm::EndTransfer(bool capture, unsigned int frames) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (capture) {
        m_counters.reads++;
        m_counters.frames_read += frames;
    } else {
        m_counters.writes++;
        m_counters.frames_written += frames;
    }
}

void VirtualPcm::AppendMemory(const uint8_t* data, size_t bytes) {
    std::lock_guard<std::mutex> lock(m_mutex);
    size_t fits = std::min(bytes, m_memory.size() - m_memoryUsed);
    if (fits > 0) {
        std::memcpy(m_memory.data() + m_memoryUsed, data, fits);
        m_memoryUsed += fits;
    }
    m_counters.memory_dropped += bytes - fits;
}

long VirtualPcm::MemorySize() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_settings.sink.kind != SinkKind::kMemory) {
        return -EINVAL;
    }
    return static_cast<long>(m_memoryUsed);
}

long VirtualPcm::MemoryRead(size_t offset, void* dst, size_t max) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_settings.sink.kind != SinkKind::kMemory) {
        return -EINVAL;
    }
    if (offset >= m_memoryUsed) {
        return 0;
    }
    size_t count = std::min(max, m_memoryUsed - offset);
    if (count > 0) {
        std::memcpy(dst, m_memory.data() + offset, count);
    }
    return static_cast<long>(count);
}

long VirtualPcm::MemoryTake(void* dst, size_t max) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_settings.sink.kind != SinkKind::kMemory) {
        return -EINVAL;
    }
    size_t count = std::min(max, m_memoryUsed);
    if (count > 0) {
        std::memcpy(dst, m_memory.data(), count);
        std::memmove(m_memory.data(), m_memory.data() + count, m_memoryUsed - count);
    }
    m_memoryUsed -= count;
    return static_cast<long>(count);
}

long VirtualPcm::MemoryClear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_settings.sink.kind != SinkKind::kMemory) {
        return -EINVAL;
    }
    m_memoryUsed = 0;
    return 0;
}

vcard_counters VirtualPcm::Counters() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    vcard_counters counters = m_counters;
    counters.is_open = m_claimed ? 1 : 0;
    return counters;
}

void VirtualPcm::ResetCounters() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_counters = vcard_counters{};
}

}  // namespace tinyalsa
