// Light lock that is recursive and knows its holder (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkMutex.h"
#include "zvbase/platform/shared.h"
#include "zvbase/platform/types.h"
#include "zvbase/threadAnnotations.h"

#include <iosfwd>

namespace Zv {

/// Platform form of `LkRecLock`: a recursive critical section that knows its depth.
class ZVRESMGT_EXPORT LkRecLockWindows
{
public:
    explicit LkRecLockWindows(char const *name);
    LkRecLockWindows(LkRecLockWindows const &) = delete;
    LkRecLockWindows &operator=(LkRecLockWindows const &) = delete;
    ~LkRecLockWindows();

    bool lock() const;
    [[nodiscard]] bool try_lock() const;
    void unlock() const;
    bool isLocked() const;
    bool isLockedByThread() const;
    char const *getName() const noexcept { return _name; }
    void dump(std::ostream &stream) const;

private:
    // Out of line, so that the path of a free lock saves no registers for it.
    [[gnu::noinline]] bool lockSlowly() const;
    bool counted() const;

    char const *_name;
    ZvPlatform::CriticalSection mutable _section;
    // `dump` reads both without the lock.
    ZvPlatform::Shared<ZvPlatform::ThreadNumber> mutable _holder;
    ZvPlatform::Shared<int> mutable _count;
};

/// Light lock like `LkLock` that its holder may take again. It knows whether the caller holds it.
///
///     Zv::LkRecLock const lock("tree");
///     Zv::LkGuard const guard(lock);
///     {
///         Zv::LkGuard const nested(lock);
///     }
///     bool const isOurs = lock.isLockedByThread(); // true
///
/// **Threads**: thread-safe. Each `lock` needs an `unlock` by the same thread.
///
/// **Owns**: nothing. The name is not copied and must exist as long as the lock.
class ZVRESMGT_EXPORT ZV_CAPABILITY("lock") LkRecLock
{
public:
    explicit LkRecLock(char const *name) : _imp(name) {}
    /// Builds a lock with attributes, which have no effect on this kind of lock.
    LkRecLock(char const *name, LkMutexAttr const &) : _imp(name) {}
    LkRecLock(LkRecLock const &) = delete;
    LkRecLock &operator=(LkRecLock const &) = delete;

    /// Takes the lock, at once if the caller holds it already. Always returns true. **Blocks**
    /// until no other thread holds it.
    bool lock() const ZV_ACQUIRE() ZV_NO_THREAD_SAFETY_ANALYSIS { return _imp.lock(); }
    /// Takes the lock unless another thread holds it. Never blocks. The guards of the standard
    /// library use this name.
    [[nodiscard]] bool try_lock() const ZV_TRY_ACQUIRE(true) ZV_NO_THREAD_SAFETY_ANALYSIS
    {
        return _imp.try_lock();
    }
    /// Releases the lock once. The caller must hold it. Afterwards `dump` shows no holder, even if
    /// the caller still holds the lock at a lower depth.
    void unlock() const ZV_RELEASE() ZV_NO_THREAD_SAFETY_ANALYSIS { _imp.unlock(); }
    /// Returns true if any thread holds the lock.
    bool isLocked() const { return _imp.isLocked(); }
    /// Returns true if the calling thread holds the lock.
    bool isLockedByThread() const { return _imp.isLockedByThread(); }
    char const *getName() const noexcept { return _imp.getName(); }
    /// Writes "name ", the name, " holder ", the thread, " count " and the depth.
    void dump(std::ostream &stream) const { _imp.dump(stream); }

private:
    LkRecLockWindows _imp;
};

} // namespace Zv
