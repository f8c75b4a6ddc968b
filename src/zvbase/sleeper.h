// The clock of the library's own timing, and sleeping by it.
#pragma once

#include "zvbase/export.h"

#include <cstddef>

namespace Zv {

/// A monotonic clock in seconds. Its zero lies somewhere in the past; setting the time of day does not move it. One
/// object, which is never destroyed; any thread.
class ZVBASE_EXPORT Sleeper
{
public:
    static Sleeper &getInstance();

    /// Now, in seconds.
    virtual double getTime() const;
    /// Seconds between two different readings of the clock.
    virtual double getResolution() const;
    /// Blocks for that many seconds, taken to the nearest millisecond. 0 or less gives the processor away once.
    virtual void sleep(double seconds) const;
    virtual ~Sleeper();

protected:
    Sleeper();
};

} // namespace Zv
