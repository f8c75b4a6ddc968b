// Pulse: a wake-up that is kept until a thread waits for it (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkWaitable.h"
#include "zvbase/platform/shared.h"
#include "zvbase/platform/types.h"

#include <cstdint>
#include <iosfwd>

namespace Zv {

/// Platform form of `LkPulse`: a semaphore if pulses count, a manual-reset event if one latches.
class ZVRESMGT_EXPORT LkPulseWindows
{
public:
    LkPulseWindows(char const *name, bool wakeAll);
    LkPulseWindows(LkPulseWindows const &) = delete;
    LkPulseWindows &operator=(LkPulseWindows const &) = delete;
    ~LkPulseWindows() noexcept(false);

    void pulse() const;
    void wait(LkMutex const &externalMutex) const;
    [[nodiscard]] bool timedWait(LkMutex const &externalMutex, double seconds) const;
    void waitNext(LkMutex const &externalMutex) const;
    [[nodiscard]] bool timedWaitNext(LkMutex const &externalMutex, double seconds) const;
    char const *getName() const noexcept { return _name; }
    void dump(std::ostream &stream) const;

private:
    bool wait_internal(LkMutex const &externalMutex, std::uint32_t milliseconds) const;
    bool takePulse(std::uint32_t milliseconds) const;
    bool waitNextInternal(LkMutex const &externalMutex, std::uint32_t milliseconds) const;
    bool sleepUntilNext(std::uint32_t generation, std::uint32_t milliseconds) const;
    bool withdraw(std::uint32_t generation) const;

    ZvPlatform::Handle _event;
    bool _wakeAll;
    char const *_name;
    // The upper half counts the threads in waitNext, the lower half the pulses that woke such
    // threads.
    ZvPlatform::Shared<std::uint64_t> mutable _sleepers;
};

/// Wake-up that is kept until a thread waits for it.
///
/// A `WAKE_ONE` pulse counts: after k pulses, the next k waits return at once. A `WAKE_ALL` pulse
/// latches: after the first pulse every `wait` returns at once, for the rest of the pulse's life.
///
/// A loop around a latched `wait` would never sleep. Use `waitNextPulse` in a loop. It knows
/// neither count nor latch and sleeps until the next pulse:
///
///     Zv::LkMutex const mutex("frames");
///     Zv::LkPulse const changed("frames changed", Zv::LkPulse::WAKE_ALL);
///     bool hasFrame = true; // guarded by the mutex
///     Zv::LkGuard const guard(mutex);
///     while (!hasFrame)
///         changed.waitNextPulse(guard);
///
/// `LkWaitable` documents the wait operations. During a wait `isLocked` of the mutex stays true
/// although the mutex is free. Do not use `tryLock`, `try_lock` and `spinLock` on that mutex.
///
/// **Threads**: thread-safe. A thread may be killed while it waits on a pulse.
///
/// **Owns**: nothing. The name is not copied and must exist as long as the pulse.
class ZVRESMGT_EXPORT LkPulse : public LkWaitable
{
public:
    /// What one pulse does to the threads in `wait`.
    enum WakeType
    {
        WAKE_ONE = 0, ///< it ends one wait
        WAKE_ALL = 1  ///< it ends all waits, present and future
    };

    /// `type` says what one pulse does to the threads that wait.
    LkPulse(char const *name, WakeType type) : _imp(name, type == WAKE_ALL) {}
    ~LkPulse() noexcept(false) override;

    /// Sends a pulse. Never blocks. The caller may hold the mutex or not. A thread that the pulse
    /// wakes may destroy this object at once.
    void pulse() const { _imp.pulse(); }

    /// **Blocks** until a pulse is sent after this call has released the mutex. Earlier pulses do
    /// not count and later ones are not lost. One pulse wakes every thread in `waitNextPulse`, for
    /// either wake type. It does not use up a pulse that a thread in `wait` would get.
    void waitNextPulse(LkMutex const &mutex) const ZV_REQUIRES(mutex) { _imp.waitNext(mutex); }
    /// As `waitNextPulse`, but returns false when the time is over, and true if a pulse woke it.
    /// `LkWaitable` says how the limit is rounded.
    [[nodiscard]] bool timedWaitNextPulse(LkMutex const &mutex, double seconds) const
        ZV_REQUIRES(mutex)
    {
        return _imp.timedWaitNext(mutex, seconds);
    }
    /// As with seconds.
    template <LkDuration Duration>
    [[nodiscard]] bool timedWaitNextPulse(LkMutex const &mutex, Duration const &time) const
        ZV_REQUIRES(mutex)
    {
        return _imp.timedWaitNext(mutex, LkUtil::toSeconds(time));
    }
    /// Waits with the mutex of the guard, which must hold it.
    template <class Mutex>
    void waitNextPulse(LkGuard<Mutex> const &guard) const
    {
        _imp.waitNext(guard.getLock());
    }
    /// Waits for a limited time with the mutex of the guard, which must hold it.
    template <class Mutex>
    [[nodiscard]] bool timedWaitNextPulse(LkGuard<Mutex> const &guard, double seconds) const
    {
        return _imp.timedWaitNext(guard.getLock(), seconds);
    }
    /// As with seconds.
    template <class Mutex, LkDuration Duration>
    [[nodiscard]] bool timedWaitNextPulse(LkGuard<Mutex> const &guard, Duration const &time) const
    {
        return _imp.timedWaitNext(guard.getLock(), LkUtil::toSeconds(time));
    }

    char const *getName() const noexcept { return _imp.getName(); }
    /// Writes the name.
    void dump(std::ostream &stream) const { _imp.dump(stream); }

protected:
    void performWait(LkMutex const &mutex) const override;
    bool performTimedWait(LkMutex const &mutex, double seconds) const override;

private:
    LkPulseWindows _imp;
};

} // namespace Zv
