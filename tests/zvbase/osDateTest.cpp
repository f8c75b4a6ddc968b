#include "zvbase/osDate.h"

#include "testing/childProcess.h"
#include "testing/environmentHeld.h"
#include "zvbase/envVar.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <limits>
#include <string>
#include <thread>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

using Types = OsDateTypes;

/// Sets the time zone of the process during its lifetime.
class At
{
public:
    explicit At(char const *zone) { EnvVar::putEnv((std::string("TZ=") + zone).c_str()); }
    ~At() { setVariable("TZ", nullptr); }
};

// Complete rules, so that no list of zones has to be installed.
constexpr char BERLIN[] = "CET-1CEST,M3.5.0,M10.5.0/3";

std::int64_t toSeconds(int year, int month, int day, int hour, int minute, double seconds,
                       Types::TimeMode mode = Types::UNIVERSAL)
{
    Types::DateRep date;
    EXPECT_TRUE(OsDateUtil::makeTime(date, year, month, day, hour, minute, seconds, mode));
    return date.microseconds / 1'000'000;
}

bool isDate(int year, int month, int day, int hour = 0, int minute = 0, double seconds = 0,
            Types::TimeMode mode = Types::UNIVERSAL)
{
    Types::DateRep date = {42};
    bool const made = OsDateUtil::makeTime(date, year, month, day, hour, minute, seconds, mode);
    EXPECT_TRUE(made || date.microseconds == 42) << "a failure leaves the date alone";
    return made;
}

TEST(OsDate, CountsFrom1970)
{
    EXPECT_EQ(toSeconds(1970, 1, 1, 0, 0, 0), 0);
    EXPECT_EQ(toSeconds(2000, 3, 1, 0, 0, 0), 951868800);
    EXPECT_EQ(toSeconds(2006, 2, 20, 12, 30, 15), 1140438615);
    EXPECT_EQ(toSeconds(1969, 12, 31, 23, 59, 59), -1);
    EXPECT_EQ(toSeconds(0, 1, 1, 0, 0, 0), -62167219200);
    EXPECT_EQ(toSeconds(9999, 12, 31, 23, 59, 59), 253402300799);
}

TEST(OsDate, KeepsFractionsOfASecond)
{
    Types::DateRep date;
    ASSERT_TRUE(OsDateUtil::makeTime(date, 1970, 1, 1, 0, 0, 12.345678, Types::UNIVERSAL));
    EXPECT_EQ(date.microseconds, 12345678);
    for (int millisecond = 0; millisecond < 1000; ++millisecond) {
        ASSERT_TRUE(OsDateUtil::makeTime(date, 2006, 2, 20, 1, 2, 59 + millisecond / 1000.0,
                                         Types::UNIVERSAL));
        EXPECT_EQ(OsDateUtil::convertToDateStruct(date, Types::UNIVERSAL).milliseconds,
                  millisecond);
    }
}

TEST(OsDate, RefusesWhatIsNoDate)
{
    EXPECT_FALSE(isDate(2006, 0, 1));
    EXPECT_FALSE(isDate(2006, 13, 1));
    EXPECT_FALSE(isDate(2006, 1, 0));
    EXPECT_FALSE(isDate(2006, 1, 32));
    EXPECT_FALSE(isDate(2006, 4, 31));
    EXPECT_FALSE(isDate(2006, 12, 32));
    EXPECT_FALSE(isDate(-1, 1, 1));
    EXPECT_FALSE(isDate(10000, 1, 1));
    EXPECT_FALSE(isDate(2006, 1, 1, 24));
    EXPECT_FALSE(isDate(2006, 1, 1, -1));
    EXPECT_FALSE(isDate(2006, 1, 1, 0, 60));
    EXPECT_FALSE(isDate(2006, 1, 1, 0, -1));
    EXPECT_FALSE(isDate(2006, 1, 1, 0, 0, 60));
    EXPECT_FALSE(isDate(2006, 1, 1, 0, 0, -0.001));
    EXPECT_FALSE(isDate(2006, 1, 1, 0, 0, std::numeric_limits<double>::quiet_NaN()));
    EXPECT_TRUE(isDate(2006, 12, 31, 23, 59, 59.999));
}

