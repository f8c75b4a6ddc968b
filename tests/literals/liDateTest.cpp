#include "resmgt/literals/liDate.h"

#include "testing/childProcess.h"
#include "testing/environmentHeld.h"
#include "testing/failures.h"
#include "zvbase/assertions.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <limits>
#include <list>
#include <string>
#include <thread>

namespace {

/// Done at each call of `strftime`, which reads TZ.
std::function<void()> atFormatting;

} // namespace

// The linker leads the library's calls here.
extern "C" std::size_t __real_strftime(char *text, std::size_t size, char const *format,
                                       std::tm const *tm);
extern "C" std::size_t __wrap_strftime(char *text, std::size_t size, char const *format,
                                       std::tm const *tm)
{
    if (atFormatting)
        atFormatting();
    return __real_strftime(text, size, format, tm);
}

namespace ZvTest {

using namespace Zv;

namespace {

/// Another place for the length of a test.
class AtPlace
{
public:
    explicit AtPlace(char const *zone)
    {
        if (char const *former = std::getenv("TZ"))
            _former = former;
        setVariable("TZ", zone);
    }
    ~AtPlace() { setVariable("TZ", _former.empty() ? nullptr : _former.c_str()); }
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
    EXPECT_STREQ(LiDate().toString(OsDateTypes::UNIVERSAL).getChars(),
                 "1970/01/01 00:00:00.000 UTC");
    EXPECT_EQ(LiDate(), LiDate::getEpoch());
    EXPECT_EQ(LiDate(), LiDate(OsDateTypes::DateRep{}));
}

TEST(LiDate, WritesItsFields)
{
    LiDate const date = universal(2006, 2, 20, 7, 4, 5.25);
    EXPECT_STREQ(date.toString(OsDateTypes::UNIVERSAL).getChars(), "2006/02/20 07:04:05.250 UTC");
    AtPlace const place(CENTRAL_EUROPE);
    EXPECT_STREQ(date.toString(OsDateTypes::LOCAL).getChars(), "2006/02/20 08:04:05.250 CET");
    EXPECT_STREQ(universal(2006, 7, 20, 7, 4, 5).toString(OsDateTypes::LOCAL).getChars(),
                 "2006/07/20 09:04:05.000 CES");
}

TEST(LiDate, ReadsItsTextExactToTheMillisecond)
{
    AtPlace const place(CENTRAL_EUROPE);
    for (double seconds : {0.0, 0.001, 5.25, 59.999}) {
        for (int month : {1, 7}) {
            LiDate const date = universal(2006, month, 20, 17, 4, seconds);
            EXPECT_EQ(LiDate(date.toString(OsDateTypes::UNIVERSAL)), date);
            EXPECT_EQ(LiDate(date.toString(OsDateTypes::LOCAL)), date);
        }
    }
    LiDate const present = LiDate::now();
    LiDate const read(present.toString(OsDateTypes::LOCAL));
    EXPECT_EQ(present.toString(OsDateTypes::UNIVERSAL), read.toString(OsDateTypes::UNIVERSAL));
    EXPECT_GE(present, read);
}

TEST(LiDate, DistinguishesTheTwoHoursThatTheClockRepeats)
{
    AtPlace const place(CENTRAL_EUROPE);
    LiDate const first = universal(2006, 10, 29, 0, 30, 0);
    LiDate const second = universal(2006, 10, 29, 1, 30, 0);
    EXPECT_STREQ(first.toString(OsDateTypes::LOCAL).getChars(), "2006/10/29 02:30:00.000 CES");
    EXPECT_STREQ(second.toString(OsDateTypes::LOCAL).getChars(), "2006/10/29 02:30:00.000 CET");
    EXPECT_EQ(LiDate(first.toString(OsDateTypes::LOCAL)), first);
    EXPECT_EQ(LiDate(second.toString(OsDateTypes::LOCAL)), second);
}

/// Texts over a year, in steps of 25 minutes, that do not give their date again.
int countTextsThatAreReadAsAnotherDate(char const *zone)
{
    AtPlace const place(zone);
    int nb = 0;
    LiDate const end = universal(2027, 1, 1, 0, 0, 0);
    for (LiDate date = universal(2026, 1, 1, 0, 0, 0.123); date < end; date += 1500) {
        try {
            nb += LiDate(date.toString(OsDateTypes::LOCAL)) != date;
        } catch (OsDateEx::ExInvalidDate const &) {
            ++nb;
        }
    }
    return nb;
}

TEST(LiDate, ReadsItsLocalTextForEveryOffsetAndShiftOfTheZone)
{
    for (char const *zone :
         {"UTC0", CENTRAL_EUROPE, "GMT0BST,M3.5.0/1,M10.5.0", "IST-1GMT0,M10.5.0,M3.5.0/1",
          "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0", "<+00>0<+02>-2,M3.5.0/1,M10.5.0/3",
          "<+1245>-12:45<+1345>,M9.5.0/2:45,M4.1.0/3:45", "<-02>2<-01>,M3.5.0/-1,M10.5.0/0",
          "<+08>-8<+11>-11,M10.1.0,M3.1.0/3", "UTC-3", "UTC+11:30", "UTC-1UTCX-2,M3.5.0,M10.5.0"})
        EXPECT_EQ(countTextsThatAreReadAsAnotherDate(zone), 0) << zone;
}

TEST(LiDate, OfTwoTimesWithTheSameThreeLettersTheFirstCounts)
{
    AtPlace const place("ABCW1ABCS,M3.2.0,M11.1.0");
    LiDate const first = universal(2026, 11, 1, 1, 30, 0);
    LiDate const second = universal(2026, 11, 1, 2, 30, 0);
    ASSERT_EQ(first.toString(OsDateTypes::LOCAL), second.toString(OsDateTypes::LOCAL));
    EXPECT_EQ(LiDate(second.toString(OsDateTypes::LOCAL)), first);
}

TEST(LiDate, ATextInUniversalTimeIsReadAsSuchEvenIfTheZoneHasThatName)
{
    LiDate const date = universal(2026, 1, 1, 12, 0, 0);
    AtPlace const place("UTC-3");
    EXPECT_STREQ(date.toString(OsDateTypes::LOCAL).getChars(), "2026/01/01 15:00:00.000 +03");
    EXPECT_EQ(LiDate("2026/01/01 12:00:00.000 UTC"), date);
}

TEST(LiDate, UsesTheCurrentValueOfTZ)
{
    LiDate const date = universal(2026, 1, 1, 12, 0, 0);
    AtPlace const place("UTC0");
    EXPECT_STREQ(date.toString(OsDateTypes::LOCAL).getChars(), "2026/01/01 12:00:00.000 UTC");
    EnvVar::putEnv("TZ=JST-9");
    EXPECT_STREQ(date.toString(OsDateTypes::LOCAL).getChars(), "2026/01/01 21:00:00.000 JST");
    EXPECT_STREQ(date.toString("%H %Z").getChars(), "21 JST");
    EnvVar::putEnv("TZ=XYZ5");
    EXPECT_EQ(LiDate(2026, 1, 1, 7, 0, 0, OsDateTypes::LOCAL), date);
    EXPECT_EQ(LiDate("2026/01/01 07:00:00.000 XYZ"), date);
}

TEST(LiDate, WaitsForTheEnvironmentByLocalTime)
{
    EXPECT_TRUE(waitsForTheEnvironment([] { LiDate(2026, 1, 1, 12, 0, 0, OsDateTypes::LOCAL); }));
    EXPECT_TRUE(waitsForTheEnvironment([] { LiDate().toString(OsDateTypes::LOCAL); }));
    EXPECT_TRUE(waitsForTheEnvironment([] { LiDate().toString("%Z"); }));
    EXPECT_TRUE(waitsForTheEnvironment(
        [] { EXPECT_THROW(LiDate("2026/01/01 12:00:00.000 !!!"), OsDateEx::ExInvalidDate); }));
    EXPECT_FALSE(waitsForTheEnvironment([] { LiDate().toString(OsDateTypes::UNIVERSAL); }));
}

TEST(LiDate, LocksTheEnvironmentWhileItFormats)
{
    struct Probe
    {
        std::atomic<long> number = 0;
        std::atomic<bool> hasEntered = false;
        std::thread thread;
    };
    std::list<Probe> probes;
    int nbHeld = 0;
    atFormatting = [&] {
        Probe &probe = probes.emplace_back();
        probe.thread = std::thread([&probe] {
            probe.number = threadNumber();
            EnvVar::Guard const guard;
            probe.hasEntered = true;
        });
        bool isHeld = false;
        while (!isHeld && !probe.hasEntered) {
            std::this_thread::yield();
            isHeld = probe.number != 0 && isAsleep(probe.number) && !probe.hasEntered;
        }
        nbHeld += isHeld;
    };
    LiDate().toString("%Z");
    atFormatting = nullptr;
    for (Probe &probe : probes)
        probe.thread.join();
    EXPECT_EQ(nbHeld, 2) << "for the zone's name, and for the text";
}

TEST(LiDate, RefusesTextBehindTheZone)
{
    using namespace std::string_literals;
    for (std::string const &text :
         {"2006/02/20 17:04:05.250 UTC\n"s, "2006/02/20 17:04:05.250 UTC\nrubbish"s,
          "2006/02/20 17:04:05.250 UTC "s, "2006/02/20 17:04:05.250 UTC\0"s,
          "2006/02/20 17:04:05.250 UTC\0rubbish"s, "2006/02/20 17:04:05.250 UT\0"s})
        EXPECT_THROW(LiDate(LiString(text.data(), text.size())), OsDateEx::ExInvalidDate) << text;
}

TEST(LiDate, ADateBehindTheYear9999IsWrittenButNotRead)
{
    LiDate date = universal(9999, 12, 31, 23, 59, 59);
    EXPECT_EQ(LiDate(date.toString(OsDateTypes::UNIVERSAL)), date);
    date += 1;
    LiString const text = date.toString(OsDateTypes::UNIVERSAL);
    EXPECT_STREQ(text.getChars(), "10000/01/01 00:00:00.000 UTC");
    EXPECT_THROW(LiDate{text}, OsDateEx::ExInvalidDate);
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
    EXPECT_EQ(date, before);
    EXPECT_THROW(universal(2006, 0, 1, 0, 0, 0), ExBase);
    date.set(2004, 2, 29, 0, 0, 0, OsDateTypes::UNIVERSAL);
    EXPECT_STREQ(date.toString(OsDateTypes::UNIVERSAL).getChars(), "2004/02/29 00:00:00.000 UTC");
}

TEST(LiDate, CountsInSeconds)
{
    LiDate date = universal(2006, 12, 31, 23, 59, 59.5);
    date += 0.75;
    EXPECT_STREQ(date.toString(OsDateTypes::UNIVERSAL).getChars(), "2007/01/01 00:00:00.250 UTC");
    date -= 86400.0;
    EXPECT_STREQ(date.toString(OsDateTypes::UNIVERSAL).getChars(), "2006/12/31 00:00:00.250 UTC");
}

TEST(LiDate, CountsInDurationsToTheNearestMicrosecond)
{
    using namespace std::chrono_literals;
    LiDate date = universal(2006, 12, 31, 23, 59, 59.5);
    LiDate const start = date;
    EXPECT_EQ(&(date += 750ms), &date);
    EXPECT_STREQ(date.toString(OsDateTypes::UNIVERSAL).getChars(), "2007/01/01 00:00:00.250 UTC");
    date -= std::chrono::duration<double>(0.75);
    EXPECT_EQ(date, start);
    date += 1500ns;
    EXPECT_EQ(date.getRep().microseconds, start.getRep().microseconds + 2);
    date -= 1499ns;
    EXPECT_EQ(date.getRep().microseconds, start.getRep().microseconds + 1);
    date += -1us;
    EXPECT_EQ(date, start);
    // A double of as many seconds has no place for the last microsecond.
    auto const distance = 20'000'000'000s + 1us;
    date += distance;
    EXPECT_EQ(date.getRep().microseconds - start.getRep().microseconds, distance.count());
}

TEST(LiDate, StaysAtTheEndsOfTheRange)
{
    using namespace std::chrono_literals;
    using Limits = std::numeric_limits<std::int64_t>;
    LiDate date;
    date += std::chrono::hours::max();
    EXPECT_EQ(date.getRep().microseconds, Limits::max());
    date += 1s;
    EXPECT_EQ(date.getRep().microseconds, Limits::max());
    date -= std::chrono::hours::max();
    date -= std::chrono::hours::max();
    date -= 1h;
    EXPECT_EQ(date.getRep().microseconds, Limits::min());
    date += std::chrono::duration<double>(std::numeric_limits<double>::quiet_NaN());
    EXPECT_EQ(date.getRep().microseconds, Limits::min());
}

TEST(LiDate, EqualDatesHaveEqualHashes)
{
    LiDate const date = universal(2006, 1, 1, 0, 0, 0);
    LiDate other = universal(2006, 1, 1, 0, 0, 1);
    std::hash<LiDate> const hash;
    EXPECT_NE(hash(date), hash(other));
    other -= 1.0;
    EXPECT_EQ(date, other);
    EXPECT_EQ(hash(date), hash(other));
}

TEST(LiDate, Compares)
{
    LiDate const early = universal(2006, 1, 1, 0, 0, 0);
    LiDate const late = universal(2006, 1, 1, 0, 0, 0.001);
    EXPECT_EQ(LiDate::compare(early, late), -1);
    EXPECT_EQ(LiDate::compare(late, early), 1);
    EXPECT_EQ(LiDate::compare(late, late), 0);
    EXPECT_TRUE(early < late && late > early && early != late && early == early);
}

TEST(LiDate, WritesAnyFormatInLocalTime)
{
    AtPlace const place(CENTRAL_EUROPE);
    LiDate const date = universal(2006, 2, 20, 7, 4, 5);
    EXPECT_STREQ(date.toString("%d.%m.%Y %Hh %Z").getChars(), "20.02.2006 08h CET");
}

TEST(LiDate, AnEmptyOrTooLongResultFailsAnAssertion)
{
    for (std::string const &format : {std::string(), std::string(256, 'x')}) {
        EXPECT_EQ(failedAssertion([&] { LiDate().toString(format.c_str()); }),
                  "::strftime( dateBuf, sizeof(dateBuf), format, &tm )");
    }
    EXPECT_EQ(LiDate().toString(std::string(255, 'x').c_str()).getLength(), 255);
}

TEST(LiDate, NowAdvances)
{
    LiDate const before = LiDate::now();
    EXPECT_LT(LiDate(), before);
    EXPECT_LE(before, LiDate::now());
}

} // namespace
} // namespace ZvTest
