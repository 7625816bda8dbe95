// Shared helpers of the test programs: a scratch root per test case, log and standard
// output capture, byte patterns, files and deadline waits.
#ifndef AUDIOMW_TESTS_SUPPORT_TEST_SUPPORT_H
#define AUDIOMW_TESTS_SUPPORT_TEST_SUPPORT_H

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <ostream>
#include <mutex>
#include <string>
#include <vector>

namespace audiomw_test {

// A fresh directory tree (var/, tmp/, cfg0/, proc/asound/card4/) installed as the
// library's root directory for the lifetime of the object, removed afterwards.
class ScratchRoot {
  public:
    ScratchRoot();
    ~ScratchRoot();
    ScratchRoot(const ScratchRoot&) = delete;
    ScratchRoot& operator=(const ScratchRoot&) = delete;

    const std::string& Dir() const { return m_dir; }
    // Dir() + fixed, e.g. Path("/var/debuglog").
    std::string Path(const std::string& fixed) const { return m_dir + fixed; }
    // Creates (or removes) the marker file `fixed` under the root.
    void SetMarker(const std::string& fixed, bool present = true) const;

  private:
    std::string m_dir;
};

struct LogLine {
    int level;
    std::string text;     // prefix and message exactly as logged
    std::string func;     // the function name of the "[func:line] " prefix
    std::string message;  // the text after the prefix
};

// A documented log line as a log reader sees it: level, the function named in the
// prefix (the line number is not compared), and the message.
struct Logged {
    int level;
    std::string func;
    std::string message;
};
std::ostream& operator<<(std::ostream& os, const Logged& l);
bool operator==(const Logged& a, const Logged& b);

// Captures every line logged through the host library while alive (threshold 7).
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogLine> Lines() const;
    // Every line as a log reader sees it, in order.
    std::vector<Logged> All() const;
    // Lines matching level, prefix function and message exactly.
    int Count(const Logged& line) const;
    bool Has(const Logged& line) const { return Count(line) > 0; }
    // Index of the first matching line at or after `from`, -1 if none.
    int IndexOf(const Logged& line, int from = 0) const;
    // Adds a test failure unless every line appears, in this order (other lines may
    // come between them); the failure lists what was logged.
    void ExpectInOrder(std::initializer_list<Logged> lines) const;
    // Everything logged, one "level func: message" per line, for failure messages.
    std::string Dump() const;
    void Clear();

  private:
    static void Sink(int level, const char* line, void* ctx);
    mutable std::mutex m_mutex;
    std::vector<LogLine> m_lines;
};

// Redirects standard output (fd 1) into a file until Stop() or destruction.
class StdoutCapture {
  public:
    StdoutCapture();
    ~StdoutCapture();
    StdoutCapture(const StdoutCapture&) = delete;
    StdoutCapture& operator=(const StdoutCapture&) = delete;
    // Restores fd 1 and returns everything written meanwhile.
    std::string Stop();
    // What was written so far, without stopping.
    std::string Peek();

  private:
    int m_savedFd = -1;
    std::string m_path;
    bool m_stopped = false;
    std::string m_text;
};

// Deterministic interleaved 16-bit pattern: each sample derived from seed, channel and
// frame, so that every sample of a buffer is distinct in practice.
std::vector<uint8_t> MakePattern(int channels, uint32_t frames, uint32_t seed = 1, uint32_t firstFrame = 0);

std::vector<uint8_t> ReadFileBytes(const std::string& path);
void WriteFileBytes(const std::string& path, const std::vector<uint8_t>& bytes);
bool FileExists(const std::string& path);

// Samples <-> bytes (little-endian 16-bit).
std::vector<uint8_t> ToBytes(const std::vector<int16_t>& samples);
std::vector<int16_t> ToSamples(const std::vector<uint8_t>& bytes);

// Polls `done` until it returns true or `timeout` passes; returns its last answer.
bool WaitFor(const std::function<bool()>& done, std::chrono::milliseconds timeout = std::chrono::seconds(10));

// Fixture most library tests use: a scratch root and a log capture per test case.
class AudioTest : public ::testing::Test {
  protected:
    ScratchRoot root;
    LogCapture log;
};

}  // namespace audiomw_test

#endif  // AUDIOMW_TESTS_SUPPORT_TEST_SUPPORT_H
