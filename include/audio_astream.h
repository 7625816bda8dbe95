// Streams (ASTREAM): the records a stream is made from, the node base class, the running
// stream record, the stream slot table and the AUDIO_ASTREAM_* lifecycle functions.
#ifndef AUDIOMW_AUDIO_ASTREAM_H
#define AUDIOMW_AUDIO_ASTREAM_H

#include <pthread.h>

#include <cstddef>
#include <list>

#include "audio_common.h"
#include "util.h"

// Stream slots (ids 0 and 1), ring entries per stream (also the most workers a stream
// may have), swap map entries and the room of a dump path including its NUL.
#define ASTREAM_MAX_NUM 2
#define ASTREAM_JOB_MAX_NUM 4
#define ASTREAM_SWAP_MAP_NUM 20
#define ASTREAM_DUMP_PATH_LEN 64

// Node type codes. No other code is valid.
enum ASTREAM_NODE_TYPE_E : int {
    ASTREAM_NODE_TYPE_E_OUTPUT = 0,
    ASTREAM_NODE_TYPE_E_SWAP = 1,
    ASTREAM_NODE_TYPE_E_SPLIT = 2,
    ASTREAM_NODE_TYPE_E_MERGE = 3,
    ASTREAM_NODE_TYPE_E_MIXIN = 4,
    ASTREAM_NODE_TYPE_E_ORVANE_ALG = 153,
    ASTREAM_NODE_TYPE_E_DEBUG_DUMP = 154,
};

// ---- Per-type node attributes (offsets and counts in channel blocks) -----------------

// Output node; also the argument type of every node's setCfg.
struct ASTREAM_OUTPUT_ATTR_S {
    int s32AoId;
    int s32ChnOffset;
    int s32ChnCnt;
    int s32AudioSourceId;  // 1: the line-in source; -1 when unset
    tagZN_BOOL bLineInConnect;
    int s32DumpFrameCount;  // frames dropped at start on AO 1; -1 when unset
};

// Entry i is the destination block of source block i.
struct ASTREAM_SWAP_ATTR_S {
    int as32Map[ASTREAM_SWAP_MAP_NUM];
};

struct ASTREAM_SPLIT_ATTR_S {
    int s32ChnOffset;
    int s32ChnCntA;
    int s32ChnCntB;
};

struct ASTREAM_MERGE_ATTR_S {
    int s32ChnOffset;
    int s32ChnCntA;
    int s32ChnCntB;
};

struct ASTREAM_MIXIN_ATTR_S {
    int s32TargetIndex;  // the block mixed into
    int s32ChnOffset;
    int s32ChnCnt;
};

struct ASTREAM_DUMP_ATTR_S {
    char acPath[ASTREAM_DUMP_PATH_LEN];  // NUL-terminated path of the dump file
    int s32ChnOffset;
    int s32ChnCnt;
};

struct ASTREAM_ORVANE_ALG_ATTR_S {
    int s32MicChnOffset;
    int s32MicChnCnt;
    int s32LineInChnCnt;
    int s32RefChnOffset;
    int s32ExRefChnOffset;
    int s32AllRefChnOffset;
    // Called per processed frame with pCallbackArg and the algorithm's result.
    void (*pfnFrameCallback)(void* pArg, short s16Result);
    void* pCallbackArg;
};

// One element of a stream's node list. Whoever builds one zero-fills it whole before
// filling the member of its type, so unused words of a member read 0.
struct ASTREAM_NODE_ATTR_S {
    ASTREAM_NODE_TYPE_E eType;
    union {
        ASTREAM_OUTPUT_ATTR_S stOutput;
        ASTREAM_SWAP_ATTR_S stSwap;
        ASTREAM_SPLIT_ATTR_S stSplit;
        ASTREAM_MERGE_ATTR_S stMerge;
        ASTREAM_MIXIN_ATTR_S stMixin;
        ASTREAM_DUMP_ATTR_S stDump;
        ASTREAM_ORVANE_ALG_ATTR_S stOrvaneAlg;
    } unAttr;
};

