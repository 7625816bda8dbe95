// AUDIO_ASTREAM_LoadFromConfig: the <ASTREAM> sections of the configuration file as a
// list of tagASTREAM_XML_CFG_S records.
#include <tinyxml2.h>

#include "astream_section.h"
#include "audio_config.h"
#include "audio_log.h"
#include "config_xml.h"
#include "root_path.h"

namespace {

void ReadStream(tinyxml2::XMLElement* pStream, int s32Index, int& s32Mask,
                const std::list<tagAI_XML_CFG_S>& aiList, const std::list<tagAO_XML_CFG_S>& aoList,
                tagASTREAM_XML_CFG_S& stCfg) {
    using audiomw::config::AttrInt;
    stCfg.s32Id = audiomw::config::ReadSectionHead(audiomw::config::kStreamLoaderOp, "ASTREAM", pStream,
                                                   s32Index, s32Mask, stCfg.acName);
    stCfg.stAttr.s32AiId = 0;
    stCfg.stAttr.s32WorkerNum = 0;
    AttrInt(pStream, "AiId", stCfg.stAttr.s32AiId);
    AttrInt(pStream, "Worker", stCfg.stAttr.s32WorkerNum);
    audiomw::config::ReadAiAdjustments(pStream, aiList, stCfg);
    audiomw::config::ReadAoAdjustments(pStream, aoList, stCfg);
    audiomw::config::ReadNodes(pStream, stCfg);
}

}  // namespace

int AUDIO_ASTREAM_LoadFromConfig(const std::list<tagAI_XML_CFG_S>& aiList,
                                 const std::list<tagAO_XML_CFG_S>& aoList,
                                 std::list<tagASTREAM_XML_CFG_S>& list) {
    int s32Mask = 0;
    char acPath[audiomw::kRootPathMax] = {0};
    audiomw::config::DocPtr pDoc = audiomw::config::LoadDocument(acPath, sizeof(acPath));
    if (pDoc == nullptr) {
        AUDIO_LOGE("load ASTREAM from %s failed\n", acPath);
        return -1;
    }
    tinyxml2::XMLElement* pAudio = audiomw::config::AudioRoot(pDoc.get());
    if (pAudio == nullptr) {
        AUDIO_LOGE("<%s> not found\n", "Audio");
        return -1;
    }
    list.clear();
    int s32Index = 0;
    for (tinyxml2::XMLElement* pStream = pAudio->FirstChildElement("ASTREAM"); pStream != nullptr;
         pStream = pStream->NextSiblingElement("ASTREAM")) {
        list.emplace_back();
        ReadStream(pStream, ++s32Index, s32Mask, aiList, aoList, list.back());
    }
    for (tagASTREAM_XML_CFG_S& stCfg : list) {
        if (stCfg.s32Id < 0) {
            stCfg.s32Id = getUseableId(s32Mask);
        }
    }
    return 0;
}
