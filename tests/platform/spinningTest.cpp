// The rules by which waits spin before they sleep. All times are given.
#include "platform/linux/spinning.h"

#include <gtest/gtest.h>

namespace ZvTest {

using namespace ZvPlatform;
using namespace ZvPlatform::Linux;

namespace {

constexpr Instant MICROSECOND = 1'000;
constexpr Instant COST = 20 * MICROSECOND;
constexpr Instant SHORT = 5 * MICROSECOND;
constexpr Instant LONG_WAIT = 10 * MILLISECOND;

/// The waits for one object.
struct Waits
{
    SpinCredit credit{};
    int nbSpins = 0;
    int nbSleeps = 0;

    /// `asleep` is the length of the wait if its thread sleeps, and `awake` that if it spins.
    void add(int count, Instant asleep, Instant awake)
    {
        for (int i = 0; i < count; ++i) {
            bool const spins = credit.trust != 0;
            nbSpins += spins;
            if (spins && awake <= COST) {
                credit = afterSuccess();
                continue;
            }
            ++nbSleeps;
            if (spins)
                credit = afterFailure(credit);
            else if (asleep <= COST)
                credit = afterShortSleep(credit);
        }
    }
    void add(int count, Instant length) { add(count, length, length); }
};

Instant costAfter(int count, Instant wakeUp, Instant cost = 0)
{
    for (int i = 0; i < count; ++i)
        cost = nextSleepCost(cost, wakeUp);
    return cost;
}

} // namespace

TEST(Spinning, ShortWaitsSpinFromTheSecondOn)
{
    Waits waits;
    waits.add(100, SHORT);
    EXPECT_EQ(waits.nbSleeps, 1);
    EXPECT_EQ(waits.nbSpins, 99);
}

TEST(Spinning, LongWaitsNeverSpin)
{
    Waits waits;
    waits.add(1000, LONG_WAIT);
    EXPECT_EQ(waits.nbSpins, 0);
}

TEST(Spinning, AThreadThatBecomesIdleSpinsThreeTimesMore)
{
    Waits waits;
    waits.add(100, SHORT);
    waits.nbSpins = 0;
    waits.add(1000, LONG_WAIT);
    EXPECT_EQ(waits.nbSpins, 3);
}

TEST(Spinning, AThreadThatWasIdleSpinsAgainAfterAFewShortWaits)
{
    Waits waits;
    waits.add(100, SHORT);
    waits.add(1000, LONG_WAIT);
    waits.nbSleeps = 0;
    waits.add(1000, SHORT);
    EXPECT_EQ(waits.nbSleeps, 3);
}

TEST(Spinning, ASingleLongWaitDoesNotEndTheSpinning)
{
    Waits waits;
    waits.add(2, SHORT);
    waits.nbSleeps = 0;
    for (int i = 0; i < 100; ++i) {
        waits.add(2, LONG_WAIT);
        waits.add(1, SHORT);
    }
    EXPECT_EQ(waits.nbSpins, 301);
    EXPECT_EQ(waits.nbSleeps, 200);
}

// This happens if the thread that is waited for cannot run beside the one that spins.
TEST(Spinning, TriesBecomeRareIfWaitsAreShortOnlyForASleeper)
{
    Waits waits;
    waits.add(10'000, SHORT, LONG_WAIT);
    EXPECT_GT(waits.nbSpins, 10'000 / 66);
    EXPECT_LT(waits.nbSpins, 10'000 / 66 + 10);
}

TEST(Spinning, ASuccessForgetsEarlierFailures)
{
    Waits waits;
    waits.add(10'000, SHORT, LONG_WAIT);
    EXPECT_EQ(waits.credit.failures, MOST_FAILURES);
    waits.add(100, SHORT);
    EXPECT_EQ(waits.credit.failures, 0);
    EXPECT_EQ(waits.credit.refusals, 0);
}

TEST(Spinning, TheCostOfASleepIsThatOfTheFirstWakeUpAtFirst)
{
    EXPECT_EQ(nextSleepCost(0, 20 * MICROSECOND), 20 * MICROSECOND);
    EXPECT_EQ(nextSleepCost(0, 0), 1) << "a cost of 0 is unknown";
}

TEST(Spinning, TheCostOfASleepFollowsTheWakeUps)
{
    Instant const dear = costAfter(100, 30 * MICROSECOND, 5 * MICROSECOND);
    EXPECT_NEAR(dear, 30 * MICROSECOND, MICROSECOND);
    EXPECT_NEAR(costAfter(20, 5 * MICROSECOND, dear), 5 * MICROSECOND, MICROSECOND);
}

TEST(Spinning, NoSpinIsLongerThanTheLimit)
{
    EXPECT_EQ(costAfter(1, LONG_WAIT), LONGEST_SPIN);
    EXPECT_EQ(costAfter(1000, LONG_WAIT), LONGEST_SPIN);
    EXPECT_LE(costAfter(1000, LONG_WAIT, MICROSECOND), LONGEST_SPIN);
}

// Threads wake late under full load because other threads run first. Other wake-ups take only as
// long as a change of threads.
TEST(Spinning, UnderFullLoadTheCostOfASleepIsLow)
{
    Instant cost = 20 * MICROSECOND;
    for (int i = 0; i < 100; ++i)
        cost = costAfter(1, 3 * MICROSECOND, costAfter(1, 15 * MICROSECOND, cost));
    EXPECT_LT(cost, 6 * MICROSECOND);
}

} // namespace ZvTest
