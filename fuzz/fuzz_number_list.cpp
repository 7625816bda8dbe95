// parseNumberList against a plain model: the text is the fuzzed bytes up to the first
// NUL; the capacity comes from the first byte. The output array is exactly `max` ints
// on the heap, so a write past it is caught.
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "audio_config.h"

namespace {

int Model(const std::string& text, int max, std::vector<int>& out) {
    int n = 0;
    size_t start = 0;
    while (n < max) {
        long v = std::strtol(text.c_str() + start, nullptr, 10);
        out.push_back(v > INT_MAX ? INT_MAX : (v < INT_MIN ? INT_MIN : static_cast<int>(v)));
        n++;
        size_t colon = text.find(':', start);
        if (colon == std::string::npos) {
            break;
        }
        start = colon + 1;
    }
    return n;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    int max = static_cast<int>(data[0] % 26) - 1;  // -1 .. 24
    std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    text = text.c_str();
    int* out = max > 0 ? new int[static_cast<size_t>(max)] : nullptr;
    std::vector<int> want;
    int n = parseNumberList(text.c_str(), max > 0 ? out : nullptr, max);
    int wantN = max > 0 ? Model(text, max, want) : 0;
    if (n != wantN || (n > 0 && std::memcmp(out, want.data(), sizeof(int) * static_cast<size_t>(n)) != 0)) {
        __builtin_trap();
    }
    delete[] out;
    return 0;
}
