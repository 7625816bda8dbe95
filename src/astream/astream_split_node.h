// ASTREAM_SPLIT_NODE_S: splits the interleaved group [o, o+a+b) into a group of a channels
// followed by a group of b channels.
#ifndef AUDIOMW_SRC_ASTREAM_ASTREAM_SPLIT_NODE_H
#define AUDIOMW_SRC_ASTREAM_ASTREAM_SPLIT_NODE_H

#include "audio_astream.h"

struct ASTREAM_SPLIT_NODE_S : public ASTREAM_NODE_S {
    ASTREAM_SPLIT_NODE_S();
    ~ASTREAM_SPLIT_NODE_S() override;

    int init(void* pAttr) override;
    int destroy() override;
    int process(char* pIn, char* pOut, bool& bInPlace) override;
    int setCfg(ASTREAM_OUTPUT_ATTR_S stAttr) override;

    ASTREAM_SPLIT_ATTR_S _mstAttr;
};

#endif  // AUDIOMW_SRC_ASTREAM_ASTREAM_SPLIT_NODE_H
