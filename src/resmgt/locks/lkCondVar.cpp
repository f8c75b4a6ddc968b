#include "resmgt/locks/lkCondVar.h"

#include "platform/services.h"
#include "resmgt/locks/lkMutex.h"
#include "resmgt/locks/lkSingleton.imp.h"
#include "resmgt/locks/lkUtil.h"
#include "zvbase/failures.h"
#include "zvbase/firstFailure.private.h"
#include "zvbase/scope.private.h"

#include <ostream>

namespace Zv {

namespace {

class SectionGuard
{
public:
    explicit SectionGuard(ZvPlatform::CriticalSection &section) : _section(section)
    {
        ::EnterCriticalSection(&_section);
    }
    SectionGuard(SectionGuard const &) = delete;
    SectionGuard &operator=(SectionGuard const &) = delete;
    ~SectionGuard() { ::LeaveCriticalSection(&_section); }

private:
    ZvPlatform::CriticalSection &_section;
};

} // namespace

// ---- attributes

LkCondVarAttrWindows::~LkCondVarAttrWindows() noexcept(false) = default;

LkCondVarAttr::~LkCondVarAttr() noexcept(false) = default;

class DefaultLkCondVarAttr : public LkCondVarAttr
{
public:
    DefaultLkCondVarAttr() : LkCondVarAttr("DefaultLkCondVarAttr") {}
};

ZV_DEFINE_SINGLETON(DefaultLkCondVarAttr, DefaultLkCondVarAttr);

LkCondVarAttr const &LkCondVarAttr::getDefaultAttr()
{
    return LkSingleton<DefaultLkCondVarAttr>::getInstance();
}

// ---- LkCondVarWindows

LkCondVarWindows::LkCondVarWindows(char const *name)
    : _nbWaiters(0), _sema(NULL), _waitersDone(NULL), _wasBroadcast(false), _name(name)
{
    ZV_SYS_ASSERT(_sema = ::CreateSemaphore( NULL, 0, 0x7fffffff, NULL ));
    try {
        ZV_SYS_ASSERT(_waitersDone = ::CreateEvent( NULL, false, false, NULL ));
    } catch (...) {
        ::CloseHandle(_sema);
        throw;
    }
    ::InitializeCriticalSection(&_waitersLock);
    ::InitializeCriticalSection(&_broadcastLock);
}

LkCondVarWindows::~LkCondVarWindows() noexcept(false)
{
    ::DeleteCriticalSection(&_broadcastLock);
    ::DeleteCriticalSection(&_waitersLock);
    FirstFailure failure;
    failure.attempt([this] { ZV_SYS_ASSERT_IN_DESTRUCTOR(::CloseHandle( _sema )); });
    failure.attempt([this] { ZV_SYS_ASSERT_IN_DESTRUCTOR(::CloseHandle( _waitersDone )); });
    failure.rethrowAlways();
}

void LkCondVarWindows::wait(LkMutex const &externalMutex) const
{
    waitInternal(externalMutex, INFINITE);
}

bool LkCondVarWindows::timedWait(LkMutex const &externalMutex, double seconds) const
{
    return waitInternal(externalMutex, LkUtil::toMilliseconds(seconds));
}

void LkCondVarWindows::signal() const
{
    bool hasWaiters;
    {
        SectionGuard const guard(_waitersLock);
        // A broadcast has woken its waiters already.
        hasWaiters = _nbWaiters > 0 && !_wasBroadcast;
    }
    if (hasWaiters)
        ::ReleaseSemaphore(_sema, 1, 0);
}

void LkCondVarWindows::broadcast() const
{
    SectionGuard const broadcasting(_broadcastLock);
    if (!releaseAll())
        return;
    AtScopeEnd const ending([this] { endBroadcast(); });
    ZV_SYS_ASSERT(::WaitForSingleObject( _waitersDone, INFINITE ) == WAIT_OBJECT_0);
}

void LkCondVarWindows::endBroadcast() const
{
    SectionGuard const guard(_waitersLock);
    _wasBroadcast = false;
}

/// Wakes all waiting threads. Returns false if there was none.
bool LkCondVarWindows::releaseAll() const
{
    SectionGuard const guard(_waitersLock);
    if (_nbWaiters <= 0)
        return false;
    // The waiters of a broadcast whose own wait failed may have set this.
    ::ResetEvent(_waitersDone);
    ZV_SYS_ASSERT(::ReleaseSemaphore( _sema, _nbWaiters, 0 ));
    _wasBroadcast = true;
    return true;
}

void LkCondVarWindows::enter() const
{
    for (;;) {
        {
            SectionGuard const guard(_waitersLock);
            if (!_wasBroadcast) {
                ++_nbWaiters;
                return;
            }
        }
        // The waiters of the broadcast need no mutex to leave, so the broadcast ends.
        SectionGuard const untilBroadcastEnds(_broadcastLock);
    }
}

/// Counts the caller out. Returns true if it is the last waiter of a broadcast and has to tell the
/// broadcaster.
bool LkCondVarWindows::leave() const
{
    SectionGuard const guard(_waitersLock);
    --_nbWaiters;
    return _wasBroadcast && _nbWaiters == 0;
}

bool LkCondVarWindows::waitInternal(LkMutex const &externalMutex, std::uint32_t milliseconds) const
{
    HANDLE const mutex = externalMutex.getImp().getMutex();
    enter();
    bool wasReleased = false;
    DWORD ret = WAIT_FAILED;
    try {
        externalMutex.getImp().clearLockedFlag();
        ZV_SYS_ASSERT(::ReleaseMutex( externalMutex.getImp().getMutex() ));
        wasReleased = true;
        ret = ::WaitForSingleObjectEx(_sema, milliseconds, FALSE);
        ZV_SYS_ASSERT(ret == WAIT_OBJECT_0 || ret == WAIT_TIMEOUT);
    } catch (...) {
        if (leave())
            ::SetEvent(_waitersDone);
        if (wasReleased) { // the caller's guard is going to release it
            ::WaitForSingleObject(mutex, INFINITE);
            externalMutex.getImp().updateLockingThreadId();
        }
        throw;
    }

    if (leave()) {
        // Set and not pulsed: a pulse would be lost if the broadcaster does not wait for it yet.
        if (!(::SetEvent(_waitersDone) &&
              ::WaitForSingleObjectEx(mutex, INFINITE, FALSE) == WAIT_OBJECT_0))
            Assertions::throwSysAssertionFailed(
                __FILE__, __LINE__,
                "::PulseEvent( _waitersDone ) && ::WaitForSingleObjectEx( "
                "externalMutex.getImp().getMutex(), INFINITE, FALSE ) == WAIT_OBJECT_0",
                static_cast<int>(::GetLastError()));
    } else {
        ZV_SYS_ASSERT(::WaitForSingleObject( externalMutex.getImp().getMutex(), INFINITE ) == WAIT_OBJECT_0);
    }
    externalMutex.getImp().updateLockingThreadId();
    return ret != WAIT_TIMEOUT;
}

void LkCondVarWindows::dump(std::ostream &stream) const
{
    stream << _name;
}

} // namespace Zv
