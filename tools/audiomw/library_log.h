// Receives the library's log lines during a run: writes them to a file and counts the
// warnings and errors for the summary.
#ifndef AUDIOMW_TOOL_LIBRARY_LOG_H
#define AUDIOMW_TOOL_LIBRARY_LOG_H

#include <atomic>
#include <cstdio>
#include <string>

namespace audiomw_tool {

class LibraryLog {
  public:
    LibraryLog() = default;
    ~LibraryLog();
    LibraryLog(const LibraryLog&) = delete;
    LibraryLog& operator=(const LibraryLog&) = delete;

    // Sends the library's lines to path from now on. False when it cannot be created.
    bool Open(const std::string& path);
    // Restores standard error and closes the file.
    void Close();
    int Lines() const { return m_lines.load(); }
    int Problems() const { return m_problems.load(); }

  private:
    static void Sink(int level, const char* line, void* ctx);

    std::FILE* m_file = nullptr;
    std::atomic<int> m_lines{0};
    std::atomic<int> m_problems{0};
};

}  // namespace audiomw_tool

#endif  // AUDIOMW_TOOL_LIBRARY_LOG_H
