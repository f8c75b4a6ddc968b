#include "zvbase/lgClock.private.h"

#include "zvbase/logTestUtil.h"
#include "zvbase/services.h"
#include "zvbase/sleeper.h"
#include "zvbase/trace.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <initializer_list>

namespace ZvTest {

using namespace Zv;

namespace {

TEST(Stamps, GrowAndBelongToTheMomentsBetweenThem)
{
    std::uint64_t before = ZvPlatform::readStamp();
    LARGE_INTEGER clockBefore;
    ::QueryPerformanceCounter(&clockBefore);
    for (int i = 0; i < 1000; ++i) {
        ZvPlatform::Moment const moment = ZvPlatform::readMoment();
        std::uint64_t const after = ZvPlatform::readStamp();
        ASSERT_LE(before, moment.stamp);
        ASSERT_LE(moment.stamp, after);
        ASSERT_LE(clockBefore.QuadPart, moment.clock);
        before = after;
        clockBefore.QuadPart = moment.clock;
    }
}

TEST(LgQueue, ALineHasTheMomentOfTheClock)
{
    CapturedLog const log;
    TestLogger logger;
    // The stamp of a line is between those of two readings, and so is its moment.
    constexpr double ROUNDING = 1e-6;
    for (int i = 0; i < 100; ++i) {
        LgLog::flush();
        double const before = Sleeper::getInstance().getTime();
        ZV_TRACE(*Trace::MainTraceLevel, "x");
        logger.flush();
        double const after = Sleeper::getInstance().getTime();
        double const moment = std::strtod(log.getLines().back().c_str(), nullptr);
        ASSERT_GE(moment, before - ROUNDING);
        ASSERT_LE(moment, after + ROUNDING);
    }
}

#ifndef _WIN32

/// A counter of two ticks in each nanosecond of the clock, which the test moves.
class LgClockTest : public testing::Test
{
protected:
    static constexpr std::int64_t SECOND = 1'000'000'000;

    LgClockTest()
    {
        _hooked->changesMoment = [this](ZvPlatform::Moment &moment) { moment = _moment; };
    }

    void read(std::uint64_t stamp, std::int64_t nanoseconds)
    {
        _moment = {stamp, nanoseconds};
        EXPECT_EQ(clock.read(), stamp);
    }

    LgClock clock;

private:
    Hooked _hooked;
    ZvPlatform::Moment _moment{};
};

TEST_F(LgClockTest, InterpolatesBetweenTwoReadings)
{
    read(1000, 5 * SECOND);
    read(1000 + 2 * SECOND, 6 * SECOND);
    EXPECT_DOUBLE_EQ(clock.toSeconds(1000), 5.0);
    EXPECT_DOUBLE_EQ(clock.toSeconds(1000 + SECOND / 2), 5.25);
    EXPECT_DOUBLE_EQ(clock.toSeconds(1000 + 2 * SECOND), 6.0);
}

TEST_F(LgClockTest, FollowsAClockWhoseRateChanges)
{
    std::uint64_t stamp = 1000;
    std::int64_t now = 5 * SECOND;
    read(stamp, now);
    // 500 ppm faster for days, then 500 ppm slower.
    for (int deviation : {500, -500}) {
        for (int second = 0; second < 300'000; ++second) {
            std::int64_t const before = now;
            now += SECOND + deviation * (SECOND / 1'000'000);
            stamp += 2 * SECOND;
            read(stamp, now);
            double const middle = static_cast<double>(before + (now - before) / 2) / 1e9;
            double const tolerance = second < 3 ? 0.001 : 1e-7;
            ASSERT_NEAR(clock.toSeconds(stamp - SECOND), middle, tolerance) << second;
        }
    }
}

TEST_F(LgClockTest, NeverGoesBackWithStampsThatDoNot)
{
    std::uint64_t stamp = 1000;
    std::int64_t now = 5 * SECOND;
    read(stamp, now);
    double last = 0;
    // Each reading of the pair has an error of up to 300 ns.
    for (int i = 0; i < 10'000; ++i) {
        stamp += 2000;
        now += 1000;
        read(stamp, now + (i * 7919) % 600);
        for (std::uint64_t before : {1999, 1000, 1, 0}) {
            double const seconds = clock.toSeconds(stamp - before);
            ASSERT_GE(seconds, last);
            ASSERT_NEAR(seconds, static_cast<double>(now) / 1e9, 2e-6);
            last = seconds;
        }
    }
}

TEST_F(LgClockTest, ALateStampKeepsItsOwnMoment)
{
    read(1000, 5 * SECOND);
    read(1000 + 20 * SECOND, 15 * SECOND);
    EXPECT_DOUBLE_EQ(clock.toSeconds(1000 + 18 * SECOND), 14.0);
    EXPECT_DOUBLE_EQ(clock.toSeconds(1000 + 2 * SECOND), 6.0);
    EXPECT_DOUBLE_EQ(clock.toSeconds(1000 + 19 * SECOND), 14.5);
}

TEST_F(LgClockTest, StartsAgainWithACounterThatDoes)
{
    read(1000 + 100 * SECOND, 50 * SECOND);
    read(1000 + 102 * SECOND, 51 * SECOND);
    EXPECT_DOUBLE_EQ(clock.toSeconds(1000 + 102 * SECOND), 51.0);
    read(10, 60 * SECOND);
    EXPECT_DOUBLE_EQ(clock.toSeconds(1000 + 102 * SECOND), 60.0) << "a line from before";
    read(10 + 2 * SECOND, 61 * SECOND);
    EXPECT_DOUBLE_EQ(clock.toSeconds(10 + SECOND), 60.5);
}

TEST(LgReader, WritesAllLinesIfStampsBeginAnew)
{
    CapturedLog const log;
    TestLogger logger;
    Hooked hooked;
    LgTrace::print("before");
    hooked->readsClock = [](LONGLONG &stamp) {
        stamp = 1000;
        return true;
    };
    EXPECT_EQ(logger.flush(), 1);
    LgTrace::print("after");
    EXPECT_EQ(logger.flush(), 1);
    EXPECT_EQ(log.getLines(), (Lines{"before\n", "after\n"}));
}

#endif

} // namespace
} // namespace ZvTest
