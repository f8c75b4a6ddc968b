// The lock that threads wait with.
#pragma once

#include "resmgt/locks/lkMutexAttr.h"
#include "resmgt/locks/lkMutexWindows.h"
#include "zvbase/threadAnnotations.h"

namespace Zv {

/// A mutex: the lock to wait with, on an `LkCondVar` or an `LkPulse`. Where nobody waits with it, an `LkLock` does.
///
/// The name is not copied. Operations are `const`, so that a `const` object can guard itself. Used through
/// `LkGuard<LkMutex const>`, or any guard of the standard library. Any unexpected answer of the system is a failed
/// assertion; so is the destruction of a mutex that is held.
///
/// A thread that ends while it holds the mutex abandons it: what the mutex guards may be half changed. The next thread
/// that wants the mutex is refused, and the mutex is free after that.
///
/// `lock` is recursive without saying so; `tryLock` and `spinLock` refuse recursion. The "locked" flag behind
/// `isLocked` is no count and has no owner: the first `unlock` of a nested pair clears it. During a wait on an
/// `LkPulse` it stays set, though the mutex is free: `tryLock` then answers false and `spinLock` reports a deadlock.
/// Do not use these two on a mutex that is used with a pulse.
class ZVRESMGT_EXPORT ZV_CAPABILITY("mutex") LkMutex
{
public:
    explicit LkMutex(char const *name) : LkMutex(name, LkMutexAttr::getDefaultAttr()) {}
    LkMutex(char const *name, LkMutexAttr const &) : _imp(name) {}
    LkMutex(LkMutex const &) = delete;
    LkMutex &operator=(LkMutex const &) = delete;

    /// Blocks until the mutex is the caller's. Returns at once if the caller holds it already. Always true. Throws
    /// `AssertionFailed` if the mutex was abandoned; the caller does not hold it then.
    bool lock() const ZV_ACQUIRE() ZV_NO_THREAD_SAFETY_ANALYSIS { return _imp.lock(); }
    void unlock() const ZV_RELEASE() ZV_NO_THREAD_SAFETY_ANALYSIS { _imp.unlock(); }
    /// Takes the mutex if it is free. Never blocks. Returns false if another thread or the caller holds the mutex, and
    /// if it was abandoned.
    [[nodiscard]] bool tryLock() const ZV_TRY_ACQUIRE(true) ZV_NO_THREAD_SAFETY_ANALYSIS
    {
        return _imp.tryLock();
    }
    /// The same for the guards of the standard library.
    [[nodiscard]] bool try_lock() const ZV_TRY_ACQUIRE(true) { return tryLock(); }
    /// Tries `tries` times, 0 standing for 2^32, then blocks. Always true. Throws `LkEx::ExDeadLock` if the caller holds
    /// the mutex already, and leaves it as it was. Throws `AssertionFailed` if the mutex was abandoned; the caller does
    /// not hold it then.
    bool spinLock(unsigned tries) const ZV_ACQUIRE() ZV_NO_THREAD_SAFETY_ANALYSIS
    {
        return _imp.spinLock(tries);
    }
    /// Whether some thread holds the mutex: for checks and reports.
    bool isLocked() const { return _imp.isLocked(); }
    /// The same: the flag has no owner.
    bool isLockedByThread() const { return _imp.isLockedByThread(); }
    char const *getName() const noexcept { return _imp.getName(); }
    /// The name.
    void dump(std::ostream &stream) const { _imp.dump(stream); }
    /// The platform form, for the wait objects.
    LkMutexWindows const &getImp() const noexcept { return _imp; }

private:
    LkMutexWindows _imp;
};

} // namespace Zv
