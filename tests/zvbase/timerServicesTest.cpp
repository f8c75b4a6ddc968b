// Tests of timers and clocks with services that fail, and with a clock that the test sets.

#include "zvbase/failures.h"
#include "zvbase/logTestUtil.h"
#include "zvbase/periodicTimer.h"
#include "zvbase/services.h"
#include "zvbase/sleeper.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

TEST(SleeperServices, SecondsBecomeMilliseconds)
{
    Hooked hooked;
    std::vector<DWORD> slept;
    hooked->sleeps = [&](DWORD milliseconds) {
        slept.push_back(milliseconds);
        return true;
    };
    for (double seconds : {0.0, -3.0, 0.0004, 0.0005, 0.016, 1.0, 0.32f * 1.0})
        Sleeper::getInstance().sleep(seconds);
    EXPECT_EQ(slept, (std::vector<DWORD>{0, 0, 0, 1, 16, 1000, 320}));
}

TEST(SleeperServices, ALongSleepEnds)
{
    Hooked hooked;
    double slept = 0;
    hooked->sleeps = [&](DWORD milliseconds) {
        EXPECT_NE(milliseconds, INFINITE);
        slept += milliseconds / 1000.0;
        return true;
    };
    Sleeper::getInstance().sleep(1e7);
    EXPECT_NEAR(slept, 1e7, 0.01);
}

/// Fixture with a clock that the test sets, and with timers that expire at once.
class Grid : public testing::Test
{
protected:
    Grid()
    {
        LARGE_INTEGER frequency;
        ::QueryPerformanceFrequency(&frequency);
        _frequency = static_cast<double>(frequency.QuadPart);
        _hooked->readsClock = [this](LONGLONG &ticks) {
            ticks = _now;
            return true;
        };
    }

    void setTime(double seconds, LONGLONG offset = 0)
    {
        _now = START + static_cast<LONGLONG>(seconds * _frequency + 0.5) + offset;
    }

    static constexpr LONGLONG START = 1'000'000'000;

    Hooked _hooked;
    double _frequency = 0;
    LONGLONG _now = START;
};

TEST_F(Grid, TenHoursOfBeatsNoneEarlyNoneLost)
{
    ObjPtr<PeriodicTimer> timer(PeriodicTimer::create(0.01));
    for (unsigned long beat = 1; beat <= 3'600'000; beat += 7) {
        double const moment = static_cast<double>(beat) / 100;
        setTime(moment, -1);
        ASSERT_EQ(timer->getCurrentCount(), beat - 1);
        setTime(moment, 1);
        ASSERT_EQ(timer->getCurrentCount(), beat);
    }
}

TEST_F(Grid, ALateWaiterGetsTheLatestNumberAtOnceAndTheNextBeatInTime)
{
    ObjPtr<PeriodicTimer> timer(PeriodicTimer::create(0.01));
    setTime(0.0351);
    _hooked->beforeWait = [](HANDLE, DWORD) { FAIL() << "nothing to wait for"; };
    EXPECT_EQ(timer->wait(), 3U);
    EXPECT_NEAR(timer->getTimeToNextBeat(), 0.0049, 1e-9);
    _hooked->beforeWait = [this](HANDLE, DWORD) { setTime(0.0401); };
    EXPECT_EQ(timer->wait(), 4U);
}

TEST_F(Grid, ATimerThatFiresEarlyIsWaitedForAgain)
{
    ObjPtr<PeriodicTimer> timer(PeriodicTimer::create(0.01));
    int nbWaits = 0;
    _hooked->beforeWait = [&](HANDLE, DWORD) { setTime(++nbWaits < 3 ? 0.0099 : 0.01001); };
    EXPECT_EQ(timer->wait(), 1U);
    EXPECT_EQ(nbWaits, 3);
}

TEST_F(Grid, AChangedIntervalCountsFromTheChange)
{
    ObjPtr<PeriodicTimer> timer(PeriodicTimer::create(0.01));
    setTime(0.0251);
    EXPECT_EQ(timer->setInterval(0.1), 0.1);
    EXPECT_EQ(timer->getCurrentCount(), 2U);
    setTime(0.125);
    EXPECT_EQ(timer->getCurrentCount(), 2U);
    setTime(0.1252);
    EXPECT_EQ(timer->getCurrentCount(), 3U);
}

TEST_F(Grid, AChangeWhileItIsAwaitedMovesTheBeat)
{
    ObjPtr<PeriodicTimer> timer(PeriodicTimer::create(1000));
    int nbWaits = 0;
    _hooked->beforeWait = [&](HANDLE, DWORD) {
        if (nbWaits++ == 0)
            timer->setInterval(0.002); // sets the timer again, or this would wait for a long time
        else
            FAIL() << "the beat is due";
        setTime(0.0021);
    };
    EXPECT_EQ(timer->wait(), 1U);
}

TEST_F(Grid, ACountWrapsAroundAfter32Bits)
{
    ObjPtr<PeriodicTimer> timer(PeriodicTimer::create(0.001));
    setTime(4294967.2955);
    EXPECT_EQ(timer->getCurrentCount(), 4294967295U);
    setTime(4294967.2975);
    EXPECT_EQ(timer->getCurrentCount(), 1U);
}

TEST(TimerServices, AClockThatCannotBeReadLeavesNoTimerBehind)
{
    Hooked hooks;
    int nbTimers = 0;
    hooks->refusesToCreateTimer = [&] {
        ++nbTimers;
        return false;
    };
    hooks->refusesToClose = [&] {
        --nbTimers;
        return false;
    };
    hooks->readsClock = [](LONGLONG &) -> bool { throw std::runtime_error("no clock"); };
    EXPECT_THROW(ObjPtr<PeriodicTimer> const timer(PeriodicTimer::create(1.0)), std::runtime_error);
    EXPECT_EQ(nbTimers, 0);
}

TEST(TimerServices, ARefusalIsASystemAssertion)
{
    CapturedLog const log;
    Hooked hooked;
    hooked->refusesToCreateTimer = [] { return true; };
    EXPECT_THROW(static_cast<void>(PeriodicTimer::create(1)), AssertionFailed);
    hooked->refusesToCreateTimer = nullptr;

    ObjPtr<PeriodicTimer> timer(PeriodicTimer::create(1000));
    hooked->refusesToSetTimer = [] { return true; };
    EXPECT_THROW(timer->wait(), AssertionFailed);
    hooked->refusesToSetTimer = nullptr;

    hooked->refusesToClose = [] { return true; };
    EXPECT_THROW(timer.reset(), AssertionFailed);
    EXPECT_EQ(log.getTexts(),
              (std::vector<std::string>{
                  "Assertion \"_timer != 0\" failed, system error 8: There is not enough memory.\n",
                  "Assertion \"::SetWaitableTimer( _timer, &due, 0, nullptr, nullptr, FALSE )\" "
                  "failed, system error 87: A parameter is wrong.\n",
                  "Assertion \"::CloseHandle( _timer )\" failed, system error 6: The handle is "
                  "invalid.\n"}));
}

} // namespace
} // namespace ZvTest
