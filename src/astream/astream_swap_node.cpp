#include "astream_swap_node.h"

#include <cstdint>

#include "astream_channel_kernels.h"
#include "astream_node.h"
#include "audio_log.h"

using audiomw::astream::NodeEnabled;
using audiomw::astream::NodeSetEnable;
using audiomw::astream::StreamBlockSize;
using audiomw::astream::StreamChannels;
using audiomw::astream::StreamId;

namespace {

// A map is usable when the stream has 1..20 channels and each of its first s32Chn
// entries names one of them. Returns the index of the first bad entry, -1 when all are
// good, or ASTREAM_SWAP_MAP_NUM when the channel count itself is out of range.
int FindBadEntry(const ASTREAM_SWAP_ATTR_S& stAttr, int s32Chn) {
    if (s32Chn < 1 || s32Chn > ASTREAM_SWAP_MAP_NUM) {
        return ASTREAM_SWAP_MAP_NUM;
    }
    for (int i = 0; i < s32Chn; i++) {
        if (stAttr.as32Map[i] < 0 || stAttr.as32Map[i] >= s32Chn) {
            return i;
        }
    }
    return -1;
}

}  // namespace

ASTREAM_SWAP_NODE_S::ASTREAM_SWAP_NODE_S() : _mstAttr() {}

ASTREAM_SWAP_NODE_S::~ASTREAM_SWAP_NODE_S() {}

int ASTREAM_SWAP_NODE_S::init(void* pAttr) {
    if (!audiomw::astream::CopyRecord(this, pAttr, &_mstAttr)) {
        return -1;
    }
    AUDIO_LOGD("%d, SWAP node\n", __LINE__);
    int s32Chn = StreamChannels(this);
    int s32Bad = FindBadEntry(_mstAttr, s32Chn);
    if (s32Bad == ASTREAM_SWAP_MAP_NUM) {
        AUDIO_LOGE("ASTREAM[%d] SWAP node refused: %d channels, the map holds 1..%d", StreamId(this), s32Chn,
                   ASTREAM_SWAP_MAP_NUM);
    } else if (s32Bad >= 0) {
        AUDIO_LOGE("ASTREAM[%d] SWAP node refused: map[%d] = %d outside %d channels", StreamId(this), s32Bad,
                   _mstAttr.as32Map[s32Bad], s32Chn);
    }
    if (s32Bad >= 0) {
        // Kept in the pipeline but never run: its map would address memory outside the buffers.
        NodeSetEnable(this, ZN_FALSE);
        return -1;
    }
    return 0;
}

int ASTREAM_SWAP_NODE_S::destroy() {
    NodeSetEnable(this, ZN_FALSE);
    return 0;
}

int ASTREAM_SWAP_NODE_S::process(char* pIn, char* pOut, bool& bInPlace) {
    int s32Chn = StreamChannels(this);
    if (!NodeEnabled(this) || FindBadEntry(_mstAttr, s32Chn) >= 0) {
        return -1;
    }
    audiomw::astream::SwapBlocks(reinterpret_cast<const uint8_t*>(pIn), reinterpret_cast<uint8_t*>(pOut),
                                 _mstAttr.as32Map, static_cast<uint32_t>(s32Chn), StreamBlockSize(this));
    bInPlace = false;
    return 0;
}

int ASTREAM_SWAP_NODE_S::setCfg(ASTREAM_OUTPUT_ATTR_S stAttr) {
    (void)stAttr;
    return 0;
}
