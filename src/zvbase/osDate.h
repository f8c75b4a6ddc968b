// Calendar dates and the time of day (applications).
#pragma once

#include "zvbase/exBase.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <stdexcept>

namespace Zv {

/// The types of `OsDateUtil`.
class ZVBASE_EXPORT OsDateTypes
{
public:
    /// Says whether the fields of a date are local time or universal time.
    enum TimeMode
    {
        LOCAL,
        UNIVERSAL
    };

    /// A moment, in microseconds since the beginning of 1970, universal time.
    struct DateRep
    {
        std::int64_t microseconds = 0; ///< since the beginning of 1970

        friend auto operator<=>(DateRep const &, DateRep const &) = default;
    };

    /// The fields of a date.
    struct DateStruct
    {
        /// As in the standard library: years from 1900, months from 0. Do not use `tm_zone`.
        std::tm tm = {};
        int milliseconds = 0; ///< within the second
        /// The name of the time zone, cut if it is longer. "UTC" always means universal time. If a
        /// local zone calls itself "UTC" but differs from it, this is its distance instead, such as
        /// "+03".
        char zone[32] = {};
    };

    OsDateTypes() = delete;
};

/// Operations on dates.
///
/// Local time is the time of the zone that the environment variable TZ names when the operation is
/// called. If the variable is not set, it is the zone of the system.
///
///     Zv::OsDateTypes::DateRep date;
///     if (Zv::OsDateUtil::makeTime(date, 2026, 3, 1, 12, 0, 0.0, Zv::OsDateTypes::UNIVERSAL))
///         date = Zv::OsDateUtil::add(date, 3600.0); // one hour later
///
/// **Threads**: thread-safe.
///
/// **Blocks**: the operations on local time wait while another thread holds an `EnvVar::Guard`.
class ZVBASE_EXPORT OsDateUtil
{
public:
    /// Returns the present moment.
    static OsDateTypes::DateRep now();

    /// Makes a date from its fields: `year` in [0, 9999], `month` and `day` from 1, `seconds` in
    /// [0, 60). Returns false and does not change `date` if there is no such date: if a field is
    /// out of its range, for the 30th of February, or for a local time that is skipped when the
    /// clocks change.
    ///
    /// If local clocks show a time more than once, `repetition` selects the first (0), the second
    /// (1), and so on. Returns false if they do not show the time so often.
    [[nodiscard]] static bool makeTime(OsDateTypes::DateRep &date, int year, int month, int day,
                                       int hour, int minute, double seconds, OsDateTypes::TimeMode,
                                       int repetition = 0);

    /// Returns the fields of a date. Milliseconds are cut, not rounded. If the system cannot
    /// convert the date to local time, returns universal time.
    static OsDateTypes::DateStruct convertToDateStruct(OsDateTypes::DateRep const &date,
                                                       OsDateTypes::TimeMode);

    /// Returns the date that is `seconds` later, rounded to microseconds. If it is out of range,
    /// returns the first or the last date of the range.
    static OsDateTypes::DateRep add(OsDateTypes::DateRep const &date, double seconds);

    OsDateUtil() = delete;
};

/// Exceptions of dates.
class ZVBASE_EXPORT OsDateEx : public ExBase
{
public:
    class ExInvalidDate;

    OsDateEx(char const *file, int line) noexcept;
};

/// Thrown if there is no such date. "Invalid date."
ZV_EXCEPTION(ZVBASE_EXPORT, OsDateEx, ExInvalidDate, std::invalid_argument, OsDateEx);

} // namespace Zv
