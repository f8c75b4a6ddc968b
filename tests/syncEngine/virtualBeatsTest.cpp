// Hours of beats on a clock that moves as soon as a thread waits.

#include "resmgt/syncEngine/seSourceProtocol.h"
#include "testing/nanosecondClock.h"
#include "zvbase/periodicTimer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>

namespace ZvTest {

using namespace Zv;

namespace {

/// The clock of the calling thread in nanoseconds. A wait takes as long as the timer was set to,
/// unless the test changes that.
class VirtualClock
{
public:
    VirtualClock() { current = this; }
    ~VirtualClock() { current = nullptr; }
    VirtualClock(VirtualClock const &) = delete;
    VirtualClock &operator=(VirtualClock const &) = delete;

    static thread_local VirtualClock *current;

    LONGLONG now = START;
    LONGLONG due = 0;
    int nbWaits = 0;
    std::function<LONGLONG(LONGLONG)> sleep = [](LONGLONG duration) { return duration; };

    static constexpr LONGLONG START = 12'345'678'901;
};

thread_local VirtualClock *VirtualClock::current = nullptr;

} // namespace
} // namespace ZvTest

using ZvTest::VirtualClock;

BOOL wrapReadClock(LARGE_INTEGER *now)
{
    now->QuadPart = VirtualClock::current ? VirtualClock::current->now : ZvTest::readRealClock();
    return TRUE;
}

BOOL realSetTimer(HANDLE, LARGE_INTEGER const *, LONG, void *, void *, BOOL)
    ZV_REAL("_ZN10ZvPlatform16SetWaitableTimerEPvPKNS_13LARGE_INTEGEREiS0_S0_i");
BOOL wrapSetTimer(HANDLE, LARGE_INTEGER const *, LONG, void *, void *, BOOL)
    ZV_WRAP("_ZN10ZvPlatform16SetWaitableTimerEPvPKNS_13LARGE_INTEGEREiS0_S0_i");
BOOL wrapSetTimer(HANDLE timer, LARGE_INTEGER const *dueTime, LONG period, void *routine,
                  void *argument, BOOL resume)
{
    if (!VirtualClock::current)
        return realSetTimer(timer, dueTime, period, routine, argument, resume);
    EXPECT_LT(dueTime->QuadPart, 0);
    VirtualClock::current->due = -dueTime->QuadPart * 100;
    return TRUE;
}

DWORD realWait(HANDLE, DWORD) ZV_REAL("_ZN10ZvPlatform19WaitForSingleObjectEPvj");
DWORD wrapWait(HANDLE, DWORD) ZV_WRAP("_ZN10ZvPlatform19WaitForSingleObjectEPvj");
DWORD wrapWait(HANDLE object, DWORD milliseconds)
{
    VirtualClock * const clock = VirtualClock::current;
    if (!clock || clock->due == 0)
        return realWait(object, milliseconds);
    ++clock->nbWaits;
    clock->now += clock->sleep(clock->due);
    clock->due = 0;
    return WAIT_OBJECT_0;
}

namespace ZvTest {
namespace {

class VirtualBeats : public testing::Test
{
protected:
    double getElapsed() const
    {
        return static_cast<double>(_clock.now - VirtualClock::START) / 1e9;
    }
    bool isIn(std::uint32_t beat) const
    {
        double const elapsed = getElapsed();
        return beat * 0.01 <= elapsed && elapsed < (beat + 1) * 0.01;
    }
    /// Equal up to the unit of the system's timers.
    bool isAt(std::uint32_t beat) const
    {
        return isIn(beat) && getElapsed() < beat * 0.01 + 1.1e-7;
    }
    ObjPtr<PeriodicTimer> make(double interval)
    {
        ObjPtr<PeriodicTimer> timer(PeriodicTimer::create(interval));
        EXPECT_EQ(_clock.now, VirtualClock::START);
        return timer;
    }

    static constexpr std::uint32_t TEN_HOURS = 3'600'000; // of beats, each hundredth of a second

