// audiomw check: the loaders' warnings and the checks of config_checker, one line each.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "commands.h"
#include "config_checker.h"

namespace audiomw_tool {

namespace {

const char kCheckHelp[] =
    "usage: audiomw check CONFIG.xml\n"
    "\n"
    "Reports what the library's loaders warn about and what would fail or corrupt audio\n"
    "when the configuration runs, as FILE:LINE: warning|error: TEXT: each stream's channel\n"
    "arithmetic node by node, outputs against their AOs (channels, frame size, rate),\n"
    "unknown AI and AO ids, worker counts outside 1..4, combo members and dump folders.\n"
    "Relative dump paths are taken from the current directory, as the device would.\n"
    "\n"
    "Exit status: 0 without errors, 1 with errors, 2 when the file cannot be read.\n";

}  // namespace

bool ReadWholeFile(const std::string& path, std::string* text) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return false;
    }
    std::ostringstream buffer;
    buffer << in.rdbuf();
    *text = buffer.str();
    return true;
}

int CheckCommand(int argc, char** argv) {
    if (argc != 1 || std::string(argv[0]) == "--help" || std::string(argv[0]) == "-h") {
        std::fputs(kCheckHelp, argc == 1 ? stdout : stderr);
        return argc == 1 ? 0 : 2;
    }
    std::string xml;
    if (!ReadWholeFile(argv[0], &xml)) {
        std::fprintf(stderr, "audiomw check: cannot read %s\n", argv[0]);
        return 2;
    }
    int errors = 0;
    for (const std::string& line : CheckConfigText(xml, argv[0], ".", &errors)) {
        std::printf("%s\n", line.c_str());
    }
    return errors > 0 ? 1 : 0;
}

}  // namespace audiomw_tool
