// ASTREAM_DEBUG_DUMP_NODE_S: appends one channel group of every frame period to a raw
// PCM file while enabled (AUDIO_ASTREAM_enableDumpNode). Built disabled; never changes
// the stream's data.
#ifndef AUDIOMW_SRC_ASTREAM_ASTREAM_DEBUG_DUMP_NODE_H
#define AUDIOMW_SRC_ASTREAM_ASTREAM_DEBUG_DUMP_NODE_H

#include <cstdio>

#include "audio_astream.h"

struct ASTREAM_DEBUG_DUMP_NODE_S : public ASTREAM_NODE_S {
    ASTREAM_DEBUG_DUMP_NODE_S();
    ~ASTREAM_DEBUG_DUMP_NODE_S() override;

    int init(void* pAttr) override;
    int destroy() override;
    int process(char* pIn, char* pOut, bool& bInPlace) override;
    int setCfg(ASTREAM_OUTPUT_ATTR_S stAttr) override;

    ASTREAM_DUMP_ATTR_S _mstAttr;
    FILE* _mpFile;               // the open dump file, null when none
    unsigned int _mu32WriteLen;  // bytes written since the file was opened
};

#endif  // AUDIOMW_SRC_ASTREAM_ASTREAM_DEBUG_DUMP_NODE_H
