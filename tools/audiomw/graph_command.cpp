#include "commands.h"
namespace audiomw_tool {
int GraphCommand(int, char**) {
    return 2;
}
}  // namespace audiomw_tool
