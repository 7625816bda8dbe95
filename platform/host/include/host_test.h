// Test and tool controls of libaudiomw-host.so. Not part of the board's library.
#ifndef AUDIOMW_HOST_TEST_H
#define AUDIOMW_HOST_TEST_H

extern "C" {

// Receives each log line that passes the threshold: its level and the whole text
// (prefix and message, as written, without a added newline).
typedef void (*UTIL_LOG_SINK_FN)(int s32Level, const char* pcLine, void* pCtx);

// Installs a sink in place of standard error; null restores standard error.
void UTIL_LOG_SetSink(UTIL_LOG_SINK_FN pfnSink, void* pCtx);
// Lines with a level numerically above s32Level are dropped (default 6: information).
void UTIL_LOG_SetThreshold(int s32Level);

// Makes BSP_GetGpioValue(s32Gpio) answer s32Value instead of reading sysfs.
void BSP_SetGpioOverride(int s32Gpio, int s32Value);
// Drops every override.
void BSP_ClearGpioOverrides(void);
}

#endif  // AUDIOMW_HOST_TEST_H
