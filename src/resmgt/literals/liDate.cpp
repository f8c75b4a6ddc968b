#include "resmgt/literals/liDate.h"

#include "resmgt/literals/literalsStatics.private.h"
#include "zvbase/failures.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <istream>
#include <sstream>
#include <string>

namespace Zv {

namespace {

constexpr std::size_t ZONE_LETTERS = 3;

/// Reads a number of `digits` digits with `end` behind it.
int readField(std::istream &stream, int digits, char end)
{
    int value = 0;
    for (int i = 0; i < digits; ++i) {
        int const c = stream.get();
        if (c == std::istream::traits_type::eof() || !std::isdigit(c))
            ZV_THROW(OsDateEx::ExInvalidDate);
        value = value * 10 + (c - '0');
    }
    if (stream.get() != end)
        ZV_THROW(OsDateEx::ExInvalidDate);
    return value;
}

bool isInZone(LiDate const &date, OsDateTypes::TimeMode mode, std::string const &zone)
{
    OsDateTypes::DateStruct const fields = OsDateUtil::convertToDateStruct(date.getRep(), mode);
    return std::strncmp(fields.zone, zone.c_str(), ZONE_LETTERS) == 0;
}

bool isSameClockTime(LiDate const &left, LiDate const &right)
{
    OsDateTypes::DateStruct const l =
        OsDateUtil::convertToDateStruct(left.getRep(), OsDateTypes::LOCAL);
    OsDateTypes::DateStruct const r =
        OsDateUtil::convertToDateStruct(right.getRep(), OsDateTypes::LOCAL);
    return l.tm.tm_mday == r.tm.tm_mday && l.tm.tm_hour == r.tm.tm_hour &&
           l.tm.tm_min == r.tm.tm_min;
}

/// The zone's name goes where `strftime` looks for it, where it does.
template <class Tm>
void nameZone(Tm &tm, [[maybe_unused]] char *zone)
{
    if constexpr (requires { tm.tm_zone = zone; })
        tm.tm_zone = zone;
}

} // namespace

LiDate::LiDate(LiString const &text)
{
    std::istringstream stream(text.getChars());
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
    std::string zone;
    std::getline(stream, zone);
    if (zone.size() > ZONE_LETTERS)
        ZV_THROW(OsDateEx::ExInvalidDate);

    double const seconds = second + millisecond / 1000.0;
    LiDate const universal(year, month, day, hour, minute, seconds, OsDateTypes::UNIVERSAL);
    if (isInZone(universal, OsDateTypes::UNIVERSAL, zone)) {
        *this = universal;
        return;
    }
    LiDate const local(year, month, day, hour, minute, seconds, OsDateTypes::LOCAL);
    // Of an hour that the clock repeats either can be meant: the zone tells which.
    for (double const shift : {0.0, 3600.0, -3600.0}) {
        LiDate date(local);
        date += shift;
        if (isSameClockTime(date, local) && isInZone(date, OsDateTypes::LOCAL, zone)) {
            *this = date;
            return;
        }
    }
    ZV_THROW(OsDateEx::ExInvalidDate);
}

} // namespace Zv
