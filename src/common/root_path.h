// Fixed paths (configuration, markers, recordings, /proc entries) joined to the root
// directory set with AUDIO_EXT_SetRootDir. Nothing here allocates, so the data path
// may test marker files.
#ifndef AUDIOMW_SRC_COMMON_ROOT_PATH_H
#define AUDIOMW_SRC_COMMON_ROOT_PATH_H

#include <cstddef>

namespace audiomw {

// Longest root directory accepted, and room for a joined path.
constexpr size_t kRootDirMax = 255;
constexpr size_t kRootPathMax = 512;

// Writes root + pcFixedPath into pcOut (capacity u32OutLen). Returns pcOut, or null
// when the joined path would not fit (pcOut then holds "").
const char* RootPath(const char* pcFixedPath, char* pcOut, size_t u32OutLen);

// True while the marker file pcFixedPath exists under the root.
bool MarkerExists(const char* pcFixedPath);

}  // namespace audiomw

#endif  // AUDIOMW_SRC_COMMON_ROOT_PATH_H
