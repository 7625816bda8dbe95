// BSP_GetGpioValue: the level of a GPIO from sysfs, "<root>/gpio<n>/value", unless a
// test has set an override for that GPIO. Output nodes read it every frame period, so a
// read allocates nothing.
#include <fcntl.h>
#include <limits.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <mutex>

#include "host_test.h"
#include "util.h"

namespace {

constexpr const char* kDefaultSysfsRoot = "/sys/class/gpio";

// Overrides and the sysfs root may change on a test thread while workers read levels.
std::mutex gs_mtxGpio;
std::map<int, int> gs_mapOverrides;
char gs_acSysfsRoot[PATH_MAX] = "/sys/class/gpio";

// First character of the value file: '0' or '1'; anything else reads as -1.
int ReadSysfsLevel(const char* pcPath) {
    int s32Fd = open(pcPath, O_RDONLY | O_CLOEXEC);
    if (s32Fd < 0) {
        return -1;
    }
    char cLevel = 0;
    ssize_t s32Got = read(s32Fd, &cLevel, 1);
    close(s32Fd);
    if (s32Got != 1 || (cLevel != '0' && cLevel != '1')) {
        return -1;
    }
    return cLevel - '0';
}

}  // namespace

int BSP_GetGpioValue(int s32Gpio) {
    if (s32Gpio < 0) {
        return -1;
    }
    char acPath[PATH_MAX + 32];
    {
        std::lock_guard<std::mutex> lk(gs_mtxGpio);
        auto it = gs_mapOverrides.find(s32Gpio);
        if (it != gs_mapOverrides.end()) {
            return it->second;
        }
        std::snprintf(acPath, sizeof(acPath), "%s/gpio%d/value", gs_acSysfsRoot, s32Gpio);
    }
    return ReadSysfsLevel(acPath);
}

extern "C" void BSP_SetGpioOverride(int s32Gpio, int s32Value) {
    std::lock_guard<std::mutex> lk(gs_mtxGpio);
    gs_mapOverrides[s32Gpio] = s32Value;
}

extern "C" void BSP_ClearGpioOverrides(void) {
    std::lock_guard<std::mutex> lk(gs_mtxGpio);
    gs_mapOverrides.clear();
}

extern "C" void BSP_SetGpioSysfsRoot(const char* pcDir) {
    std::lock_guard<std::mutex> lk(gs_mtxGpio);
    std::snprintf(gs_acSysfsRoot, sizeof(gs_acSysfsRoot), "%s", pcDir != nullptr ? pcDir : kDefaultSysfsRoot);
}
