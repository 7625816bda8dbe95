// ASTREAM_SWAP_NODE_S: moves every channel block of pIn to the block its map entry names
// in pOut.
#ifndef AUDIOMW_SRC_ASTREAM_ASTREAM_SWAP_NODE_H
#define AUDIOMW_SRC_ASTREAM_ASTREAM_SWAP_NODE_H

#include "audio_astream.h"

struct ASTREAM_SWAP_NODE_S : public ASTREAM_NODE_S {
    ASTREAM_SWAP_NODE_S();
    ~ASTREAM_SWAP_NODE_S() override;

    int init(void* pAttr) override;
    int destroy() override;
    int process(char* pIn, char* pOut, bool& bInPlace) override;
    int setCfg(ASTREAM_OUTPUT_ATTR_S stAttr) override;

    ASTREAM_SWAP_ATTR_S _mstAttr;
};

#endif  // AUDIOMW_SRC_ASTREAM_ASTREAM_SWAP_NODE_H
