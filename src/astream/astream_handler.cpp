// ASTREAM_HANDLER_S (declared in audio_astream.h): the running-stream record starts
// zero-filled. Defined here, out of line, so that the library exports the same members
// whatever the build type.
#include "audio_astream.h"

ASTREAM_HANDLER_S::ASTREAM_HANDLER_S()
    : s32StreamId(0),
      bReady(ZN_FALSE),
      s32AiId(0),
      s32Chn(0),
      lstNode(),
      stReadMutex(),
      pstWorkerPool(nullptr),
      astJob(),
      s32JobIdx(0),
      u32BufLen(0),
      stReaderThread() {}

ASTREAM_HANDLER_S::~ASTREAM_HANDLER_S() {}