TEST(OsDate, KnowsLeapYears)
{
    EXPECT_TRUE(isDate(2004, 2, 29));
    EXPECT_TRUE(isDate(2000, 2, 29));
    EXPECT_FALSE(isDate(1900, 2, 29));
    EXPECT_FALSE(isDate(2006, 2, 29));
    EXPECT_FALSE(isDate(2004, 2, 30));
}

TEST(OsDate, LocalTimeGoesOnAfter2038)
{
    At const berlin(BERLIN);
    std::int64_t const seconds = toSeconds(2050, 7, 1, 10, 0, 0);
    EXPECT_EQ(toSeconds(2050, 7, 1, 12, 0, 0, Types::LOCAL), seconds);
    Types::DateStruct const date =
        OsDateUtil::convertToDateStruct({seconds * 1'000'000}, Types::LOCAL);
    EXPECT_EQ(date.tm.tm_year, 150);
    EXPECT_EQ(date.tm.tm_hour, 12);
}

// The first day that the standard library supports.
#ifdef _WIN32
constexpr std::int64_t EARLIEST = 0;
#else
constexpr std::int64_t EARLIEST = -200'000;
#endif

TEST(OsDate, AgreesWithTheStandardLibraryOnEveryDay)
{
    for (std::int64_t day = EARLIEST; day < 200'000; day += 17) {
        std::time_t const seconds = day * 86'400 + 45'296;
        std::tm const * const known = std::gmtime(&seconds);
        ASSERT_NE(known, nullptr);
        std::tm const expected = *known;
        Types::DateStruct const date =
            OsDateUtil::convertToDateStruct({seconds * 1'000'000 + 5000}, Types::UNIVERSAL);
        ASSERT_EQ(date.tm.tm_year, expected.tm_year) << day;
        ASSERT_EQ(date.tm.tm_mon, expected.tm_mon) << day;
        ASSERT_EQ(date.tm.tm_mday, expected.tm_mday) << day;
        ASSERT_EQ(date.tm.tm_hour, expected.tm_hour);
        ASSERT_EQ(date.tm.tm_min, expected.tm_min);
        ASSERT_EQ(date.tm.tm_sec, expected.tm_sec);
        ASSERT_EQ(date.tm.tm_wday, expected.tm_wday) << day;
        ASSERT_EQ(date.tm.tm_yday, expected.tm_yday) << day;
        ASSERT_EQ(date.milliseconds, 5);
        ASSERT_STREQ(date.zone, "UTC");
        ASSERT_EQ(
            toSeconds(date.tm.tm_year + 1900, date.tm.tm_mon + 1, date.tm.tm_mday, 12, 34, 56),
            seconds);
    }
}

TEST(OsDate, LocalTimeIsThatOfTheZone)
{
    At const place(BERLIN);
    EXPECT_EQ(toSeconds(2006, 2, 20, 13, 0, 0, Types::LOCAL), toSeconds(2006, 2, 20, 12, 0, 0));
    EXPECT_EQ(toSeconds(2006, 7, 20, 14, 0, 0, Types::LOCAL), toSeconds(2006, 7, 20, 12, 0, 0));
    Types::DateRep date = {toSeconds(2006, 7, 20, 22, 30, 5) * 1'000'000};
    Types::DateStruct const local = OsDateUtil::convertToDateStruct(date, Types::LOCAL);
    EXPECT_EQ(local.tm.tm_mday, 21);
    EXPECT_EQ(local.tm.tm_hour, 0);
    EXPECT_EQ(local.tm.tm_min, 30);
    EXPECT_STREQ(local.zone, "CEST");
    date = {toSeconds(2006, 1, 20, 22, 30, 5) * 1'000'000};
    EXPECT_STREQ(OsDateUtil::convertToDateStruct(date, Types::LOCAL).zone, "CET");
    EXPECT_STREQ(OsDateUtil::convertToDateStruct(date, Types::UNIVERSAL).zone, "UTC");
}

TEST(OsDate, RefusesASkippedLocalHour)
{
    At const place(BERLIN);
    EXPECT_TRUE(isDate(2006, 3, 26, 1, 59, 59, Types::LOCAL));
    EXPECT_FALSE(isDate(2006, 3, 26, 2, 30, 0, Types::LOCAL));
    EXPECT_TRUE(isDate(2006, 3, 26, 3, 0, 0, Types::LOCAL));
    EXPECT_TRUE(isDate(2006, 3, 26, 2, 30, 0, Types::UNIVERSAL));
    EXPECT_TRUE(isDate(2006, 10, 29, 2, 30, 0, Types::LOCAL)) << "this one comes twice";
}

