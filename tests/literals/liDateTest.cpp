#include "resmgt/literals/liDate.h"

#include "childProcess.h"
#include "zvbase/assertions.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>

namespace Zv {
namespace {

/// Another place for the length of a test.
class AtPlace
{
public:
    explicit AtPlace(char const *zone)
    {
        if (char const *former = std::getenv("TZ"))
            _former = former;
        ZvTest::setVariable("TZ", zone);
        ::tzset();
    }
    ~AtPlace()
    {
        ZvTest::setVariable("TZ", _former.empty() ? nullptr : _former.c_str());
        ::tzset();
    }
    AtPlace(AtPlace const &) = delete;
    AtPlace &operator=(AtPlace const &) = delete;

private:
    std::string _former;
};

// The rules are written out, so that the tests need no table of zones.
constexpr char const *CENTRAL_EUROPE = "CET-1CEST,M3.5.0,M10.5.0/3";

LiDate universal(int year, int month, int day, int hour, int minute, double seconds)
{
    return LiDate(year, month, day, hour, minute, seconds, OsDateTypes::UNIVERSAL);
}

TEST(LiDate, BeginsAt1970)
{
    EXPECT_STREQ("1970/01/01 00:00:00.000 UTC",
                 LiDate().toString(OsDateTypes::UNIVERSAL).getChars());
    EXPECT_EQ(LiDate(), LiDate::getEpoch());
    EXPECT_EQ(LiDate(), LiDate(OsDateTypes::DateRep{}));
}

TEST(LiDate, WritesItsFields)
{
    LiDate const date = universal(2006, 2, 20, 7, 4, 5.25);
    EXPECT_STREQ("2006/02/20 07:04:05.250 UTC", date.toString(OsDateTypes::UNIVERSAL).getChars());
    AtPlace const place(CENTRAL_EUROPE);
    EXPECT_STREQ("2006/02/20 08:04:05.250 CET", date.toString(OsDateTypes::LOCAL).getChars());
    EXPECT_STREQ("2006/07/20 09:04:05.000 CES",
                 universal(2006, 7, 20, 7, 4, 5).toString(OsDateTypes::LOCAL).getChars());
}

TEST(LiDate, ComesBackFromItsTextToTheMillisecond)
{
    AtPlace const place(CENTRAL_EUROPE);
    for (double seconds : {0.0, 0.001, 5.25, 59.999}) {
        for (int month : {1, 7}) {
            LiDate const date = universal(2006, month, 20, 17, 4, seconds);
            EXPECT_EQ(date, LiDate(date.toString(OsDateTypes::UNIVERSAL)));
            EXPECT_EQ(date, LiDate(date.toString(OsDateTypes::LOCAL)));
        }
    }
    LiDate const present = LiDate::now();
    LiDate const read(present.toString(OsDateTypes::LOCAL));
    EXPECT_EQ(present.toString(OsDateTypes::UNIVERSAL), read.toString(OsDateTypes::UNIVERSAL));
    EXPECT_GE(present, read);
}

TEST(LiDate, TellsTheTwoHoursApartThatTheClockRepeats)
{
    AtPlace const place(CENTRAL_EUROPE);
    LiDate const first = universal(2006, 10, 29, 0, 30, 0);
    LiDate const second = universal(2006, 10, 29, 1, 30, 0);
    EXPECT_STREQ("2006/10/29 02:30:00.000 CES", first.toString(OsDateTypes::LOCAL).getChars());
    EXPECT_STREQ("2006/10/29 02:30:00.000 CET", second.toString(OsDateTypes::LOCAL).getChars());
    EXPECT_EQ(first, LiDate(first.toString(OsDateTypes::LOCAL)));
    EXPECT_EQ(second, LiDate(second.toString(OsDateTypes::LOCAL)));
}

TEST(LiDate, RefusesATextThatDoesNotFit)
{
    AtPlace const place(CENTRAL_EUROPE);
    for (char const *text :
         {"", "x", "2006/02/20", "2006/02/20 17:04:05", "2006/02/20 17:04:05.250",
          "2006/02/20 17:04:05.250 UTCX", "2006/02/20 17:04:05.250 XYZ",
          "2006/02/20 17:04:05.250 CES", "2006-02-20 17:04:05.250 UTC",
          "2006/02/30 17:04:05.250 UTC", "2006/13/20 17:04:05.250 UTC",
          "2006/02/20 24:04:05.250 UTC", "2006/02/20 17:60:05.250 UTC",
          "2006/02/20 17:04:60.250 UTC", "2006/2/20 17:04:05.250 UTC", "2006/02/20 17:04:05.25 UTC",
          " 2006/02/20 17:04:05.250 UTC", "2006/02/20 +7:04:05.250 UTC"})
        EXPECT_THROW(LiDate{LiString(text)}, OsDateEx::ExInvalidDate) << text;
}

TEST(LiDate, RefusesFieldsThatAreNoDateAndStaysWhatItWas)
{
    LiDate date = universal(2006, 2, 20, 17, 4, 5);
    LiDate const before(date);
    EXPECT_THROW(date.set(2006, 2, 29, 0, 0, 0, OsDateTypes::UNIVERSAL), OsDateEx::ExInvalidDate);
    EXPECT_EQ(before, date);
    EXPECT_THROW(universal(2006, 0, 1, 0, 0, 0), ExBase);
    date.set(2004, 2, 29, 0, 0, 0, OsDateTypes::UNIVERSAL);
    EXPECT_STREQ("2004/02/29 00:00:00.000 UTC", date.toString(OsDateTypes::UNIVERSAL).getChars());
}

TEST(LiDate, CountsInSeconds)
{
    LiDate date = universal(2006, 12, 31, 23, 59, 59.5);
    date += 0.75;
    EXPECT_STREQ("2007/01/01 00:00:00.250 UTC", date.toString(OsDateTypes::UNIVERSAL).getChars());
    date -= 86400.0;
    EXPECT_STREQ("2006/12/31 00:00:00.250 UTC", date.toString(OsDateTypes::UNIVERSAL).getChars());
}

TEST(LiDate, Compares)
{
    LiDate const early = universal(2006, 1, 1, 0, 0, 0);
    LiDate const late = universal(2006, 1, 1, 0, 0, 0.001);
    EXPECT_EQ(-1, LiDate::compare(early, late));
    EXPECT_EQ(1, LiDate::compare(late, early));
    EXPECT_EQ(0, LiDate::compare(late, late));
    EXPECT_TRUE(early < late && late > early && early != late && early == early);
}

TEST(LiDate, WritesAnyFormatByTheClockOfThePlace)
{
    AtPlace const place(CENTRAL_EUROPE);
    LiDate const date = universal(2006, 2, 20, 7, 4, 5);
    EXPECT_STREQ("20.02.2006 08h CET", date.toString("%d.%m.%Y %Hh %Z").getChars());
}

TEST(LiDate, AnEmptyOrTooLongResultFailsAnAssertion)
{
    for (std::string const &format : {std::string(), std::string(256, 'x')}) {
        try {
            LiDate().toString(format.c_str());
            FAIL() << "nothing thrown";
        } catch (AssertionFailed const &failure) {
            EXPECT_STREQ("::strftime( dateBuf, sizeof(dateBuf), format, &tm )",
                         failure.getExpression());
        }
    }
    EXPECT_EQ(255, LiDate().toString(std::string(255, 'x').c_str()).getLength());
}

TEST(LiDate, NowGoesOn)
{
    LiDate const before = LiDate::now();
    EXPECT_LT(LiDate(), before);
    EXPECT_LE(before, LiDate::now());
}

} // namespace
} // namespace Zv
