// Extensions of audiomw beyond the board's documented interface.
#ifndef AUDIOMW_AUDIO_EXT_H
#define AUDIOMW_AUDIO_EXT_H

extern "C" {

// Joins every fixed path the library touches (configuration file, marker and recording
// files, /proc entries) to `dir`. Null or "" restores the real paths. A directory longer
// than 255 characters is refused and leaves the root unchanged. Returns 0 or -1.
int AUDIO_EXT_SetRootDir(const char* dir);
}

#endif  // AUDIOMW_AUDIO_EXT_H
