// AUDIO_AO_LoadFromConfig: the <AO> sections of the configuration file as a list of
// tagAO_XML_CFG_S records.
#include <tinyxml2.h>

#include "audio_config.h"
#include "audio_log.h"
#include "config_xml.h"

namespace {

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

void ReadAo(tinyxml2::XMLElement* pElem, int s32Index, int& s32Mask, tagAO_XML_CFG_S& stCfg) {
    audiomw::config::ReadDeviceSection(kOp, "AO", pElem, s32Index, s32Mask, stCfg, &AO_ATTR_S::s32FrameSize,
                                       ApplyDevice);
}

}  // namespace

int AUDIO_AO_LoadFromConfig(std::list<tagAO_XML_CFG_S>& list) {
    return audiomw::config::LoadSections(__func__, "AO", list, ReadAo);
}
