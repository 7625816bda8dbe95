// The exported conversions both configuration loaders share: sample-rate names, the
// ALSA and combo device attributes, colon-separated number lists and automatic ids.
#include <tinyxml2.h>

#include <climits>
#include <cstdlib>
#include <cstring>

#include "audio_config.h"
#include "config_xml.h"

namespace {

struct RateName {
    const char* pcName;
    tagAI_SAMPLE_RATE_E eRate;
};

constexpr RateName kRateNames[] = {
    {"8KHZ", AI_SAMPLE_RATE_8000},
    {"16KHZ", AI_SAMPLE_RATE_16000},
    {"32KHZ", AI_SAMPLE_RATE_32000},
    {"48KHZ", AI_SAMPLE_RATE_48000},
};

// One list item by strtol's base-10 rules, clamped to int.
int ItemValue(const char* pcItem) {
    long s64Value = std::strtol(pcItem, nullptr, 10);
    if (s64Value > INT_MAX) {
        return INT_MAX;
    }
    if (s64Value < INT_MIN) {
        return INT_MIN;
    }
    return static_cast<int>(s64Value);
}

}  // namespace

tagAI_SAMPLE_RATE_E audioSampleRateStr2Val(const char* name) {
    for (const RateName& stRate : kRateNames) {
        if (audiomw::config::SameText(name, stRate.pcName)) {
            return stRate.eRate;
        }
    }
    return AI_SAMPLE_RATE_48000;
}

const char* audioSampleRateVal2Str(tagAI_SAMPLE_RATE_E rate) {
    switch (rate) {
        case AI_SAMPLE_RATE_8000:
            return "8KHZ";
        case AI_SAMPLE_RATE_16000:
            return "16KHZ";
        case AI_SAMPLE_RATE_32000:
            return "32KHZ";
        default:
            return "48KHZ";
    }
}

int getUseableId(int& mask) {
    unsigned int u32Mask = static_cast<unsigned int>(mask);
    int s32Id = 0;
    while (s32Id < 31 && (u32Mask & (1u << s32Id)) != 0) {
        s32Id++;
    }
    mask = static_cast<int>(u32Mask | (1u << s32Id));
    return s32Id;
}

int parseAlsaDevAttr(tinyxml2::XMLElement* element, AUDIO_ALSA_DEV_S& dev) {
    if (element != nullptr) {
        audiomw::config::AttrInt(element, "CardId", dev.s32CardId);
        audiomw::config::AttrInt(element, "DevId", dev.s32DevId);
    }
    return 0;
}

int parseComboDevAttr(tinyxml2::XMLElement* element, AUDIO_COMBO_DEV_S& dev) {
    const char* pcList = element == nullptr ? nullptr : audiomw::config::AttrText(element, "AiIdList");
    if (pcList != nullptr) {
        dev.s32AiCnt = parseNumberList(pcList, dev.as32AiId, AUDIO_AI_COMBO_MAX_NUM);
    }
    return 0;
}

int parseNumberList(const char* text, int* out, int max) {
    if (text == nullptr || out == nullptr || max <= 0) {
        return 0;
    }
    int s32Count = 0;
    const char* pcItem = text;
    while (s32Count < max) {
        out[s32Count++] = ItemValue(pcItem);
        const char* pcColon = std::strchr(pcItem, ':');
        if (pcColon == nullptr) {
            break;
        }
        pcItem = pcColon + 1;
    }
    return s32Count;
}
