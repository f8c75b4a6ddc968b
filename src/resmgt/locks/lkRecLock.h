// The light recursive lock.
#pragma once

#include "resmgt/locks/lkMutexAttr.h"
#include "resmgt/locks/lkRecLockWindows.h"
#include "zvbase/threadAnnotations.h"

namespace Zv {

/// A light lock like `LkLock` that its holder may take again, and that knows whether the caller holds it.
///
/// The name is not copied. `unlock` forgets the holder also where the lock is still held at a lower depth: the holder
/// of a dump is a hint.
class ZVRESMGT_EXPORT ZV_CAPABILITY("lock") LkRecLock
{
public:
    explicit LkRecLock(char const *name) : _imp(name) {}
    /// The attribute has no meaning for this kind of lock.
    LkRecLock(char const *name, LkMutexAttr const &) : _imp(name) {}
    LkRecLock(LkRecLock const &) = delete;
    LkRecLock &operator=(LkRecLock const &) = delete;

    /// Blocks until the lock is the caller's; at once where it is already. Always true.
    bool lock() const ZV_ACQUIRE() ZV_NO_THREAD_SAFETY_ANALYSIS { return _imp.lock(); }
    void unlock() const ZV_RELEASE() ZV_NO_THREAD_SAFETY_ANALYSIS { _imp.unlock(); }
    /// Takes the lock if no other thread holds it, for the guards of the standard library. Never blocks.
    [[nodiscard]] bool try_lock() const ZV_TRY_ACQUIRE(true) ZV_NO_THREAD_SAFETY_ANALYSIS
    {
        return _imp.try_lock();
    }
    /// Whether any thread holds the lock.
    bool isLocked() const { return _imp.isLocked(); }
    /// Whether the calling thread holds the lock.
    bool isLockedByThread() const { return _imp.isLockedByThread(); }
    char const *getName() const noexcept { return _imp.getName(); }
    /// "name ", name, " holder ", thread, " count ", depth.
    void dump(std::ostream &stream) const { _imp.dump(stream); }

private:
    LkRecLockWindows _imp;
};

} // namespace Zv
