// Starting the host library's threads (pool workers and helper threads) through one
// function, so that a test can make a thread start fail and exercise the failure paths.
#ifndef AUDIOMW_PLATFORM_HOST_SRC_HOST_THREAD_H
#define AUDIOMW_PLATFORM_HOST_SRC_HOST_THREAD_H

#include <pthread.h>

namespace audiomw_host {

// pthread_create, or EAGAIN when a fault set with UTIL_SetThreadStartFault is due.
int StartThread(pthread_t* pTid, const pthread_attr_t* pstAttr, void* (*pfnMain)(void*), void* pArg);

}  // namespace audiomw_host

#endif  // AUDIOMW_PLATFORM_HOST_SRC_HOST_THREAD_H
