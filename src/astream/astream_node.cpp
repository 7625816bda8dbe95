#include "astream_node.h"

#include "audio_log.h"

ASTREAM_NODE_S::ASTREAM_NODE_S()
    : _meType(ASTREAM_NODE_TYPE_E_OUTPUT), _mbEnable(ZN_FALSE), _mpHandler(nullptr) {
    pthread_mutex_init(&_mMutex, nullptr);
}

ASTREAM_NODE_S::~ASTREAM_NODE_S() {
    pthread_mutex_destroy(&_mMutex);
}

namespace audiomw {
namespace astream {

int CheckSplitMergeRecord(ASTREAM_NODE_S* pstNode, const char* pcName, int s32Offset, int s32CntA,
                          int s32CntB) {
    int s32Chn = StreamChannels(pstNode);
    if (SplitMergeValid(s32Offset, s32CntA, s32CntB, s32Chn)) {
        return 0;
    }
    AUDIO_LOGE_OP("init", "ASTREAM[%d] %s node refused: offset %d, cnt a %d, cnt b %d outside %d channels",
                  StreamId(pstNode), pcName, s32Offset, s32CntA, s32CntB, s32Chn);
    NodeSetEnable(pstNode, ZN_FALSE);
    return -1;
}

}  // namespace astream
}  // namespace audiomw
