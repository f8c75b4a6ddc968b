// Beats on an absolute grid.
#pragma once

#include "zvbase/export.h"
#include "zvbase/objPtr.h"

#include <cstddef>

namespace Zv {

/// Beats at equal distances. Beat n falls n intervals after the grid's origin, however late a waiter wakes up: no
/// beat comes early, and none is lost in the count.
///
/// One thread at a time waits; all other operations may be called by any thread at any time. A timer is destroyed
/// when nobody waits.
class ZVBASE_EXPORT PeriodicTimer
{
public:
    /// The finest interval in seconds.
    static double getResolution();
    /// A timer that counts from now on; its first beat comes one interval later. The interval is in seconds; a value
    /// below the resolution becomes the resolution.
    static ObjPtrRet<PeriodicTimer> create(double interval);

    virtual ~PeriodicTimer() noexcept(false);
    /// Starts a new grid at this moment with the present interval and the count at 0. Beats that nobody waited for
    /// are forgotten; a waiter goes on waiting, for the first beat of the new grid.
    virtual void reset() = 0;
    /// The seconds until the next beat.
    virtual double getTimeToNextBeat() const = 0;
    /// Blocks until a beat comes that no earlier call returned, and returns the number of the latest beat: 1 for the
    /// first. Where beats have passed since the last call it returns at once, and the number tells how many.
    virtual unsigned long wait() = 0;
    /// Starts a new grid at this moment: the next beat comes one new interval from now, and the count goes on. A
    /// thread that waits waits for that beat. Returns the interval in force, in seconds, at least the resolution.
    virtual double setInterval(double interval) = 0;

    /// The number of the latest beat. 32 bits: it goes round after 4,294,967,295.
    virtual unsigned long getCurrentCount() const = 0;
    /// Seconds between two beats.
    virtual double getInterval() const = 0;

protected:
    PeriodicTimer();
    PeriodicTimer(PeriodicTimer const &) = delete;
    PeriodicTimer &operator=(PeriodicTimer const &) = delete;
};

} // namespace Zv