TEST(OsDate, OfARepeatedLocalHourTheFirstCounts)
{
    At const place(BERLIN);
    std::int64_t const first = toSeconds(2006, 10, 29, 0, 30, 0);
    toSeconds(2006, 1, 1, 12, 0, 0, Types::LOCAL);
    EXPECT_EQ(toSeconds(2006, 10, 29, 2, 30, 0, Types::LOCAL), first);
    toSeconds(2006, 7, 1, 12, 0, 0, Types::LOCAL);
    EXPECT_EQ(toSeconds(2006, 10, 29, 2, 30, 0, Types::LOCAL), first);
}

TEST(OsDate, ATimeThatTheClockRepeatsHasTwoMomentsForEveryShift)
{
    struct Place
    {
        char const *zone;
        int day, hour, minute; // of April 2006, which local clocks show twice
        std::int64_t first;
        std::int64_t shift;
    };
    for (Place const &place :
         {Place{"LHST-10:30LHDT-11,M10.1.0,M4.1.0", 2, 1, 45, toSeconds(2006, 4, 1, 14, 45, 0),
                1800},
          Place{"<+00>0<+02>-2,M10.1.0,M4.1.0/3", 2, 2, 0, toSeconds(2006, 4, 2, 0, 0, 0), 7200},
          Place{"AAA-8BBB-11,M10.1.0,M4.1.0/3", 2, 0, 30, toSeconds(2006, 4, 1, 13, 30, 0), 10800},
          Place{"AAA-1BBB-2,J100/2,J101/2", 11, 1, 30, toSeconds(2006, 4, 10, 23, 30, 0), 3600},
          Place{"AAA4BBB3:40,M10.1.0,M4.1.0/1", 2, 0, 50, toSeconds(2006, 4, 2, 4, 30, 0), 1200}}) {
        At const there(place.zone);
        auto const find = [&place](int repetition) {
            Types::DateRep date;
            return OsDateUtil::makeTime(date, 2006, 4, place.day, place.hour, place.minute, 0,
                                        Types::LOCAL, repetition)
                       ? date.microseconds / 1'000'000
                       : -1;
        };
        EXPECT_EQ(find(0), place.first) << place.zone;
        EXPECT_EQ(find(1), place.first + place.shift) << place.zone;
        EXPECT_EQ(find(2), -1) << place.zone;
        EXPECT_EQ(find(-1), -1) << place.zone;
    }
    Types::DateRep date;
    EXPECT_FALSE(OsDateUtil::makeTime(date, 2006, 4, 2, 1, 45, 0, Types::UNIVERSAL, 1));
}

TEST(OsDate, UsesTheCurrentValueOfTZ)
{
    Types::DateRep const date = {toSeconds(2006, 1, 1, 12, 0, 0) * 1'000'000};
    for (int turn = 0; turn < 2; ++turn) {
        At const japan("JST-9");
        EXPECT_EQ(OsDateUtil::convertToDateStruct(date, Types::LOCAL).tm.tm_hour, 21);
        EnvVar::putEnv("TZ=XYZ5");
        EXPECT_EQ(toSeconds(2006, 1, 1, 7, 0, 0, Types::LOCAL), date.microseconds / 1'000'000);
        EnvVar::putEnv("TZ=JST-9");
        EXPECT_STREQ(OsDateUtil::convertToDateStruct(date, Types::LOCAL).zone, "JST");
    }
}

TEST(OsDate, AZoneWithTheNameOfUniversalTimeIsNamedByItsOffset)
{
    auto const zoneAt = [](char const *zone) {
        At const there(zone);
        return std::string(OsDateUtil::convertToDateStruct({}, Types::LOCAL).zone);
    };
    EXPECT_EQ(zoneAt("UTC0"), "UTC");
    EXPECT_EQ(zoneAt("UTC-3"), "+03");
    EXPECT_EQ(zoneAt("UTC11"), "-11");
    EXPECT_EQ(zoneAt("UTCX-5:30"), "+0530");
    EXPECT_EQ(zoneAt("UTD-3"), "UTD");
}

