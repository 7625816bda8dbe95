// AUDIO_AO_LoadFromConfig: the <AO> sections of the configuration file as a list of
// tagAO_XML_CFG_S records.
#include <tinyxml2.h>

#include <cstring>

#include "audio_config.h"
#include "audio_log.h"
#include "config_xml.h"

namespace {

using audiomw::config::AttrInt;
using audiomw::config::AttrText;
using audiomw::config::SameText;

constexpr const char* kOp = "AUDIO_AO_LoadFromConfig";

// <Device Type=...>: only ALSA playback exists; anything else leaves type -1, which the
// AO registry refuses to create.
void ApplyDevice(tinyxml2::XMLElement* pDevice, tagAO_XML_CFG_S& stCfg) {
    const char* pcType = AttrText(pDevice, "Type");
    if (pcType == nullptr) {
        stCfg.stAttr.eType = -1;
        AUDIO_LOG_OP(kOp, UTIL_LOG_WARN,
                     "Missing attr Type of <Device> for AO[" CFG_LOG_NAME_FMT "], type set to -1",
                     stCfg.acName);
    } else if (SameText(pcType, "Alsa")) {
        stCfg.stAttr.eType = 0;
        parseAlsaDevAttr(pDevice, stCfg.stAttr.stAlsaDev);
    } else {
        stCfg.stAttr.eType = -1;
        AUDIO_LOG_OP(kOp, UTIL_LOG_WARN, "Un-support device type " CFG_LOG_VALUE_FMT " for AO", pcType);
    }
}

void ApplySampleRate(tinyxml2::XMLElement* pElem, tagAO_XML_CFG_S& stCfg) {
    const char* pcRate = AttrText(pElem, "Cur");
    if (pcRate == nullptr) {
        AUDIO_LOG_OP(kOp, UTIL_LOG_WARN,
                     "Missing attr Cur of <SampleRate> for AO[" CFG_LOG_NAME_FMT "], rate unchanged",
                     stCfg.acName);
        return;
    }
    stCfg.stAttr.eSampleRate = audioSampleRateStr2Val(pcRate);
}

void ApplyChild(tinyxml2::XMLElement* pChild, tagAO_XML_CFG_S& stCfg) {
    const char* pcTag = pChild->Value();
    if (SameText(pcTag, "Device")) {
        ApplyDevice(pChild, stCfg);
    } else if (SameText(pcTag, "SampleRate")) {
        ApplySampleRate(pChild, stCfg);
    } else if (SameText(pcTag, "Channel")) {
        AttrInt(pChild, "Cur", stCfg.stAttr.s32Channel);
    } else if (SameText(pcTag, "FrameSize")) {
        AttrInt(pChild, "Cur", stCfg.stAttr.s32FrameSize);
    } else if (SameText(pcTag, "Volume")) {
        AttrInt(pChild, "Cur", stCfg.stAttr.s32Volume);
    } else {
        AUDIO_LOG_OP(kOp, UTIL_LOG_WARN, "Un-support sub node <" CFG_LOG_VALUE_FMT "> for AO", pcTag);
    }
}

void ReadAo(tinyxml2::XMLElement* pAo, int s32Index, int& s32Mask, tagAO_XML_CFG_S& stCfg) {
    std::memset(&stCfg, 0, sizeof(stCfg));
    stCfg.s32Id = audiomw::config::ReadSectionHead(kOp, "AO", pAo, s32Index, s32Mask, stCfg.acName);
    for (tinyxml2::XMLElement* pChild = pAo->FirstChildElement(nullptr); pChild != nullptr;
         pChild = pChild->NextSiblingElement(nullptr)) {
        ApplyChild(pChild, stCfg);
    }
}

}  // namespace

int AUDIO_AO_LoadFromConfig(std::list<tagAO_XML_CFG_S>& list) {
    return audiomw::config::LoadSections(__func__, "AO", list, ReadAo);
}
