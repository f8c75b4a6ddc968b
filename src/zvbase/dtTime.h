// Times and counts of devices.
#pragma once

#include "zvbase/export.h"
#include "zvbase/rational.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <ostream>

namespace Zv {

/// A running number of frames, samples or the like.
using DtTimeIndex = std::int64_t;

/// A length of time as a count at a rate: 48000 at 48000/1 and 25 at 25/1 are both one second, and equal. A value;
/// comparisons are exact.
class ZVBASE_EXPORT DtTime
{
public:
    /// Zero at rate 1/1.
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

/// A moment in a device's stream: a position, as a time from the stream's beginning, and the moment of the monotonic
/// clock (`Sleeper`) at which the device is there. Devices hand it from parent to child; nobody in between looks
/// inside. A value.
class ZVBASE_EXPORT DtTimeMark
{
public:
    /// Position zero at moment zero.
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

/// "48000 at 48000/1".
ZVBASE_EXPORT std::ostream &operator<<(std::ostream &, DtTime const &);
/// "48000 at 48000/1, at 12.5".
ZVBASE_EXPORT std::ostream &operator<<(std::ostream &, DtTimeMark const &);

} // namespace Zv
