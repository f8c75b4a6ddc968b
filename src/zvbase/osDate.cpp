#include "zvbase/osDate.h"

#include "platform/services.h"
#include "zvbase/envVar.h"
#include "zvbase/exBody.private.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string_view>

namespace Zv {

namespace {

constexpr std::int64_t MICROSECONDS = 1'000'000;
constexpr std::int64_t SECONDS_OF_DAY = 86'400;
constexpr std::string_view UNIVERSAL_ZONE = "UTC";
/// The time from 1601, when the system's clock begins, to 1970, in units of 100 ns.
constexpr std::int64_t BEGINNING_OF_1970 = 116'444'736'000'000'000;

std::int64_t floorDivide(std::int64_t value, std::int64_t divisor)
{
    return value / divisor - (value % divisor < 0 ? 1 : 0);
}

/// Returns the days since the beginning of 1970, in the Gregorian calendar, extended to all years.
/// Years begin in March here, so that the leap day is their last day.
std::int64_t daysFromCivil(std::int64_t year, int month, int day)
{
    year -= month <= 2 ? 1 : 0;
    std::int64_t const era = floorDivide(year, 400);
    std::int64_t const yearOfEra = year - era * 400;
    std::int64_t const dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    return era * 146'097 + yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear - 719'468;
}

void civilFromDays(std::int64_t days, std::tm &tm)
{
    std::int64_t const shifted = days + 719'468;
    std::int64_t const era = floorDivide(shifted, 146'097);
    std::int64_t const dayOfEra = shifted - era * 146'097;
    std::int64_t const yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36'524 - dayOfEra / 146'096) / 365;
    std::int64_t const dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    std::int64_t const month = (5 * dayOfYear + 2) / 153;
    tm.tm_mday = static_cast<int>(dayOfYear - (153 * month + 2) / 5 + 1);
    tm.tm_mon = static_cast<int>(month < 10 ? month + 2 : month - 10);
    std::int64_t const year = yearOfEra + era * 400 + (tm.tm_mon < 2 ? 1 : 0);
    tm.tm_year = static_cast<int>(year - 1900);
    tm.tm_wday = static_cast<int>(days + 4 - floorDivide(days + 4, 7) * 7);
    tm.tm_yday = static_cast<int>(days - daysFromCivil(year, 1, 1));
}

bool isDate(int year, int month, int day)
{
    if (year < 0 || year > 9999 || month < 1 || month > 12 || day < 1)
        return false;
    int const next = month == 12 ? 1 : month + 1;
    std::int64_t const length =
        daysFromCivil(month == 12 ? year + 1 : year, next, 1) - daysFromCivil(year, month, 1);
    return day <= length;
}

/// Makes the functions of local time use the present value of TZ. The caller must hold an
/// `EnvVar::Guard` during this call and those functions.
void readZone()
{
#ifdef _WIN32
    ::_tzset();
#else
    ::tzset();
#endif
}

/// The caller must hold an `EnvVar::Guard` and have called `readZone`.
bool toLocal(std::int64_t seconds, std::tm &tm)
{
    std::time_t const time = seconds;
#ifdef _WIN32
    return ::localtime_s(&tm, &time) == 0;
#else
    return ::localtime_r(&time, &tm) != nullptr;
#endif
}

/// Returns local time in seconds, counted as if it were universal time.
std::int64_t toClockSeconds(std::tm const &tm)
{
    return daysFromCivil(tm.tm_year + std::int64_t{1900}, tm.tm_mon + 1, tm.tm_mday) *
               SECONDS_OF_DAY +
           tm.tm_hour * 3600 + tm.tm_min * 60 + tm.tm_sec;
}

/// Finds the moment at which local clocks show `shown`, the first one or a later repetition.
/// Returns false if there is none.
//
// The system's own function does not help. If there are several moments, its choice depends on
// earlier calls, and it moves a time that clocks skip. So this looks up the zone's distance from
// universal time around the day. No zone keeps a distance for less than a step.
bool fromLocal(std::int64_t shown, int repetition, std::int64_t &seconds)
{
    constexpr std::int64_t STEP = 3 * 3600;
    constexpr int NB_STEPS = 9; // more than the distance of any zone
    std::array<std::int64_t, 2 * NB_STEPS + 1> moments;
    std::size_t nbMoments = 0;
    EnvVar::Guard const guard;
    readZone();
    for (int step = -NB_STEPS; step <= NB_STEPS; ++step) {
        std::int64_t const sample = shown + step * STEP;
        std::tm tm = {};
        if (!toLocal(sample, tm))
            continue;
        std::int64_t const moment = shown - (toClockSeconds(tm) - sample);
        auto * const end = moments.data() + nbMoments;
        if (std::find(moments.data(), end, moment) == end && toLocal(moment, tm) &&
            toClockSeconds(tm) == shown)
            moments[nbMoments++] = moment;
    }
    if (repetition < 0 || static_cast<std::size_t>(repetition) >= nbMoments)
        return false;
    std::sort(moments.data(), moments.data() + nbMoments);
    seconds = moments[static_cast<std::size_t>(repetition)];
    return true;
}

/// Names a zone by its distance from universal time. For a zone that calls itself "UTC" but differs
/// from it.
void nameByDistance(char (&name)[32], std::int64_t distance)
{
    int const minutes = static_cast<int>(std::abs(distance) / 60);
    char const sign = distance < 0 ? '-' : '+';
    if (minutes % 60 == 0)
        std::snprintf(name, sizeof name, "%c%02d", sign, minutes / 60);
    else
        std::snprintf(name, sizeof name, "%c%02d%02d", sign, minutes / 60, minutes % 60);
}

/// Sets the fields to local time. Returns false if the system cannot convert the date.
bool takeApartByLocalTime(std::int64_t seconds, OsDateTypes::DateStruct &date)
{
    EnvVar::Guard const guard;
    readZone();
    if (!toLocal(seconds, date.tm))
        return false;
    std::strftime(date.zone, sizeof date.zone, "%Z", &date.tm);
    std::int64_t const distance = toClockSeconds(date.tm) - seconds;
    if (distance != 0 && std::string_view(date.zone).starts_with(UNIVERSAL_ZONE))
        nameByDistance(date.zone, distance);
    return true;
}

void takeApartByUniversalTime(std::int64_t seconds, OsDateTypes::DateStruct &date)
{
    std::int64_t const days = floorDivide(seconds, SECONDS_OF_DAY);
    std::int64_t const rest = seconds - days * SECONDS_OF_DAY;
    civilFromDays(days, date.tm);
    date.tm.tm_hour = static_cast<int>(rest / 3600);
    date.tm.tm_min = static_cast<int>(rest / 60 % 60);
    date.tm.tm_sec = static_cast<int>(rest % 60);
    UNIVERSAL_ZONE.copy(date.zone, sizeof date.zone - 1);
}

} // namespace

OsDateTypes::DateRep OsDateUtil::now()
{
    FILETIME time;
    ::GetSystemTimePreciseAsFileTime(&time);
    std::int64_t const ticks =
        static_cast<std::int64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
    return {floorDivide(ticks - BEGINNING_OF_1970, 10)};
}

bool OsDateUtil::makeTime(OsDateTypes::DateRep &date, int year, int month, int day, int hour,
                          int minute, double seconds, OsDateTypes::TimeMode mode, int repetition)
{
    bool const isTime =
        hour >= 0 && hour < 24 && minute >= 0 && minute < 60 && seconds >= 0 && seconds < 60;
    if (!isTime || !isDate(year, month, day))
        return false;

    std::int64_t start =
        daysFromCivil(year, month, day) * SECONDS_OF_DAY + hour * 3600 + minute * 60;
    if (mode == OsDateTypes::LOCAL ? !fromLocal(start, repetition, start) : repetition != 0)
        return false;
    date.microseconds =
        start * MICROSECONDS + std::llround(seconds * static_cast<double>(MICROSECONDS));
    return true;
}

OsDateTypes::DateStruct OsDateUtil::convertToDateStruct(OsDateTypes::DateRep const &date,
                                                        OsDateTypes::TimeMode mode)
{
    std::int64_t const seconds = floorDivide(date.microseconds, MICROSECONDS);
    OsDateTypes::DateStruct result;
    result.milliseconds = static_cast<int>((date.microseconds - seconds * MICROSECONDS) / 1000);
    if (mode == OsDateTypes::UNIVERSAL || !takeApartByLocalTime(seconds, result))
        takeApartByUniversalTime(seconds, result);
    return result;
}

OsDateTypes::DateRep OsDateUtil::add(OsDateTypes::DateRep const &date, double seconds)
{
    using Limits = std::numeric_limits<std::int64_t>;
    double const amount = std::round(seconds * static_cast<double>(MICROSECONDS));
    if (!(std::abs(amount) < 0x1p63))
        return {amount > 0 ? Limits::max() : amount < 0 ? Limits::min() : date.microseconds};
    std::int64_t sum = 0;
    if (__builtin_add_overflow(date.microseconds, static_cast<std::int64_t>(amount), &sum))
        sum = amount > 0 ? Limits::max() : Limits::min();
    return {sum};
}

ZV_EXCEPTION_FAMILY_BODY(OsDateEx)
ZV_EXCEPTION_BODY(OsDateEx, ExInvalidDate, std::invalid_argument, (), setReason("Invalid date."))

} // namespace Zv
