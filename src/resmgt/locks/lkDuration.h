// Durations of the standard library as arguments (applications).
#pragma once

#include <concepts>
#include <cstdint>
#include <limits>
#include <ratio>

namespace Zv {

/// An object of `std::chrono::duration`. It is described by its members, so that the headers that
/// take a duration do not include `<chrono>`, which takes longer to compile than all of theirs.
///
/// Each operation that takes seconds as a `double` takes a duration as well:
///
///     #include <chrono>
///
///     Zv::LkEvent const frame("frame", false);
///     bool const hasCome = frame.timedWait(std::chrono::milliseconds(40));
template <class T>
concept LkDuration = requires(T const &time)
{
    typename T::rep;
    {
        T::period::num
        } -> std::convertible_to<std::intmax_t>;
    {
        T::period::den
        } -> std::convertible_to<std::intmax_t>;
    {
        time.count()
        } -> std::convertible_to<typename T::rep>;
};

namespace Detail {

/// Returns a duration in seconds, as its conversion to `std::chrono::duration<double>` does.
template <LkDuration Duration>
constexpr double countSeconds(Duration const &time) noexcept
{
    using Period = std::ratio<Duration::period::num, Duration::period::den>;
    return static_cast<double>(time.count()) * Period::num / Period::den;
}

/// Returns the number of units, such as `std::milli`, in a duration. Rounds to the nearest one, a
/// half away from zero. An integral duration is converted without any loss in between. A duration
/// that is too long gives the largest number, of either sign. A duration that is no number gives 0.
template <class Unit, LkDuration Duration>
constexpr std::int64_t countUnits(Duration const &time) noexcept
{
    using Scale = std::ratio_divide<std::ratio<Duration::period::num, Duration::period::den>, Unit>;
    constexpr std::int64_t MOST = std::numeric_limits<std::int64_t>::max();
    constexpr bool IS_INTEGRAL = std::numeric_limits<typename Duration::rep>::is_integer;
    // Integral durations near the end of the range are measured without loss below.
    constexpr double LIMIT = IS_INTEGRAL ? 0x1.8p63 : 0x1p63;
    auto const count = time.count();
    double const size = static_cast<double>(count) * Scale::num / Scale::den;
    if (!(size < LIMIT && size > -LIMIT))
        return size > 0 ? MOST : size < 0 ? -MOST : 0;
    if constexpr (!IS_INTEGRAL) {
        return static_cast<std::int64_t>(size + (size < 0 ? -0.5 : 0.5));
    } else {
        auto const number = static_cast<std::uint64_t>(count);
        std::uint64_t const magnitude = count < 0 ? 0 - number : number;
        std::uint64_t const part = magnitude % Scale::den * Scale::num;
        std::uint64_t units = magnitude / Scale::den * Scale::num + part / Scale::den;
        if (std::uint64_t const rest = part % Scale::den; rest >= Scale::den - rest)
            ++units;
        if (units > MOST)
            units = MOST;
        return count < 0 ? -static_cast<std::int64_t>(units) : static_cast<std::int64_t>(units);
    }
}

} // namespace Detail

} // namespace Zv
