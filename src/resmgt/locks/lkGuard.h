// The guard of the locks.
#pragma once

#include "zvbase/threadAnnotations.h"

#include <exception>

namespace Zv {

/// Holds a lock for its lifetime: `LkGuard<LkMutex const> guard(_lock);`. Serves every class with `lock` and `unlock`;
/// on an `LkRwLock` the constness of the argument chooses between writing and reading.
///
/// A guard is used by the thread that made it. `unlock` and `relock` are for a function that lets go for a while. The
/// wait objects take the guard in place of its mutex.
template <class T>
class [[nodiscard]] ZV_SCOPED_CAPABILITY LkGuard
{
public:
    /// Blocks until the lock is held.
    explicit LkGuard(T &lock) ZV_ACQUIRE(lock) : _lock(&lock), _locked(lock.lock()) {}
    LkGuard(LkGuard const &) = delete;
    LkGuard &operator=(LkGuard const &) = delete;

    /// Unlocks if locked. Throws what `unlock` throws, but not while an exception is passing.
    ~LkGuard() noexcept(false) ZV_RELEASE()
    {
        if (_locked)
            release();
    }

    /// Lets go; nothing where it is not locked.
    void unlock() ZV_RELEASE() ZV_NO_THREAD_SAFETY_ANALYSIS
    {
        if (_locked) {
            _locked = false;
            _lock->unlock();
        }
    }
    /// Takes the lock again after `unlock`. Blocks.
    void relock() ZV_ACQUIRE() ZV_NO_THREAD_SAFETY_ANALYSIS { _locked = _lock->lock(); }
    bool isLocked() const noexcept { return _locked; }
    T &getLock() const noexcept { return *_lock; }

private:
    void release() ZV_NO_THREAD_SAFETY_ANALYSIS
    {
        try {
            _lock->unlock();
        } catch (...) {
            if (!std::uncaught_exceptions())
                throw;
        }
    }

    T *_lock;
    bool _locked;
};

class LkLock;
class LkMutex;
class LkRecLock;

/// All guards of these locks that are written without an argument are of one type, whether the lock
/// is `const` or not.
LkGuard(LkLock &)->LkGuard<LkLock const>;
LkGuard(LkMutex &)->LkGuard<LkMutex const>;
LkGuard(LkRecLock &)->LkGuard<LkRecLock const>;

} // namespace Zv
