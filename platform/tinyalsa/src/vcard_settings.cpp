#include "vcard_settings.h"

#include <cmath>
#include <cstdio>

#include "pcm_format.h"

namespace tinyalsa {

bool ValidateDesc(const vcard_pcm_desc& desc, std::string* error) {
    char text[160];
    text[0] = '\0';
    if (desc.direction != VCARD_PLAYBACK && desc.direction != VCARD_CAPTURE) {
        std::snprintf(text, sizeof(text), "direction %d is neither playback nor capture",
                      static_cast<int>(desc.direction));
    } else if (desc.channels_min < 1 || desc.channels_min > desc.channels_max ||
               desc.channels_max > kMaxVirtualChannels) {
        std::snprintf(text, sizeof(text), "channel range %u-%u is not within 1-%u", desc.channels_min,
                      desc.channels_max, kMaxVirtualChannels);
    } else if (desc.rate_min < 1 || desc.rate_min > desc.rate_max) {
        std::snprintf(text, sizeof(text), "rate range %u-%u is empty", desc.rate_min, desc.rate_max);
    } else if (desc.formats == 0) {
        std::snprintf(text, sizeof(text), "no format accepted");
    } else {
        for (int code = 0; code < 32; ++code) {
            if ((desc.formats & (1u << code)) != 0 && !IsVirtualFormat(static_cast<pcm_format>(code))) {
                std::snprintf(text, sizeof(text), "format %d cannot be served by a virtual PCM", code);
                break;
            }
        }
    }
    if (text[0] != '\0') {
        *error = PcmName(desc.card, desc.device, desc.direction) + ": " + text;
        return false;
    }
    return true;
}

bool ValidateTones(const std::vector<vcard_tone>& tones, std::string* error) {
    if (tones.empty()) {
        *error = "a sine source needs at least one tone";
        return false;
    }
    for (const vcard_tone& tone : tones) {
        if (!std::isfinite(tone.frequency) || tone.frequency < 0) {
            *error = "a tone frequency must be a finite value >= 0";
            return false;
        }
        if (!std::isfinite(tone.amplitude) || tone.amplitude < 0 || tone.amplitude > 32767) {
            *error = "a tone amplitude must lie within 0-32767";
            return false;
        }
    }
    return true;
}

FaultPlan FaultPlanFrom(const vcard_fault_plan* plan) {
    FaultPlan faults;
    if (plan == nullptr) {
        return faults;
    }
    faults.absent = plan->absent != 0;
    faults.failOpen = plan->open_error != nullptr;
    faults.openError = plan->open_error != nullptr ? plan->open_error : "";
    faults.prepare = plan->prepare;
    faults.transferFailAt = plan->transfer_fail_at;
    faults.transferFailCount = plan->transfer_fail_count != 0 ? plan->transfer_fail_count : 1;
    faults.transferKind = plan->transfer_kind;
    return faults;
}

std::string PcmName(unsigned int card, unsigned int device, vcard_direction direction) {
    char text[64];
    std::snprintf(text, sizeof(text), "card %u device %u %s", card, device,
                  direction == VCARD_CAPTURE ? "capture" : "playback");
    return text;
}

}  // namespace tinyalsa
