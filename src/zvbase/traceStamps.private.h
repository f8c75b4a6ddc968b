// Conversion of the stamps of events to the clock.
#pragma once

#include <cstdint>
#include <vector>

namespace Zv {

/// Converts stamps of `ZvPlatform::readStamp` to the monotonic clock. Both are read now and then,
/// and the moments between two readings are found linearly. Unlike `LgClock`, the result for one
/// stamp is the same at all times, so that a slice that ends later encloses what has happened in
/// it.
///
/// **Threads**: one thread at a time.
class TraceStamps
{
public:
    TraceStamps();

    /// Returns microseconds of the clock. A greater stamp has no smaller result.
    double toMicroseconds(std::uint64_t stamp);

private:
    struct Reading
    {
        std::uint64_t stamp;
        double microseconds;
    };

    static Reading read();
    void add(Reading const &reading);

    std::vector<Reading> _readings;
};

} // namespace Zv
