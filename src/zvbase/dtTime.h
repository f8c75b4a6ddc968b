// Durations and positions of media streams (applications and device writers).
#pragma once

#include "zvbase/export.h"
#include "zvbase/rational.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <iosfwd>

namespace Zv {

/// The number of a frame, sample or the like.
using DtTimeIndex = std::int64_t;

/// A duration, as a count at a rate in counts per second. A value.
///
/// 48000 at 48000/1 and 25 at 25/1 are both one second, and are equal. Comparisons are exact.
///
///     Zv::DtTime const samples(48000, Zv::Rational(48000, 1));
///     Zv::DtTime const frames(25, Zv::Rational(25, 1));
///     bool const areEqual = samples == frames; // true
class ZVBASE_EXPORT DtTime
{
public:
    /// Constructs 0 at 1/1.
    DtTime() = default;
    /// `rate` is in counts per second. Fails the assertion "rate > Rational()".
    DtTime(DtTimeIndex count, Rational const &rate);

    DtTimeIndex getCount() const noexcept { return _count; }
    Rational const &getRate() const noexcept { return _rate; }
    double getSeconds() const noexcept;

    ZVBASE_EXPORT friend bool operator==(DtTime const &, DtTime const &) noexcept;
    ZVBASE_EXPORT friend std::strong_ordering operator<=>(DtTime const &, DtTime const &) noexcept;

private:
    DtTimeIndex _count = 0;
    Rational _rate = Rational(1, 1);
};

/// A position in the stream of a device, and the moment at which the device is there. A value.
///
/// The position is the time from the beginning of the stream. The moment is in seconds of the
/// monotonic clock (`Sleeper`). A device passes a mark to its child devices. The library does not
/// look into it.
///
///     Zv::DtTime const position(0, Zv::Rational(25, 1));
///     Zv::DtTimeMark const mark(position, Zv::Sleeper::getInstance().getTime() + 0.5);
class ZVBASE_EXPORT DtTimeMark
{
public:
    /// Constructs position 0 at moment 0.
    DtTimeMark() = default;
    /// `reference` is in seconds of the monotonic clock.
    DtTimeMark(DtTime const &position, double reference)
        : _position(position), _reference(reference)
    {}

    DtTime const &getPosition() const noexcept { return _position; }
    double getReference() const noexcept { return _reference; }

    friend bool operator==(DtTimeMark const &, DtTimeMark const &) noexcept = default;

private:
    DtTime _position;
    double _reference = 0;
};

/// Writes count and rate, as in "48000 at 48000/1".
ZVBASE_EXPORT std::ostream &operator<<(std::ostream &, DtTime const &);
/// Writes position and moment, as in "48000 at 48000/1, at 12.5".
ZVBASE_EXPORT std::ostream &operator<<(std::ostream &, DtTimeMark const &);

} // namespace Zv
