// Tests of durations of the standard library as time-outs.

#include "resmgt/locks.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <limits>
#include <ratio>

namespace ZvTest {

using namespace Zv;

namespace {

using namespace std::chrono_literals;

using Frames = std::chrono::duration<std::int32_t, std::ratio<1001, 30000>>;
using Femtoseconds = std::chrono::duration<std::int64_t, std::femto>;
using Unsigned = std::chrono::duration<std::uint64_t, std::nano>;
using Seconds = std::chrono::duration<double>;

static_assert(LkDuration<std::chrono::hours> && LkDuration<Frames> && LkDuration<Seconds>);
static_assert(!LkDuration<double> && !LkDuration<int> && !LkDuration<LkEvent>);

static_assert(LkUtil::toMilliseconds(499'999ns) == 0);
static_assert(LkUtil::toMilliseconds(500'000ns) == 1);
static_assert(LkUtil::toMilliseconds(1'499'999ns) == 1);
static_assert(LkUtil::toMilliseconds(1500us) == 2);
static_assert(LkUtil::toMilliseconds(2s) == 2000);
static_assert(LkUtil::toMilliseconds(Frames(30000)) == 1'001'000);
static_assert(LkUtil::toMilliseconds(Frames(1)) == 33);
static_assert(LkUtil::toMilliseconds(Femtoseconds(1'500'000'000'000)) == 2);
static_assert(LkUtil::toMilliseconds(Femtoseconds(1'499'999'999'999)) == 1);
static_assert(LkUtil::toMilliseconds(Seconds(0.0005)) == 1);
static_assert(LkUtil::toMilliseconds(Seconds(0.0004)) == 0);

TEST(LkUtil, RoundsADurationWithoutLoss)
{
    // A double could not represent the last nanosecond.
    EXPECT_EQ(LkUtil::toMilliseconds(4'294'966'000'499'999'999ns), 0xFFFFFFFEu);
    EXPECT_EQ(LkUtil::toMilliseconds(4'294'966'000'499'999ns), 4'294'966'000u);
    EXPECT_EQ(LkUtil::toMilliseconds(4'294'966'000'500'000ns), 4'294'966'001u);
}

TEST(LkUtil, KeepsADurationWithinBounds)
{
    EXPECT_EQ(LkUtil::toMilliseconds(-1s), 0u);
    EXPECT_EQ(LkUtil::toMilliseconds(std::chrono::nanoseconds::min()), 0u);
    EXPECT_EQ(LkUtil::toMilliseconds(std::chrono::hours::min()), 0u);
    EXPECT_EQ(LkUtil::toMilliseconds(4294967293ms), 0xFFFFFFFDu);
    EXPECT_EQ(LkUtil::toMilliseconds(4294967294ms), 0xFFFFFFFEu);
    EXPECT_EQ(LkUtil::toMilliseconds(4294967295ms), 0xFFFFFFFEu)
        << "a limited time never becomes endless";
    EXPECT_EQ(LkUtil::toMilliseconds(std::chrono::nanoseconds::max()), 0xFFFFFFFEu);
    EXPECT_EQ(LkUtil::toMilliseconds(std::chrono::hours::max()), 0xFFFFFFFEu);
    EXPECT_EQ(LkUtil::toMilliseconds(Unsigned::max()), 0xFFFFFFFEu);
    EXPECT_EQ(LkUtil::toMilliseconds(Seconds(std::numeric_limits<double>::infinity())),
              0xFFFFFFFEu);
    EXPECT_EQ(LkUtil::toMilliseconds(Seconds(std::numeric_limits<double>::quiet_NaN())), 0u);
}

TEST(LkUtil, TheSecondsOfADurationAreReadAsTheDuration)
{
    for (auto const time : {0ms, 1ms, 3ms, 999ms, 1001ms, 123456789ms, 4294967293ms, 4294967294ms})
        EXPECT_EQ(LkUtil::toMilliseconds(LkUtil::toSeconds(time)), LkUtil::toMilliseconds(time))
            << time.count();
    EXPECT_EQ(LkUtil::toSeconds(-5s), 0.0);
}

TEST(LkDuration, CountsSecondsAsTheStandardLibraryDoes)
{
    auto const expectSeconds = [](auto const &time) {
        EXPECT_EQ(Detail::countSeconds(time), Seconds(time).count()) << time.count();
    };
    expectSeconds(-1500ns);
    expectSeconds(1ms);
    expectSeconds(100h);
    expectSeconds(Frames(7));
    expectSeconds(Seconds(0.1));
    expectSeconds(Femtoseconds::max());
    expectSeconds(Unsigned::max());
}

TEST(LkDuration, CountsUnitsUpToTheLargestNumber)
{
    constexpr std::int64_t MOST = std::numeric_limits<std::int64_t>::max();
    EXPECT_EQ(Detail::countUnits<std::micro>(-1500ns), -2);
    EXPECT_EQ(Detail::countUnits<std::micro>(-1499ns), -1);
    EXPECT_EQ(Detail::countUnits<std::micro>(std::chrono::microseconds::max()), MOST);
    EXPECT_EQ(Detail::countUnits<std::micro>(std::chrono::microseconds::max() - 1us), MOST - 1);
    EXPECT_EQ(Detail::countUnits<std::micro>(std::chrono::microseconds::min()), -MOST);
    EXPECT_EQ(Detail::countUnits<std::micro>(std::chrono::hours::max()), MOST);
    EXPECT_EQ(Detail::countUnits<std::micro>(Seconds(-1.0e30)), -MOST);
    EXPECT_EQ(Detail::countUnits<std::micro>(Seconds(-0.0000015)), -2);
}

} // namespace
} // namespace ZvTest
