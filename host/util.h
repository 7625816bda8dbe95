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
// worker runs in the last 8 bytes, null while idle. The worker stores pJobArg (release)
// when it starts a job and clears it when the job has returned; readers on other threads
// load it with __atomic_load_n(..., __ATOMIC_ACQUIRE).
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

// Creates s32Num (1..64) idle workers, threads named "pf-worker-<index>", that run
// pfnWorker(job) for each fed job. pfnAux, when not null, is called once on each worker
// thread as it starts, with the pool handle, before UTIL_PF_Create returns (per-thread
// set-up such as priority or CPU affinity). Null on failure (bad count, null pfnWorker,
// no memory, a thread that did not start).
ZN_PF_HANDLER_S* UTIL_PF_Create(int s32Num, void (*pfnWorker)(void*), void (*pfnAux)(void*));
// 0 as soon as a worker is idle (neither running a job nor holding one fed to it);
// -110 when s32Timeout milliseconds pass first (a negative time-out waits for ever);
// -1 on a bad pool or one being destroyed.
int UTIL_PF_WaitWorkerIdle(ZN_PF_HANDLER_S* pPool, int s32Timeout);
// Hands pJob to one idle worker and returns without waiting for the job; that worker
// runs it exactly once. s32Arg is the time to wait for an idle worker in milliseconds
// (negative: for ever). 0 on success, -110 on time-out, -1 on a bad pool, a pool being
// destroyed or a null job (a null argument would read as an idle worker).
int UTIL_PF_Feed(ZN_PF_HANDLER_S* pPool, void* pJob, int s32Arg);
// Ends the workers and frees the pool, setting pPool to null; 0, or -1 on a bad pool.
// Jobs already fed still run to their end. With bWait the call returns only after every
// job has returned and the threads are joined; it refuses (-1) when called from one of
// the pool's own jobs. Without bWait it returns at once: the workers are detached and
// the last one to end frees the pool.
int UTIL_PF_Destroy(ZN_PF_HANDLER_S*& pPool, tagZN_BOOL bWait);

// ---- Thread helper ------------------------------------------------------------------

// A named thread calling its routine cycle after cycle. 64 bytes; running flag at byte 8.
// Zero-fill the record before first use.
struct tagPTHREAD_DATA_S {
    pthread_t tid;
    unsigned int bRunning;      // non-zero from a successful Create until Destory
    unsigned int bStopRequest;  // set by Destory, cleared by InitData and Create
    char acName[16];            // thread name, at most 15 characters
    void (*pfnRoutine)(void*);
    void* pArg;
    void* pPrivate;  // the helper's own state while a thread exists
    unsigned char au8Reserved[8];
};
typedef struct tagPTHREAD_DATA_S PTHREAD_DATA_S;

static_assert(sizeof(tagPTHREAD_DATA_S) == 64, "thread descriptor is 64 bytes");
static_assert(offsetof(tagPTHREAD_DATA_S, bRunning) == 8, "running flag at byte 8");

// Copies the name (cut to 15 characters; null: the thread keeps the inherited name),
// the routine and its argument into the descriptor. -1 for a null descriptor or
// routine, or while the descriptor's thread runs.
int UTIL_THREAD_InitData(tagPTHREAD_DATA_S* pstThread, char* pcName, void (*pfnRoutine)(void*), void* pArg);
// Starts the thread with pstAttr (null: defaults). It names itself, then calls the
// routine with its argument again and again until stopped. 0 and bRunning set, or -1:
// null descriptor, no routine, a thread already running on it, a failed start.
int UTIL_THREAD_Create(tagPTHREAD_DATA_S* pstThread, pthread_attr_t* pstAttr);
// Asks the thread to end after the current call of its routine and clears bRunning.
// With bWait the call returns after the thread has ended; without, or when called from
// the routine itself, the thread ends on its own. The descriptor may be reused or
// released as soon as the call returns. 0 (also when no thread runs), -1 for null.
int UTIL_THREAD_Destory(tagPTHREAD_DATA_S* pstThread, tagZN_BOOL bWait);

// ---- Configuration documents and GPIO -----------------------------------------------

// Loads and parses an XML file; a heap document the caller deletes, or null. The
// configuration loaders pass bFlag true; the PC build parses the same way either way.
tinyxml2::XMLDocument* CFG_GetDocByFileName(char* pcFileName, tagZN_BOOL bFlag);

// The level (0 or 1) of GPIO s32Gpio, read from /sys/class/gpio/gpio<n>/value; -1 when
// it cannot be read or holds something else.
int BSP_GetGpioValue(int s32Gpio);

#endif  // AUDIOMW_HOST_UTIL_H
