#include "pcm_handle.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace tinyalsa {

int SetPcmError(pcm* handle, int errnum, const char* format, ...) {
    va_list args;
    va_start(args, format);
    int used = std::vsnprintf(handle->error, sizeof(handle->error), format, args);
    va_end(args);
    if (errnum != 0 && used >= 0 && static_cast<size_t>(used) < sizeof(handle->error)) {
        char text[64];
        // The GNU strerror_r returns its text, which may or may not live in `text`.
        const char* reason = strerror_r(errnum, text, sizeof(text));
        std::snprintf(handle->error + used, sizeof(handle->error) - used, ": %s", reason);
    }
    return errnum != 0 ? -errnum : -EIO;
}

}  // namespace tinyalsa
