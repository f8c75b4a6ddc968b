// Common interface of the objects that threads wait on with a mutex (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkGuard.h"
#include "resmgt/locks/lkMutex.h"
#include "resmgt/locks/lkUtil.h"

namespace Zv {

/// Object that a thread waits on while the thread's mutex is released: an `LkCondVar` or an
/// `LkPulse`. Code that waits need not know which of the two it has.
///
///     Zv::LkMutex const mutex("frames");
///     Zv::LkCondVar const changed("frames changed");
///     Zv::LkWaitable const &waitable = changed;
///     bool hasFrame = true; // guarded by the mutex
///     Zv::LkGuard const guard(mutex);
///     while (!hasFrame)
///         waitable.wait(guard);
///
/// The caller must hold the mutex exactly once when it calls a wait operation. The wait releases
/// it, and the caller holds it again when the operation returns.
///
/// Wait in a loop that tests a condition. A wait may also end for a wake-up after which another
/// thread was faster.
///
/// Time limits are rounded to milliseconds. A limit of 0 or less only asks. A limit of 50 days or
/// more is cut to almost 50 days. Limits are seconds or a duration of the standard library.
///
/// **Threads**: thread-safe.
///
/// **Throws** `AssertionFailed` if the system refuses a call. The caller holds the mutex then,
/// unless the system refused the mutex itself. **Throws** `AssertionFailed` with the mutex held if
/// a thread has ended while it held the mutex. A wait that throws may have used up a wake-up.
class ZVRESMGT_EXPORT LkWaitable
{
public:
    LkWaitable() = default;
    LkWaitable(LkWaitable const &) = delete;
    LkWaitable &operator=(LkWaitable const &) = delete;
    virtual ~LkWaitable() noexcept(false);

    /// **Blocks** until the thread is woken.
    void wait(LkMutex const &mutex) const ZV_REQUIRES(mutex) { performWait(mutex); }
    /// **Blocks** until the thread is woken and returns true, or returns false when the time is
    /// over.
    [[nodiscard]] bool timedWait(LkMutex const &mutex, double seconds) const ZV_REQUIRES(mutex)
    {
        return performTimedWait(mutex, seconds);
    }
    /// As with seconds.
    template <LkDuration Duration>
    [[nodiscard]] bool timedWait(LkMutex const &mutex, Duration const &time) const
        ZV_REQUIRES(mutex)
    {
        return performTimedWait(mutex, LkUtil::toSeconds(time));
    }
    /// Waits with the mutex of the guard, which must hold it.
    template <class Mutex>
    void wait(LkGuard<Mutex> const &guard) const
    {
        performWait(guard.getLock());
    }
    /// Waits for a limited time with the mutex of the guard, which must hold it.
    template <class Mutex>
    [[nodiscard]] bool timedWait(LkGuard<Mutex> const &guard, double seconds) const
    {
        return performTimedWait(guard.getLock(), seconds);
    }
    /// As with seconds.
    template <class Mutex, LkDuration Duration>
    [[nodiscard]] bool timedWait(LkGuard<Mutex> const &guard, Duration const &time) const
    {
        return performTimedWait(guard.getLock(), LkUtil::toSeconds(time));
    }

protected:
    /// Carries out `wait`.
    virtual void performWait(LkMutex const &mutex) const = 0;
    /// Carries out `timedWait`.
    virtual bool performTimedWait(LkMutex const &mutex, double seconds) const = 0;
};

} // namespace Zv
