#include "cli_args.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace audiomw_tool {

namespace {

bool ParseInt(const std::string& text, int* out) {
    if (text.empty() || text.size() > 9) {
        return false;
    }
    for (char c : text) {
        if (c < '0' || c > '9') {
            return false;
        }
    }
    *out = std::atoi(text.c_str());
    return true;
}

}  // namespace

bool ParseSeconds(const std::string& text, double* out) {
    if (text.empty() || text[0] == '-' || text[0] == '+' || text[0] == ' ') {
        return false;
    }
    char* end = nullptr;
    errno = 0;
    double value = std::strtod(text.c_str(), &end);
    if (errno != 0 || end == text.c_str() || *end != '\0' || !std::isfinite(value)) {
        return false;
    }
    *out = value;
    return true;
}

bool ParseSlotName(const std::string& text, SlotName* out) {
    size_t eq = text.find('=');
    if (eq == std::string::npos || eq + 1 >= text.size()) {
        return false;
    }
    if (!ParseInt(text.substr(0, eq), &out->slot)) {
        return false;
    }
    out->name = text.substr(eq + 1);
    return true;
}

bool ParseTimedSwitch(const std::string& text, TimedSwitch* out) {
    size_t colon = text.find(':');
    return colon != std::string::npos && ParseSeconds(text.substr(0, colon), &out->seconds) &&
           ParseSlotName(text.substr(colon + 1), &out->target);
}

bool ParseTimedLineIn(const std::string& text, TimedLineIn* out) {
    size_t colon = text.find(':');
    if (colon == std::string::npos || !ParseSeconds(text.substr(0, colon), &out->seconds)) {
        return false;
    }
    std::string state = text.substr(colon + 1);
    if (state != "0" && state != "1") {
        return false;
    }
    out->connected = state == "1";
    return true;
}

bool ArgCursor::Value(std::string* out) {
    if (Done()) {
        return false;
    }
    *out = Next();
    return true;
}

}  // namespace audiomw_tool
