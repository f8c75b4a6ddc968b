#include "zvbase/dtTime.h"
#include "zvbase/failures.h"
#include "zvbase/logTestUtil.h"
#include "zvbase/periodicTimer.h"
#include "zvbase/rational.h"
#include "zvbase/sleeper.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <semaphore>
#include <sstream>
#include <thread>

namespace ZvTest {

using namespace Zv;

namespace {

constexpr std::int64_t LARGEST = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t SMALLEST = std::numeric_limits<std::int64_t>::min();

// ---- fractions

TEST(Rational, IsZeroByDefaultAndInLowestTerms)
{
    EXPECT_EQ(Rational(), Rational(0, 7));
    EXPECT_EQ(Rational().getDenominator(), 1);
    Rational value(2997, 100);
    EXPECT_EQ(value.getNumerator(), 2997);
    EXPECT_EQ(value.getDenominator(), 100);
    value.setValue(60000, 2002);
    EXPECT_EQ(value, Rational(30000, 1001));
    EXPECT_EQ(value.getNumerator(), 30000);
    EXPECT_DOUBLE_EQ(Rational(-1, 4).getDouble(), -0.25);
}

TEST(Rational, HasItsSignInTheNumerator)
{
    EXPECT_EQ(Rational(1, -2), Rational(-1, 2));
    EXPECT_EQ(Rational(-1, -2), Rational(1, 2));
    EXPECT_EQ(Rational(1, -2).getDenominator(), 2);
    EXPECT_EQ(Rational(0, -5).getNumerator(), 0);
}

TEST(Rational, ComparesExactly)
{
    EXPECT_LT(Rational(1, 3), Rational(1, 2));
    EXPECT_LT(Rational(-1, 2), Rational(-1, 3));
    EXPECT_LT(Rational(-1, 2), Rational());
    // As doubles these are equal.
    EXPECT_LT(Rational(LARGEST - 1, LARGEST), Rational(1, 1));
    EXPECT_LT(Rational(LARGEST - 2, LARGEST - 1), Rational(LARGEST - 1, LARGEST));
    EXPECT_LT(Rational(SMALLEST, 1), Rational(SMALLEST + 1, 1));
}

TEST(Rational, ReachesTheEndsOfItsRange)
{
    EXPECT_EQ(Rational(SMALLEST, SMALLEST), Rational(1, 1));
    EXPECT_EQ(Rational(SMALLEST, 2).getNumerator(), SMALLEST / 2);
    EXPECT_EQ(Rational(SMALLEST, -2).getNumerator(), -(SMALLEST / 2));
    EXPECT_EQ(Rational(SMALLEST, 1).getNumerator(), SMALLEST);
    EXPECT_EQ(Rational(2, SMALLEST), Rational(-1, -(SMALLEST / 2)));
}

TEST(Rational, RefusesWhatIsNoFraction)
{
    CapturedLog const log;
    Rational value(1, 2);
    EXPECT_THROW(value.setValue(1, 0), AssertionFailed);
    EXPECT_THROW(value.setValue(SMALLEST, -1), AssertionFailed);
    EXPECT_THROW(value.setValue(1, SMALLEST), AssertionFailed);
    EXPECT_EQ(value, Rational(1, 2));
    EXPECT_EQ(log.getTexts(), (std::vector<std::string>{"Assertion \"denominator != 0\" failed\n",
                                                        "Assertion \"fits\" failed\n",
                                                        "Assertion \"fits\" failed\n"}));
}

TEST(Rational, WritesItself)
{
    std::ostringstream stream;
    stream << Rational(-30000, 1001);
    EXPECT_EQ(stream.str(), "-30000/1001");
}

// ---- times

TEST(DtTime, IsZeroAtRateOneByDefault)
{
    DtTime const time;
    EXPECT_EQ(time.getCount(), 0);
    EXPECT_EQ(time.getRate(), Rational(1, 1));
    EXPECT_EQ(time.getSeconds(), 0.0);
    EXPECT_EQ(time, DtTime(0, Rational(48000, 1)));
}

TEST(DtTime, ComparesAcrossRates)
{
    EXPECT_EQ(DtTime(48000, Rational(48000, 1)), DtTime(25, Rational(25, 1)));
    EXPECT_LT(DtTime(24, Rational(25, 1)), DtTime(48000, Rational(48000, 1)));
    EXPECT_LT(DtTime(-1, Rational(25, 1)), DtTime());
    EXPECT_LT(DtTime(-2, Rational(3, 1)), DtTime(-1, Rational(3, 1)));
    EXPECT_EQ(DtTime(30000, Rational(30000, 1001)), DtTime(1001, Rational(1, 1)));
    EXPECT_DOUBLE_EQ(DtTime(30000, Rational(30000, 1001)).getSeconds(), 1001.0);
}

TEST(DtTime, ComparesExactlyAtTheEndsOfItsRange)
{
    DtTime const huge(LARGEST, Rational(1, LARGEST));
    EXPECT_LT(DtTime(LARGEST - 1, Rational(1, LARGEST)), huge);
    EXPECT_LT(DtTime(SMALLEST, Rational(1, LARGEST)), DtTime(SMALLEST + 1, Rational(1, LARGEST)));
    EXPECT_LT(DtTime(1, Rational(LARGEST, 1)), DtTime(1, Rational(LARGEST - 1, 1)));
    EXPECT_LT(DtTime(LARGEST - 1, Rational(LARGEST, 1)), DtTime(1, Rational(1, 1)));
    EXPECT_EQ(DtTime(LARGEST, Rational(LARGEST, 1)), DtTime(1, Rational(1, 1)));
}

TEST(DtTime, RefusesAnInvalidRate)
{
    CapturedLog const log;
    EXPECT_THROW(DtTime(1, Rational()), AssertionFailed);
    EXPECT_THROW(DtTime(1, Rational(-1, 1)), AssertionFailed);
    EXPECT_EQ(log.getTexts().at(0), "Assertion \"rate > Rational()\" failed\n");
}

TEST(DtTimeMark, IsAValue)
{
    DtTimeMark const none;
    EXPECT_EQ(none, DtTimeMark(DtTime(0, Rational(25, 1)), 0));
    DtTimeMark const mark(DtTime(5, Rational(25, 1)), 12.5);
    DtTimeMark const copy = mark;
    EXPECT_EQ(copy, mark);
    EXPECT_NE(mark, none);
    EXPECT_NE(mark, DtTimeMark(mark.getPosition(), 13));
    EXPECT_EQ(copy.getReference(), 12.5);
    std::ostringstream stream;
    stream << mark;
    EXPECT_EQ(stream.str(), "5 at 25/1, at 12.5");
}

// ---- the clock

TEST(Sleeper, IsMonotonic)
{
    Sleeper &sleeper = Sleeper::getInstance();
    EXPECT_EQ(&Sleeper::getInstance(), &sleeper);
    double last = sleeper.getTime();
    for (int i = 0; i < 1000; ++i) {
        double const now = sleeper.getTime();
        EXPECT_GE(now, last);
        last = now;
    }
    EXPECT_GT(sleeper.getResolution(), 0.0);
    EXPECT_LE(sleeper.getResolution(), 1e-6);
}

TEST(Sleeper, SleepsAtLeastTheGivenTime)
{
    Sleeper &sleeper = Sleeper::getInstance();
    double const before = sleeper.getTime();
    sleeper.sleep(0.01);
    EXPECT_GE(sleeper.getTime() - before, 0.0099);
}

TEST(Sleeper, DoesNotSleepForNothing)
{
    // These calls return. A duration that wrapped around would not.
    for (double seconds : {0.0, -1.0, -1e300, std::nan("")})
        Sleeper::getInstance().sleep(seconds);
}

// ---- beats

TEST(PeriodicTimer, ClampsItsIntervalToTheResolution)
{
    double const finest = PeriodicTimer::getResolution();
    ObjPtr<PeriodicTimer> timer(PeriodicTimer::create(0.25));
    EXPECT_EQ(timer->getInterval(), 0.25);
    for (double interval : {0.0, -1.0, finest / 2, std::nan("")}) {
        EXPECT_EQ(timer->setInterval(interval), finest);
        EXPECT_EQ(timer->getInterval(), finest);
        EXPECT_EQ(ObjPtr<PeriodicTimer>(PeriodicTimer::create(interval))->getInterval(), finest);
    }
    EXPECT_EQ(timer->setInterval(2), 2.0);
}

TEST(PeriodicTimer, TheFirstBeatIsNumberOneAndOneIntervalLater)
{
    double const before = Sleeper::getInstance().getTime();
    ObjPtr<PeriodicTimer> timer(PeriodicTimer::create(0.02));
    EXPECT_GE(timer->wait(), 1U);
    EXPECT_GE(Sleeper::getInstance().getTime() - before, 0.02);
}

TEST(PeriodicTimer, NoBeatIsEarlyAndNoneIsLostInTheCount)
{
    constexpr double INTERVAL = 0.002;
    double const before = Sleeper::getInstance().getTime();
    ObjPtr<PeriodicTimer> timer(PeriodicTimer::create(INTERVAL));
    double const after = Sleeper::getInstance().getTime();
    unsigned long last = 0;
    for (int i = 0; i < 50; ++i) {
        unsigned long const count = timer->wait();
        double const now = Sleeper::getInstance().getTime();
        EXPECT_GT(count, last);
        last = count;
        EXPECT_GE(now - before, static_cast<double>(count) * INTERVAL * (1 - 1e-12));
    }
    double const elapsed = Sleeper::getInstance().getTime() - after;
    EXPECT_GE(static_cast<double>(timer->getCurrentCount() + 1) * INTERVAL, elapsed);
}

TEST(PeriodicTimer, BeatsWithoutAWaiterAreCounted)
{
    ObjPtr<PeriodicTimer> timer(PeriodicTimer::create(0.001));
    while (timer->getCurrentCount() < 5)
        std::this_thread::yield();
    EXPECT_GE(timer->wait(), 5U);
}

TEST(PeriodicTimer, ResetBeginsAnew)
{
    ObjPtr<PeriodicTimer> timer(PeriodicTimer::create(0.001));
    while (timer->getCurrentCount() < 3)
        std::this_thread::yield();
    timer->setInterval(1000);
    EXPECT_GE(timer->getCurrentCount(), 3U);
    timer->reset();
    EXPECT_EQ(timer->getCurrentCount(), 0U);
    EXPECT_GT(timer->getTimeToNextBeat(), 900.0);
    timer->setInterval(0.001);
    EXPECT_GE(timer->wait(), 1U);
}

TEST(PeriodicTimer, ANewIntervalBeginsNowAndTheCountContinues)
{
    ObjPtr<PeriodicTimer> timer(PeriodicTimer::create(0.001));
    unsigned long const count = timer->wait();
    timer->setInterval(1000);
    unsigned long const atChange = timer->getCurrentCount();
    EXPECT_GE(atChange, count);
    EXPECT_GT(timer->getTimeToNextBeat(), 900.0);
    EXPECT_LE(timer->getTimeToNextBeat(), 1000.0);
    EXPECT_EQ(timer->getCurrentCount(), atChange);
}

TEST(PeriodicTimer, AnotherThreadShortensAWaitThatIsUnderWay)
{
    ObjPtr<PeriodicTimer> timer(PeriodicTimer::create(1e6));
    std::binary_semaphore begun(0);
    unsigned long count = 0;
    std::thread waiter([&] {
        begun.release();
        count = timer->wait();
    });
    begun.acquire();
    timer->setInterval(1e5);
    timer->reset();
    timer->setInterval(0.001);
    waiter.join();
    EXPECT_GE(count, 1U);
}

TEST(PeriodicTimer, ServesIntervalsBeyondAnyTimersRange)
{
    ObjPtr<PeriodicTimer> timer(PeriodicTimer::create(std::numeric_limits<double>::infinity()));
    EXPECT_EQ(timer->getCurrentCount(), 0U);
    std::thread waiter([&] { EXPECT_GE(timer->wait(), 1U); });
    timer->setInterval(0.001);
    waiter.join();
}

} // namespace
} // namespace ZvTest
