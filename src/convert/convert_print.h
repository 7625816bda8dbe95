// The converters report to standard output, each line opening with "[function:line] ".
#ifndef AUDIOMW_SRC_CONVERT_CONVERT_PRINT_H
#define AUDIOMW_SRC_CONVERT_CONVERT_PRINT_H

#include <cstdio>

#define CONVERT_PRINT(fmt, ...) std::printf("[%s:%d] " fmt, __func__, __LINE__, ##__VA_ARGS__)

#endif  // AUDIOMW_SRC_CONVERT_CONVERT_PRINT_H
