// Monotonic clock, and sleeping (applications).
#pragma once

#include "zvbase/export.h"

#include <cstddef>

namespace Zv {

/// The monotonic clock of the libraries. Setting the time of day does not change it. Its zero is
/// arbitrary. There is one object, which is never destroyed.
///
///     Zv::Sleeper &clock = Zv::Sleeper::getInstance();
///     double const start = clock.getTime();
///     clock.sleep(0.02);
///     double const elapsed = clock.getTime() - start;
///
/// **Threads**: thread-safe.
class ZVBASE_EXPORT Sleeper
{
public:
    /// Returns the one object. The first call constructs it.
    static Sleeper &getInstance();

    /// Returns the present moment, in seconds.
    virtual double getTime() const;
    /// Returns the smallest difference of two moments, in seconds.
    virtual double getResolution() const;
    /// Sleeps for `seconds`, rounded to milliseconds. If the result is 0 or less, gives up the
    /// processor once.
    ///
    /// **Blocks**: for that time.
    virtual void sleep(double seconds) const;
    virtual ~Sleeper();

protected:
    Sleeper();
};

} // namespace Zv
