#include "astream_pipeline.h"

#include <new>

#include "astream_debug_dump_node.h"
#include "astream_merge_node.h"
#include "astream_mixin_node.h"
#include "astream_output_node.h"
#include "astream_split_node.h"
#include "astream_threads.h"
#include "astream_swap_node.h"
#include "audio_alg.h"
#include "audio_log.h"

namespace audiomw {
namespace astream {

namespace {

struct NodeFactory {
    ASTREAM_NODE_TYPE_E eType;
    ASTREAM_NODE_S* (*pfnCreate)();
};

template <typename T>
ASTREAM_NODE_S* NewNode() {
    return new (std::nothrow) T();
}

// Every node type the library builds, by type code. A code missing here is refused.
constexpr NodeFactory kNodeFactories[] = {
    {ASTREAM_NODE_TYPE_E_OUTPUT, &NewNode<ASTREAM_OUTPUT_NODE_S>},
    {ASTREAM_NODE_TYPE_E_SWAP, &NewNode<ASTREAM_SWAP_NODE_S>},
    {ASTREAM_NODE_TYPE_E_SPLIT, &NewNode<ASTREAM_SPLIT_NODE_S>},
    {ASTREAM_NODE_TYPE_E_MERGE, &NewNode<ASTREAM_MERGE_NODE_S>},
    {ASTREAM_NODE_TYPE_E_MIXIN, &NewNode<ASTREAM_MIXIN_NODE_S>},
    {ASTREAM_NODE_TYPE_E_ORVANE_ALG, &NewNode<ASTREAM_ORVANE_ALG_NODE_S>},
    {ASTREAM_NODE_TYPE_E_DEBUG_DUMP, &NewNode<ASTREAM_DEBUG_DUMP_NODE_S>},
};

void DeleteNodes(ASTREAM_HANDLER_S* pstHandler) {
    for (ASTREAM_NODE_S* pstNode : pstHandler->lstNode) {
        pstNode->destroy();
        delete pstNode;
    }
    pstHandler->lstNode.clear();
}

// Failure exit of the build: every node built so far is destroyed, in list order.
int UndoPipeline(ASTREAM_HANDLER_S* pstHandler) {
    AUDIO_LOGW_OP("AUDIO_ASTREAM_InitPipeline", "ASTREAM[%d] create failed, destroy",
                  pstHandler->s32StreamId);
    DeleteNodes(pstHandler);
    return -1;
}

// Appends the node; a list link that cannot be allocated counts as a failed node
// allocation.
bool AppendNode(ASTREAM_HANDLER_S* pstHandler, ASTREAM_NODE_S* pstNode) {
    try {
        pstHandler->lstNode.push_back(pstNode);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

}  // namespace

void DestroyNodes(ASTREAM_HANDLER_S* pstHandler) {
    DeleteNodes(pstHandler);
    AUDIO_LOGI_OP("AUDIO_ASTREAM_DestroyPipeline", "ASTREAM[%d] pipeline destroyed", pstHandler->s32StreamId);
}

ASTREAM_NODE_S* CreateNode(ASTREAM_NODE_TYPE_E eType, bool* pbKnown) {
    for (const NodeFactory& stFactory : kNodeFactories) {
        if (stFactory.eType == eType) {
            *pbKnown = true;
            return stFactory.pfnCreate();
        }
    }
    *pbKnown = false;
    return nullptr;
}

}  // namespace astream
}  // namespace audiomw

int AUDIO_ASTREAM_InitPipeline(ASTREAM_HANDLER_S* pstHandler, ASTREAM_ATTR_S* pstAttr) {
    if (pstHandler == nullptr || pstAttr == nullptr) {
        AUDIO_LOGE("ASTREAM pipeline init with a null %s",
                   pstHandler == nullptr ? "stream" : "attribute record");
        return -1;
    }
    const int s32Id = pstHandler->s32StreamId;
    for (ASTREAM_NODE_ATTR_S& stNodeAttr : pstAttr->lstNodeAttr) {
        const int s32Type = stNodeAttr.eType;
        bool bKnown = false;
        ASTREAM_NODE_S* pstNode = audiomw::astream::CreateNode(stNodeAttr.eType, &bKnown);
        if (!bKnown) {
            AUDIO_LOGE("ASTREAM[%d] pipeline node type[%d] not support yet", s32Id, s32Type);
            return audiomw::astream::UndoPipeline(pstHandler);
        }
        if (pstNode == nullptr) {
            AUDIO_LOGE("ASTREAM[%d] pipeline node type[%d] malloc failed", s32Id, s32Type);
            return audiomw::astream::UndoPipeline(pstHandler);
        }
        pstNode->_mpHandler = pstHandler;
        pstNode->_meType = stNodeAttr.eType;
        pstNode->_mbEnable = ZN_TRUE;
        if (pstNode->init(&stNodeAttr.unAttr) != 0) {
            // Kept all the same: the node's own init left it in a state it can run in.
            AUDIO_LOGE("ASTREAM[%d] pipeline node type[%d] init failed", s32Id, s32Type);
        }
        if (!audiomw::astream::AppendNode(pstHandler, pstNode)) {
            pstNode->destroy();
            delete pstNode;
            AUDIO_LOGE("ASTREAM[%d] pipeline node type[%d] malloc failed", s32Id, s32Type);
            return audiomw::astream::UndoPipeline(pstHandler);
        }
        AUDIO_LOGI("ASTREAM[%d] add node type[%d]", s32Id, s32Type);
    }
    return 0;
}

int AUDIO_ASTREAM_DestroyPipeline(ASTREAM_HANDLER_S* pstHandler) {
    if (pstHandler == nullptr) {
        return 0;
    }
    if (audiomw::astream::WorkerStreamId() >= 0) {
        // A worker runs inside a pipeline: freeing nodes there frees what it, or another
        // worker, is running.
        AUDIO_LOGE(
            "ASTREAM[%d] pipeline destroy refused: called on a worker of ASTREAM[%d], call it from a "
            "control thread",
            pstHandler->s32StreamId, audiomw::astream::WorkerStreamId());
        return -1;
    }
    audiomw::astream::DestroyNodes(pstHandler);
    return 0;
}
