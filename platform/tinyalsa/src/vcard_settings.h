// What describes one virtual PCM: its ranges, its capture source or playback sink,
// its clock and its fault plan. Plain values, copied freely outside the data path.
#ifndef TINYALSA_SRC_VCARD_SETTINGS_H
#define TINYALSA_SRC_VCARD_SETTINGS_H

#include <cstddef>
#include <string>
#include <vector>

#include "tinyalsa/vcard.h"

namespace tinyalsa {

enum class SourceKind { kSilence, kPattern, kSine, kFile, kCallback };
enum class SinkKind { kDiscard, kMemory, kFile };

struct SourceSettings {
    SourceKind kind = SourceKind::kSilence;
    std::vector<vcard_tone> tones;  // kSine: channel i plays tones[min(i, size - 1)]
    vcard_file_kind fileKind = VCARD_FILE_RAW;
    std::string path;   // kFile
    bool loop = false;  // kFile: start over at the end instead of silence
    vcard_capture_fn callback = nullptr;
    void* user = nullptr;
};

struct SinkSettings {
    SinkKind kind = SinkKind::kDiscard;
    vcard_file_kind fileKind = VCARD_FILE_RAW;
    std::string path;     // kFile
    size_t capacity = 0;  // kMemory: bytes kept, reserved when the sink is set
};

struct FaultPlan {
    bool absent = false;
    bool failOpen = false;
    std::string openError;
    vcard_prepare_fault prepare = VCARD_PREPARE_OK;
    unsigned int transferFailAt = 0;  // 1-based transfer index, 0 for none
    unsigned int transferFailCount = 1;
    vcard_transfer_fault transferKind = VCARD_TRANSFER_XRUN;
};

struct PcmSettings {
    vcard_pcm_desc desc{};
    SourceSettings source;
    SinkSettings sink;
    vcard_clock clock = VCARD_CLOCK_FREE;
    FaultPlan faults;
};

// Memory sink capacity when none is given.
constexpr size_t kDefaultMemoryCapacity = 4u << 20;
// Channel counts a virtual PCM may declare.
constexpr unsigned int kMaxVirtualChannels = 64;
// Period sizes (frames) and period counts a virtual PCM accepts.
constexpr unsigned int kPeriodSizeMin = 1;
constexpr unsigned int kPeriodSizeMax = 65536;
constexpr unsigned int kPeriodsMin = 1;
constexpr unsigned int kPeriodsMax = 1024;

// Checks a description; false with a reason in *error.
bool ValidateDesc(const vcard_pcm_desc& desc, std::string* error);
// Checks sine tones; false with a reason in *error.
bool ValidateTones(const std::vector<vcard_tone>& tones, std::string* error);
// Converts a C fault plan (null: no faults).
FaultPlan FaultPlanFrom(const vcard_fault_plan* plan);
// "card 2 device 0 playback", used to open most messages.
std::string PcmName(unsigned int card, unsigned int device, vcard_direction direction);

}  // namespace tinyalsa

#endif  // TINYALSA_SRC_VCARD_SETTINGS_H
