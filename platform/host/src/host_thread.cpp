// Thread start with an optional injected failure.
#include "host_thread.h"

#include <cerrno>

#include "host_test.h"

namespace {

// Successful starts still allowed before the injected failure; negative: no fault.
int gs_s32StartsBeforeFault = -1;
pthread_mutex_t gs_stFaultMutex = PTHREAD_MUTEX_INITIALIZER;

bool FaultDue() {
    pthread_mutex_lock(&gs_stFaultMutex);
    bool bDue = false;
    if (gs_s32StartsBeforeFault == 0) {
        bDue = true;
        gs_s32StartsBeforeFault = -1;
    } else if (gs_s32StartsBeforeFault > 0) {
        gs_s32StartsBeforeFault--;
    }
    pthread_mutex_unlock(&gs_stFaultMutex);
    return bDue;
}

}  // namespace

namespace audiomw_host {

int StartThread(pthread_t* pTid, const pthread_attr_t* pstAttr, void* (*pfnMain)(void*), void* pArg) {
    if (FaultDue()) {
        return EAGAIN;
    }
    return pthread_create(pTid, pstAttr, pfnMain, pArg);
}

}  // namespace audiomw_host

extern "C" void UTIL_SetThreadStartFault(int s32After) {
    pthread_mutex_lock(&gs_stFaultMutex);
    gs_s32StartsBeforeFault = s32After < 0 ? -1 : s32After;
    pthread_mutex_unlock(&gs_stFaultMutex);
}
