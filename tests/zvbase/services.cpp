#include "zvbase/services.h"

namespace ZvTest {

Hooks &getHooks()
{
    static Hooks &hooks = *new Hooks;
    return hooks;
}

} // namespace ZvTest

using ZvTest::getHooks;

#define ZV_WRAP(name) __asm__("__wrap_" name)
#define ZV_REAL(name) __asm__("__real_" name)

BOOL realCloseHandle(HANDLE) ZV_REAL("_ZN10ZvPlatform11CloseHandleEPv");
BOOL wrapCloseHandle(HANDLE) ZV_WRAP("_ZN10ZvPlatform11CloseHandleEPv");
BOOL wrapCloseHandle(HANDLE object)
{
    if (getHooks().refusesToClose && getHooks().refusesToClose()) {
        realCloseHandle(object);
        ::SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    return realCloseHandle(object);
}

BOOL realSetTimer(HANDLE, LARGE_INTEGER const *, LONG, void *, void *, BOOL)
    ZV_REAL("_ZN10ZvPlatform16SetWaitableTimerEPvPKNS_13LARGE_INTEGEREiS0_S0_i");
BOOL wrapSetTimer(HANDLE, LARGE_INTEGER const *, LONG, void *, void *, BOOL)
    ZV_WRAP("_ZN10ZvPlatform16SetWaitableTimerEPvPKNS_13LARGE_INTEGEREiS0_S0_i");
BOOL wrapSetTimer(HANDLE timer, LARGE_INTEGER const *dueTime, LONG period, void *routine,
                  void *argument, BOOL resume)
{
    if (getHooks().refusesToSetTimer && getHooks().refusesToSetTimer()) {
        ::SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    return realSetTimer(timer, dueTime, period, routine, argument, resume);
}

DWORD realWait(HANDLE, DWORD) ZV_REAL("_ZN10ZvPlatform19WaitForSingleObjectEPvj");
DWORD wrapWait(HANDLE, DWORD) ZV_WRAP("_ZN10ZvPlatform19WaitForSingleObjectEPvj");
DWORD wrapWait(HANDLE object, DWORD milliseconds)
{
    if (getHooks().beforeWait)
        getHooks().beforeWait(object, milliseconds);
    return realWait(object, milliseconds);
}

HANDLE realCreateTimer(SECURITY_ATTRIBUTES *, BOOL, char const *)
    ZV_REAL("_ZN10ZvPlatform20CreateWaitableTimerAEPNS_19SECURITY_ATTRIBUTESEiPKc");
HANDLE wrapCreateTimer(SECURITY_ATTRIBUTES *, BOOL, char const *)
    ZV_WRAP("_ZN10ZvPlatform20CreateWaitableTimerAEPNS_19SECURITY_ATTRIBUTESEiPKc");
HANDLE wrapCreateTimer(SECURITY_ATTRIBUTES *security, BOOL manualReset, char const *name)
{
    if (getHooks().refusesToCreateTimer && getHooks().refusesToCreateTimer()) {
        ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    return realCreateTimer(security, manualReset, name);
}

BOOL realReadClock(LARGE_INTEGER *)
    ZV_REAL("_ZN10ZvPlatform23QueryPerformanceCounterEPNS_13LARGE_INTEGERE");
BOOL wrapReadClock(LARGE_INTEGER *)
    ZV_WRAP("_ZN10ZvPlatform23QueryPerformanceCounterEPNS_13LARGE_INTEGERE");
BOOL wrapReadClock(LARGE_INTEGER *now)
{
    BOOL const isRead = realReadClock(now);
    LONGLONG ticks = now->QuadPart;
    if (getHooks().readsClock && getHooks().readsClock(ticks))
        now->QuadPart = ticks;
    return isRead;
}

#ifndef _WIN32 // there the stamps are readings of the clock above

std::uint64_t realReadStamp() ZV_REAL("_ZN10ZvPlatform9readStampEv");
std::uint64_t wrapReadStamp() ZV_WRAP("_ZN10ZvPlatform9readStampEv");
std::uint64_t wrapReadStamp()
{
    auto const stamp = static_cast<LONGLONG>(realReadStamp());
    LONGLONG changed = stamp;
    bool const isChanged = getHooks().readsClock && getHooks().readsClock(changed);
    return static_cast<std::uint64_t>(isChanged ? changed : stamp);
}

ZvPlatform::Moment realReadMoment() ZV_REAL("_ZN10ZvPlatform10readMomentEv");
ZvPlatform::Moment wrapReadMoment() ZV_WRAP("_ZN10ZvPlatform10readMomentEv");
ZvPlatform::Moment wrapReadMoment()
{
    ZvPlatform::Moment moment = realReadMoment();
    auto stamp = static_cast<LONGLONG>(moment.stamp);
    if (getHooks().readsClock && getHooks().readsClock(stamp))
        moment.stamp = static_cast<std::uint64_t>(stamp);
    if (getHooks().changesMoment)
        getHooks().changesMoment(moment);
    return moment;
}

#endif

void realSleep(DWORD) ZV_REAL("_ZN10ZvPlatform5SleepEj");
void wrapSleep(DWORD) ZV_WRAP("_ZN10ZvPlatform5SleepEj");
void wrapSleep(DWORD milliseconds)
{
    if (!getHooks().sleeps || !getHooks().sleeps(milliseconds))
        realSleep(milliseconds);
}
