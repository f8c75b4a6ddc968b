// A time as a comparable value.
#pragma once

namespace Zv {

/// A time in seconds, counted from whatever its maker counts from: two of them
/// compare, and their `getSeconds` subtract.
class LiTimestamp
{
public:
    constexpr LiTimestamp() noexcept = default;
    constexpr LiTimestamp(double seconds) noexcept : _seconds(seconds) {}

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
