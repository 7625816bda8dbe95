// audiomw: runs, checks and draws audiomw configuration files.
#include <cstdio>
#include <cstring>

#include "commands.h"

namespace {

const char kUsage[] =
    "usage: audiomw COMMAND [ARGS]\n"
    "\n"
    "  run CONFIG.xml    run the configuration as the device's application does\n"
    "  check CONFIG.xml  report what is wrong with a configuration\n"
    "  graph CONFIG.xml  draw the pipelines of its stream configurations\n"
    "\n"
    "audiomw COMMAND --help describes each command.\n";

struct Command {
    const char* name;
    int (*fn)(int, char**);
};

const Command kCommands[] = {
    {"run", audiomw_tool::RunCommand},
    {"check", audiomw_tool::CheckCommand},
    {"graph", audiomw_tool::GraphCommand},
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0) {
        std::fputs(kUsage, argc < 2 ? stderr : stdout);
        return argc < 2 ? 2 : 0;
    }
    for (const Command& command : kCommands) {
        if (std::strcmp(argv[1], command.name) == 0) {
            return command.fn(argc - 2, argv + 2);
        }
    }
    std::fprintf(stderr, "audiomw: unknown command '%s'\n%s", argv[1], kUsage);
    return 2;
}
