// The pulse.
#pragma once

#include "resmgt/locks/lkPulseWindows.h"
#include "resmgt/locks/lkWaitable.h"

namespace Zv {

/// A wake-up that is kept when nobody waits for it.
///
/// A `WAKE_ONE` pulse counts: after k pulses the next k waits return at once. A `WAKE_ALL` pulse latches: from the
/// first pulse on every wait returns at once, for the rest of its life. A loop around a latched wait would never
/// sleep: it waits with `waitNextPulse`, which knows neither count nor latch and sleeps until the next pulse.
///
///     LkGuard const guard(_mutex);
///     while (!_condition)
///         _pulse.waitNextPulse(guard);
///
/// During a wait `isLocked` of the mutex stays true, though the mutex is free: do not use `tryLock` and `spinLock` on
/// it. The name is not copied.
class ZVRESMGT_EXPORT LkPulse : public LkWaitable
{
public:
    enum WakeType
    {
        WAKE_ONE = 0,
        WAKE_ALL = 1
    };

    LkPulse(char const *name, WakeType type) : _imp(name, type == WAKE_ALL) {}
    ~LkPulse() noexcept(false) override;

    /// Sends a pulse. Never blocks, needs no mutex. A thread that it wakes may destroy the pulse at once.
    void pulse() const { _imp.pulse(); }

    /// Blocks until a pulse is sent after the mutex was let go; earlier ones do not count, later ones are not lost. One
    /// pulse wakes all who wait in this way, whatever its type, and takes nothing from those who wait in the other.
    void waitNextPulse(LkMutex const &mutex) const ZV_REQUIRES(mutex) { _imp.waitNext(mutex); }
    /// The same for a time in seconds: true when woken, false when the time is over.
    [[nodiscard]] bool timedWaitNextPulse(LkMutex const &mutex, double seconds) const
        ZV_REQUIRES(mutex)
    {
        return _imp.timedWaitNext(mutex, seconds);
    }
    template <LkDuration Duration>
    [[nodiscard]] bool timedWaitNextPulse(LkMutex const &mutex, Duration const &time) const
        ZV_REQUIRES(mutex)
    {
        return _imp.timedWaitNext(mutex, LkUtil::toSeconds(time));
    }
    /// The same with the mutex that a guard holds.
    template <class Mutex>
    void waitNextPulse(LkGuard<Mutex> const &guard) const
    {
        _imp.waitNext(guard.getLock());
    }
    template <class Mutex>
    [[nodiscard]] bool timedWaitNextPulse(LkGuard<Mutex> const &guard, double seconds) const
    {
        return _imp.timedWaitNext(guard.getLock(), seconds);
    }
    template <class Mutex, LkDuration Duration>
    [[nodiscard]] bool timedWaitNextPulse(LkGuard<Mutex> const &guard, Duration const &time) const
    {
        return _imp.timedWaitNext(guard.getLock(), LkUtil::toSeconds(time));
    }

    char const *getName() const noexcept { return _imp.getName(); }
    /// The name.
    void dump(std::ostream &stream) const { _imp.dump(stream); }

protected:
    void performWait(LkMutex const &mutex) const override;
    bool performTimedWait(LkMutex const &mutex, double seconds) const override;

private:
    LkPulseWindows _imp;
};

} // namespace Zv
