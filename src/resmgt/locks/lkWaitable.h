// What a thread can wait on with a mutex.
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkGuard.h"
#include "resmgt/locks/lkMutex.h"
#include "resmgt/locks/lkUtil.h"

namespace Zv {

/// A wait object that lets the caller's mutex go while it waits: an `LkCondVar` or an `LkPulse`. Code that waits need
/// not care which.
///
/// All waits are called with the mutex held once, and return with it held, whatever they answer. Wait in a loop
/// around the condition: a wait may also end for a wake-up that another thread was too late to take. Times are in
/// seconds, rounded to milliseconds; 0 and less only ask. What the system refuses is a failed assertion; the mutex is
/// held then as well, unless it is the mutex that the system refuses. It is also a failed assertion, with the mutex
/// held, if a thread has ended while it held the mutex. A wait that fails may have used up a wake-up.
class ZVRESMGT_EXPORT LkWaitable
{
public:
    LkWaitable() = default;
    LkWaitable(LkWaitable const &) = delete;
    LkWaitable &operator=(LkWaitable const &) = delete;
    virtual ~LkWaitable() noexcept(false);

    /// Blocks until woken.
    void wait(LkMutex const &mutex) const ZV_REQUIRES(mutex) { performWait(mutex); }
    /// Blocks until woken, which is true, or until the time is over, which is false.
    [[nodiscard]] bool timedWait(LkMutex const &mutex, double seconds) const ZV_REQUIRES(mutex)
    {
        return performTimedWait(mutex, seconds);
    }
    template <LkDuration Duration>
    [[nodiscard]] bool timedWait(LkMutex const &mutex, Duration const &time) const
        ZV_REQUIRES(mutex)
    {
        return performTimedWait(mutex, LkUtil::toSeconds(time));
    }
    /// The same with the mutex that a guard holds.
    template <class Mutex>
    void wait(LkGuard<Mutex> const &guard) const
    {
        performWait(guard.getLock());
    }
    template <class Mutex>
    [[nodiscard]] bool timedWait(LkGuard<Mutex> const &guard, double seconds) const
    {
        return performTimedWait(guard.getLock(), seconds);
    }
    template <class Mutex, LkDuration Duration>
    [[nodiscard]] bool timedWait(LkGuard<Mutex> const &guard, Duration const &time) const
    {
        return performTimedWait(guard.getLock(), LkUtil::toSeconds(time));
    }

protected:
    virtual void performWait(LkMutex const &mutex) const = 0;
    virtual bool performTimedWait(LkMutex const &mutex, double seconds) const = 0;
};

} // namespace Zv
