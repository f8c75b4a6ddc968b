#include "zvbase/osDate.h"

#include "platform/services.h"

#include <cmath>
#include <cstdio>
#include <limits>

namespace Zv {

namespace {

constexpr std::int64_t MICROSECONDS = 1'000'000;
constexpr std::int64_t SECONDS_OF_DAY = 86'400;
/// From 1601, where the system's clock begins, to 1970, in units of 100 ns.
constexpr std::int64_t BEGINNING_OF_1970 = 116'444'736'000'000'000;

std::int64_t floorDivide(std::int64_t value, std::int64_t divisor)
{
    return value / divisor - (value % divisor < 0 ? 1 : 0);
}

/// Days from the beginning of 1970, in the Gregorian calendar carried on both ways. Years begin in March here, so
/// that the leap day is their last.
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

bool toLocal(std::int64_t seconds, std::tm &tm)
{
    std::time_t const time = seconds;
#ifdef _WIN32
    return ::localtime_s(&tm, &time) == 0;
#else
    return ::localtime_r(&time, &tm) != nullptr;
#endif
}

bool isSameTime(std::tm const &left, std::tm const &right)
{
    return left.tm_year == right.tm_year && left.tm_mon == right.tm_mon &&
           left.tm_mday == right.tm_mday && left.tm_hour == right.tm_hour &&
           left.tm_min == right.tm_min && left.tm_sec == right.tm_sec;
}

/// Whether the place's clock shows `wanted` at that moment.
bool isShownAt(std::int64_t seconds, std::tm const &wanted)
{
    std::tm shown = {};
    return toLocal(seconds, shown) && isSameTime(shown, wanted);
}

/// False for an hour that the place's clock skips: the system would move it.
bool fromLocal(std::tm const &wanted, std::int64_t &seconds)
{
    std::tm tm = wanted;
    tm.tm_isdst = -1;
    seconds = std::mktime(&tm);
    if (!isShownAt(seconds, wanted))
        return false;
    // Of an hour that the clock repeats the system picks one by what it was asked before.
    for (std::int64_t const shift : {1800, 3600, 7200}) {
        if (isShownAt(seconds - shift, wanted)) {
            seconds -= shift;
            break;
        }
    }
    return true;
}

void nameZone(OsDateTypes::DateStruct &date, OsDateTypes::TimeMode mode)
{
    if (mode == OsDateTypes::UNIVERSAL)
        std::snprintf(date.zone, sizeof date.zone, "UTC");
    else
        std::strftime(date.zone, sizeof date.zone, "%Z", &date.tm);
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
                          int minute, double seconds, OsDateTypes::TimeMode mode)
{
    bool const isTime =
        hour >= 0 && hour < 24 && minute >= 0 && minute < 60 && seconds >= 0 && seconds < 60;
    if (!isTime || !isDate(year, month, day))
        return false;

    std::int64_t start =
        daysFromCivil(year, month, day) * SECONDS_OF_DAY + hour * 3600 + minute * 60;
    if (mode == OsDateTypes::LOCAL) {
        std::tm tm = {};
        tm.tm_year = year - 1900;
        tm.tm_mon = month - 1;
        tm.tm_mday = day;
        tm.tm_hour = hour;
        tm.tm_min = minute;
        if (!fromLocal(tm, start))
            return false;
    }
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
    if (mode == OsDateTypes::UNIVERSAL || !toLocal(seconds, result.tm)) {
        std::int64_t const days = floorDivide(seconds, SECONDS_OF_DAY);
        std::int64_t const rest = seconds - days * SECONDS_OF_DAY;
        civilFromDays(days, result.tm);
        result.tm.tm_hour = static_cast<int>(rest / 3600);
        result.tm.tm_min = static_cast<int>(rest / 60 % 60);
        result.tm.tm_sec = static_cast<int>(rest % 60);
        mode = OsDateTypes::UNIVERSAL;
    }
    nameZone(result, mode);
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

OsDateEx::OsDateEx(char const *file, int line) noexcept : ExBase(file, line) {}

OsDateEx::ExInvalidDate::ExInvalidDate(char const *file, int line)
    : std::invalid_argument(""), OsDateEx(file, line)
{
    setReason("Invalid date.");
}

OsDateEx::ExInvalidDate::~ExInvalidDate() = default;

} // namespace Zv
