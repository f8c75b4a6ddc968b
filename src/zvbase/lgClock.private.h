// Conversion of stamps to the clock.
#pragma once

#include <cstdint>

namespace Zv {

/// The clock of the log. Records have stamps of `ZvPlatform::readStamp`, which cost the writer less
/// than the clock. The reader converts them. It reads both clocks from time to time, and converts
/// between two readings linearly.
///
/// **Threads**: the caller must hold the log's reading lock.
class LgClock
{
public:
    /// Reads both clocks. Returns the stamp. All stamps to convert should be between two readings.
    std::uint64_t read();
    /// Returns the seconds of a stamp, on the clock. A stamp after the latest reading counts as
    /// that reading. If the stamps of several calls do not decrease, the results do not.
    double toSeconds(std::uint64_t stamp);

    /// Returns the seconds of the present moment. May be called without the lock.
    static double getSeconds();

private:
    struct Reading
    {
        std::uint64_t stamp = 0;
        std::int64_t ticks = 0; // of the clock
    };

    std::int64_t toTicks(std::uint64_t stamp) const;

    // The longer the time between two readings, the less the error of each matters.
    Reading _earliest; // a second or more before the latest one, if the log is that old
    Reading _middle;
    Reading _latest;
    Reading _converted; // the latest stamp that was converted
};

} // namespace Zv
