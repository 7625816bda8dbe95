// The three loaders in the application's order on arbitrary file contents: the AI and
// AO lists feed the stream loader, whose records must only hold valid node records. The
// stream list starts with a sentinel record (one node and one adjustment of each kind)
// that a failed load must leave byte for byte and a successful one must replace.
#include <cstring>

#include "audio_config.h"
#include "fuzz_scratch.h"

namespace {

template <typename T>
T Filled() {
    T r;
    std::memset(&r, audiomw_fuzz::kSentinelByte, sizeof(r));
    return r;
}

template <typename T>
bool SameBytes(const std::list<T>& a, const std::list<T>& b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (auto i = a.begin(), j = b.begin(); i != a.end(); ++i, ++j) {
        if (std::memcmp(&*i, &*j, sizeof(T)) != 0) {
            return false;
        }
    }
    return true;
}

tagASTREAM_XML_CFG_S Sentinel() {
    tagASTREAM_XML_CFG_S s;
    std::memset(s.acName, audiomw_fuzz::kSentinelByte, sizeof(s.acName));
    s.s32Id = s.stAttr.s32AiId = s.stAttr.s32WorkerNum = -0x3C3C3C3D;
    s.stAttr.lstNodeAttr.push_back(Filled<ASTREAM_NODE_ATTR_S>());
    s.lstAiAdj.push_back(Filled<tagAI_ADJ_CFG_S>());
    s.lstAoAdj.push_back(Filled<tagAO_ADJ_CFG_S>());
    return s;
}

bool SameStream(const tagASTREAM_XML_CFG_S& a, const tagASTREAM_XML_CFG_S& b) {
    return a.s32Id == b.s32Id && std::memcmp(a.acName, b.acName, sizeof(a.acName)) == 0 &&
           a.stAttr.s32AiId == b.stAttr.s32AiId && a.stAttr.s32WorkerNum == b.stAttr.s32WorkerNum &&
           SameBytes(a.stAttr.lstNodeAttr, b.stAttr.lstNodeAttr) && SameBytes(a.lstAiAdj, b.lstAiAdj) &&
           SameBytes(a.lstAoAdj, b.lstAoAdj);
}

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
    AUDIO_AI_LoadFromConfig(ai);
    AUDIO_AO_LoadFromConfig(ao);
    const tagASTREAM_XML_CFG_S sentinel = Sentinel();
    std::list<tagASTREAM_XML_CFG_S> streams{sentinel};
    int ret = AUDIO_ASTREAM_LoadFromConfig(ai, ao, streams);
    if (ret == -1) {
        if (streams.size() != 1 || !SameStream(sentinel, streams.front())) {
            __builtin_trap();
        }
        return 0;
    }
    if (ret != 0) {
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
