#include "commands.h"
namespace audiomw_tool {
int CheckCommand(int, char**) {
    return 2;
}
}  // namespace audiomw_tool
