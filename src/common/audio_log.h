// The library's one way to log: "[function:line] " prefix, then the message,
// through the host's UTIL_LOG_Print. The name in the prefix is the operation the line
// belongs to (the exported function, the reader routine, the class operation such as
// "init" or "_readFrame"): a helper that logs on behalf of an operation uses
// AUDIO_LOG_OP with that operation's name, so log readers can grep by it.
#ifndef AUDIOMW_SRC_COMMON_AUDIO_LOG_H
#define AUDIOMW_SRC_COMMON_AUDIO_LOG_H

#include <cstdio>

#include "util.h"

#define AUDIO_LOG_PREFIX_LEN 256

#define AUDIO_LOG_OP(op, level, fmt, ...)                                              \
    do {                                                                               \
        char acLogPrefix_[AUDIO_LOG_PREFIX_LEN] = {0};                                 \
        std::snprintf(acLogPrefix_, sizeof(acLogPrefix_), "[%s:%d] ", (op), __LINE__); \
        UTIL_LOG_Print((level), acLogPrefix_, fmt, ##__VA_ARGS__);                     \
    } while (0)

#define AUDIO_LOG(level, fmt, ...) AUDIO_LOG_OP(__func__, level, fmt, ##__VA_ARGS__)

#define AUDIO_LOGE(fmt, ...) AUDIO_LOG(UTIL_LOG_ERR, fmt, ##__VA_ARGS__)
#define AUDIO_LOGW(fmt, ...) AUDIO_LOG(UTIL_LOG_WARN, fmt, ##__VA_ARGS__)
#define AUDIO_LOGI(fmt, ...) AUDIO_LOG(UTIL_LOG_INFO, fmt, ##__VA_ARGS__)
#define AUDIO_LOGD(fmt, ...) AUDIO_LOG(UTIL_LOG_DEBUG, fmt, ##__VA_ARGS__)

#define AUDIO_LOGE_OP(op, fmt, ...) AUDIO_LOG_OP(op, UTIL_LOG_ERR, fmt, ##__VA_ARGS__)
#define AUDIO_LOGW_OP(op, fmt, ...) AUDIO_LOG_OP(op, UTIL_LOG_WARN, fmt, ##__VA_ARGS__)
#define AUDIO_LOGI_OP(op, fmt, ...) AUDIO_LOG_OP(op, UTIL_LOG_INFO, fmt, ##__VA_ARGS__)

#endif  // AUDIOMW_SRC_COMMON_AUDIO_LOG_H
