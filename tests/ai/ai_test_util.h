// Records and files shared by the input tests.
#ifndef AUDIOMW_TESTS_AI_AI_TEST_UTIL_H
#define AUDIOMW_TESTS_AI_AI_TEST_UTIL_H

#include <cstring>
#include <string>

#include "audio_ai.h"

namespace audiomw_test {

inline AI_ATTR_S FileAiAttr(const std::string& path, bool enable = true, int channels = 2, int frames = 160) {
    AI_ATTR_S a;
    std::memset(&a, 0, sizeof(a));
    a.eType = AI_DEV_TYPE_FILE;
    std::strncpy(a.acFilePath, path.c_str(), sizeof(a.acFilePath) - 1);
    a.bEnable = enable ? ZN_TRUE : ZN_FALSE;
    a.eSampleRate = AI_SAMPLE_RATE_16000;
    a.s32Channel = channels;
    a.s32FrameLen = frames;
    return a;
}

}  // namespace audiomw_test

#endif  // AUDIOMW_TESTS_AI_AI_TEST_UTIL_H
