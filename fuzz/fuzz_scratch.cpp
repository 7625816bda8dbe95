#include "fuzz_scratch.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "audio_ext.h"
#include "host_test.h"

namespace audiomw_fuzz {

namespace {

std::string gs_root;
std::string gs_config;

void DropLine(int, const char*, void*) {}

void RemoveRoot() {
    std::error_code ec;
    std::filesystem::remove_all(gs_root, ec);
}

}  // namespace

void SetUpScratchRoot() {
    if (!gs_root.empty()) {
        return;
    }
    // The file is rewritten on every run: memory-backed /dev/shm keeps that off the disk
    // (ext4 flushes a truncated and rewritten file when it is closed).
    const char* base = std::getenv("TMPDIR");
    if (base == nullptr || *base == '\0') {
        base = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    }
    std::string tmpl = std::string(base) + "/audiomw-fuzz-XXXXXX";
    if (mkdtemp(&tmpl[0]) == nullptr) {
        std::perror("mkdtemp");
        std::abort();
    }
    gs_root = tmpl;
    std::filesystem::create_directories(gs_root + "/cfg0");
    gs_config = gs_root + "/cfg0/mpp_cfg.xml";
    if (AUDIO_EXT_SetRootDir(gs_root.c_str()) != 0) {
        std::abort();
    }
    UTIL_LOG_SetThreshold(7);
    UTIL_LOG_SetSink(&DropLine, nullptr);
    std::atexit(&RemoveRoot);
}

void WriteConfig(const uint8_t* data, size_t size) {
    int fd = ::open(gs_config.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0) {
        std::abort();
    }
    size_t done = 0;
    while (done < size) {
        ssize_t n = ::write(fd, data + done, size - done);
        if (n <= 0) {
            std::abort();
        }
        done += static_cast<size_t>(n);
    }
    ::close(fd);
}

}  // namespace audiomw_fuzz
