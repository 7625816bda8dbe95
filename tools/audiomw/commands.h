// The subcommands of audiomw. Each takes the arguments after its name and returns the
// process exit status.
#ifndef AUDIOMW_TOOL_COMMANDS_H
#define AUDIOMW_TOOL_COMMANDS_H

#include <string>

namespace audiomw_tool {

// The whole file into *text; false when it cannot be read.
bool ReadWholeFile(const std::string& path, std::string* text);

int RunCommand(int argc, char** argv);
int CheckCommand(int argc, char** argv);
int GraphCommand(int argc, char** argv);

}  // namespace audiomw_tool

#endif  // AUDIOMW_TOOL_COMMANDS_H
