// The vcard_* control functions: argument checks, then the registry or the PCM.
#include <cerrno>
#include <memory>
#include <string>

#include "capture_source.h"
#include "pcm_format.h"
#include "tinyalsa/vcard.h"
#include "vcard_config_parser.h"
#include "vcard_registry.h"

using tinyalsa::PcmName;
using tinyalsa::VcardRegistry;
using tinyalsa::VirtualPcm;

namespace {

thread_local std::string t_lastError;

int Fail(int errnum, const std::string& text) {
    t_lastError = text;
    return -errnum;
}

int Succeed() {
    t_lastError.clear();
    return 0;
}

// The PCM, or null with the calling thread's error set.
std::shared_ptr<VirtualPcm> Lookup(unsigned int card, unsigned int device, vcard_direction direction) {
    std::shared_ptr<VirtualPcm> pcm = VcardRegistry::Instance().Find(card, device, direction);
    if (pcm == nullptr) {
        Fail(ENOENT, PcmName(card, device, direction) + ": no such virtual PCM");
    }
    return pcm;
}

int SetSource(unsigned int card, unsigned int device, const tinyalsa::SourceSettings& source) {
    std::shared_ptr<VirtualPcm> pcm = Lookup(card, device, VCARD_CAPTURE);
    if (pcm == nullptr) {
        return -ENOENT;
    }
    pcm->SetSource(source);
    return Succeed();
}

int SetSink(unsigned int card, unsigned int device, const tinyalsa::SinkSettings& sink) {
    std::shared_ptr<VirtualPcm> pcm = Lookup(card, device, VCARD_PLAYBACK);
    if (pcm == nullptr) {
        return -ENOENT;
    }
    pcm->SetSink(sink);
    return Succeed();
}

// Memory sink calls answer -EINVAL when the PCM has another sink.
long MemoryResult(long result, unsigned int card, unsigned int device) {
    if (result == -EINVAL) {
        return Fail(EINVAL, PcmName(card, device, VCARD_PLAYBACK) + ": the sink is not a memory sink");
    }
    t_lastError.clear();
    return result;
}

int LoadEntries(tinyalsa::VcardConfigParser& parser, bool parsed) {
    if (!parsed) {
        return Fail(EINVAL, parser.Error());
    }
    VcardRegistry::Instance().Apply(parser.Entries());
    return Succeed();
}

}  // namespace

