// AUDIO_ASTREAM_LoadFromConfig: the <ASTREAM> sections of the configuration file as a
// list of tagASTREAM_XML_CFG_S records.
#include <tinyxml2.h>

#include "astream_section.h"
#include "audio_config.h"
#include "audio_log.h"
#include "config_xml.h"

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
    return audiomw::config::LoadSections(
        __func__, "ASTREAM", list,
        [&](tinyxml2::XMLElement* pStream, int s32Index, int& s32Mask, tagASTREAM_XML_CFG_S& stCfg) {
            ReadStream(pStream, s32Index, s32Mask, aiList, aoList, stCfg);
        });
}
