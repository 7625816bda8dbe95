// <AiAdj> and <AoAdj> of a stream section: the loaded record of an AI or AO with the
// adjustment's own attributes applied on top.
#include <tinyxml2.h>

#include <cstring>

#include "astream_section.h"
#include "audio_log.h"
#include "config_xml.h"

namespace audiomw {
namespace config {

namespace {

const tagAI_DEV_TYPE_E kUnknownAiType = static_cast<tagAI_DEV_TYPE_E>(-1);

// The stored sample rate stays when the adjustment names none: an adjustment that only
// changes the channel count keeps the rate the AI or AO was loaded with.
void AdjustRate(tinyxml2::XMLElement* pAdj, const char* pcElem, const char* pcKind, int s32Id,
                const tagASTREAM_XML_CFG_S& stCfg, tagAI_SAMPLE_RATE_E& eRate) {
    const char* pcRate = AttrText(pAdj, "SampleRate");
    if (pcRate == nullptr) {
        AUDIO_LOG_OP(kStreamLoaderOp, UTIL_LOG_WARN,
                     "No SampleRate in <%s> of %s[%d] for ASTREAM[" CFG_LOG_NAME_FMT "], keep %d", pcElem,
                     pcKind, s32Id, stCfg.acName, static_cast<int>(eRate));
        return;
    }
    eRate = audioSampleRateStr2Val(pcRate);
}

void AdjustCombo(tinyxml2::XMLElement* pAdj, tagAI_ADJ_CFG_S& stAdj, const tagASTREAM_XML_CFG_S& stCfg) {
    parseComboDevAttr(pAdj, stAdj.stAttr.stComboDev);
    const char* pcList = AttrText(pAdj, "AiIdList");
    int s32Items = pcList == nullptr ? 0 : CountListItems(pcList);
    if (s32Items > AUDIO_AI_COMBO_MAX_NUM) {
        AUDIO_LOG_OP(kStreamLoaderOp, UTIL_LOG_WARN,
                     "AiIdList of AiAdj for AI[%d] in ASTREAM[" CFG_LOG_NAME_FMT
                     "] holds %d ids, only the first %d kept",
                     stAdj.s32AiId, stCfg.acName, s32Items, AUDIO_AI_COMBO_MAX_NUM);
    }
}

// The device part of an AI adjustment, by the loaded AI's type; false for an AI that is
// not in the list or whose type is unusable.
bool AdjustAiDevice(tinyxml2::XMLElement* pAdj, tagAI_ADJ_CFG_S& stAdj, const tagASTREAM_XML_CFG_S& stCfg) {
    AI_ATTR_S& stAttr = stAdj.stAttr;
    switch (stAttr.eType) {
        case AI_DEV_TYPE_COMBO:
            AdjustCombo(pAdj, stAdj, stCfg);
            return true;
        case AI_DEV_TYPE_FILE: {
            const char* pcPath = AttrText(pAdj, "FilePath");
            if (pcPath != nullptr) {
                CopyText(stAttr.acFilePath, sizeof(stAttr.acFilePath), pcPath);
            }
            return true;
        }
        case AI_DEV_TYPE_ALSA:
            parseAlsaDevAttr(pAdj, stAttr.stAlsaDev);
            return true;
        default:
            return false;
    }
}

bool ReadAiAdj(tinyxml2::XMLElement* pAdj, const std::list<tagAI_XML_CFG_S>& aiList,
               const tagASTREAM_XML_CFG_S& stCfg, tagAI_ADJ_CFG_S& stAdj) {
    std::memset(&stAdj, 0, sizeof(stAdj));
    stAdj.s32AiId = AttrIntOr(pAdj, "Id", -1);
    stAdj.stAttr.eType = kUnknownAiType;
    for (const tagAI_XML_CFG_S& stAi : aiList) {
        if (stAi.s32Id == stAdj.s32AiId) {
            stAdj.stAttr = stAi.stAttr;
            break;
        }
    }
    if (!AdjustAiDevice(pAdj, stAdj, stCfg)) {
        AUDIO_LOG_OP(kStreamLoaderOp, UTIL_LOG_WARN, "Bad AI[%d] for ASTREAM adjustment, skip",
                     stAdj.s32AiId);
        return false;
    }
    AdjustRate(pAdj, "AiAdj", "AI", stAdj.s32AiId, stCfg, stAdj.stAttr.eSampleRate);
    AttrInt(pAdj, "Channel", stAdj.stAttr.s32Channel);
    AttrInt(pAdj, "FrameSize", stAdj.stAttr.s32FrameLen);
    return true;
}

bool ReadAoAdj(tinyxml2::XMLElement* pAdj, const std::list<tagAO_XML_CFG_S>& aoList,
               const tagASTREAM_XML_CFG_S& stCfg, tagAO_ADJ_CFG_S& stAdj) {
    std::memset(&stAdj, 0, sizeof(stAdj));
    stAdj.s32AoId = AttrIntOr(pAdj, "Id", -1);
    stAdj.stAttr.eType = -1;
    for (const tagAO_XML_CFG_S& stAo : aoList) {
        if (stAo.s32Id == stAdj.s32AoId) {
            stAdj.stAttr = stAo.stAttr;
            break;
        }
    }
    if (stAdj.stAttr.eType != 0) {
        AUDIO_LOG_OP(kStreamLoaderOp, UTIL_LOG_WARN, "Bad AO[%d] for ASTREAM adjustment, skip",
                     stAdj.s32AoId);
        return false;
    }
    parseAlsaDevAttr(pAdj, stAdj.stAttr.stAlsaDev);
    AdjustRate(pAdj, "AoAdj", "AO", stAdj.s32AoId, stCfg, stAdj.stAttr.eSampleRate);
    AttrInt(pAdj, "Channel", stAdj.stAttr.s32Channel);
    AttrInt(pAdj, "FrameSize", stAdj.stAttr.s32FrameSize);
    return true;
}

}  // namespace

void ReadAiAdjustments(tinyxml2::XMLElement* pStream, const std::list<tagAI_XML_CFG_S>& aiList,
                       tagASTREAM_XML_CFG_S& stCfg) {
    for (tinyxml2::XMLElement* pAdj = pStream->FirstChildElement("AiAdj"); pAdj != nullptr;
         pAdj = pAdj->NextSiblingElement("AiAdj")) {
        tagAI_ADJ_CFG_S stAdj;
        if (ReadAiAdj(pAdj, aiList, stCfg, stAdj)) {
            stCfg.lstAiAdj.push_back(stAdj);
        }
    }
}

void ReadAoAdjustments(tinyxml2::XMLElement* pStream, const std::list<tagAO_XML_CFG_S>& aoList,
                       tagASTREAM_XML_CFG_S& stCfg) {
    for (tinyxml2::XMLElement* pAdj = pStream->FirstChildElement("AoAdj"); pAdj != nullptr;
         pAdj = pAdj->NextSiblingElement("AoAdj")) {
        tagAO_ADJ_CFG_S stAdj;
        if (ReadAoAdj(pAdj, aoList, stCfg, stAdj)) {
            stCfg.lstAoAdj.push_back(stAdj);
        }
    }
}

}  // namespace config
}  // namespace audiomw
