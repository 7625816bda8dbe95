// ASTREAM_NODE_S (declared in audio_astream.h) and the small helpers every node type
// shares: the enable flag, read and written from different threads, and the
// channel-block geometry of the owning stream.
#ifndef AUDIOMW_SRC_ASTREAM_ASTREAM_NODE_H
#define AUDIOMW_SRC_ASTREAM_ASTREAM_NODE_H

#include <cstdint>
#include <cstring>

#include "audio_astream.h"
#include "relaxed_atomic.h"

namespace audiomw {
namespace astream {

// _mbEnable is written by the control thread (dump enable, destroy) while workers test
// it without the node mutex: one 32-bit atomic access each way.
inline bool NodeEnabled(const ASTREAM_NODE_S* pstNode) {
    return LoadRelaxed(pstNode->_mbEnable) != ZN_FALSE;
}

inline void NodeSetEnable(ASTREAM_NODE_S* pstNode, tagZN_BOOL bEnable) {
    StoreRelaxed(pstNode->_mbEnable, bEnable);
}

// Copies a node's record from its pipeline element. The pipeline always passes one; a
// null element disables the node, which then never runs. False when there was none.
template <typename AttrT>
bool CopyRecord(ASTREAM_NODE_S* pstNode, const void* pAttr, AttrT* pstDst) {
    if (pAttr == nullptr) {
        NodeSetEnable(pstNode, ZN_FALSE);
        return false;
    }
    std::memcpy(pstDst, pAttr, sizeof(*pstDst));
    return true;
}

// The owning stream's id, -1 for a node without a stream (log lines only).
inline int StreamId(const ASTREAM_NODE_S* pstNode) {
    return pstNode->_mpHandler != nullptr ? pstNode->_mpHandler->s32StreamId : -1;
}

// The stream's channel count, 0 for a node without a stream.
inline int StreamChannels(const ASTREAM_NODE_S* pstNode) {
    return pstNode->_mpHandler != nullptr ? pstNode->_mpHandler->s32Chn : 0;
}

// Bytes of one channel block: u32BufLen / s32Chn, 0 when the stream has no channels.
inline uint32_t StreamBlockSize(const ASTREAM_NODE_S* pstNode) {
    int s32Chn = StreamChannels(pstNode);
    return s32Chn > 0 ? pstNode->_mpHandler->u32BufLen / static_cast<uint32_t>(s32Chn) : 0;
}

// True when the group [s64Offset, s64Offset + s64Count) of channel blocks lies within
// the stream's s32Chn blocks. Arithmetic in 64 bits, so no record value can overflow it.
inline bool GroupWithin(int64_t s64Offset, int64_t s64Count, int s32Chn) {
    return s64Offset >= 0 && s64Count >= 0 && s64Offset + s64Count <= s32Chn;
}

// Split and merge records: o >= 0, a >= 0, b >= 0, a + b >= 1, o + a + b <= s32Chn.
inline bool SplitMergeValid(int s32Offset, int s32CntA, int s32CntB, int s32Chn) {
    return s32CntA >= 0 && s32CntB >= 0 && static_cast<int64_t>(s32CntA) + s32CntB >= 1 &&
           GroupWithin(s32Offset, static_cast<int64_t>(s32CntA) + s32CntB, s32Chn);
}

// Checks a split or merge record {offset, cnt a, cnt b} against the stream. A record
// outside it is refused with a level-3 line naming the stream, the node (pcName) and the
// values, and the node is disabled: it stays in the pipeline but never runs. 0 or -1.
int CheckSplitMergeRecord(ASTREAM_NODE_S* pstNode, const char* pcName, int s32Offset, int s32CntA,
                          int s32CntB);

}  // namespace astream
}  // namespace audiomw

#endif  // AUDIOMW_SRC_ASTREAM_ASTREAM_NODE_H
