// Date: a moment in calendar time (applications).
#pragma once

#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkDuration.h"
#include "zvbase/osDate.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <ratio>
#include <string_view> // std::hash

namespace Zv {

/// Moment in calendar time, with microseconds.
///
///     Zv::LiDate date(2006, 12, 31, 23, 59, 59.5, Zv::OsDateTypes::UNIVERSAL);
///     date += 0.75; // seconds, or a duration of the standard library
///     Zv::LiString const text = date.toString(Zv::OsDateTypes::UNIVERSAL);
///
/// Local time is that of the time zone that the environment variable TZ names at the time of the
/// call.
///
/// **Threads**: a value.
///
/// **Blocks**: an operation by local time blocks while another thread runs `EnvVar::putEnv`.
class ZVRESMGT_EXPORT LiDate
{
public:
    /// Becomes the beginning of 1970, universal time.
    LiDate() = default;
    /// Becomes the moment of the base library's representation.
    explicit LiDate(OsDateTypes::DateRep const &rep) : _rep(rep) {}
    /// Reads a text that `toString(TimeMode)` wrote, in universal or in local time. If local time
    /// shows the time twice, the zone decides. If the zone has the same three letters both times,
    /// the first time is meant. **Throws** `OsDateEx::ExInvalidDate` for every other text, also if
    /// there is more behind the zone.
    explicit LiDate(LiString const &text);
    /// Becomes the moment of these fields. `month` and `day` begin at 1, `seconds` is in [0, 60).
    /// **Throws** `OsDateEx::ExInvalidDate` if there is no such date.
    LiDate(int year, int month, int day, int hour, int minute, double seconds,
           OsDateTypes::TimeMode mode);

    /// Becomes the moment of these fields, as in the constructor. If it throws, the date keeps its
    /// value.
    void set(int year, int month, int day, int hour, int minute, double seconds,
             OsDateTypes::TimeMode mode);
    /// Returns the present moment.
    static LiDate now();
    /// Returns the beginning of 1970, universal time.
    static LiDate const &getEpoch();

    /// Adds seconds, rounded to the nearest microsecond. A sum out of range gives its nearest end.
    LiDate &operator+=(double seconds);
    /// Subtracts seconds, rounded to the nearest microsecond. A difference out of range gives its
    /// nearest end.
    LiDate &operator-=(double seconds);
    /// Adds a duration, as with seconds. An integral duration is added without loss.
    template <LkDuration Duration>
    LiDate &operator+=(Duration const &time)
    {
        addMicroseconds(Detail::countUnits<std::micro>(time));
        return *this;
    }
    /// Subtracts a duration, as with seconds. An integral duration is subtracted without loss.
    template <LkDuration Duration>
    LiDate &operator-=(Duration const &time)
    {
        addMicroseconds(-Detail::countUnits<std::micro>(time));
        return *this;
    }

    /// Returns -1, 0 or 1.
    static int compare(LiDate const &left, LiDate const &right);

    /// Returns the date as text, such as "2006/02/20 17:04:05.250 UTC". Milliseconds are cut, not
    /// rounded. The first three letters of the time zone follow. "UTC" always means universal time:
    /// a local zone of that name that differs from it is written as its distance, such as "+03". A
    /// date before the year 0 or after the year 9999 cannot be read back.
    LiString toString(OsDateTypes::TimeMode mode) const;
    /// Returns the date as `strftime` writes it in local time. **Throws** `AssertionFailed` if the
    /// text is empty or longer than 255 bytes.
    LiString toString(char const *format) const;

    /// Returns the base library's representation.
    OsDateTypes::DateRep const &getRep() const { return _rep; }

    /// Compares as `compare` does.
    friend bool operator==(LiDate const &left, LiDate const &right)
    {
        return compare(left, right) == 0;
    }
    /// Orders as `compare` does.
    friend std::strong_ordering operator<=>(LiDate const &left, LiDate const &right)
    {
        return compare(left, right) <=> 0;
    }

private:
    void addMicroseconds(std::int64_t amount);
    void readDate(std::istream &stream);

    OsDateTypes::DateRep _rep;
};

} // namespace Zv

/// Agrees with `==`.
template <>
struct std::hash<Zv::LiDate>
{
    std::size_t operator()(Zv::LiDate const &date) const noexcept
    {
        return std::hash<std::int64_t>()(date.getRep().microseconds);
    }
};
