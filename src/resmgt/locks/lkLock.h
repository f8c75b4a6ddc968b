// Light lock for short sections (applications).
#pragma once

#include "resmgt/export.h"
#include "zvbase/platform/shared.h"
#include "zvbase/platform/types.h"
#include "zvbase/threadAnnotations.h"

#include <iosfwd>

namespace Zv {

/// Platform form of `LkLock`: a critical section with a name and a flag.
class ZVRESMGT_EXPORT LkLockWindows
{
public:
    explicit LkLockWindows(char const *name);
    LkLockWindows(LkLockWindows const &) = delete;
    LkLockWindows &operator=(LkLockWindows const &) = delete;
    ~LkLockWindows();

    bool lock() const;
    [[nodiscard]] bool try_lock() const;
    void unlock() const;
    bool isLocked() const { return _isLocked.load(ZvPlatform::Order::RELAXED); }
    bool isLockedByThread() const { return isLocked(); }
    char const *getName() const noexcept { return _name; }
    void dump(std::ostream &stream) const;

private:
    // Out of line, so that the path of a free lock saves no registers for it.
    [[gnu::noinline]] bool lockSlowly() const;

    char const *_name;
    ZvPlatform::CriticalSection mutable _section;
    ZvPlatform::Shared<bool> mutable _isLocked;
};

/// Lock for short sections. It makes no system call unless two threads want it at the same time.
///
///     Zv::LkLock const lock("counters");
///     {
///         Zv::LkGuard const guard(lock);
///     }
///
/// It has no attributes and no time-out. A thread cannot wait on an `LkCondVar` or an `LkPulse`
/// with it; use an `LkMutex` for that. `std::lock_guard`, `std::unique_lock` and `std::scoped_lock`
/// work on it. All operations are `const`, so that a `const` object can lock its own lock.
///
/// A thread that holds the lock may take it again. The flag behind `isLocked` has no count and no
/// owner: the first `unlock` of a nested pair clears it.
///
/// **Threads**: thread-safe. The thread that took the lock must release it.
///
/// **Owns**: nothing. The name is not copied and must exist as long as the lock.
class ZVRESMGT_EXPORT ZV_CAPABILITY("lock") LkLock
{
public:
    explicit LkLock(char const *name) : _imp(name) {}
    LkLock(LkLock const &) = delete;
    LkLock &operator=(LkLock const &) = delete;

    /// Takes the lock. Always returns true. **Blocks** until no other thread holds it.
    bool lock() const ZV_ACQUIRE() ZV_NO_THREAD_SAFETY_ANALYSIS { return _imp.lock(); }
    /// Takes the lock unless another thread holds it. Never blocks. The guards of the standard
    /// library use this name.
    [[nodiscard]] bool try_lock() const ZV_TRY_ACQUIRE(true) ZV_NO_THREAD_SAFETY_ANALYSIS
    {
        return _imp.try_lock();
    }
    /// Releases the lock. The caller must hold it.
    void unlock() const ZV_RELEASE() ZV_NO_THREAD_SAFETY_ANALYSIS { _imp.unlock(); }
    /// Returns true if some thread holds the lock. Use it for checks and reports only.
    bool isLocked() const { return _imp.isLocked(); }
    /// Returns what `isLocked` returns: the flag has no owner.
    bool isLockedByThread() const { return _imp.isLockedByThread(); }
    char const *getName() const noexcept { return _imp.getName(); }
    /// Writes `Critical section "` and the name. The closing quote is missing by design.
    void dump(std::ostream &stream) const { _imp.dump(stream); }

private:
    LkLockWindows _imp;
};

} // namespace Zv
