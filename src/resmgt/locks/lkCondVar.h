// Condition variable, and its attributes (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkWaitable.h"
#include "zvbase/platform/types.h"

#include <cstdint>
#include <iosfwd>

namespace Zv {

/// Platform form of `LkCondVarAttr`.
class ZVRESMGT_EXPORT LkCondVarAttrWindows
{
public:
    explicit LkCondVarAttrWindows(char const *name) : _name(name) {}
    virtual ~LkCondVarAttrWindows() noexcept(false);

    char const *getName() const noexcept { return _name; }

private:
    char const *_name;
};

/// Attributes for the construction of a condition variable. There is nothing to set.
///
///     Zv::LkCondVarAttr const attr("shared");
///     Zv::LkCondVar const changed("changed", attr);
///
/// **Threads**: one thread at a time.
///
/// **Owns**: nothing. The name is not copied and must exist as long as the attributes.
class ZVRESMGT_EXPORT LkCondVarAttr
{
public:
    explicit LkCondVarAttr(char const *name) : _imp(name) {}
    virtual ~LkCondVarAttr() noexcept(false);

    /// Returns the attributes of every condition variable that is built without attributes. They
    /// are named "DefaultLkCondVarAttr". Any thread may call this function at any time.
    static LkCondVarAttr const &getDefaultAttr();

    char const *getName() const noexcept { return _imp.getName(); }

private:
    LkCondVarAttrWindows _imp;
};

/// Platform form of `LkCondVar`: a condition variable over a semaphore.
///
/// A broadcast releases the semaphore once for each waiter and continues when the last of them has
/// left. Until then no other thread may begin a wait. It could take a release that is meant for a
/// waiter.
class ZVRESMGT_EXPORT LkCondVarWindows
{
public:
    explicit LkCondVarWindows(char const *name);
    LkCondVarWindows(LkCondVarWindows const &) = delete;
    LkCondVarWindows &operator=(LkCondVarWindows const &) = delete;
    ~LkCondVarWindows() noexcept(false);

    void wait(LkMutex const &externalMutex) const;
    [[nodiscard]] bool timedWait(LkMutex const &externalMutex, double seconds) const;
    void signal() const;
    void broadcast() const;
    char const *getName() const noexcept { return _name; }
    void dump(std::ostream &stream) const;

private:
    bool waitInternal(LkMutex const &externalMutex, std::uint32_t milliseconds) const;
    void enter() const;
    bool leave() const;
    bool releaseAll() const;
    void endBroadcast() const;

    int mutable _nbWaiters;
    ZvPlatform::CriticalSection mutable _waitersLock;
    ZvPlatform::Handle _sema;
    ZvPlatform::Handle _waitersDone;
    bool mutable _wasBroadcast;
    char const *_name;
    ZvPlatform::CriticalSection mutable _broadcastLock; // held for the whole of a broadcast
};

/// Condition variable. A signal is lost if no thread waits; if it has to be kept, use an `LkPulse`.
///
///     Zv::LkMutex const mutex("frames");
///     Zv::LkCondVar const changed("frames changed");
///     int nbFrames = 0; // guarded by the mutex
///     {
///         Zv::LkGuard const guard(mutex);
///         ++nbFrames;
///         changed.signal();
///     }
///     {
///         Zv::LkGuard const guard(mutex);
///         while (nbFrames == 0)
///             changed.wait(guard);
///     }
///
/// `LkWaitable` documents the wait operations. While a thread waits, `isLocked` of its mutex is
/// false unless another thread holds it.
///
/// **Limits**: if a thread is killed while it waits (`MtThread::cancel`), it stays counted as a
/// waiter. The next `broadcast` then never returns, and a `signal` may be spent on the missing
/// thread. If a thread may be killed while it waits, let it wait on an `LkPulse` instead.
///
/// **Threads**: thread-safe.
///
/// **Owns**: nothing. The name is not copied and must exist as long as the condition variable.
class ZVRESMGT_EXPORT LkCondVar : public LkWaitable
{
public:
    explicit LkCondVar(char const *name) : LkCondVar(name, LkCondVarAttr::getDefaultAttr()) {}
    /// Builds a condition variable with attributes, which have no effect.
    LkCondVar(char const *name, LkCondVarAttr const &) : _imp(name) {}
    ~LkCondVar() noexcept(false) override;

    /// Wakes one waiting thread. Never blocks. The caller may hold the mutex or not.
    void signal() const { _imp.signal(); }
    /// Wakes all waiting threads. The caller may hold the mutex or not. **Blocks** until each of
    /// them has left its wait and is about to take the mutex; none of them has to get it before. A
    /// thread that calls `broadcast` or begins a wait at the same time waits for this broadcast.
    void broadcast() const { _imp.broadcast(); }
    char const *getName() const noexcept { return _imp.getName(); }
    /// Writes the name.
    void dump(std::ostream &stream) const { _imp.dump(stream); }

protected:
    void performWait(LkMutex const &mutex) const override;
    bool performTimedWait(LkMutex const &mutex, double seconds) const override;

private:
    LkCondVarWindows _imp;
};

} // namespace Zv
