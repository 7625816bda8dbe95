// The parts of one <ASTREAM> section that the stream loader reads in passes of their
// own: the AI and AO adjustments and the processing nodes.
#ifndef AUDIOMW_SRC_CONFIG_ASTREAM_SECTION_H
#define AUDIOMW_SRC_CONFIG_ASTREAM_SECTION_H

#include <list>

#include "audio_config.h"

namespace audiomw {
namespace config {

// Every line of the stream loader carries the loader's name.
constexpr const char* kStreamLoaderOp = "AUDIO_ASTREAM_LoadFromConfig";

// Appends the accepted <AiAdj> children of pStream to stCfg.lstAiAdj, in document order.
void ReadAiAdjustments(tinyxml2::XMLElement* pStream, const std::list<tagAI_XML_CFG_S>& aiList,
                       tagASTREAM_XML_CFG_S& stCfg);
// Appends the accepted <AoAdj> children to stCfg.lstAoAdj.
void ReadAoAdjustments(tinyxml2::XMLElement* pStream, const std::list<tagAO_XML_CFG_S>& aoList,
                       tagASTREAM_XML_CFG_S& stCfg);
// Appends the accepted <Node> children to stCfg.stAttr.lstNodeAttr.
void ReadNodes(tinyxml2::XMLElement* pStream, tagASTREAM_XML_CFG_S& stCfg);

}  // namespace config
}  // namespace audiomw

#endif  // AUDIOMW_SRC_CONFIG_ASTREAM_SECTION_H
