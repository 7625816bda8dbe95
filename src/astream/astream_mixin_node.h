// ASTREAM_MIXIN_NODE_S: averages the target block with a group of blocks, in place:
// target = (target + sum of the group's channels) / (c + 1) per frame.
#ifndef AUDIOMW_SRC_ASTREAM_ASTREAM_MIXIN_NODE_H
#define AUDIOMW_SRC_ASTREAM_ASTREAM_MIXIN_NODE_H

#include "audio_astream.h"

struct ASTREAM_MIXIN_NODE_S : public ASTREAM_NODE_S {
    ASTREAM_MIXIN_NODE_S();
    ~ASTREAM_MIXIN_NODE_S() override;

    int init(void* pAttr) override;
    int destroy() override;
    int process(char* pIn, char* pOut, bool& bInPlace) override;
    int setCfg(ASTREAM_OUTPUT_ATTR_S stAttr) override;

    ASTREAM_MIXIN_ATTR_S _mstAttr;
};

#endif  // AUDIOMW_SRC_ASTREAM_ASTREAM_MIXIN_NODE_H
