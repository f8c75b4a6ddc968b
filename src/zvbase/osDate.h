// Calendar time of the system.
#pragma once

#include "zvbase/exBase.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <stdexcept>

namespace Zv {

/// The types of calendar time.
class ZVBASE_EXPORT OsDateTypes
{
public:
    /// Whether numbers of a date are meant by the clock of the place or by universal time.
    enum TimeMode
    {
        LOCAL,
        UNIVERSAL
    };

    /// A moment: microseconds since the beginning of 1970, universal time.
    struct DateRep
    {
        std::int64_t microseconds = 0;

        friend auto operator<=>(DateRep const &, DateRep const &) = default;
    };

    /// A moment taken apart.
    struct DateStruct
    {
        /// As the standard library has it: years from 1900, months from 0. `tm_zone` is not to be used.
        std::tm tm = {};
        int milliseconds = 0;
        /// The time zone's name, "UTC" for universal time. It is cut if it is longer. "UTC" never means anything
        /// else: if a local zone of that name differs from universal time, its distance stands here, as "+03".
        char zone[32] = {};
    };

    OsDateTypes() = delete;
};

/// Operations on dates. Any thread. Local time is that of the zone that TZ names at the time of the call. The
/// operations by local time exclude `EnvVar::putEnv`.
class ZVBASE_EXPORT OsDateUtil
{
public:
    /// The present moment.
    static OsDateTypes::DateRep now();

    /// Puts a date together: `month` and `day` from 1, `seconds` in [0, 60). Returns false and leaves `date` alone
    /// where there is no such date: numbers out of their range, the 30th of February, an hour that the place's clock
    /// skips. Years run from 0 to 9999.
    ///
    /// If the place's clock shows a time more than once, `repetition` says which one is meant: 0 the first, 1 the
    /// second. Returns false if the clock does not show the time that often.
    [[nodiscard]] static bool makeTime(OsDateTypes::DateRep &date, int year, int month, int day,
                                       int hour, int minute, double seconds, OsDateTypes::TimeMode,
                                       int repetition = 0);

    /// Takes a date apart. Milliseconds are cut, not rounded.
    static OsDateTypes::DateStruct convertToDateStruct(OsDateTypes::DateRep const &date,
                                                       OsDateTypes::TimeMode);

    /// The date that many seconds later, to the nearest microsecond. Stays at the ends of the range.
    static OsDateTypes::DateRep add(OsDateTypes::DateRep const &date, double seconds);

    OsDateUtil() = delete;
};

/// Failures of calendar time.
class ZVBASE_EXPORT OsDateEx : public ExBase
{
public:
    class ExInvalidDate;

    OsDateEx(char const *file, int line) noexcept;
};

/// There is no such date: "Invalid date."
class ZVBASE_EXPORT OsDateEx::ExInvalidDate : public std::invalid_argument, public OsDateEx
{
public:
    ExInvalidDate(char const *file, int line);
    ~ExInvalidDate() override;
    ZV_EXCEPTION_MEMBERS(ExInvalidDate)
};

} // namespace Zv
