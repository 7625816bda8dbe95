#include "astream_output_node.h"

#include <cstdio>
#include <cstring>

#include "astream_node.h"
#include "audio_ao.h"
#include "audio_log.h"
#include "relaxed_atomic.h"
#include "root_path.h"

namespace {

tagZN_BOOL LoadConnect(const ASTREAM_OUTPUT_ATTR_S& stAttr) {
    return audiomw::LoadRelaxed(stAttr.bLineInConnect);
}

// True when the group to send lies inside the stream's channel blocks. A group of 0
// channels is empty, not outside: it is sent (an empty write) and recorded like any other.
bool GroupFits(const ASTREAM_OUTPUT_NODE_S* pNode) {
    return audiomw::astream::GroupWithin(pNode->_mstAttr.s32ChnOffset, pNode->_mstAttr.s32ChnCnt,
                                         audiomw::astream::StreamChannels(pNode));
}

}  // namespace

ASTREAM_OUTPUT_NODE_S::ASTREAM_OUTPUT_NODE_S() {
    std::memset(&_mstAttr, 0, sizeof(_mstAttr));
}

ASTREAM_OUTPUT_NODE_S::~ASTREAM_OUTPUT_NODE_S() {}

int ASTREAM_OUTPUT_NODE_S::init(void* pAttr) {
    std::memcpy(&_mstAttr, pAttr, sizeof(_mstAttr));
    if (!GroupFits(this)) {
        AUDIO_LOGE(
            "ASTREAM[%d] node type[%d] channel group offset %d count %d outside %d channels, nothing is sent",
            audiomw::astream::StreamId(this), _meType, _mstAttr.s32ChnOffset, _mstAttr.s32ChnCnt,
            audiomw::astream::StreamChannels(this));
    }
    (void)AUDIO_AO_SetEnable(_mstAttr.s32AoId, ZN_TRUE);
    AUDIO_LOGD("%d, OUTPUT node\n", __LINE__);
    return AUDIO_AO_isReady(_mstAttr.s32AoId) ? 0 : -1;
}

int ASTREAM_OUTPUT_NODE_S::destroy() {
    (void)AUDIO_AO_SetEnable(_mstAttr.s32AoId, ZN_FALSE);
    return 0;
}

int ASTREAM_OUTPUT_NODE_S::setCfg(ASTREAM_OUTPUT_ATTR_S stAttr) {
    audiomw::StoreRelaxed(_mstAttr.bLineInConnect, stAttr.bLineInConnect);
    std::printf("%s-%d: bLineInConnect =%d \n", "setCfg", __LINE__, stAttr.bLineInConnect);
    return 0;
}

int ASTREAM_OUTPUT_NODE_S::process(char* pIn, char* pOut, bool& bInPlace) {
    bInPlace = true;
    if (_mstAttr.s32AoId == 1 && _mstAttr.s32DumpFrameCount > 0) {
        _mstAttr.s32DumpFrameCount--;
        return 0;
    }
    if (audiomw::MarkerExists("/var/debuglog")) {
        std::printf("%s-%d: Conn =%d, SourceId =%d, AoId =%d \n", "process", __LINE__, LoadConnect(_mstAttr),
                    _mstAttr.s32AudioSourceId, _mstAttr.s32AoId);
    }
    if (!GroupFits(this)) {
        return -1;
    }
    unsigned int u32Block = audiomw::astream::StreamBlockSize(this);
    unsigned int u32Start = static_cast<unsigned int>(_mstAttr.s32ChnOffset) * u32Block;
    unsigned int u32Len = static_cast<unsigned int>(_mstAttr.s32ChnCnt) * u32Block;

    bool bSilence = false;
    if (_mstAttr.s32AudioSourceId == ASTREAM_SOURCE_LINE_IN && _mstAttr.s32AoId == 0) {
        // Only a GPIO level of 1 means "disconnected"; an unreadable GPIO (-1) changes nothing.
        if (LoadConnect(_mstAttr) == 1 && BSP_GetGpioValue(ASTREAM_LINE_IN_GPIO) == 1) {
            AUDIO_ASTREAM_LineInDectMutexLock();
            AUDIO_ASTREAM_SetLineInConnetState(ZN_FALSE);
            AUDIO_ASTREAM_LineInDectMutexUnlock();
        }
        bSilence = LoadConnect(_mstAttr) == 0;
    }
    if (bSilence) {
        std::memset(pOut + u32Start, 0, u32Len);
        (void)AUDIO_AO_Write(_mstAttr.s32AoId, reinterpret_cast<unsigned char*>(pOut + u32Start), u32Len);
    } else {
        (void)AUDIO_AO_Write(_mstAttr.s32AoId, reinterpret_cast<unsigned char*>(pIn + u32Start), u32Len);
    }
    if (_mstAttr.s32AoId == 0) {
        ASTREAM_RecordOutputData(pIn + u32Start, static_cast<int>(u32Len));
    }
    return 0;
}
