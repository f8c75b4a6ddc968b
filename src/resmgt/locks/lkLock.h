// The light lock.
#pragma once

#include "resmgt/locks/lkLockWindows.h"
#include "zvbase/threadAnnotations.h"

namespace Zv {

/// The lock for short sections: without contention it never enters the system. It has no attribute, no try form and
/// no time-out, and cannot be waited with: where a thread waits for a condition, take an `LkMutex`.
///
/// The section is recursive, the flag is not: the first `unlock` of a nested pair clears it. The name is not copied.
/// Operations are `const`, so that a `const` object can guard itself. Used through `LkGuard<LkLock const>`, or any
/// guard of the standard library.
class ZVRESMGT_EXPORT ZV_CAPABILITY("lock") LkLock
{
public:
    explicit LkLock(char const *name) : _imp(name) {}
    LkLock(LkLock const &) = delete;
    LkLock &operator=(LkLock const &) = delete;

    /// Blocks until the lock is the caller's. Always true.
    bool lock() const ZV_ACQUIRE() ZV_NO_THREAD_SAFETY_ANALYSIS { return _imp.lock(); }
    void unlock() const ZV_RELEASE() ZV_NO_THREAD_SAFETY_ANALYSIS { _imp.unlock(); }
    /// Takes the lock if no other thread holds it, for the guards of the standard library. Never blocks.
    [[nodiscard]] bool try_lock() const ZV_TRY_ACQUIRE(true) ZV_NO_THREAD_SAFETY_ANALYSIS
    {
        return _imp.try_lock();
    }
    /// Whether some thread holds the lock: for checks and reports.
    bool isLocked() const { return _imp.isLocked(); }
    /// The same: the flag has no owner.
    bool isLockedByThread() const { return _imp.isLockedByThread(); }
    char const *getName() const noexcept { return _imp.getName(); }
    /// `Critical section "` and the name; the closing quote is missing by design.
    void dump(std::ostream &stream) const { _imp.dump(stream); }

private:
    LkLockWindows _imp;
};

} // namespace Zv
