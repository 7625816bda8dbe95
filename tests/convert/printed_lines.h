// Splits what a converter printed into messages, checking each line's "[func:line] "
// prefix against the function expected to print it.
#ifndef AUDIOMW_TESTS_CONVERT_PRINTED_LINES_H
#define AUDIOMW_TESTS_CONVERT_PRINTED_LINES_H

#include <cctype>
#include <string>
#include <vector>

namespace convert_test {

// One entry per line of `out`: the message without prefix and newline, or the whole
// line marked "BAD PREFIX: " when it does not open with "[func:<digits>] "; a last
// line without its newline is marked "NO NEWLINE: ".
inline std::vector<std::string> PrintedMessages(const std::string& out, const std::string& func) {
    std::vector<std::string> messages;
    size_t start = 0;
    while (start < out.size()) {
        size_t end = out.find('\n', start);
        std::string line = out.substr(start, end == std::string::npos ? std::string::npos : end - start);
        start = end == std::string::npos ? out.size() : end + 1;
        const std::string head = "[" + func + ":";
        size_t pos = head.size();
        bool ok = line.compare(0, head.size(), head) == 0;
        size_t digits = pos;
        while (ok && digits < line.size() && std::isdigit(static_cast<unsigned char>(line[digits]))) {
            digits++;
        }
        ok = ok && digits > pos && line.compare(digits, 2, "] ") == 0;
        std::string message = ok ? line.substr(digits + 2) : "BAD PREFIX: " + line;
        messages.push_back(end == std::string::npos ? "NO NEWLINE: " + message : message);
    }
    return messages;
}

}  // namespace convert_test

#endif  // AUDIOMW_TESTS_CONVERT_PRINTED_LINES_H
