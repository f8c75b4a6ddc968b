// A time as a comparable value.
#pragma once

#include "resmgt/locks/lkDuration.h"

#include <cstddef>
#include <functional>

namespace Zv {

/// A time in seconds, counted from whatever its maker counts from: two of them
/// compare, and their `getSeconds` subtract.
class LiTimestamp
{
public:
    constexpr LiTimestamp() noexcept = default;
    constexpr LiTimestamp(double seconds) noexcept : _seconds(seconds) {}
    /// The time that is that long, to the nearest `double`.
    template <LkDuration Duration>
    explicit constexpr LiTimestamp(Duration const &time) noexcept
        : _seconds(static_cast<double>(time.count()) * Duration::period::num /
                   Duration::period::den)
    {}

    constexpr double getSeconds() const noexcept { return _seconds; }

    constexpr bool operator<(LiTimestamp const &other) const noexcept
    {
        return _seconds < other._seconds;
    }
    constexpr bool operator==(LiTimestamp const &other) const noexcept = default;

private:
    double _seconds = 0.0;
};

} // namespace Zv

template <>
struct std::hash<Zv::LiTimestamp>
{
    std::size_t operator()(Zv::LiTimestamp const &timestamp) const noexcept
    {
        return std::hash<double>()(timestamp.getSeconds());
    }
};
