#include "astream_merge_node.h"

#include <cstdint>
#include <cstring>

#include "astream_channel_kernels.h"
#include "astream_node.h"
#include "audio_log.h"

using audiomw::astream::NodeEnabled;
using audiomw::astream::NodeSetEnable;
using audiomw::astream::SplitMergeValid;
using audiomw::astream::StreamBlockSize;
using audiomw::astream::StreamChannels;

ASTREAM_MERGE_NODE_S::ASTREAM_MERGE_NODE_S() : _mstAttr() {}

ASTREAM_MERGE_NODE_S::~ASTREAM_MERGE_NODE_S() {}

int ASTREAM_MERGE_NODE_S::init(void* pAttr) {
    if (!audiomw::astream::CopyRecord(this, pAttr, &_mstAttr)) {
        return -1;
    }
    AUDIO_LOGD("%d, MERGE node\n", __LINE__);
    return audiomw::astream::CheckSplitMergeRecord(this, "MERGE", _mstAttr.s32ChnOffset, _mstAttr.s32ChnCntA,
                                                   _mstAttr.s32ChnCntB);
}

int ASTREAM_MERGE_NODE_S::destroy() {
    NodeSetEnable(this, ZN_FALSE);
    return 0;
}

int ASTREAM_MERGE_NODE_S::process(char* pIn, char* pOut, bool& bInPlace) {
    int s32Chn = StreamChannels(this);
    if (!NodeEnabled(this) ||
        !SplitMergeValid(_mstAttr.s32ChnOffset, _mstAttr.s32ChnCntA, _mstAttr.s32ChnCntB, s32Chn)) {
        return -1;
    }
    const size_t u32Block = StreamBlockSize(this);
    const uint32_t u32Frames = static_cast<uint32_t>(u32Block / 2);
    const uint32_t u32Offset = static_cast<uint32_t>(_mstAttr.s32ChnOffset);
    const uint32_t u32CntA = static_cast<uint32_t>(_mstAttr.s32ChnCntA);
    const uint32_t u32CntB = static_cast<uint32_t>(_mstAttr.s32ChnCntB);
    uint8_t* pu8In = reinterpret_cast<uint8_t*>(pIn);
    uint8_t* pu8Out = reinterpret_cast<uint8_t*>(pOut);
    const size_t u32Start = u32Offset * u32Block;
    const size_t u32StartB = (u32Offset + u32CntA) * u32Block;
    if (audiomw::astream::GroupStaysInPlace(u32CntA + u32CntB, static_cast<uint32_t>(s32Chn))) {
        // The group is rewritten where it lies, with A read from a copy in pOut.
        std::memcpy(pu8Out + u32Start, pu8In + u32Start, u32CntA * u32Block);
        audiomw::astream::MergeFrames(pu8Out + u32Start, pu8In + u32StartB, pu8In + u32Start, u32Frames,
                                      u32CntA, u32CntB);
        bInPlace = true;
        return 0;
    }
    audiomw::astream::MergeFrames(pu8In + u32Start, pu8In + u32StartB, pu8Out + u32Start, u32Frames, u32CntA,
                                  u32CntB);
    audiomw::astream::CompleteAroundGroup(pu8In, pu8Out, u32Offset, u32CntA + u32CntB,
                                          static_cast<uint32_t>(s32Chn), u32Block);
    bInPlace = false;
    return 0;
}

int ASTREAM_MERGE_NODE_S::setCfg(ASTREAM_OUTPUT_ATTR_S stAttr) {
    (void)stAttr;
    return 0;
}
