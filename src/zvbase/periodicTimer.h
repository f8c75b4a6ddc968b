// Periodic timer without drift (applications).
#pragma once

#include "zvbase/export.h"
#include "zvbase/objPtr.h"

#include <cstddef>

namespace Zv {

/// Beats at equal distances. Beat n is n intervals after the start of the timer, no matter how
/// late a thread wakes up. No beat is early, and none is lost in the count.
///
///     Zv::ObjPtr<Zv::PeriodicTimer> const timer(Zv::PeriodicTimer::create(0.04));
///     for (int frame = 0; frame != 25; ++frame)
///         timer->wait();
///
/// **Threads**: `wait` by one thread at a time. All other operations are thread-safe, also while a
/// thread waits. No thread may wait when the timer is destroyed.
class ZVBASE_EXPORT PeriodicTimer
{
public:
    /// Returns the shortest interval, in seconds.
    static double getResolution();
    /// Returns a timer that starts at once: its first beat is one interval later. `interval` is
    /// in seconds. If it is below the resolution, the resolution is used instead. Fails an
    /// assertion if the system cannot create a timer.
    static ObjPtrRet<PeriodicTimer> create(double interval);

    virtual ~PeriodicTimer() noexcept(false);
    /// Restarts the timer with the same interval and sets the count to 0. Beats that no thread has
    /// waited for are forgotten. A thread in `wait` goes on waiting, for the first new beat.
    virtual void reset() = 0;
    /// Returns the time until the next beat, in seconds.
    virtual double getTimeToNextBeat() const = 0;
    /// Waits for the next beat that no earlier call has returned. Returns the number of the latest
    /// beat, 1 for the first. If beats have passed since the last call, it returns at once, and the
    /// number tells how many.
    ///
    /// **Blocks**: until that beat.
    virtual unsigned long wait() = 0;
    /// Changes the interval at this moment: the next beat is one new interval from now, also for
    /// a thread in `wait`. The count goes on. Returns the interval that is used, in seconds, which
    /// is at least the resolution.
    virtual double setInterval(double interval) = 0;

    /// Returns the number of the latest beat. It has 32 bits and wraps around after 4,294,967,295.
    virtual unsigned long getCurrentCount() const = 0;
    /// Returns the time between two beats, in seconds.
    virtual double getInterval() const = 0;

protected:
    PeriodicTimer();
    PeriodicTimer(PeriodicTimer const &) = delete;
    PeriodicTimer &operator=(PeriodicTimer const &) = delete;
};

} // namespace Zv
