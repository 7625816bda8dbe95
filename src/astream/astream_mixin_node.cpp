#include "astream_mixin_node.h"

#include <cstdint>

#include "astream_channel_kernels.h"
#include "astream_node.h"
#include "audio_log.h"

using audiomw::astream::GroupWithin;
using audiomw::astream::NodeEnabled;
using audiomw::astream::NodeSetEnable;
using audiomw::astream::StreamBlockSize;
using audiomw::astream::StreamChannels;
using audiomw::astream::StreamId;

namespace {

// 0 <= t < s32Chn, o >= 0, c >= 0, o + c <= s32Chn.
bool MixinValid(const ASTREAM_MIXIN_ATTR_S& stAttr, int s32Chn) {
    return stAttr.s32TargetIndex >= 0 && stAttr.s32TargetIndex < s32Chn &&
           GroupWithin(stAttr.s32ChnOffset, stAttr.s32ChnCnt, s32Chn);
}

}  // namespace

ASTREAM_MIXIN_NODE_S::ASTREAM_MIXIN_NODE_S() : _mstAttr() {}

ASTREAM_MIXIN_NODE_S::~ASTREAM_MIXIN_NODE_S() {}

int ASTREAM_MIXIN_NODE_S::init(void* pAttr) {
    if (!audiomw::astream::CopyRecord(this, pAttr, &_mstAttr)) {
        return -1;
    }
    AUDIO_LOGD("%d, MIXIN node\n", __LINE__);
    int s32Chn = StreamChannels(this);
    if (!MixinValid(_mstAttr, s32Chn)) {
        AUDIO_LOGE("ASTREAM[%d] MIXIN node refused: target %d, offset %d, cnt %d outside %d channels",
                   StreamId(this), _mstAttr.s32TargetIndex, _mstAttr.s32ChnOffset, _mstAttr.s32ChnCnt,
                   s32Chn);
        // Kept in the pipeline but never run: the record would address memory outside the buffers.
        NodeSetEnable(this, ZN_FALSE);
        return -1;
    }
    return 0;
}

int ASTREAM_MIXIN_NODE_S::destroy() {
    NodeSetEnable(this, ZN_FALSE);
    return 0;
}

int ASTREAM_MIXIN_NODE_S::process(char* pIn, char* pOut, bool& bInPlace) {
    (void)pOut;
    if (!NodeEnabled(this) || !MixinValid(_mstAttr, StreamChannels(this))) {
        return -1;
    }
    const size_t u32Block = StreamBlockSize(this);
    uint8_t* pu8In = reinterpret_cast<uint8_t*>(pIn);
    audiomw::astream::MixinFrames(pu8In + static_cast<size_t>(_mstAttr.s32TargetIndex) * u32Block,
                                  pu8In + static_cast<size_t>(_mstAttr.s32ChnOffset) * u32Block,
                                  static_cast<uint32_t>(u32Block / 2),
                                  static_cast<uint32_t>(_mstAttr.s32ChnCnt));
    bInPlace = true;
    return 0;
}

int ASTREAM_MIXIN_NODE_S::setCfg(ASTREAM_OUTPUT_ATTR_S stAttr) {
    (void)stAttr;
    return 0;
}