// What AUDIO_ASTREAM_Create is given. lstNodeAttr is a std::list of plain records in
// pipeline order; the caller keeps it, the pipeline build only reads it.
struct ASTREAM_ATTR_S {
    int s32AiId;
    int s32WorkerNum;  // worker threads and ring entries, 1..ASTREAM_JOB_MAX_NUM
    std::list<ASTREAM_NODE_ATTR_S> lstNodeAttr;
};

struct ASTREAM_HANDLER_S;

// ---- Node base class ------------------------------------------------------------------

// Abstract base of every node type. The engine calls init once after construction,
// process any number of times on worker threads (under _mMutex), setCfg at any time,
// then destroy once and the deleting destructor. Constructors and destructors only set
// defaults and free the object; init and destroy acquire and release.
struct ASTREAM_NODE_S {
    ASTREAM_NODE_S();
    virtual ~ASTREAM_NODE_S();

    // pAttr points at the unAttr member of the node's ASTREAM_NODE_ATTR_S. 0 or -1.
    virtual int init(void* pAttr) = 0;
    virtual int destroy() = 0;
    // pIn holds the current frame period, pOut is scratch of the same size. Sets bInPlace
    // true when the data is (still) in pIn, false when all of it was written to pOut.
    virtual int process(char* pIn, char* pOut, bool& bInPlace) = 0;
    virtual int setCfg(ASTREAM_OUTPUT_ATTR_S stAttr) = 0;

    ASTREAM_NODE_TYPE_E _meType;
    tagZN_BOOL _mbEnable;  // run by the workers only while non-zero; accessed atomically
    pthread_mutex_t _mMutex;
    ASTREAM_HANDLER_S* _mpHandler;  // the owning stream, not owned
};

// ---- Running stream -------------------------------------------------------------------

// One ring entry: the unit of work handed to a worker.
struct ASTREAM_JOB_S {
    ASTREAM_HANDLER_S* pstHandler;
    char* pBufA;  // filled by the AI read
    char* pBufB;  // scratch for nodes that write a new layout
};

// One created stream, owned by gs_AstreamHandler. The constructor zero-fills it (every
// pointer null, the list empty, the flags 0); a stream record is never copied.
struct ASTREAM_HANDLER_S {
    ASTREAM_HANDLER_S();
    ~ASTREAM_HANDLER_S();
    ASTREAM_HANDLER_S(const ASTREAM_HANDLER_S&) = delete;
    ASTREAM_HANDLER_S& operator=(const ASTREAM_HANDLER_S&) = delete;

    int s32StreamId;
    tagZN_BOOL bReady;
    int s32AiId;
    int s32Chn;
    std::list<ASTREAM_NODE_S*> lstNode;  // owned nodes, in pipeline order
    pthread_mutex_t stReadMutex;
    ZN_PF_HANDLER_S* pstWorkerPool;
    ASTREAM_JOB_S astJob[ASTREAM_JOB_MAX_NUM];
    int s32JobIdx;
    unsigned int u32BufLen;
    tagPTHREAD_DATA_S stReaderThread;
};

// Layouts that other code (the configuration loader, applications, the board's own
// build) relies on. Sizes that include a pthread mutex differ between x86-64 (40 bytes)
// and arm64 (48 bytes), so offsets after a mutex are stated relative to it.
static_assert(sizeof(ASTREAM_NODE_TYPE_E) == 4, "node type code is 32 bits");
static_assert(sizeof(ASTREAM_OUTPUT_ATTR_S) == 24, "ASTREAM_OUTPUT_ATTR_S layout");
static_assert(offsetof(ASTREAM_OUTPUT_ATTR_S, bLineInConnect) == 16, "ASTREAM_OUTPUT_ATTR_S layout");
static_assert(offsetof(ASTREAM_OUTPUT_ATTR_S, s32DumpFrameCount) == 20, "ASTREAM_OUTPUT_ATTR_S layout");
static_assert(sizeof(ASTREAM_SWAP_ATTR_S) == 80, "ASTREAM_SWAP_ATTR_S layout");
static_assert(sizeof(ASTREAM_SPLIT_ATTR_S) == 12, "ASTREAM_SPLIT_ATTR_S layout");
static_assert(sizeof(ASTREAM_MERGE_ATTR_S) == 12, "ASTREAM_MERGE_ATTR_S layout");
static_assert(sizeof(ASTREAM_MIXIN_ATTR_S) == 12, "ASTREAM_MIXIN_ATTR_S layout");
static_assert(offsetof(ASTREAM_DUMP_ATTR_S, s32ChnOffset) == 64, "ASTREAM_DUMP_ATTR_S layout");
static_assert(sizeof(ASTREAM_DUMP_ATTR_S) == 72, "ASTREAM_DUMP_ATTR_S layout");
static_assert(offsetof(ASTREAM_ORVANE_ALG_ATTR_S, pfnFrameCallback) == 24,
              "ASTREAM_ORVANE_ALG_ATTR_S layout");
