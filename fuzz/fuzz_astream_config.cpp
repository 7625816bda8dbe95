// The three loaders in the application's order on arbitrary file contents: the AI and
// AO lists feed the stream loader, whose records must only hold valid node records.
#include <cstring>

#include "audio_config.h"
#include "fuzz_scratch.h"

namespace {

bool ValidNode(const ASTREAM_NODE_ATTR_S& n) {
    switch (n.eType) {
        case ASTREAM_NODE_TYPE_E_OUTPUT:
            return n.unAttr.stOutput.bLineInConnect == 0;
        case ASTREAM_NODE_TYPE_E_SWAP:
        case ASTREAM_NODE_TYPE_E_SPLIT:
        case ASTREAM_NODE_TYPE_E_MERGE:
        case ASTREAM_NODE_TYPE_E_MIXIN:
            return true;
        case ASTREAM_NODE_TYPE_E_DEBUG_DUMP:
            return strnlen(n.unAttr.stDump.acPath, sizeof(n.unAttr.stDump.acPath)) <
                   sizeof(n.unAttr.stDump.acPath);
        case ASTREAM_NODE_TYPE_E_ORVANE_ALG:
            return n.unAttr.stOrvaneAlg.pfnFrameCallback == nullptr &&
                   n.unAttr.stOrvaneAlg.pCallbackArg == nullptr;
        default:
            return false;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    audiomw_fuzz::SetUpScratchRoot();
    audiomw_fuzz::WriteConfig(data, size);
    std::list<tagAI_XML_CFG_S> ai;
    std::list<tagAO_XML_CFG_S> ao;
    std::list<tagASTREAM_XML_CFG_S> streams;
    AUDIO_AI_LoadFromConfig(ai);
    AUDIO_AO_LoadFromConfig(ao);
    int ret = AUDIO_ASTREAM_LoadFromConfig(ai, ao, streams);
    if (ret != 0 && ret != -1) {
        __builtin_trap();
    }
    for (const tagASTREAM_XML_CFG_S& s : streams) {
        if (s.s32Id < 0) {
            __builtin_trap();
        }
        for (const ASTREAM_NODE_ATTR_S& n : s.stAttr.lstNodeAttr) {
            if (!ValidNode(n)) {
                __builtin_trap();
            }
        }
        for (const tagAO_ADJ_CFG_S& a : s.lstAoAdj) {
            if (a.stAttr.eType != 0) {
                __builtin_trap();
            }
        }
    }
    return 0;
}
