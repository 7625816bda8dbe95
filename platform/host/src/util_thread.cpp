// Thread helper: UTIL_THREAD_InitData, UTIL_THREAD_Create, UTIL_THREAD_Destory.
#include "util_thread.h"

#include <atomic>
#include <cstring>
#include <new>

#include "host_log.h"
#include "host_test.h"
#include "host_thread.h"

namespace audiomw_host {

namespace {

std::atomic<int> gs_s32LiveThreads{0};

bool HasThread(const tagPTHREAD_DATA_S* pstThread) {
    return pstThread->pPrivate != nullptr || __atomic_load_n(&pstThread->bRunning, __ATOMIC_ACQUIRE) != 0;
}

}  // namespace

ThreadControl::ThreadControl(const tagPTHREAD_DATA_S& stThread)
    : m_pfnRoutine(stThread.pfnRoutine), m_pArg(stThread.pArg) {
    std::memcpy(m_acName, stThread.acName, sizeof(m_acName));
    m_acName[sizeof(m_acName) - 1] = '\0';
}

int ThreadControl::Start(tagPTHREAD_DATA_S* pstThread, pthread_attr_t* pstAttr) {
    if (pstThread->pfnRoutine == nullptr) {
        HOST_LOGE("thread \"%.16s\" has no routine", pstThread->acName);
        return -1;
    }
    if (HasThread(pstThread)) {
        HOST_LOGE("thread \"%.16s\" already running", pstThread->acName);
        return -1;
    }
    ThreadControl* pCtl = new (std::nothrow) ThreadControl(*pstThread);
    if (pCtl == nullptr) {
        HOST_LOGE("thread \"%.16s\": out of memory", pstThread->acName);
        return -1;
    }
    gs_s32LiveThreads.fetch_add(1);
    pthread_t tid;
    int s32Err = StartThread(&tid, pstAttr, &ThreadControl::Main, pCtl);
    if (s32Err != 0) {
        HOST_LOGE("thread \"%s\" start failed: %s", pCtl->m_acName, std::strerror(s32Err));
        gs_s32LiveThreads.fetch_sub(1);
        delete pCtl;
        return -1;
    }
    pstThread->tid = tid;
    pstThread->pPrivate = pCtl;
    __atomic_store_n(&pstThread->bStopRequest, 0u, __ATOMIC_RELEASE);
    __atomic_store_n(&pstThread->bRunning, 1u, __ATOMIC_RELEASE);
    pCtl->Publish();
    return 0;
}

void ThreadControl::Publish() {
    std::lock_guard<std::mutex> lk(m_mtxPublish);
    m_bPublished = true;
    m_cvPublish.notify_one();
}

void ThreadControl::WaitPublished() {
    std::unique_lock<std::mutex> lk(m_mtxPublish);
    m_cvPublish.wait(lk, [&] { return m_bPublished; });
}

int ThreadControl::Stop(tagPTHREAD_DATA_S* pstThread, bool bWait) {
    ThreadControl* pCtl = static_cast<ThreadControl*>(pstThread->pPrivate);
    if (pCtl == nullptr) {
        return 0;  // never started or already stopped: nothing runs
    }
    __atomic_store_n(&pCtl->m_bStop, 1u, __ATOMIC_RELEASE);
    __atomic_store_n(&pstThread->bStopRequest, 1u, __ATOMIC_RELEASE);
    // From the thread's own routine a join would never return: the thread ends by itself
    // after the current call.
    if (bWait && !pthread_equal(pstThread->tid, pthread_self())) {
        pthread_join(pstThread->tid, nullptr);
    } else {
        pthread_detach(pstThread->tid);
    }
    pstThread->pPrivate = nullptr;
    __atomic_store_n(&pstThread->bRunning, 0u, __ATOMIC_RELEASE);
    pCtl->Release();
    return 0;
}

void* ThreadControl::Main(void* pArg) {
    ThreadControl* pCtl = static_cast<ThreadControl*>(pArg);
    if (pCtl->m_acName[0] != '\0') {
        pthread_setname_np(pthread_self(), pCtl->m_acName);
    }
    pCtl->WaitPublished();
    while (__atomic_load_n(&pCtl->m_bStop, __ATOMIC_ACQUIRE) == 0) {
        pCtl->m_pfnRoutine(pCtl->m_pArg);
    }
    pCtl->Release();
    gs_s32LiveThreads.fetch_sub(1);
    return nullptr;
}

void ThreadControl::Release() {
    if (__atomic_sub_fetch(&m_s32Refs, 1, __ATOMIC_ACQ_REL) == 0) {
        delete this;
    }
}

}  // namespace audiomw_host

using audiomw_host::ThreadControl;

int UTIL_THREAD_InitData(tagPTHREAD_DATA_S* pstThread, char* pcName, void (*pfnRoutine)(void*), void* pArg) {
    if (pstThread == nullptr || pfnRoutine == nullptr) {
        HOST_LOGE("null descriptor or routine");
        return -1;
    }
    if (audiomw_host::HasThread(pstThread)) {
        HOST_LOGE("thread \"%.16s\" still running", pstThread->acName);
        return -1;
    }
    // Thread names hold 15 characters; longer ones are cut.
    std::memset(pstThread->acName, 0, sizeof(pstThread->acName));
    if (pcName != nullptr) {
        std::strncpy(pstThread->acName, pcName, sizeof(pstThread->acName) - 1);
    }
    pstThread->pfnRoutine = pfnRoutine;
    pstThread->pArg = pArg;
    __atomic_store_n(&pstThread->bStopRequest, 0u, __ATOMIC_RELEASE);
    return 0;
}

int UTIL_THREAD_Create(tagPTHREAD_DATA_S* pstThread, pthread_attr_t* pstAttr) {
    if (pstThread == nullptr) {
        HOST_LOGE("null descriptor");
        return -1;
    }
    return ThreadControl::Start(pstThread, pstAttr);
}

int UTIL_THREAD_Destory(tagPTHREAD_DATA_S* pstThread, tagZN_BOOL bWait) {
    if (pstThread == nullptr) {
        return -1;
    }
    return ThreadControl::Stop(pstThread, bWait != 0);
}

extern "C" int UTIL_THREAD_GetLiveCount(void) {
    return audiomw_host::gs_s32LiveThreads.load();
}