TEST(OsDate, WaitsForTheEnvironmentByLocalTimeOnly)
{
    auto const make = [](Types::TimeMode mode) {
        return [mode] { isDate(2006, 7, 1, 12, 0, 0, mode); };
    };
    auto const takeApart = [](Types::TimeMode mode) {
        return [mode] { OsDateUtil::convertToDateStruct({}, mode); };
    };
    EXPECT_TRUE(waitsForTheEnvironment(make(Types::LOCAL)));
    EXPECT_TRUE(waitsForTheEnvironment(takeApart(Types::LOCAL)));
    EXPECT_FALSE(waitsForTheEnvironment(make(Types::UNIVERSAL)));
    EXPECT_FALSE(waitsForTheEnvironment(takeApart(Types::UNIVERSAL)));
}

TEST(OsDate, MillisecondsBefore1970AreCutDownwards)
{
    Types::DateStruct const date = OsDateUtil::convertToDateStruct({-1}, Types::UNIVERSAL);
    EXPECT_EQ(date.tm.tm_sec, 59);
    EXPECT_EQ(date.milliseconds, 999);
    EXPECT_EQ(date.tm.tm_year, 69);
}

TEST(OsDate, AddsSecondsAndStaysInRange)
{
    using Limits = std::numeric_limits<std::int64_t>;
    EXPECT_EQ(OsDateUtil::add({5}, 1.5).microseconds, 1'500'005);
    EXPECT_EQ(OsDateUtil::add({5}, -1.5).microseconds, -1'499'995);
    EXPECT_EQ(OsDateUtil::add({5}, 0.0000004).microseconds, 5);
    EXPECT_EQ(OsDateUtil::add({5}, 1e300).microseconds, Limits::max());
    EXPECT_EQ(OsDateUtil::add({5}, -1e300).microseconds, Limits::min());
    EXPECT_EQ(OsDateUtil::add({Limits::max()}, 1).microseconds, Limits::max());
    EXPECT_EQ(OsDateUtil::add({Limits::min()}, -1).microseconds, Limits::min());
    EXPECT_EQ(OsDateUtil::add({5}, std::numeric_limits<double>::quiet_NaN()).microseconds, 5);
}

TEST(OsDate, DatesCompare)
{
    EXPECT_LT(Types::DateRep{1}, Types::DateRep{2});
    EXPECT_EQ(Types::DateRep{}, Types::DateRep{0});
}

TEST(OsDate, NowIsBetweenTwoReadingsOfTheSystemsClock)
{
    std::time_t const before = std::time(nullptr);
    std::int64_t const now = OsDateUtil::now().microseconds;
    std::time_t const after = std::time(nullptr);
    // The coarse clock may lag behind by a tick.
    EXPECT_GE(now, before * 1'000'000LL);
    EXPECT_LT(now, (after + 2) * 1'000'000LL);
}

TEST(OsDate, AnyThreadTakesDatesApart)
{
    At const place(BERLIN);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([i] {
            for (std::int64_t day = i; day < 2000; day += 4) {
                Types::DateRep const date = {day * 86'400'000'000};
                Types::DateStruct const local = OsDateUtil::convertToDateStruct(date, Types::LOCAL);
                EXPECT_EQ(toSeconds(local.tm.tm_year + 1900, local.tm.tm_mon + 1, local.tm.tm_mday,
                                    local.tm.tm_hour, 0, 0, Types::LOCAL),
                          day * 86'400);
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
}

TEST(OsDateEx, AnInvalidDateHasItsText)
{
    OsDateEx::ExInvalidDate const failure("a.cpp", 3);
    EXPECT_STREQ(failure.getReason(), "Invalid date.");
    EXPECT_STREQ(failure.what(), "Invalid date.");
    EXPECT_STREQ(failure.getDetailedReason(), "a.cpp(3): Invalid date.");
    auto const fail = [] { throw OsDateEx::ExInvalidDate("a.cpp", 3); };
    EXPECT_THROW(fail(), std::invalid_argument);
    EXPECT_THROW(fail(), OsDateEx);
    EXPECT_THROW(fail(), ExBase);
    ExBase * const clone = failure.clone();
    EXPECT_STREQ(clone->getReason(), "Invalid date.");
    delete clone;
}

} // namespace
} // namespace ZvTest
