// Mutex that threads can wait with, and its attributes (applications).
#pragma once

#include "resmgt/export.h"
#include "zvbase/platform/shared.h"
#include "zvbase/platform/types.h"
#include "zvbase/threadAnnotations.h"

#include <cstdint>
#include <iosfwd>

namespace Zv {

/// Names the priority protocols of a mutex.
class ZVRESMGT_EXPORT LkMutexAttrTypes
{
public:
    /// What happens to the priority of a thread that holds a mutex for which others wait.
    enum PrioProtocol
    {
        UNIMPLEMENTED = 0, ///< the platform has no such protocol
        NONE = 1,          ///< nothing
        INHERIT = 2,       ///< the holder gets the highest priority of the waiting threads
        PROTECT = 3        ///< the holder gets the ceiling of the mutex
    };

    /// Returns the name of a protocol as text. **Throws** `ProgramAborted` for any other value.
    static char const *getText(PrioProtocol protocol);
};

/// Platform form of `LkMutexAttr`, without priority protocols.
class ZVRESMGT_EXPORT LkMutexAttrWindows
{
public:
    explicit LkMutexAttrWindows(char const *name);
    virtual ~LkMutexAttrWindows() noexcept(false);

    /// Returns `UNIMPLEMENTED`.
    LkMutexAttrTypes::PrioProtocol getPrioProtocol() const
    {
        return LkMutexAttrTypes::UNIMPLEMENTED;
    }
    /// Returns 0.
    int getPrioCeiling() const { return 0; }
    /// Has no effect.
    void setPrioProtocol(LkMutexAttrTypes::PrioProtocol, int) {}
    /// Returns false.
    static bool isSetPrioProtocolImplemented() { return false; }
    char const *getName() const noexcept { return _name; }
    /// Writes the text that `LkMutexAttr::dump` documents.
    void dump(std::ostream &stream) const;

private:
    char const *_name;
};

/// Attributes for the construction of a mutex.
///
///     Zv::LkMutexAttr attr("shared");
///     attr.setPrioProtocol(Zv::LkMutexAttrTypes::INHERIT, 0);
///     Zv::LkMutex const mutex("frames", attr);
///
/// This platform has no priority protocols. A mutex keeps no reference to its attributes.
///
/// **Threads**: one thread at a time.
///
/// **Owns**: nothing. The name is not copied and must exist as long as the attributes.
class ZVRESMGT_EXPORT LkMutexAttr
{
public:
    explicit LkMutexAttr(char const *name) : _imp(name) {}
    virtual ~LkMutexAttr() noexcept(false);

    /// Returns the attributes of every mutex that is built without attributes. They are named
    /// "DefaultLkMutexAttr". Any thread may call this function at any time.
    static LkMutexAttr const &getDefaultAttr();

    /// Returns the protocol: `UNIMPLEMENTED` on this platform.
    LkMutexAttrTypes::PrioProtocol getPrioProtocol() const { return _imp.getPrioProtocol(); }
    /// Returns the ceiling: 0 on this platform.
    int getPrioCeiling() const { return _imp.getPrioCeiling(); }
    /// Chooses a protocol, and the ceiling for `PROTECT`. Has no effect if
    /// `isSetPrioProtocolImplemented` returns false.
    void setPrioProtocol(LkMutexAttrTypes::PrioProtocol protocol, int ceiling)
    {
        _imp.setPrioProtocol(protocol, ceiling);
    }
    /// Returns true if the platform has priority protocols: false on this one.
    static bool isSetPrioProtocolImplemented()
    {
        return LkMutexAttrWindows::isSetPrioProtocolImplemented();
    }
    char const *getName() const noexcept { return _imp.getName(); }
    /// Writes the name, " prot ", the protocol, " ceil " and the ceiling.
    void dump(std::ostream &stream) const { _imp.dump(stream); }

private:
    LkMutexAttrWindows _imp;
};

/// Platform form of `LkMutex`: a kernel mutex with a name and a flag.
///
/// `LkCondVar` and `LkPulse` release and take the mutex by its handle. They keep the flag right
/// with `clearLockedFlag` and `updateLockingThreadId`.
class ZVRESMGT_EXPORT LkMutexWindows
{
public:
    explicit LkMutexWindows(char const *name);
    LkMutexWindows(LkMutexWindows const &) = delete;
    LkMutexWindows &operator=(LkMutexWindows const &) = delete;
    ~LkMutexWindows() noexcept(false);

    bool lock() const;
    void unlock() const;
    [[nodiscard]] bool tryLock() const;
    bool spinLock(unsigned tries) const;
    bool isLocked() const { return _isLocked.load(ZvPlatform::Order::RELAXED); }
    bool isLockedByThread() const { return isLocked(); }
    char const *getName() const noexcept { return _name; }
    void dump(std::ostream &stream) const;

