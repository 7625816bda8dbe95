// AUDIO_AI_LoadFromConfig: the <AI> sections of the configuration file as a list of
// tagAI_XML_CFG_S records.
#include <tinyxml2.h>

#include "audio_config.h"
#include "audio_log.h"
#include "config_xml.h"

namespace {

using audiomw::config::AttrText;
using audiomw::config::SameText;

constexpr const char* kOp = "AUDIO_AI_LoadFromConfig";

const tagAI_DEV_TYPE_E kUnknownAiType = static_cast<tagAI_DEV_TYPE_E>(-1);

void ApplyCombo(tinyxml2::XMLElement* pDevice, tagAI_XML_CFG_S& stCfg) {
    stCfg.stAttr.stComboDev.s32AiCnt = 0;
    parseComboDevAttr(pDevice, stCfg.stAttr.stComboDev);
    const char* pcList = AttrText(pDevice, "AiIdList");
    int s32Items = pcList == nullptr ? 0 : audiomw::config::CountListItems(pcList);
    if (s32Items > AUDIO_AI_COMBO_MAX_NUM) {
        AUDIO_LOG_OP(kOp, UTIL_LOG_WARN,
                     "AiIdList of AI[" CFG_LOG_NAME_FMT "] holds %d ids, only the first %d kept",
                     stCfg.acName, s32Items, AUDIO_AI_COMBO_MAX_NUM);
    }
}

// <Device Type=...>: the device kind and its address. A missing or unknown type leaves
// the record with type -1, which the AI registry refuses to create.
void ApplyDevice(tinyxml2::XMLElement* pDevice, tagAI_XML_CFG_S& stCfg) {
    AI_ATTR_S& stAttr = stCfg.stAttr;
    const char* pcType = AttrText(pDevice, "Type");
    if (pcType == nullptr) {
        stAttr.eType = kUnknownAiType;
        AUDIO_LOG_OP(kOp, UTIL_LOG_WARN,
                     "Missing attr Type of <Device> for AI[" CFG_LOG_NAME_FMT "], type set to -1",
                     stCfg.acName);
    } else if (SameText(pcType, "Alsa")) {
        stAttr.eType = AI_DEV_TYPE_ALSA;
        parseAlsaDevAttr(pDevice, stAttr.stAlsaDev);
    } else if (SameText(pcType, "Combo")) {
        stAttr.eType = AI_DEV_TYPE_COMBO;
        ApplyCombo(pDevice, stCfg);
    } else if (SameText(pcType, "Afile")) {
        stAttr.eType = AI_DEV_TYPE_FILE;
        const char* pcPath = AttrText(pDevice, "FilePath");
        if (pcPath != nullptr) {
            audiomw::config::CopyText(stAttr.acFilePath, sizeof(stAttr.acFilePath), pcPath);
        }
    } else {
        stAttr.eType = kUnknownAiType;
        AUDIO_LOG_OP(kOp, UTIL_LOG_WARN, "Un-support device type " CFG_LOG_VALUE_FMT " for AI", pcType);
    }
}

void ReadAi(tinyxml2::XMLElement* pElem, int s32Index, int& s32Mask, tagAI_XML_CFG_S& stCfg) {
    audiomw::config::ReadDeviceSection(kOp, "AI", pElem, s32Index, s32Mask, stCfg, &AI_ATTR_S::s32FrameLen,
                                       ApplyDevice);
}

}  // namespace

int AUDIO_AI_LoadFromConfig(std::list<tagAI_XML_CFG_S>& list) {
    return audiomw::config::LoadSections(__func__, "AI", list, ReadAi);
}
