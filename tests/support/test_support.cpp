#include "test_support.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

#include "audio_ext.h"
#include "host_test.h"

namespace audiomw_test {

namespace {

// "$TMPDIR/audiomw-<what>-XXXXXX", writable, for mkdtemp and mkstemp.
std::vector<char> TempTemplate(const char* what) {
    const char* base = std::getenv("TMPDIR");
    std::string tmpl = std::string(base && *base ? base : "/tmp") + "/audiomw-" + what + "-XXXXXX";
    std::vector<char> buf(tmpl.begin(), tmpl.end());
    buf.push_back('\0');
    return buf;
}

int16_t PatternSample(uint32_t seed, int channel, uint32_t frame) {
    uint32_t v = seed * 0x9E3779B1u + static_cast<uint32_t>(channel) * 0x85EBCA77u + frame * 0xC2B2AE3Du;
    v ^= v >> 15;
    v *= 0x2C1B3C6Du;
    v ^= v >> 12;
    return static_cast<int16_t>(v & 0xFFFF);
}

// Splits "[func:line] message" into func and message; a line without the prefix keeps
// an empty func.
void SplitPrefix(const std::string& text, std::string& func, std::string& message) {
    func.clear();
    message = text;
    if (text.size() < 2 || text[0] != '[') {
        return;
    }
    size_t end = text.find("] ");
    size_t colon = text.rfind(':', end);
    if (end == std::string::npos || colon == std::string::npos || colon == 0) {
        return;
    }
    func = text.substr(1, colon - 1);
    message = text.substr(end + 2);
}

}  // namespace

ScratchRoot::ScratchRoot() {
    std::vector<char> buf = TempTemplate("test");
    if (mkdtemp(buf.data()) == nullptr) {
        ADD_FAILURE() << "mkdtemp failed: " << std::strerror(errno);
        return;
    }
    m_dir = buf.data();
    for (const char* sub : {"/var", "/tmp", "/cfg0", "/proc/asound/card4"}) {
        std::filesystem::create_directories(m_dir + sub);
    }
    EXPECT_EQ(0, AUDIO_EXT_SetRootDir(m_dir.c_str()));
}

ScratchRoot::~ScratchRoot() {
    AUDIO_EXT_SetRootDir("");
    if (!m_dir.empty() && std::getenv("AUDIOMW_KEEP_SCRATCH") == nullptr) {
        std::error_code ec;
        std::filesystem::remove_all(m_dir, ec);
    }
}

void ScratchRoot::SetMarker(const std::string& fixed, bool present) const {
    std::string path = Path(fixed);
    if (present) {
        std::ofstream(path).flush();
    } else {
        std::remove(path.c_str());
    }
}

LogCapture::LogCapture() {
    UTIL_LOG_SetThreshold(7);
    UTIL_LOG_SetSink(&LogCapture::Sink, this);
}

LogCapture::~LogCapture() {
    UTIL_LOG_SetSink(nullptr, nullptr);
    UTIL_LOG_SetThreshold(6);
}

std::ostream& operator<<(std::ostream& os, const Logged& l) {
    return os << l.level << " " << l.func << ": \"" << l.message << "\"";
}

bool operator==(const Logged& a, const Logged& b) {
    return a.level == b.level && a.func == b.func && a.message == b.message;
}

std::vector<Logged> LogCapture::All() const {
    std::vector<Logged> out;
    for (const auto& l : Lines()) {
        out.push_back({l.level, l.func, l.message});
    }
    return out;
}

void LogCapture::Sink(int level, const char* line, void* ctx) {
    auto* self = static_cast<LogCapture*>(ctx);
    LogLine l{level, line ? line : "", "", ""};
    SplitPrefix(l.text, l.func, l.message);
    std::lock_guard<std::mutex> lock(self->m_mutex);
    self->m_lines.push_back(std::move(l));
}

int LogCapture::Count(const Logged& want) const {
    auto lines = All();
    return static_cast<int>(std::count(lines.begin(), lines.end(), want));
}

int LogCapture::IndexOf(const Logged& want, int from) const {
    auto lines = All();
    auto at =
        std::find(lines.begin() + std::clamp(from, 0, static_cast<int>(lines.size())), lines.end(), want);
    return at == lines.end() ? -1 : static_cast<int>(at - lines.begin());
}

void LogCapture::ExpectInOrder(std::initializer_list<Logged> want) const {
    int from = 0;
    for (const auto& w : want) {
        int at = IndexOf(w, from);
        if (at < 0) {
            ADD_FAILURE() << "missing (in order) log line: " << w << "\nlogged:\n" << Dump();
            return;
        }
        from = at + 1;
    }
}

std::string LogCapture::Dump() const {
    std::ostringstream out;
    for (const auto& l : All()) {
        out << "  " << l << "\n";
    }
    return out.str();
}

std::vector<LogLine> LogCapture::Lines() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

void LogCapture::Clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
}

StdoutCapture::StdoutCapture() {
    std::vector<char> buf = TempTemplate("stdout");
    int fd = mkstemp(buf.data());
    if (fd < 0) {
        ADD_FAILURE() << "mkstemp failed";
        m_stopped = true;
        return;
    }
    m_path = buf.data();
    std::fflush(stdout);
    m_savedFd = dup(STDOUT_FILENO);
    dup2(fd, STDOUT_FILENO);
    ::close(fd);
}

StdoutCapture::~StdoutCapture() {
    Stop();
}

std::string StdoutCapture::Peek() {
    if (m_stopped) {
        return m_text;
    }
    std::fflush(stdout);
    std::ifstream in(m_path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string StdoutCapture::Stop() {
    if (m_stopped) {
        return m_text;
    }
    m_text = Peek();
    dup2(m_savedFd, STDOUT_FILENO);
    ::close(m_savedFd);
    std::remove(m_path.c_str());
    m_stopped = true;
    return m_text;
}

std::vector<uint8_t> MakePattern(int channels, uint32_t frames, uint32_t seed, uint32_t firstFrame) {
    std::vector<int16_t> samples;
    samples.reserve(static_cast<size_t>(channels) * frames);
    for (uint32_t f = 0; f < frames; f++) {
        for (int c = 0; c < channels; c++) {
            samples.push_back(PatternSample(seed, c, firstFrame + f));
        }
    }
    return ToBytes(samples);
}

std::vector<uint8_t> ReadFileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteFileBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

bool FileExists(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

std::vector<uint8_t> ToBytes(const std::vector<int16_t>& samples) {
    std::vector<uint8_t> out(samples.size() * 2);
    for (size_t i = 0; i < samples.size(); i++) {
        uint16_t u = static_cast<uint16_t>(samples[i]);
        out[2 * i] = static_cast<uint8_t>(u & 0xFF);
        out[2 * i + 1] = static_cast<uint8_t>(u >> 8);
    }
    return out;
}

std::vector<int16_t> ToSamples(const std::vector<uint8_t>& bytes) {
    std::vector<int16_t> out(bytes.size() / 2);
    for (size_t i = 0; i < out.size(); i++) {
        out[i] = static_cast<int16_t>(static_cast<uint16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8)));
    }
    return out;
}

bool WaitFor(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return done();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace audiomw_test
