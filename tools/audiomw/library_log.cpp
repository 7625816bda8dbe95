#include "library_log.h"

#include "host_test.h"
#include "util.h"

namespace audiomw_tool {

LibraryLog::~LibraryLog() {
    Close();
}

bool LibraryLog::Open(const std::string& path) {
    m_file = std::fopen(path.c_str(), "w");
    if (m_file == nullptr) {
        return false;
    }
    UTIL_LOG_SetSink(&LibraryLog::Sink, this);
    return true;
}

void LibraryLog::Close() {
    if (m_file != nullptr) {
        UTIL_LOG_SetSink(nullptr, nullptr);
        std::fclose(m_file);
        m_file = nullptr;
    }
}

void LibraryLog::Sink(int level, const char* line, void* ctx) {
    auto* self = static_cast<LibraryLog*>(ctx);
    const char* tag = level <= UTIL_LOG_ERR    ? "E"
                      : level == UTIL_LOG_WARN ? "W"
                      : level == UTIL_LOG_INFO ? "I"
                                               : "D";
    // stdio locks the stream per call, so lines from the library's threads stay whole.
    std::fprintf(self->m_file, "%s/%s\n", tag, line);
    self->m_lines.fetch_add(1);
    if (level <= UTIL_LOG_WARN) {
        self->m_problems.fetch_add(1);
    }
}

}  // namespace audiomw_tool