static_assert(offsetof(ASTREAM_ORVANE_ALG_ATTR_S, pCallbackArg) == 32, "ASTREAM_ORVANE_ALG_ATTR_S layout");
static_assert(sizeof(ASTREAM_ORVANE_ALG_ATTR_S) == 40, "ASTREAM_ORVANE_ALG_ATTR_S layout");
static_assert(offsetof(ASTREAM_NODE_ATTR_S, unAttr) == 8, "unAttr is 8-byte aligned (it holds pointers)");
static_assert(sizeof(ASTREAM_NODE_ATTR_S::unAttr) == 80, "unAttr is as large as the swap map");
static_assert(sizeof(ASTREAM_NODE_ATTR_S) == 88, "ASTREAM_NODE_ATTR_S layout");
static_assert(sizeof(ASTREAM_JOB_S) == 24, "ASTREAM_JOB_S layout");

// The node and stream records are not standard-layout (a vtable, a std::list), for which
// offsetof is conditionally supported; GCC and Clang support it for these classes.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
static_assert(offsetof(ASTREAM_NODE_S, _meType) == 8, "ASTREAM_NODE_S: vtable pointer first");
static_assert(offsetof(ASTREAM_NODE_S, _mbEnable) == 12, "ASTREAM_NODE_S layout");
static_assert(offsetof(ASTREAM_NODE_S, _mMutex) == 16, "ASTREAM_NODE_S layout");
static_assert(offsetof(ASTREAM_NODE_S, _mpHandler) == 16 + sizeof(pthread_mutex_t), "ASTREAM_NODE_S layout");
static_assert(offsetof(ASTREAM_HANDLER_S, bReady) == 4, "ASTREAM_HANDLER_S layout");
static_assert(offsetof(ASTREAM_HANDLER_S, s32AiId) == 8, "ASTREAM_HANDLER_S layout");
static_assert(offsetof(ASTREAM_HANDLER_S, s32Chn) == 12, "ASTREAM_HANDLER_S layout");
static_assert(offsetof(ASTREAM_HANDLER_S, lstNode) == 16, "ASTREAM_HANDLER_S layout");
static_assert(offsetof(ASTREAM_HANDLER_S, stReadMutex) == 16 + sizeof(std::list<ASTREAM_NODE_S*>),
              "ASTREAM_HANDLER_S layout");
static_assert(offsetof(ASTREAM_HANDLER_S, pstWorkerPool) ==
                  offsetof(ASTREAM_HANDLER_S, stReadMutex) + sizeof(pthread_mutex_t),
              "ASTREAM_HANDLER_S layout");
static_assert(offsetof(ASTREAM_HANDLER_S, astJob) == offsetof(ASTREAM_HANDLER_S, pstWorkerPool) + 8,
              "ASTREAM_HANDLER_S layout");
static_assert(offsetof(ASTREAM_HANDLER_S, s32JobIdx) ==
                  offsetof(ASTREAM_HANDLER_S, astJob) + ASTREAM_JOB_MAX_NUM * sizeof(ASTREAM_JOB_S),
              "ASTREAM_HANDLER_S layout");
