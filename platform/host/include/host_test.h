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
// Directory holding the gpio<n>/value files BSP_GetGpioValue reads (default
// "/sys/class/gpio"); null restores the default.
void BSP_SetGpioSysfsRoot(const char* pcDir);

// Makes a thread start of the host library (a pool worker in UTIL_PF_Create, the thread
// of UTIL_THREAD_Create) fail once, after s32After further starts have succeeded;
// negative cancels a pending failure.
void UTIL_SetThreadStartFault(int s32After);

// Calls of CFG_GetDocByFileName so far, and the flag value the last one was given (-1
// before the first call).
int CFG_GetDocCallCount(void);
int CFG_GetDocLastFlag(void);

// Pools not yet freed: a pool destroyed without waiting is freed by its last worker.
int UTIL_PF_GetLiveCount(void);
// Helper threads (UTIL_THREAD_Create) whose loop has not yet ended.
int UTIL_THREAD_GetLiveCount(void);
}

#endif  // AUDIOMW_HOST_TEST_H
