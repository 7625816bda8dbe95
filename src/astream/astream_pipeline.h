// A stream's node chain: the factory table that makes a node from its type code, and
// AUDIO_ASTREAM_InitPipeline / AUDIO_ASTREAM_DestroyPipeline (declared in
// audio_astream.h).
#ifndef AUDIOMW_SRC_ASTREAM_ASTREAM_PIPELINE_H
#define AUDIOMW_SRC_ASTREAM_ASTREAM_PIPELINE_H

#include "audio_astream.h"

namespace audiomw {
namespace astream {

// A new zero-filled node of the class that serves eType, or null when no class serves
// the code or the allocation failed (*pbKnown tells which).
ASTREAM_NODE_S* CreateNode(ASTREAM_NODE_TYPE_E eType, bool* pbKnown);

// What AUDIO_ASTREAM_DestroyPipeline does, for the lifecycle calls, which tear down a
// pipeline no worker runs any more (also when Create runs on a worker).
void DestroyNodes(ASTREAM_HANDLER_S* pstHandler);

}  // namespace astream
}  // namespace audiomw

#endif  // AUDIOMW_SRC_ASTREAM_ASTREAM_PIPELINE_H