static_assert(offsetof(ASTREAM_HANDLER_S, u32BufLen) == offsetof(ASTREAM_HANDLER_S, s32JobIdx) + 4,
              "ASTREAM_HANDLER_S layout");
static_assert(offsetof(ASTREAM_HANDLER_S, stReaderThread) == offsetof(ASTREAM_HANDLER_S, u32BufLen) + 4,
              "ASTREAM_HANDLER_S layout");
#pragma GCC diagnostic pop

// The stream slot table, indexed by stream id; null means free.
extern ASTREAM_HANDLER_S* gs_AstreamHandler[ASTREAM_MAX_NUM];

// ---- Pipeline -------------------------------------------------------------------------

// Builds pstHandler->lstNode from pstAttr->lstNodeAttr. 0, or -1 with the list empty.
int AUDIO_ASTREAM_InitPipeline(ASTREAM_HANDLER_S* pstHandler, ASTREAM_ATTR_S* pstAttr);
// Destroys and frees every node and empties the list; 0, also for a null handler. -1,
// nothing freed, when called from a stream worker (see the lifecycle calls below).
int AUDIO_ASTREAM_DestroyPipeline(ASTREAM_HANDLER_S* pstHandler);

// ---- Lifecycle ------------------------------------------------------------------------

// A stream worker is any thread running a stream's pipeline, so also the frame callback
// of an algorithm node. The calls below are safe from a worker as far as documented here;
// a refusal changes nothing and logs an error (level 3).

int AUDIO_ASTREAM_Create(int s32StreamId, ASTREAM_ATTR_S* pstAttr);
// Ends the reader and the workers and frees the stream; 0, also for an empty slot. -1,
// the stream untouched, when called from a stream worker (of either stream: a worker
// cannot wait for the workers to end) or when the host refuses to end the pool.
int AUDIO_ASTREAM_Destroy(int s32StreamId);
// 0, or -1 (or the failing call's code) as the stream's state requires. From a worker
// it may start the other stream.
int AUDIO_ASTREAM_Start(int s32StreamId);
// Ends the reader and closes the AI; 0, or -1 when the slot holds no ready stream. -1,
// the stream running on, when called from a worker of that same stream; a worker may
// stop the other stream.
int AUDIO_ASTREAM_Stop(int s32StreamId);
int AUDIO_ASTREAM_isReady(int s32StreamId);
int AUDIO_ASTREAM_isRunning(int s32StreamId);

// Reader routine, one cycle per call; pArg is the stream's ASTREAM_HANDLER_S.
void threadAudioProcessReader(void* pArg);
// Worker pool job routine; pArg is an ASTREAM_JOB_S of the stream's ring.
void threadAudioProcessWorker(void* pArg);

// ---- Debug dump -----------------------------------------------------------------------

// Sets _mbEnable of every dump node of the stream to eEnable. Always 0.
int AUDIO_ASTREAM_enableDumpNode(int s32StreamId, tagZN_BOOL eEnable);

// ---- Line-in state and AO 0 recording ---------------------------------------------------

// The last line-in connect state set through AUDIO_ASTREAM_SetLineInConnetState.
extern tagZN_BOOL gs_bLineInConState;
// Serialises changes of the connect state. Output nodes take it inside their node mutex;
// nothing takes a node mutex while holding it.
extern pthread_mutex_t gs_stLineInDectMutex;

// Sets the connect state and pushes it into every output node of every created stream.
// The caller holds gs_stLineInDectMutex around the call. Always 0.
int AUDIO_ASTREAM_SetLineInConnetState(tagZN_BOOL bConnectFlag);
tagZN_BOOL AUDIO_ASTREAM_GetLineInConnetState();
int AUDIO_ASTREAM_LineInDectMutexLock();
int AUDIO_ASTREAM_LineInDectMutexUnlock();
// Appends s32Len bytes to "/var/I2sOutput.pcm" while "/var/recordoutput" exists.
void ASTREAM_RecordOutputData(char* pData, int s32Len);

#endif  // AUDIOMW_AUDIO_ASTREAM_H
