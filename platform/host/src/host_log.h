// Log lines of the host library itself, with the same "[function:line] " prefix as the
// library's own lines. Used only for misuse and system failures.
#ifndef AUDIOMW_PLATFORM_HOST_SRC_HOST_LOG_H
#define AUDIOMW_PLATFORM_HOST_SRC_HOST_LOG_H

#include <cstdio>

#include "util.h"

#define HOST_LOG(level, fmt, ...)                                                            \
    do {                                                                                     \
        char acHostPrefix_[256] = {0};                                                       \
        std::snprintf(acHostPrefix_, sizeof(acHostPrefix_), "[%s:%d] ", __func__, __LINE__); \
        UTIL_LOG_Print((level), acHostPrefix_, fmt, ##__VA_ARGS__);                          \
    } while (0)

#define HOST_LOGE(fmt, ...) HOST_LOG(UTIL_LOG_ERR, fmt, ##__VA_ARGS__)

#endif  // AUDIOMW_PLATFORM_HOST_SRC_HOST_LOG_H
