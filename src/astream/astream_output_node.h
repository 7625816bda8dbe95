// ASTREAM_OUTPUT_NODE_S: sends one channel group of every frame period to an AO, or
// silence in its place while the line-in source it carries to AO 0 is not connected.
#ifndef AUDIOMW_SRC_ASTREAM_ASTREAM_OUTPUT_NODE_H
#define AUDIOMW_SRC_ASTREAM_ASTREAM_OUTPUT_NODE_H

#include "audio_astream.h"

// The source id that marks a group carrying the line-in source.
#define ASTREAM_SOURCE_LINE_IN 1
// GPIO input that reads 1 while the line-in is not connected.
#define ASTREAM_LINE_IN_GPIO 14

struct ASTREAM_OUTPUT_NODE_S : public ASTREAM_NODE_S {
    ASTREAM_OUTPUT_NODE_S();
    ~ASTREAM_OUTPUT_NODE_S() override;

    int init(void* pAttr) override;
    int destroy() override;
    int process(char* pIn, char* pOut, bool& bInPlace) override;
    int setCfg(ASTREAM_OUTPUT_ATTR_S stAttr) override;

    // bLineInConnect is written by setCfg on the line-in thread while process reads it:
    // both sides access that one field atomically.
    ASTREAM_OUTPUT_ATTR_S _mstAttr;
};

#endif  // AUDIOMW_SRC_ASTREAM_ASTREAM_OUTPUT_NODE_H
