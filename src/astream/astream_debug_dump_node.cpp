#include "astream_debug_dump_node.h"

#include <unistd.h>

#include <cstring>

#include "astream_lifecycle.h"
#include "astream_node.h"
#include "audio_log.h"

using audiomw::astream::GroupWithin;
using audiomw::astream::NodeEnabled;
using audiomw::astream::NodeSetEnable;
using audiomw::astream::StreamBlockSize;
using audiomw::astream::StreamChannels;
using audiomw::astream::StreamId;

namespace {

// The group must lie within the stream's blocks: 0 <= o, 0 <= c, o + c <= s32Chn.
bool DumpGroupValid(const ASTREAM_DUMP_ATTR_S& stAttr, int s32Chn) {
    return s32Chn >= 1 && GroupWithin(stAttr.s32ChnOffset, stAttr.s32ChnCnt, s32Chn);
}

}  // namespace

ASTREAM_DEBUG_DUMP_NODE_S::ASTREAM_DEBUG_DUMP_NODE_S() : _mstAttr(), _mpFile(nullptr), _mu32WriteLen(0) {}

ASTREAM_DEBUG_DUMP_NODE_S::~ASTREAM_DEBUG_DUMP_NODE_S() {}

int ASTREAM_DEBUG_DUMP_NODE_S::init(void* pAttr) {
    AUDIO_LOGD("%d, DUMP node\n", __LINE__);
    NodeSetEnable(this, ZN_FALSE);
    if (pAttr == nullptr) {
        return -1;
    }
    std::memcpy(&_mstAttr, pAttr, sizeof(_mstAttr));
    _mstAttr.acPath[ASTREAM_DUMP_PATH_LEN - 1] = '\0';
    int s32Chn = StreamChannels(this);
    if (!DumpGroupValid(_mstAttr, s32Chn)) {
        // No file is made, so enabling the node later writes nothing.
        AUDIO_LOGE("ASTREAM[%d] DUMP node refused: offset %d, cnt %d outside %d channels", StreamId(this),
                   _mstAttr.s32ChnOffset, _mstAttr.s32ChnCnt, s32Chn);
        return -1;
    }
    if (access(_mstAttr.acPath, F_OK) == 0) {
        std::remove(_mstAttr.acPath);
    }
    _mpFile = std::fopen(_mstAttr.acPath, "w+");
    if (_mpFile == nullptr) {
        AUDIO_LOGE("dump file %s create failed", _mstAttr.acPath);
        return -1;
    }
    // Unbuffered: each frame period is one write, as flushing after every write would
    // make it anyway, and stdio never allocates a buffer on a worker thread.
    std::setvbuf(_mpFile, nullptr, _IONBF, 0);
    _mu32WriteLen = 0;
    AUDIO_LOGD("dump to %s", _mstAttr.acPath);
    return 0;
}

int ASTREAM_DEBUG_DUMP_NODE_S::destroy() {
    NodeSetEnable(this, ZN_FALSE);
    if (_mpFile != nullptr) {
        std::fclose(_mpFile);
        _mpFile = nullptr;
    }
    AUDIO_LOGD("dump file %s closed, _mu32WriteLen:%u", _mstAttr.acPath, _mu32WriteLen);
    return 0;
}

int ASTREAM_DEBUG_DUMP_NODE_S::process(char* pIn, char* pOut, bool& bInPlace) {
    (void)pOut;
    if (!NodeEnabled(this)) {
        return 0;
    }
    if (_mpFile == nullptr || !DumpGroupValid(_mstAttr, StreamChannels(this))) {
        bInPlace = true;
        return 0;
    }
    const size_t u32Block = StreamBlockSize(this);
    size_t u32Written = std::fwrite(pIn + static_cast<size_t>(_mstAttr.s32ChnOffset) * u32Block, 1,
                                    static_cast<size_t>(_mstAttr.s32ChnCnt) * u32Block, _mpFile);
    bInPlace = true;
    _mu32WriteLen += static_cast<unsigned int>(u32Written);
    std::fflush(_mpFile);
    return 0;
}

int ASTREAM_DEBUG_DUMP_NODE_S::setCfg(ASTREAM_OUTPUT_ATTR_S stAttr) {
    (void)stAttr;
    return 0;
}

int AUDIO_ASTREAM_enableDumpNode(int s32StreamId, tagZN_BOOL eEnable) {
    AUDIO_LOGI("enable dump node event, eEnable:%d.\n", eEnable);
    if (s32StreamId < 0 || s32StreamId >= ASTREAM_MAX_NUM) {
        return 0;
    }
    // The slot lock keeps the stream from being destroyed while its nodes are walked.
    audiomw::astream::LockSlots();
    ASTREAM_HANDLER_S* pstHandler = gs_AstreamHandler[s32StreamId];
    if (pstHandler != nullptr) {
        for (ASTREAM_NODE_S* pstNode : pstHandler->lstNode) {
            if (pstNode->_meType == ASTREAM_NODE_TYPE_E_DEBUG_DUMP) {
                NodeSetEnable(pstNode, eEnable);
            }
        }
    }
    audiomw::astream::UnlockSlots();
    return 0;
}
