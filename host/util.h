// Host utility services the library imports from the board's utility library:
// logging, the worker pool, the thread helper, XML documents and GPIO levels.
#ifndef AUDIOMW_HOST_UTIL_H
#define AUDIOMW_HOST_UTIL_H

#include <pthread.h>

#include <cstddef>

#include "audio_common.h"

namespace tinyxml2 {
class XMLDocument;
}

// Log levels.
#define UTIL_LOG_ERR 3
#define UTIL_LOG_WARN 4
#define UTIL_LOG_INFO 6
#define UTIL_LOG_DEBUG 7

// Writes one line: prefix, then the formatted message.
void UTIL_LOG_Print(int s32Level, const char* pcPrefix, const char* pcFmt, ...)
    __attribute__((format(printf, 3, 4)));

// ---- Worker pool --------------------------------------------------------------------

// One worker as the pool's users may inspect it: 128 bytes, the argument of the job the
// worker runs in the last 8 bytes, null while idle. The pool writes pJobArg with release
// semantics; readers load it atomically (__atomic_load_n with acquire).
struct ZN_PF_WORKER_S {
    unsigned char au8Private[120];
    void* pJobArg;
};

// The pool handle: worker count, then the per-worker records. The pool object the
// library allocates is larger; everything past these two fields is private.
struct ZN_PF_HANDLER_S {
    int s32WorkerNum;
    ZN_PF_WORKER_S* pstWorkers;
};

static_assert(sizeof(ZN_PF_WORKER_S) == 128, "worker record is 128 bytes");
static_assert(offsetof(ZN_PF_WORKER_S, pJobArg) == 120, "job argument at byte 120");
static_assert(offsetof(ZN_PF_HANDLER_S, s32WorkerNum) == 0, "worker count first");
static_assert(offsetof(ZN_PF_HANDLER_S, pstWorkers) == 8, "worker array at the next 8-byte boundary");

// Creates s32Num idle workers that run pfnWorker(job) for each fed job; pfnAux is
// called by each worker when it starts, when not null. Null on failure.
ZN_PF_HANDLER_S* UTIL_PF_Create(int s32Num, void (*pfnWorker)(void*), void (*pfnAux)(void*));
// 0 once a worker is idle; -110 when s32Timeout milliseconds pass first (a negative
// time-out waits for ever); -1 on a bad pool.
int UTIL_PF_WaitWorkerIdle(ZN_PF_HANDLER_S* pPool, int s32Timeout);
// Hands pJob to an idle worker. s32Arg is the time to wait for one in milliseconds
// (-1: for ever). 0 on success, -110 on time-out, -1 on error.
int UTIL_PF_Feed(ZN_PF_HANDLER_S* pPool, void* pJob, int s32Arg);
// Ends the workers and frees the pool, setting pPool to null. With bWait the call
// returns only after every running job has ended; queued jobs are dropped.
int UTIL_PF_Destroy(ZN_PF_HANDLER_S*& pPool, tagZN_BOOL bWait);

// ---- Thread helper ------------------------------------------------------------------

// A named thread calling its routine cycle after cycle. 64 bytes; running flag at byte 8.
struct tagPTHREAD_DATA_S {
    pthread_t tid;
    unsigned int bRunning;
    unsigned int bStopRequest;
    char acName[16];
    void (*pfnRoutine)(void*);
    void* pArg;
    unsigned char au8Reserved[16];
};
typedef struct tagPTHREAD_DATA_S PTHREAD_DATA_S;

static_assert(sizeof(tagPTHREAD_DATA_S) == 64, "thread descriptor is 64 bytes");
static_assert(offsetof(tagPTHREAD_DATA_S, bRunning) == 8, "running flag at byte 8");

int UTIL_THREAD_InitData(tagPTHREAD_DATA_S* pstThread, char* pcName, void (*pfnRoutine)(void*), void* pArg);
int UTIL_THREAD_Create(tagPTHREAD_DATA_S* pstThread, pthread_attr_t* pstAttr);
int UTIL_THREAD_Destory(tagPTHREAD_DATA_S* pstThread, tagZN_BOOL bWait);

// ---- Configuration documents and GPIO -----------------------------------------------

// Loads and parses an XML file; a heap document the caller deletes, or null.
tinyxml2::XMLDocument* CFG_GetDocByFileName(const char* pcFileName);

// The level (0 or 1) of GPIO s32Gpio, -1 when it cannot be read.
int BSP_GetGpioValue(int s32Gpio);

#endif  // AUDIOMW_HOST_UTIL_H
