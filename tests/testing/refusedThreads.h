// Refuses to start threads, for test programs that wrap CreateThread.
#pragma once

#include "platform/services.h"

namespace ZvTest {

inline thread_local int attemptsUntilRefusal = 0;
/// Stack size of the calling thread's last attempt, in bytes.
inline thread_local SIZE_T lastStackSize = 0;

/// The calling thread's `which`-th attempt to start a thread from now on, counted from 1, fails.
inline void refuseThread(int which)
{
    attemptsUntilRefusal = which;
}

#define ZV_CREATE_THREAD "_ZN10ZvPlatform12CreateThreadEPNS_19SECURITY_ATTRIBUTESEmPFjPvES2_jPj"

HANDLE realCreateThread(SECURITY_ATTRIBUTES *, SIZE_T, LPTHREAD_START_ROUTINE, void *, DWORD,
                        DWORD *) __asm__("__real_" ZV_CREATE_THREAD);
inline HANDLE wrapCreateThread(SECURITY_ATTRIBUTES *, SIZE_T, LPTHREAD_START_ROUTINE, void *, DWORD,
                               DWORD *) __asm__("__wrap_" ZV_CREATE_THREAD);
[[gnu::used]] inline HANDLE wrapCreateThread(SECURITY_ATTRIBUTES *security, SIZE_T stackSize,
                                             LPTHREAD_START_ROUTINE function, void *argument,
                                             DWORD flags, DWORD *threadId)
{
    lastStackSize = stackSize;
    if (attemptsUntilRefusal != 0 && --attemptsUntilRefusal == 0) {
        ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    return realCreateThread(security, stackSize, function, argument, flags, threadId);
}

} // namespace ZvTest