    VirtualClock _clock;
};

TEST_F(VirtualBeats, TenHoursOfBeatsInTimeNoneEarlyNoneLost)
{
    ObjPtr<PeriodicTimer> const timer(make(0.01));
    for (std::uint32_t beat = 1; beat <= TEN_HOURS; ++beat) {
        std::uint32_t const count = static_cast<std::uint32_t>(timer->wait());
        ASSERT_TRUE(count == beat && isAt(beat)) << beat;
    }
    EXPECT_NEAR(36000.0, getElapsed(), 1e-6);
    EXPECT_EQ(_clock.nbWaits, static_cast<int>(TEN_HOURS));
}

TEST_F(VirtualBeats, TenHoursOfTheSourceClock)
{
    SeSourceClock &source = SeSourceClock::getInstance();
    source.setInterval(SeSourceClock::getDefaultInterval());
    source.start();
    LONGLONG const start = _clock.now;
    for (std::uint32_t beat = 1; beat <= TEN_HOURS; ++beat)
        ASSERT_EQ(source.waitSync(), beat);
    EXPECT_NEAR(36000.0, static_cast<double>(_clock.now - start) / 1e9, 1e-6);
    source.stop();
}

TEST_F(VirtualBeats, TenHoursOfBeatsThatAreTakenLateStayOnTheGrid)
{
    ObjPtr<PeriodicTimer> const timer(make(0.01));
    std::uint32_t random = 1;
    _clock.sleep = [&](LONGLONG duration) {
        random = random * 1664525 + 1013904223;
        return duration + random % 37 * 1'000'000; // up to three beats and a half too long
    };
    std::uint32_t last = 0;
    while (last < TEN_HOURS) {
        std::uint32_t const count = static_cast<std::uint32_t>(timer->wait());
        ASSERT_TRUE(last < count && count <= last + 4 && isIn(count)) << last;
        last = count;
    }
}

TEST_F(VirtualBeats, ATimerThatFiresEarlyBringsNoBeatEarly)
{
    ObjPtr<PeriodicTimer> const timer(make(0.01));
    std::uint32_t random = 1;
    _clock.sleep = [&](LONGLONG duration) {
        random = random * 1664525 + 1013904223;
        return duration - duration * (random % 3) / 2; // at once, half-way, or in time
    };
    for (std::uint32_t beat = 1; beat <= 100'000; ++beat) {
        ASSERT_EQ(timer->wait(), beat);
        ASSERT_TRUE(isAt(beat)) << beat;
    }
    EXPECT_GT(_clock.nbWaits, 150'000);
}

TEST_F(VirtualBeats, RoundedQuotientsShiftNoBeat)
{
    // 0.35 divided by 0.01 gives 35, though 35 times 0.01 is more than 0.35.
    ObjPtr<PeriodicTimer> const timer(make(0.01));
    _clock.now = VirtualClock::START + 350'000'000;
    EXPECT_EQ(timer->getCurrentCount(), 34U);
    EXPECT_GT(timer->getTimeToNextBeat(), 0.0);
    EXPECT_LT(timer->getTimeToNextBeat(), 1e-9);
    _clock.now += 1;
    EXPECT_EQ(timer->getCurrentCount(), 35U);
    // 0.29 divided by 0.01 gives less than 29, though 29 times 0.01 is 0.29.
    _clock.now = VirtualClock::START + 290'000'000;
    EXPECT_EQ(timer->getCurrentCount(), 29U);
    EXPECT_GT(timer->getTimeToNextBeat(), 0.009);
    _clock.now -= 1;
    EXPECT_EQ(timer->getCurrentCount(), 28U);
}

TEST_F(VirtualBeats, AClockThatIsSetBackBringsNoBeat)
{
    ObjPtr<PeriodicTimer> const timer(make(0.01));
    _clock.now -= 25'000'000;
    EXPECT_EQ(timer->getCurrentCount(), 0U);
    EXPECT_EQ(timer->wait(), 1U);
    EXPECT_NEAR(0.01, getElapsed(), 1e-6);
}

TEST_F(VirtualBeats, EveryTickAroundEveryBeatIsOnItsSide)
{
    int nbQuotientsTooHigh = 0;
    int nbQuotientsTooLow = 0;
    for (double const interval : {0.01, 0.02, 0.04, 1001 / 30000.0, 0.0107, 0.001}) {
        ObjPtr<PeriodicTimer> const timer(make(interval));
        for (std::uint32_t beat = 1; beat < TEN_HOURS; beat += 11) {
            LONGLONG const tick = static_cast<LONGLONG>(beat * interval * 1e9);
            for (LONGLONG const offset : {-1, 0, 1}) {
                _clock.now = VirtualClock::START + tick + offset;
                std::uint32_t const expected = beat * interval <= getElapsed() ? beat : beat - 1;
                ASSERT_TRUE(timer->getCurrentCount() == expected) << interval << ' ' << beat;
                std::uint32_t const quotient = static_cast<std::uint32_t>(getElapsed() / interval);
                nbQuotientsTooHigh += quotient > expected;
                nbQuotientsTooLow += quotient < expected;
            }
        }
        _clock.now = VirtualClock::START;
    }
    // The quotient alone would have been wrong both ways.
    EXPECT_GT(nbQuotientsTooHigh, 0);
    EXPECT_GT(nbQuotientsTooLow, 0);
}

} // namespace
} // namespace ZvTest
