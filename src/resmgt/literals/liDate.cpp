#include "resmgt/literals/liDate.h"

#include "resmgt/literals/literalsStatics.private.h"
#include "zvbase/envVar.h"
#include "zvbase/failures.h"

#include <cstdio>
#include <ctime>
#include <istream>
#include <iterator>
#include <limits>
#include <sstream>
#include <string>
#include <string_view>

namespace Zv {

namespace {

constexpr std::size_t ZONE_LETTERS = 3;

/// Reads a number of `digits` digits, with `end` behind it.
int readField(std::istream &stream, int digits, char end)
{
    int value = 0;
    for (int i = 0; i < digits; ++i) {
        int const c = stream.get();
        if (c < '0' || c > '9')
            ZV_THROW(OsDateEx::ExInvalidDate);
        value = value * 10 + (c - '0');
    }
    if (stream.get() != end)
        ZV_THROW(OsDateEx::ExInvalidDate);
    return value;
}

/// Returns the zone as `toString` writes it.
std::string_view zoneOf(OsDateTypes::DateStruct const &date)
{
    return std::string_view(date.zone).substr(0, ZONE_LETTERS);
}

bool isInZone(LiDate const &date, OsDateTypes::TimeMode mode, std::string_view zone)
{
    return zoneOf(OsDateUtil::convertToDateStruct(date.getRep(), mode)) == zone;
}

/// Stores the name of the zone for `strftime` if the system's `strftime` looks for it there.
template <class Tm>
void nameZone(Tm &tm, [[maybe_unused]] char *zone)
{
    if constexpr (requires { tm.tm_zone = zone; })
        tm.tm_zone = zone;
}

} // namespace

LiDate::LiDate(LiString const &text)
{
    std::istringstream stream(
        std::string(text.getChars(), static_cast<std::size_t>(text.getLength())));
    readDate(stream);
}

LiDate::LiDate(int year, int month, int day, int hour, int minute, double seconds,
               OsDateTypes::TimeMode mode)
{
    set(year, month, day, hour, minute, seconds, mode);
}

void LiDate::set(int year, int month, int day, int hour, int minute, double seconds,
                 OsDateTypes::TimeMode mode)
{
    if (!OsDateUtil::makeTime(_rep, year, month, day, hour, minute, seconds, mode))
        ZV_THROW(OsDateEx::ExInvalidDate);
}

LiDate LiDate::now()
{
    return LiDate(OsDateUtil::now());
}

LiDate const &LiDate::getEpoch()
{
    return LiteralsStatics::epoch.get();
}

LiDate &LiDate::operator+=(double seconds)
{
    _rep = OsDateUtil::add(_rep, seconds);
    return *this;
}

LiDate &LiDate::operator-=(double seconds)
{
    return *this += -seconds;
}

void LiDate::addMicroseconds(std::int64_t amount)
{
    using Limits = std::numeric_limits<std::int64_t>;
    std::int64_t &microseconds = _rep.microseconds;
    if (__builtin_add_overflow(microseconds, amount, &microseconds))
        microseconds = amount > 0 ? Limits::max() : Limits::min();
}

int LiDate::compare(LiDate const &left, LiDate const &right)
{
    return (left._rep > right._rep) - (left._rep < right._rep);
}

LiString LiDate::toString(OsDateTypes::TimeMode mode) const
{
    OsDateTypes::DateStruct const date = OsDateUtil::convertToDateStruct(_rep, mode);
    char text[128];
    std::snprintf(text, sizeof(text), "%04d/%02d/%02d %02d:%02d:%02d.%03d %.3s",
                  date.tm.tm_year + 1900, date.tm.tm_mon + 1, date.tm.tm_mday, date.tm.tm_hour,
                  date.tm.tm_min, date.tm.tm_sec, date.milliseconds, date.zone);
    return LiString(text);
}

LiString LiDate::toString(char const *format) const
{
    OsDateTypes::DateStruct date = OsDateUtil::convertToDateStruct(_rep, OsDateTypes::LOCAL);
    std::tm tm = date.tm;
    nameZone(tm, date.zone);
    char dateBuf[256];
    EnvVar::Guard const guard; // the system looks at TZ once more
    ZV_ASSERT(::strftime( dateBuf, sizeof(dateBuf), format, &tm ));
    return LiString(dateBuf);
}

void LiDate::readDate(std::istream &stream)
{
    int const year = readField(stream, 4, '/');
    int const month = readField(stream, 2, '/');
    int const day = readField(stream, 2, ' ');
    int const hour = readField(stream, 2, ':');
    int const minute = readField(stream, 2, ':');
    int const second = readField(stream, 2, '.');
    int const millisecond = readField(stream, 3, ' ');
    // All that is left, because nothing may follow the zone.
    std::string const zone(std::istreambuf_iterator<char>(stream), {});

    double const seconds = second + millisecond / 1000.0;
    LiDate const universal(year, month, day, hour, minute, seconds, OsDateTypes::UNIVERSAL);
    if (isInZone(universal, OsDateTypes::UNIVERSAL, zone)) {
        *this = universal;
        return;
    }
    // If local time shows the time twice, the zone decides which one is meant.
    LiDate local;
    for (int repetition = 0; OsDateUtil::makeTime(local._rep, year, month, day, hour, minute,
                                                  seconds, OsDateTypes::LOCAL, repetition);
         ++repetition) {
        if (isInZone(local, OsDateTypes::LOCAL, zone)) {
            *this = local;
            return;
        }
    }
    ZV_THROW(OsDateEx::ExInvalidDate);
}

} // namespace Zv
