// ASTREAM_MERGE_NODE_S: joins the adjacent groups [o, o+a) and [o+a, o+a+b) into one
// interleaved group of a+b channels, each frame A's samples then B's.
#ifndef AUDIOMW_SRC_ASTREAM_ASTREAM_MERGE_NODE_H
#define AUDIOMW_SRC_ASTREAM_ASTREAM_MERGE_NODE_H

#include "audio_astream.h"

struct ASTREAM_MERGE_NODE_S : public ASTREAM_NODE_S {
    ASTREAM_MERGE_NODE_S();
    ~ASTREAM_MERGE_NODE_S() override;

    int init(void* pAttr) override;
    int destroy() override;
    int process(char* pIn, char* pOut, bool& bInPlace) override;
    int setCfg(ASTREAM_OUTPUT_ATTR_S stAttr) override;

    ASTREAM_MERGE_ATTR_S _mstAttr;
};

#endif  // AUDIOMW_SRC_ASTREAM_ASTREAM_MERGE_NODE_H