extern "C" {

void vcard_pcm_desc_init(struct vcard_pcm_desc* desc, unsigned int card, unsigned int device,
                         enum vcard_direction direction) {
    if (desc == nullptr) {
        return;
    }
    *desc = vcard_pcm_desc{};
    desc->card = card;
    desc->device = device;
    desc->direction = direction;
    desc->channels_min = 1;
    desc->channels_max = 8;
    desc->rate_min = 8000;
    desc->rate_max = 48000;
    desc->formats = VCARD_FORMAT_BIT(PCM_FORMAT_S16_LE);
}

int vcard_add_pcm(const struct vcard_pcm_desc* desc) {
    if (desc == nullptr) {
        return Fail(EINVAL, "no description");
    }
    std::string error;
    if (!tinyalsa::ValidateDesc(*desc, &error)) {
        return Fail(EINVAL, error);
    }
    tinyalsa::PcmSettings settings;
    settings.desc = *desc;
    VcardRegistry::Instance().AddPcm(settings);
    return Succeed();
}

int vcard_remove_pcm(unsigned int card, unsigned int device, enum vcard_direction direction) {
    if (!VcardRegistry::Instance().RemovePcm(card, device, direction)) {
        return Fail(ENOENT, PcmName(card, device, direction) + ": no such virtual PCM");
    }
    return Succeed();
}

int vcard_add_card(unsigned int card) {
    VcardRegistry::Instance().AddCard(card);
    return Succeed();
}

int vcard_remove_card(unsigned int card) {
    if (!VcardRegistry::Instance().RemoveCard(card)) {
        return Fail(ENOENT, "card " + std::to_string(card) + " is not virtual");
    }
    return Succeed();
}

int vcard_is_virtual(unsigned int card) {
    return VcardRegistry::Instance().IsVirtual(card) ? 1 : 0;
}

void vcard_reset(void) {
    VcardRegistry::Instance().Reset();
    t_lastError.clear();
}

int vcard_load_file(const char* path) {
    if (path == nullptr) {
        return Fail(EINVAL, "no path");
    }
    tinyalsa::VcardConfigParser parser;
    bool parsed = parser.ParseFile(path);
    return LoadEntries(parser, parsed);
}

int vcard_load_text(const char* text, const char* name) {
    if (text == nullptr) {
        return Fail(EINVAL, "no text");
    }
    tinyalsa::VcardConfigParser parser;
    bool parsed = parser.ParseText(text, name != nullptr ? name : "<text>");
    return LoadEntries(parser, parsed);
}

const char* vcard_last_error(void) {
    return t_lastError.c_str();
}

int16_t vcard_pattern_sample(unsigned int channel, unsigned long long frame) {
    return tinyalsa::PatternSample(channel, frame);
}

int32_t vcard_pattern_sample32(unsigned int channel, unsigned long long frame) {
    return tinyalsa::SlotFromLevel(tinyalsa::PatternSample(channel, frame));
}

int vcard_set_source_silence(unsigned int card, unsigned int device) {
    tinyalsa::SourceSettings source;
    source.kind = tinyalsa::SourceKind::kSilence;
    return SetSource(card, device, source);
}

int vcard_set_source_pattern(unsigned int card, unsigned int device) {
    tinyalsa::SourceSettings source;
    source.kind = tinyalsa::SourceKind::kPattern;
    return SetSource(card, device, source);
}

int vcard_set_source_sine(unsigned int card, unsigned int device, const struct vcard_tone* tones,
                          unsigned int count) {
    tinyalsa::SourceSettings source;
    source.kind = tinyalsa::SourceKind::kSine;
    if (tones != nullptr) {
        source.tones.assign(tones, tones + count);
    }
    std::string error;
    if (!tinyalsa::ValidateTones(source.tones, &error)) {
        return Fail(EINVAL, error);
    }
    return SetSource(card, device, source);
}

int vcard_set_source_file(unsigned int card, unsigned int device, enum vcard_file_kind kind, const char* path,
                          int loop) {
    if (path == nullptr || path[0] == '\0' || (kind != VCARD_FILE_RAW && kind != VCARD_FILE_WAV)) {
        return Fail(EINVAL, "a file source needs a kind and a path");
    }
    tinyalsa::SourceSettings source;
    source.kind = tinyalsa::SourceKind::kFile;
    source.fileKind = kind;
    source.path = path;
    source.loop = loop != 0;
    return SetSource(card, device, source);
}

int vcard_set_source_callback(unsigned int card, unsigned int device, vcard_capture_fn fn, void* user) {
    if (fn == nullptr) {
        return Fail(EINVAL, "a callback source needs a function");
    }
    tinyalsa::SourceSettings source;
    source.kind = tinyalsa::SourceKind::kCallback;
    source.callback = fn;
    source.user = user;
    return SetSource(card, device, source);
}

int vcard_set_sink_discard(unsigned int card, unsigned int device) {
    tinyalsa::SinkSettings sink;
    sink.kind = tinyalsa::SinkKind::kDiscard;
    return SetSink(card, device, sink);
}

int vcard_set_sink_file(unsigned int card, unsigned int device, enum vcard_file_kind kind, const char* path) {
    if (path == nullptr || path[0] == '\0' || (kind != VCARD_FILE_RAW && kind != VCARD_FILE_WAV)) {
        return Fail(EINVAL, "a file sink needs a kind and a path");
    }
    tinyalsa::SinkSettings sink;
    sink.kind = tinyalsa::SinkKind::kFile;
    sink.fileKind = kind;
    sink.path = path;
    return SetSink(card, device, sink);
}

int vcard_set_sink_memory(unsigned int card, unsigned int device, size_t capacity) {
    tinyalsa::SinkSettings sink;
    sink.kind = tinyalsa::SinkKind::kMemory;
    sink.capacity = capacity;
    return SetSink(card, device, sink);
}

long vcard_memory_size(unsigned int card, unsigned int device) {
    std::shared_ptr<VirtualPcm> pcm = Lookup(card, device, VCARD_PLAYBACK);
    return pcm != nullptr ? MemoryResult(pcm->MemorySize(), card, device) : -ENOENT;
}

long vcard_memory_read(unsigned int card, unsigned int device, size_t offset, void* dst, size_t max) {
    if (dst == nullptr && max > 0) {
        return Fail(EINVAL, "no destination");
    }
    std::shared_ptr<VirtualPcm> pcm = Lookup(card, device, VCARD_PLAYBACK);
    return pcm != nullptr ? MemoryResult(pcm->MemoryRead(offset, dst, max), card, device) : -ENOENT;
}

long vcard_memory_take(unsigned int card, unsigned int device, void* dst, size_t max) {
    if (dst == nullptr && max > 0) {
        return Fail(EINVAL, "no destination");
    }
    std::shared_ptr<VirtualPcm> pcm = Lookup(card, device, VCARD_PLAYBACK);
    return pcm != nullptr ? MemoryResult(pcm->MemoryTake(dst, max), card, device) : -ENOENT;
}

int vcard_memory_clear(unsigned int card, unsigned int device) {
    std::shared_ptr<VirtualPcm> pcm = Lookup(card, device, VCARD_PLAYBACK);
    return pcm != nullptr ? static_cast<int>(MemoryResult(pcm->MemoryClear(), card, device)) : -ENOENT;
}

int vcard_set_clock(unsigned int card, unsigned int device, enum vcard_direction direction,
                    enum vcard_clock clock) {
    if (clock != VCARD_CLOCK_FREE && clock != VCARD_CLOCK_REALTIME && clock != VCARD_CLOCK_FRAMES) {
        return Fail(EINVAL, "unknown clock");
    }
    std::shared_ptr<VirtualPcm> pcm = Lookup(card, device, direction);
    if (pcm == nullptr) {
        return -ENOENT;
    }
    pcm->SetClock(clock);
    return Succeed();
}

int vcard_set_faults(unsigned int card, unsigned int device, enum vcard_direction direction,
                     const struct vcard_fault_plan* plan) {
    if (plan != nullptr &&
        ((plan->prepare != VCARD_PREPARE_OK && plan->prepare != VCARD_PREPARE_FAIL &&
          plan->prepare != VCARD_PREPARE_UNREADY) ||
         (plan->transfer_kind != VCARD_TRANSFER_XRUN && plan->transfer_kind != VCARD_TRANSFER_IO))) {
        return Fail(EINVAL, "unknown fault kind");
    }
    std::shared_ptr<VirtualPcm> pcm = Lookup(card, device, direction);
    if (pcm == nullptr) {
        return -ENOENT;
    }
    pcm->SetFaults(tinyalsa::FaultPlanFrom(plan));
    return Succeed();
}

int vcard_get_counters(unsigned int card, unsigned int device, enum vcard_direction direction,
                       struct vcard_counters* counters) {
    if (counters == nullptr) {
        return Fail(EINVAL, "no counters record");
    }
    std::shared_ptr<VirtualPcm> pcm = Lookup(card, device, direction);
    if (pcm == nullptr) {
        return -ENOENT;
    }
    *counters = pcm->Counters();
    return Succeed();
}

int vcard_reset_counters(unsigned int card, unsigned int device, enum vcard_direction direction) {
    std::shared_ptr<VirtualPcm> pcm = Lookup(card, device, direction);
    if (pcm == nullptr) {
        return -ENOENT;
    }
    pcm->ResetCounters();
    return Succeed();
}

}  // extern "C"
