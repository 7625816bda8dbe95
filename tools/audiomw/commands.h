// The subcommands of audiomw. Each takes the arguments after its name and returns the
// process exit status.
#ifndef AUDIOMW_TOOL_COMMANDS_H
#define AUDIOMW_TOOL_COMMANDS_H

namespace audiomw_tool {

int RunCommand(int argc, char** argv);
int CheckCommand(int argc, char** argv);
int GraphCommand(int argc, char** argv);

}  // namespace audiomw_tool

#endif  // AUDIOMW_TOOL_COMMANDS_H
