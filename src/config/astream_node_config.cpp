// <Node> elements of a stream section: one ASTREAM_NODE_ATTR_S per accepted node. Each
// type reads its attributes (integers default to -1 so that a missing one shows) and
// checks the ones it cannot do without; a node that fails is dropped with a warning
// that prints the values as read.
#include <tinyxml2.h>

#include <cstring>

#include "astream_section.h"
#include "audio_log.h"
#include "config_xml.h"

namespace audiomw {
namespace config {

namespace {

// The node being read and the stream it belongs to.
struct NodeCtx {
    tinyxml2::XMLElement* pElem;
    const tagASTREAM_XML_CFG_S& stCfg;
    int s32Number;  // 1 + the nodes accepted so far in this stream
};

int Int(const NodeCtx& ctx, const char* pcName) {
    return AttrIntOr(ctx.pElem, pcName, -1);
}

bool ReadOutput(const NodeCtx& ctx, ASTREAM_OUTPUT_ATTR_S& st) {
    st.s32AoId = Int(ctx, "AoId");
    st.s32ChnOffset = Int(ctx, "ChnOffset");
    st.s32ChnCnt = Int(ctx, "ChnCnt");
    if (st.s32AoId == -1 || st.s32ChnOffset == -1 || st.s32ChnCnt == -1) {
        AUDIO_LOG_OP(kStreamLoaderOp, UTIL_LOG_WARN,
                     "Ignore bad <Node type=\"Output\" AoId=\"%d\" ChnOffset=\"%d\" ChnCnt=\"%d\"/>",
                     st.s32AoId, st.s32ChnOffset, st.s32ChnCnt);
        return false;
    }
    st.s32AudioSourceId = Int(ctx, "AudioSourceId");
    AUDIO_LOG_OP(kStreamLoaderOp, UTIL_LOG_INFO, "StreamId =%d, OuputAoId =%d, AudioSourceId =%d \n",
                 ctx.stCfg.s32Id, st.s32AoId, st.s32AudioSourceId);
    st.s32DumpFrameCount = Int(ctx, "DumpFrameCount");
    AUDIO_LOG_OP(kStreamLoaderOp, UTIL_LOG_INFO, "StreamId =%d, OuputAoId =%d, DumpFrameCount =%d \n",
                 ctx.stCfg.s32Id, st.s32AoId, st.s32DumpFrameCount);
    return true;
}

bool ReadSwap(const NodeCtx& ctx, ASTREAM_SWAP_ATTR_S& st) {
    const char* pcMap = AttrText(ctx.pElem, "Map");
    if (pcMap == nullptr) {
        AUDIO_LOG_OP(kStreamLoaderOp, UTIL_LOG_WARN, "Ignore bad <Node type=\"Swap\" Map=\"NULL\"/>");
        return false;
    }
    parseNumberList(pcMap, st.as32Map, ASTREAM_SWAP_MAP_NUM);
    int s32Items = CountListItems(pcMap);
    if (s32Items > ASTREAM_SWAP_MAP_NUM) {
        AUDIO_LOG_OP(kStreamLoaderOp, UTIL_LOG_WARN,
                     "Map of Swap node %d in ASTREAM[" CFG_LOG_NAME_FMT
                     "] holds %d entries, only the first %d kept",
                     ctx.s32Number, ctx.stCfg.acName, s32Items, ASTREAM_SWAP_MAP_NUM);
    }
    return true;
}

// Split and merge read the same three attributes.
bool ReadSplitOrMerge(const NodeCtx& ctx, const char* pcType, int& s32Offset, int& s32CntA, int& s32CntB) {
    s32Offset = Int(ctx, "ChnOffset");
    s32CntA = Int(ctx, "ChnCntA");
    s32CntB = Int(ctx, "ChnCntB");
    if (s32Offset == -1 || s32CntA == -1 || s32CntB == -1) {
        AUDIO_LOG_OP(kStreamLoaderOp, UTIL_LOG_WARN,
                     "Ignore bad <Node type=\"%s\" ChnOffset=\"%d\" ChnCntA=\"%d\" ChnCntB=\"%d\"/>", pcType,
                     s32Offset, s32CntA, s32CntB);
        return false;
    }
    return true;
}

bool ReadSplit(const NodeCtx& ctx, ASTREAM_SPLIT_ATTR_S& st) {
    return ReadSplitOrMerge(ctx, "Split", st.s32ChnOffset, st.s32ChnCntA, st.s32ChnCntB);
}

bool ReadMerge(const NodeCtx& ctx, ASTREAM_MERGE_ATTR_S& st) {
    return ReadSplitOrMerge(ctx, "Merge", st.s32ChnOffset, st.s32ChnCntA, st.s32ChnCntB);
}

bool ReadMixin(const NodeCtx& ctx, ASTREAM_MIXIN_ATTR_S& st) {
    st.s32TargetIndex = Int(ctx, "TargetIndex");
    st.s32ChnOffset = Int(ctx, "ChnOffset");
    st.s32ChnCnt = Int(ctx, "ChnCnt");
    if (st.s32TargetIndex == -1 || st.s32ChnOffset == -1 || st.s32ChnCnt == -1) {
        AUDIO_LOG_OP(kStreamLoaderOp, UTIL_LOG_WARN,
                     "Ignore bad <Node type=\"Mixin\" TargetIndex=\"%d\" ChnOffset=\"%d\" ChnCnt=\"%d\"/>",
                     st.s32TargetIndex, st.s32ChnOffset, st.s32ChnCnt);
        return false;
    }
    return true;
}

bool ReadDump(const NodeCtx& ctx, ASTREAM_DUMP_ATTR_S& st) {
    const char* pcPath = AttrText(ctx.pElem, "Path");
    CopyText(st.acPath, sizeof(st.acPath), pcPath);
    st.s32ChnOffset = Int(ctx, "ChnOffset");
    st.s32ChnCnt = Int(ctx, "ChnCnt");
    if (pcPath == nullptr || st.s32ChnOffset == -1 || st.s32ChnCnt == -1) {
        // The path as stored: at most its first 63 characters.
        AUDIO_LOG_OP(kStreamLoaderOp, UTIL_LOG_WARN,
                     "Ignore bad <Node type=\"Dump\" Path=\"%s\" ChnOffset=\"%d\" ChnCnt=\"%d\"/>", st.acPath,
                     st.s32ChnOffset, st.s32ChnCnt);
        return false;
    }
    return true;
}

bool ReadOrvaneAlg(const NodeCtx& ctx, ASTREAM_ORVANE_ALG_ATTR_S& st) {
    st.s32MicChnOffset = Int(ctx, "MicChnOffset");
    st.s32MicChnCnt = Int(ctx, "MicChnCnt");
    st.s32LineInChnCnt = Int(ctx, "LineInChnCnt");
    st.s32RefChnOffset = Int(ctx, "RefChnOffset");
    st.s32ExRefChnOffset = Int(ctx, "ExRefChnOffset");
    st.s32AllRefChnOffset = Int(ctx, "AllRefChnOffset");
    if (st.s32MicChnOffset == -1 || st.s32MicChnCnt == -1 || st.s32LineInChnCnt == -1 ||
        st.s32RefChnOffset == -1) {
        AUDIO_LOG_OP(
            kStreamLoaderOp, UTIL_LOG_WARN,
            "Ignore bad <Node type=\"OrvaneAlg\" MicChnOffset=\"%d\" MicChnCnt=\"%d\" LineInChnCnt=\"%d\" "
            "RefChnOffset=\"%d\" />",
            st.s32MicChnOffset, st.s32MicChnCnt, st.s32LineInChnCnt, st.s32RefChnOffset);
        return false;
    }
    return true;
}

// Fills the member of the node's type; false when the node is dropped.
bool ReadTyped(const NodeCtx& ctx, const char* pcType, ASTREAM_NODE_ATTR_S& stNode) {
    if (SameText(pcType, "Output")) {
        stNode.eType = ASTREAM_NODE_TYPE_E_OUTPUT;
        return ReadOutput(ctx, stNode.unAttr.stOutput);
    }
    if (SameText(pcType, "Swap")) {
        stNode.eType = ASTREAM_NODE_TYPE_E_SWAP;
        return ReadSwap(ctx, stNode.unAttr.stSwap);
    }
    if (SameText(pcType, "Split")) {
        stNode.eType = ASTREAM_NODE_TYPE_E_SPLIT;
        return ReadSplit(ctx, stNode.unAttr.stSplit);
    }
    if (SameText(pcType, "Merge")) {
        stNode.eType = ASTREAM_NODE_TYPE_E_MERGE;
        return ReadMerge(ctx, stNode.unAttr.stMerge);
    }
    if (SameText(pcType, "Mixin")) {
        stNode.eType = ASTREAM_NODE_TYPE_E_MIXIN;
        return ReadMixin(ctx, stNode.unAttr.stMixin);
    }
    if (SameText(pcType, "Dump")) {
        stNode.eType = ASTREAM_NODE_TYPE_E_DEBUG_DUMP;
        return ReadDump(ctx, stNode.unAttr.stDump);
    }
    if (SameText(pcType, "OrvaneAlg")) {
        stNode.eType = ASTREAM_NODE_TYPE_E_ORVANE_ALG;
        return ReadOrvaneAlg(ctx, stNode.unAttr.stOrvaneAlg);
    }
    // An unknown kind is dropped rather than turned into an output to AO 0.
    AUDIO_LOG_OP(kStreamLoaderOp, UTIL_LOG_WARN,
                 "Node %d ignored because unknown Type \"" CFG_LOG_VALUE_FMT "\"", ctx.s32Number, pcType);
    return false;
}

}  // namespace

void ReadNodes(tinyxml2::XMLElement* pStream, tagASTREAM_XML_CFG_S& stCfg) {
    std::list<ASTREAM_NODE_ATTR_S>& lstNodes = stCfg.stAttr.lstNodeAttr;
    for (tinyxml2::XMLElement* pNode = pStream->FirstChildElement("Node"); pNode != nullptr;
         pNode = pNode->NextSiblingElement("Node")) {
        NodeCtx ctx{pNode, stCfg, static_cast<int>(lstNodes.size()) + 1};
        const char* pcType = AttrText(pNode, "Type");
        if (pcType == nullptr) {
            AUDIO_LOG_OP(kStreamLoaderOp, UTIL_LOG_WARN, "Node %d ignored because missing attr Type",
                         ctx.s32Number);
            continue;
        }
        ASTREAM_NODE_ATTR_S stNode;
        std::memset(&stNode, 0, sizeof(stNode));
        if (ReadTyped(ctx, pcType, stNode)) {
            lstNodes.push_back(stNode);
        }
    }
}

}  // namespace config
}  // namespace audiomw
