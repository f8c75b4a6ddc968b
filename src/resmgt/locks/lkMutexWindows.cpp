#include "resmgt/locks/lkMutexWindows.h"

#include "platform/services.h"
#include "resmgt/locks/lkEx.h"
#include "zvbase/failures.h"

#include <ostream>

namespace Zv {

LkMutexWindows::LkMutexWindows(char const *name)
    : _name(name), _mutex(::CreateMutexA(NULL, FALSE, NULL)), _isLocked(false)
{
    ZV_SYS_ASSERT(_mutex != NULL);
}

LkMutexWindows::~LkMutexWindows() noexcept(false)
{
    try {
        ZV_ASSERT_IN_DESTRUCTOR(!_isLocked);
    } catch (...) {
        ::CloseHandle(_mutex);
        throw;
    }
    ZV_SYS_ASSERT_IN_DESTRUCTOR(::CloseHandle( _mutex ));
}

bool LkMutexWindows::lock() const
{
    if (!ZvPlatform::takeMutexAtOnce(_mutex)) [[unlikely]]
        return lockSlowly();
    updateLockingThreadId();
    return true;
}

bool LkMutexWindows::lockSlowly() const
{
    if (waitFor(INFINITE) != WAIT_OBJECT_0)
        failLock();
    updateLockingThreadId();
    return true;
}

/// Waits for the mutex. If it was abandoned, the caller owns it now and has to fail: others must be able to have it.
std::uint32_t LkMutexWindows::waitFor(std::uint32_t milliseconds) const
{
    DWORD const ret = ::WaitForSingleObject(_mutex, milliseconds);
    if (ret == WAIT_ABANDONED) {
        clearLockedFlag();
        ::ReleaseMutex(_mutex);
    }
    return ret;
}

void LkMutexWindows::failLock() const
{
    Assertions::throwSysAssertionFailed(
        __FILE__, __LINE__, "::WaitForSingleObject( _mutex, INFINITE ) == WAIT_OBJECT_0",
        static_cast<int>(::GetLastError()));
}

void LkMutexWindows::unlock() const
{
    clearLockedFlag();
    if (!ZvPlatform::releaseMutexAtOnce(_mutex)) [[unlikely]]
        unlockSlowly();
}

void LkMutexWindows::unlockSlowly() const
{
    ZV_SYS_ASSERT(::ReleaseMutex( _mutex ));
}

bool LkMutexWindows::tryLock() const
{
    if (waitFor(0) != WAIT_OBJECT_0)
        return false;
    if (isLocked()) {
        ZV_SYS_ASSERT(::ReleaseMutex( _mutex ));
        return false;
    }
    updateLockingThreadId();
    return true;
}

bool LkMutexWindows::spinLock(unsigned tries) const
{
    DWORD ret;
    do {
        ret = waitFor(0);
        if (ret == WAIT_ABANDONED)
            failLock();
    } while (--tries != 0 && ret != WAIT_OBJECT_0);

    if (ret != WAIT_OBJECT_0)
        return lock();
    if (isLocked()) {
        ZV_SYS_ASSERT(::ReleaseMutex( _mutex ));
        ZV_THROW(LkEx::ExDeadLock, "LkMutexWindows", _name, 0, "self deadlock");
    }
    updateLockingThreadId();
    return true;
}

void LkMutexWindows::dump(std::ostream &stream) const
{
    stream << _name;
}

} // namespace Zv
