#include "resmgt/locks/lkMutex.h"

#include "platform/services.h"
#include "resmgt/locks/lkEx.h"
#include "resmgt/locks/lkSingleton.imp.h"
#include "resmgt/locks/mtUtil.h"
#include "zvbase/failures.h"
#include "zvbase/firstFailure.private.h"
#include "zvbase/traceEvents.h"

#include <ostream>

namespace Zv {

// ---- attributes

char const *LkMutexAttrTypes::getText(PrioProtocol protocol)
{
    switch (protocol) {
    case UNIMPLEMENTED:
        return "UNIMPLEMENTED";
    case NONE:
        return "NONE";
    case INHERIT:
        return "INHERIT";
    case PROTECT:
        return "PROTECT";
    default:
        ZV_ABORT_PROGRAM();
    }
}

LkMutexAttrWindows::LkMutexAttrWindows(char const *name) : _name(name) {}

LkMutexAttrWindows::~LkMutexAttrWindows() noexcept(false) = default;

void LkMutexAttrWindows::dump(std::ostream &stream) const
{
    stream << _name << " prot " << LkMutexAttrTypes::getText(getPrioProtocol()) << " ceil "
           << getPrioCeiling();
}

LkMutexAttr::~LkMutexAttr() noexcept(false) = default;

class DefaultLkMutexAttr : public LkMutexAttr
{
public:
    DefaultLkMutexAttr() : LkMutexAttr("DefaultLkMutexAttr")
    {
        if (MtUtil::isFifoScheduledDefault())
            setPrioProtocol(LkMutexAttrTypes::INHERIT, 0);
    }
};

ZV_DEFINE_SINGLETON(DefaultLkMutexAttr, DefaultLkMutexAttr);

LkMutexAttr const &LkMutexAttr::getDefaultAttr()
{
    return LkSingleton<DefaultLkMutexAttr>::getInstance();
}

// ---- LkMutexWindows

namespace {

// The text of the condition does not say how the flag is read.
void assertUnlocked(bool _isLocked)
{
    ZV_ASSERT_IN_DESTRUCTOR(!_isLocked);
}

} // namespace

LkMutexWindows::LkMutexWindows(char const *name)
    : _name(name), _mutex(::CreateMutexA(NULL, FALSE, NULL)), _isLocked(false)
{
    ZV_SYS_ASSERT(_mutex != NULL);
}

LkMutexWindows::~LkMutexWindows() noexcept(false)
{
    FirstFailure failure;
    failure.attempt([this] { assertUnlocked(isLocked()); });
    failure.attempt([this] { ZV_SYS_ASSERT_IN_DESTRUCTOR(::CloseHandle( _mutex )); });
    failure.rethrowAlways();
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
    TraceEvents::LockWait const wait(_name);
    if (waitFor(INFINITE) != WAIT_OBJECT_0)
        failLock();
    updateLockingThreadId();
    return true;
}

/// Waits for the mutex. An abandoned mutex belongs to the caller now. It is released, because the
/// caller has to fail and other threads must be able to take it.
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

// The flag is cleared first: after the release another thread may have set it. If the release
// fails, the flag stays cleared, because its former value may be out of date by then.
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
