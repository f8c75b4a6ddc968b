// Calendar time.
#pragma once

#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkDuration.h"
#include "zvbase/osDate.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <ratio>

namespace Zv {

/// A moment in calendar time. One object is for one thread at a time. The place's clock is the one that TZ names at the
/// time of the call. What goes by it waits for an `EnvVar::putEnv` of another thread; nothing else here blocks.
class ZVRESMGT_EXPORT LiDate
{
public:
    /// The beginning of 1970, universal time.
    LiDate() = default;
    explicit LiDate(OsDateTypes::DateRep const &rep) : _rep(rep) {}
    /// Reads what `toString(TimeMode)` wrote, by universal time or by the clock of this place. Throws
    /// `OsDateEx::ExInvalidDate` for anything else, also if there is more behind the zone. If the place's clock shows
    /// the time twice, the zone decides; if that has the same three letters both times, the first is meant.
    explicit LiDate(LiString const &text);
    /// `month` and `day` from 1, `seconds` in [0, 60). Throws `OsDateEx::ExInvalidDate` where there is no such date.
    LiDate(int year, int month, int day, int hour, int minute, double seconds,
           OsDateTypes::TimeMode mode);

    /// As the constructor; the date stays as it was where it throws.
    void set(int year, int month, int day, int hour, int minute, double seconds,
             OsDateTypes::TimeMode mode);
    static LiDate now();
    /// The date that a new object has.
    static LiDate const &getEpoch();

    LiDate &operator+=(double seconds);
    LiDate &operator-=(double seconds);
    template <LkDuration Duration>
    LiDate &operator+=(Duration const &time)
    {
        addMicroseconds(Detail::countUnits<std::micro>(time));
        return *this;
    }
    template <LkDuration Duration>
    LiDate &operator-=(Duration const &time)
    {
        addMicroseconds(-Detail::countUnits<std::micro>(time));
        return *this;
    }

    /// -1, 0 or 1.
    static int compare(LiDate const &left, LiDate const &right);

    /// For instance "2006/02/20 17:04:05.250 UTC": milliseconds, cut, and the first three letters of the time zone.
    /// "UTC" always is universal time: a local zone of that name that differs from it is written by its distance, "+03".
    /// A date before the year 0 or behind the year 9999 is written with more than four digits, and cannot be read back.
    LiString toString(OsDateTypes::TimeMode mode) const;
    /// As `strftime` writes it, by the clock of this place. The text has to have 1 to 255 bytes, or an assertion fails.
    LiString toString(char const *format) const;

    OsDateTypes::DateRep const &getRep() const { return _rep; }

    friend bool operator==(LiDate const &left, LiDate const &right)
    {
        return compare(left, right) == 0;
    }
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

template <>
struct std::hash<Zv::LiDate>
{
    std::size_t operator()(Zv::LiDate const &date) const noexcept
    {
        return std::hash<std::int64_t>()(date.getRep().microseconds);
    }
};
