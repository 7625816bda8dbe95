#include "root_path.h"

#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "audio_ext.h"
#include "audio_log.h"

namespace audiomw {
namespace {

// The root is set rarely (tests, tools) and read on worker threads: a mutex keeps the
// copy consistent without allocating.
pthread_mutex_t gs_stRootMutex = PTHREAD_MUTEX_INITIALIZER;
char gs_acRootDir[kRootDirMax + 1] = {0};

}  // namespace

const char* RootPath(const char* pcFixedPath, char* pcOut, size_t u32OutLen) {
    if (pcOut == nullptr || u32OutLen == 0) {
        return nullptr;
    }
    pthread_mutex_lock(&gs_stRootMutex);
    int s32Len = std::snprintf(pcOut, u32OutLen, "%s%s", gs_acRootDir, pcFixedPath ? pcFixedPath : "");
    pthread_mutex_unlock(&gs_stRootMutex);
    if (s32Len < 0 || static_cast<size_t>(s32Len) >= u32OutLen) {
        pcOut[0] = '\0';
        return nullptr;
    }
    return pcOut;
}

bool MarkerExists(const char* pcFixedPath) {
    char acPath[kRootPathMax];
    return RootPath(pcFixedPath, acPath, sizeof(acPath)) != nullptr && access(acPath, F_OK) == 0;
}

}  // namespace audiomw

extern "C" int AUDIO_EXT_SetRootDir(const char* dir) {
    const char* pcDir = dir ? dir : "";
    size_t u32Len = std::strlen(pcDir);
    if (u32Len > audiomw::kRootDirMax) {
        AUDIO_LOGE("root dir too long (%zu > %zu), kept the current one", u32Len, audiomw::kRootDirMax);
        return -1;
    }
    // A trailing slash would double the one every fixed path starts with.
    while (u32Len > 1 && pcDir[u32Len - 1] == '/') {
        u32Len--;
    }
    pthread_mutex_lock(&audiomw::gs_stRootMutex);
    std::memcpy(audiomw::gs_acRootDir, pcDir, u32Len);
    audiomw::gs_acRootDir[u32Len] = '\0';
    pthread_mutex_unlock(&audiomw::gs_stRootMutex);
    return 0;
}