    /// Returns the handle of the kernel mutex, which stays the property of this object.
    ZvPlatform::Handle const &getMutex() const noexcept { return _mutex; }
    /// Call this before you release the mutex by its handle.
    void clearLockedFlag() const { _isLocked.store(false, ZvPlatform::Order::RELAXED); }
    /// Call this after you have taken the mutex by its handle.
    void updateLockingThreadId() const { _isLocked.store(true, ZvPlatform::Order::RELAXED); }

private:
    // Out of line, so that the path without a system call saves no registers for them.
    [[gnu::noinline]] bool lockSlowly() const;
    [[gnu::noinline]] void unlockSlowly() const;
    std::uint32_t waitFor(std::uint32_t milliseconds) const;
    [[noreturn]] void failLock() const;

    char const *_name;
    ZvPlatform::Handle _mutex;
    ZvPlatform::Shared<bool> mutable _isLocked;
};

/// Mutex: the lock to use with `LkCondVar` and `LkPulse`. If no thread waits for a condition with
/// it, an `LkLock` is faster.
///
///     #include <mutex>
///
///     Zv::LkMutex const mutex("frames");
///     {
///         Zv::LkGuard const guard(mutex);
///     }
///     if (std::unique_lock const guard(mutex, std::try_to_lock); guard.owns_lock()) {
///         // Nothing else held it.
///     }
///
/// `std::lock_guard`, `std::unique_lock` and `std::scoped_lock` work on it. All operations are
/// `const`, so that a `const` object can lock its own mutex.
///
/// `lock` is recursive. A thread that holds the mutex may take it again, and must then call
/// `unlock` once for each `lock`. `tryLock`, `try_lock` and `spinLock` refuse recursion. The flag
/// behind `isLocked` has no count and no owner. The first `unlock` of a nested pair clears it.
///
/// **Limits**: during a wait on an `LkPulse` the flag stays set although the mutex is free.
/// `tryLock` and `try_lock` then return false and `spinLock` reports a deadlock. Do not use these
/// three on a mutex that you use with a pulse.
///
/// If a thread ends while it holds the mutex, the mutex is abandoned, and the data that it guards
/// may be half changed. The next thread that wants the mutex is refused. After that the mutex is
/// free.
///
/// **Threads**: thread-safe. The thread that took the mutex must release it.
///
/// **Throws** `AssertionFailed` if the system refuses a call, and if a mutex is destroyed while it
/// is held.
///
/// **Owns**: nothing. The name is not copied and must exist as long as the mutex.
class ZVRESMGT_EXPORT ZV_CAPABILITY("mutex") LkMutex
{
public:
    explicit LkMutex(char const *name) : LkMutex(name, LkMutexAttr::getDefaultAttr()) {}
    /// Builds a mutex with attributes, of which none has an effect on this platform.
    LkMutex(char const *name, LkMutexAttr const &) : _imp(name) {}
    LkMutex(LkMutex const &) = delete;
    LkMutex &operator=(LkMutex const &) = delete;

    /// Takes the mutex, at once if the caller holds it already. Always returns true. **Blocks**
    /// until no other thread holds it. **Throws** `AssertionFailed` if the mutex was abandoned; the
    /// caller does not hold it then.
    bool lock() const ZV_ACQUIRE() ZV_NO_THREAD_SAFETY_ANALYSIS { return _imp.lock(); }
    /// Releases the mutex. **Throws** `AssertionFailed` if the caller does not hold it. `isLocked`
    /// returns false then, even if another thread holds the mutex.
    void unlock() const ZV_RELEASE() ZV_NO_THREAD_SAFETY_ANALYSIS { _imp.unlock(); }
    /// Takes the mutex if it is free. Returns false if another thread or the caller holds it, and
    /// if it was abandoned. Never blocks.
    [[nodiscard]] bool tryLock() const ZV_TRY_ACQUIRE(true) ZV_NO_THREAD_SAFETY_ANALYSIS
    {
        return _imp.tryLock();
    }
    /// Calls `tryLock`. The guards of the standard library use this name.
    [[nodiscard]] bool try_lock() const ZV_TRY_ACQUIRE(true) { return tryLock(); }
    /// Tries to take the mutex `tries` times, then **blocks** as `lock` does. 0 tries mean 2^32.
    /// Always returns true. **Throws** `LkEx::ExDeadLock` if the caller holds the mutex already;
    /// the caller holds it as before. **Throws** `AssertionFailed` if the mutex was abandoned; the
    /// caller does not hold it then.
    bool spinLock(unsigned tries) const ZV_ACQUIRE() ZV_NO_THREAD_SAFETY_ANALYSIS
    {
        return _imp.spinLock(tries);
    }
    /// Returns true if some thread holds the mutex. Use it for checks and reports only.
    bool isLocked() const { return _imp.isLocked(); }
    /// Returns what `isLocked` returns: the flag has no owner.
    bool isLockedByThread() const { return _imp.isLockedByThread(); }
    char const *getName() const noexcept { return _imp.getName(); }
    /// Writes the name.
    void dump(std::ostream &stream) const { _imp.dump(stream); }
    /// Returns the platform form, which `LkCondVar` and `LkPulse` need.
    LkMutexWindows const &getImp() const noexcept { return _imp; }

private:
    LkMutexWindows _imp;
};

} // namespace Zv
