// Log service: one line per call, "prefix + message", to standard error or to the
// sink a test installed, dropped when its level is above the threshold.
#include <pthread.h>

#include <cstdarg>
#include <cstdio>

#include "host_test.h"
#include "util.h"

namespace {

constexpr int kLineMax = 1024;

pthread_mutex_t gs_stLogMutex = PTHREAD_MUTEX_INITIALIZER;
int gs_s32Threshold = UTIL_LOG_INFO;
UTIL_LOG_SINK_FN gs_pfnSink = nullptr;
void* gs_pSinkCtx = nullptr;

const char* LevelName(int s32Level) {
    switch (s32Level) {
        case UTIL_LOG_ERR:
            return "E";
        case UTIL_LOG_WARN:
            return "W";
        case UTIL_LOG_INFO:
            return "I";
        case UTIL_LOG_DEBUG:
            return "D";
        default:
            return "?";
    }
}

}  // namespace

void UTIL_LOG_Print(int s32Level, const char* pcPrefix, const char* pcFmt, ...) {
    char acLine[kLineMax];
    int s32Len = std::snprintf(acLine, sizeof(acLine), "%s", pcPrefix ? pcPrefix : "");
    if (s32Len < 0) {
        return;
    }
    if (s32Len < kLineMax && pcFmt != nullptr) {
        va_list ap;
        va_start(ap, pcFmt);
        std::vsnprintf(acLine + s32Len, sizeof(acLine) - static_cast<size_t>(s32Len), pcFmt, ap);
        va_end(ap);
    }

    pthread_mutex_lock(&gs_stLogMutex);
    if (s32Level <= gs_s32Threshold) {
        if (gs_pfnSink != nullptr) {
            gs_pfnSink(s32Level, acLine, gs_pSinkCtx);
        } else {
            // Messages may or may not end in a newline; the stream gets exactly one.
            size_t u32End = 0;
            while (acLine[u32End] != '\0') {
                u32End++;
            }
            const char* pcNl = (u32End > 0 && acLine[u32End - 1] == '\n') ? "" : "\n";
            std::fprintf(stderr, "%s/%s%s", LevelName(s32Level), acLine, pcNl);
        }
    }
    pthread_mutex_unlock(&gs_stLogMutex);
}

extern "C" void UTIL_LOG_SetSink(UTIL_LOG_SINK_FN pfnSink, void* pCtx) {
    pthread_mutex_lock(&gs_stLogMutex);
    gs_pfnSink = pfnSink;
    gs_pSinkCtx = pCtx;
    pthread_mutex_unlock(&gs_stLogMutex);
}

extern "C" void UTIL_LOG_SetThreshold(int s32Level) {
    pthread_mutex_lock(&gs_stLogMutex);
    gs_s32Threshold = s32Level;
    pthread_mutex_unlock(&gs_stLogMutex);
}
