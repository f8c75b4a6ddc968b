#include "resmgt/syncEngine/seSourceClock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <sstream>

namespace Zv {

/// What the timer says of its resolution, where a test wants another than the real one.
static double pretendedResolution = 0;

} // namespace Zv

// The linker leads the library's calls of PeriodicTimer::getResolution here.
extern "C" double __real__ZN2Zv13PeriodicTimer13getResolutionEv();
extern "C" double __wrap__ZN2Zv13PeriodicTimer13getResolutionEv()
{
    return Zv::pretendedResolution > 0 ? Zv::pretendedResolution
                                       : __real__ZN2Zv13PeriodicTimer13getResolutionEv();
}

namespace Zv {
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
    EXPECT_EQ(&_clock, &SeSourceClock::getInstance());
    EXPECT_STREQ("Clock", _clock.getName());
}

TEST_F(SeSourceClockTest, BeatsEveryTenMilliseconds)
{
    EXPECT_EQ(0.01, SeSourceClock::DEF_WAIT_INTERVAL);
    EXPECT_EQ(std::max(0.01, PeriodicTimer::getResolution()), SeSourceClock::getDefaultInterval());
}

TEST_F(SeSourceClockTest, ACoarseTimerSetsTheDefault)
{
    pretendedResolution = 0.015625;
    EXPECT_EQ(0.015625, SeSourceClock::getDefaultInterval());
    pretendedResolution = 0.01;
    EXPECT_EQ(0.01, SeSourceClock::getDefaultInterval());
    pretendedResolution = 0.001;
    EXPECT_EQ(0.01, SeSourceClock::getDefaultInterval());
}

TEST_F(SeSourceClockTest, NoIntervalGoesBelowTheResolution)
{
    double const resolution = PeriodicTimer::getResolution();
    for (double interval :
         {0.0, -1.0, resolution, resolution / 2, std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_EQ(resolution, _clock.setInterval(interval)) << interval;
        EXPECT_EQ(resolution, _clock.getInterval()) << interval;
    }
    pretendedResolution = 0.25;
    EXPECT_EQ(0.25, _clock.setInterval(0.125));
    EXPECT_EQ(0.25, _clock.getInterval());
}

TEST_F(SeSourceClockTest, TheRateIsTheIntervalsReciprocal)
{
    _clock.setInterval(0.02);
    EXPECT_DOUBLE_EQ(50.0, _clock.getRate());
    SeSourceProtocol &source = _clock;
    _clock.setInterval(0.5);
    EXPECT_DOUBLE_EQ(2.0, source.getRate());
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
    EXPECT_EQ("Clock interval 3600 count 0", stream.str());
}

TEST_F(SeSourceClockTest, WritesNameIntervalAndCount)
{
    _clock.setInterval(3600.0);
    _clock.start();
    std::ostringstream stream;
    EXPECT_EQ(&stream, &_clock.dump(stream));
    EXPECT_EQ("Clock interval 3600 count 0", stream.str());
    std::ostringstream other;
    SeSourceProtocol &source = _clock;
    other << source;
    EXPECT_EQ(stream.str(), other.str());
}

} // namespace
} // namespace Zv
