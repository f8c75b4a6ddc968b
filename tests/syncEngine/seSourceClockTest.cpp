#include "resmgt/syncEngine/seSourceProtocol.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <sstream>

namespace ZvTest {

using namespace Zv;

/// The resolution that the timer reports, if a test needs another one than the real one.
static double pretendedResolution = 0;

} // namespace ZvTest

// The linker redirects the library's calls of PeriodicTimer::getResolution to this function.
extern "C" double __real__ZN2Zv13PeriodicTimer13getResolutionEv();
extern "C" double __wrap__ZN2Zv13PeriodicTimer13getResolutionEv()
{
    return ZvTest::pretendedResolution > 0 ? ZvTest::pretendedResolution
                                           : __real__ZN2Zv13PeriodicTimer13getResolutionEv();
}

namespace ZvTest {
namespace {

class SeSourceClockTest : public testing::Test
{
protected:
    ~SeSourceClockTest() override
    {
        pretendedResolution = 0;
        _clock.setInterval(SeSourceClock::getDefaultInterval());
    }

    SeSourceClock &_clock = SeSourceClock::getInstance();
};

TEST_F(SeSourceClockTest, IsOneForTheProcess)
{
    EXPECT_EQ(&SeSourceClock::getInstance(), &_clock);
    EXPECT_STREQ(_clock.getName(), "Clock");
}

TEST_F(SeSourceClockTest, BeatsEveryTenMilliseconds)
{
    EXPECT_EQ(SeSourceClock::DEF_WAIT_INTERVAL, 0.01);
    EXPECT_EQ(SeSourceClock::getDefaultInterval(), std::max(0.01, PeriodicTimer::getResolution()));
}

TEST_F(SeSourceClockTest, ACoarseTimerSetsTheDefault)
{
    pretendedResolution = 0.015625;
    EXPECT_EQ(SeSourceClock::getDefaultInterval(), 0.015625);
    pretendedResolution = 0.01;
    EXPECT_EQ(SeSourceClock::getDefaultInterval(), 0.01);
    pretendedResolution = 0.001;
    EXPECT_EQ(SeSourceClock::getDefaultInterval(), 0.01);
}

TEST_F(SeSourceClockTest, NoIntervalIsBelowTheResolution)
{
    double const resolution = PeriodicTimer::getResolution();
    for (double interval :
         {0.0, -1.0, resolution, resolution / 2, std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_EQ(_clock.setInterval(interval), resolution) << interval;
        EXPECT_EQ(_clock.getInterval(), resolution) << interval;
    }
    pretendedResolution = 0.25;
    EXPECT_EQ(_clock.setInterval(0.125), 0.25);
    EXPECT_EQ(_clock.getInterval(), 0.25);
}

TEST_F(SeSourceClockTest, IntervalCanBeADuration)
{
    std::chrono::duration<double> const inForce =
        _clock.setInterval(std::chrono::milliseconds(500));
    EXPECT_EQ(inForce.count(), 0.5);
    EXPECT_EQ(_clock.getInterval(), 0.5);
    EXPECT_EQ(_clock.setInterval(std::chrono::nanoseconds(0)).count(),
              PeriodicTimer::getResolution());
}

TEST_F(SeSourceClockTest, TheRateIsTheIntervalsReciprocal)
{
    _clock.setInterval(0.02);
    EXPECT_DOUBLE_EQ(_clock.getRate(), 50.0);
    SeSourceProtocol &source = _clock;
    _clock.setInterval(0.5);
    EXPECT_DOUBLE_EQ(source.getRate(), 2.0);
}

TEST_F(SeSourceClockTest, CountsItsBeats)
{
    _clock.setInterval(0.0);
    _clock.start();
    std::uint32_t former = 0;
    for (int i = 0; i < 5; ++i) {
        std::uint32_t const count = _clock.waitSync();
        EXPECT_GT(count, former);
        former = count;
    }
    _clock.stop();
    _clock.start(); // serves another generator
    EXPECT_GE(_clock.waitSync(), 1U);
    _clock.stop();
}

TEST_F(SeSourceClockTest, BeginsToCountAnewWhenItIsStopped)
{
    _clock.setInterval(0.0);
    _clock.start();
    ASSERT_GE(_clock.waitSync(), 1U);
    _clock.setInterval(3600.0);
    _clock.stop();
    std::ostringstream stream;
    _clock.dump(stream);
    EXPECT_EQ(stream.str(), "Clock interval 3600 count 0");
}

TEST_F(SeSourceClockTest, WritesNameIntervalAndCount)
{
    _clock.setInterval(3600.0);
    _clock.start();
    std::ostringstream stream;
    EXPECT_EQ(&_clock.dump(stream), &stream);
    EXPECT_EQ(stream.str(), "Clock interval 3600 count 0");
    std::ostringstream other;
    SeSourceProtocol &source = _clock;
    other << source;
    EXPECT_EQ(stream.str(), other.str());
}

} // namespace
} // namespace ZvTest
