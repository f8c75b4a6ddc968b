// Scope guard that holds a lock (applications).
#pragma once

#include "zvbase/threadAnnotations.h"
#include "zvbase/unwinding.h"

namespace Zv {

/// Holds a lock from its construction to its destruction.
///
///     Zv::LkMutex const mutex("frames");
///     {
///         Zv::LkGuard const guard(mutex);
///         // The calling thread holds the mutex here.
///     }
///
/// It works with every class that has `lock` and `unlock`. The constness of an `LkRwLock` decides
/// whether its guard writes or reads. The wait operations of `LkCondVar` and `LkPulse` take the
/// guard of an `LkMutex` in place of the mutex.
///
/// **Threads**: only the thread that created a guard may use it.
///
/// **Owns**: nothing. The lock must exist longer than the guard.
template <class T>
class [[nodiscard]] ZV_SCOPED_CAPABILITY LkGuard
{
public:
    /// Takes the lock. **Blocks** until no other thread holds it. **Throws** what `lock` throws.
    explicit LkGuard(T &lock) ZV_ACQUIRE(lock) : _lock(&lock), _locked(lock.lock()) {}
    LkGuard(LkGuard const &) = delete;
    LkGuard &operator=(LkGuard const &) = delete;

    /// Releases the lock if the guard holds it. **Throws** what `unlock` throws, but nothing while
    /// another exception is being handled.
    ~LkGuard() noexcept(false) ZV_RELEASE()
    {
        if (_locked)
            release();
    }

    /// Releases the lock before the scope ends. Does nothing if the guard does not hold the lock.
    void unlock() ZV_RELEASE() ZV_NO_THREAD_SAFETY_ANALYSIS
    {
        if (_locked) {
            _locked = false;
            _lock->unlock();
        }
    }
    /// Takes the lock again after `unlock`. **Blocks** until no other thread holds it.
    void relock() ZV_ACQUIRE() ZV_NO_THREAD_SAFETY_ANALYSIS { _locked = _lock->lock(); }
    /// Returns true if this guard holds the lock.
    bool isLocked() const noexcept { return _locked; }
    T &getLock() const noexcept { return *_lock; }

private:
    void release() ZV_NO_THREAD_SAFETY_ANALYSIS
    {
        try {
            _lock->unlock();
        } catch (...) {
            // Counts all exceptions. A count at construction would make each guard slower.
            if (!Unwinding::ofAny().hasBegun())
                throw;
        }
    }

    T *_lock;
    bool _locked;
};

class LkLock;
class LkMutex;
class LkRecLock;

/// These locks are locked through a `const` reference. Their guard has the same type whether the
/// lock itself is `const` or not.
LkGuard(LkLock &)->LkGuard<LkLock const>;
LkGuard(LkMutex &)->LkGuard<LkMutex const>;
LkGuard(LkRecLock &)->LkGuard<LkRecLock const>;

} // namespace Zv
