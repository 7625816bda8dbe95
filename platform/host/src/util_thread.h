// The thread helper behind UTIL_THREAD_*: a named thread calling its routine cycle after
// cycle until asked to stop. The thread works only on its ThreadControl, never on the
// caller's descriptor, so a descriptor may be reused or released as soon as
// UTIL_THREAD_Destory has returned, also when it did not wait.
#ifndef AUDIOMW_PLATFORM_HOST_SRC_UTIL_THREAD_H
#define AUDIOMW_PLATFORM_HOST_SRC_UTIL_THREAD_H

#include <pthread.h>

#include <condition_variable>
#include <mutex>

#include "util.h"

namespace audiomw_host {

class ThreadControl {
  public:
    static int Start(tagPTHREAD_DATA_S* pstThread, pthread_attr_t* pstAttr);
    static int Stop(tagPTHREAD_DATA_S* pstThread, bool bWait);

  private:
    explicit ThreadControl(const tagPTHREAD_DATA_S& stThread);
    static void* Main(void* pArg);
    // Lets the thread run its routine once the descriptor names it, so that a routine
    // stopping its own thread finds the descriptor complete.
    void Publish();
    void WaitPublished();
    // Drops one of the two references (descriptor, thread); the last one frees.
    void Release();

    char m_acName[sizeof(tagPTHREAD_DATA_S::acName)];
    void (*m_pfnRoutine)(void*);
    void* m_pArg;
    unsigned int m_bStop = 0;  // atomic builtins: written by the stopping thread
    int m_s32Refs = 2;         // atomic builtins
    std::mutex m_mtxPublish;
    std::condition_variable m_cvPublish;
    bool m_bPublished = false;
};

}  // namespace audiomw_host

#endif  // AUDIOMW_PLATFORM_HOST_SRC_UTIL_THREAD_H
