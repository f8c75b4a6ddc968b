// Timestamp: a time in seconds as a value that compares (applications).
#pragma once

#include "resmgt/locks/lkDuration.h"

#include <cstddef>
#include <string_view> // std::hash

namespace Zv {

/// Time in seconds since a moment that the creator of the timestamp chooses.
///
///     Zv::LiTimestamp const first(1.5);
///     Zv::LiTimestamp const second(2.0);
///     bool const isEarlier = first < second; // true
///
/// Two timestamps compare, and their seconds can be subtracted.
///
/// **Threads**: a value.
class LiTimestamp
{
public:
    /// Becomes 0 seconds.
    constexpr LiTimestamp() noexcept = default;
    /// Becomes `seconds`. The conversion is implicit.
    constexpr LiTimestamp(double seconds) noexcept : _seconds(seconds) {}
    /// Becomes the duration in seconds, rounded to the nearest `double`.
    template <LkDuration Duration>
    explicit constexpr LiTimestamp(Duration const &time) noexcept
        : _seconds(static_cast<double>(time.count()) * Duration::period::num /
                   Duration::period::den)
    {}

    constexpr double getSeconds() const noexcept { return _seconds; }

    /// Returns true if this time is before the other one.
    constexpr bool operator<(LiTimestamp const &other) const noexcept
    {
        return _seconds < other._seconds;
    }
    constexpr bool operator==(LiTimestamp const &other) const noexcept = default;

private:
    double _seconds = 0.0;
};

} // namespace Zv

/// Agrees with `==`: 0.0 and -0.0 have the same hash.
template <>
struct std::hash<Zv::LiTimestamp>
{
    std::size_t operator()(Zv::LiTimestamp const &timestamp) const noexcept
    {
        return std::hash<double>()(timestamp.getSeconds());
    }
};
