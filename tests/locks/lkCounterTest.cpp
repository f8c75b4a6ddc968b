#include "resmgt/locks/lkCounter.h"
#include "locks/lockTestUtil.h"
#include "resmgt/locks/lkThreadId.h"
#include "testing/meeting.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <sstream>
#include <unordered_set>

namespace ZvTest {

using namespace Zv;

namespace {

template <class T>
class LkCounterOf : public testing::Test
{};
using Counted = testing::Types<long, int, unsigned long, double>;
TYPED_TEST_SUITE(LkCounterOf, Counted);

TYPED_TEST(LkCounterOf, PreFormsAnswerTheNewValueAndPostFormsTheOld)
{
    LkCounter<TypeParam> counter(5);
    EXPECT_EQ(++counter, TypeParam(6));
    EXPECT_EQ(counter++, TypeParam(6));
    EXPECT_EQ(counter.getValue(), TypeParam(7));
    EXPECT_EQ(--counter, TypeParam(6));
    EXPECT_EQ(counter--, TypeParam(6));
    EXPECT_EQ(counter += 10, TypeParam(15));
    EXPECT_EQ(counter -= 5, TypeParam(10));
    EXPECT_EQ(counter = 3, TypeParam(3));
    EXPECT_EQ(counter.getValue(), TypeParam(3));
}

TYPED_TEST(LkCounterOf, LosesNoCountAmongThreads)
{
    constexpr int COUNTS = 20000;
    LkCounter<TypeParam> counter;
    Latch both(2);
    // Both threads carry out one kind of operation at a time.
    auto const count = [&] {
        both.arrive_and_wait();
        for (int i = 0; i < COUNTS; ++i)
            ++counter;
        for (int i = 0; i < COUNTS; ++i)
            counter++;
        for (int i = 0; i < COUNTS; ++i)
            --counter;
        for (int i = 0; i < COUNTS; ++i)
            counter += 3;
        for (int i = 0; i < COUNTS; ++i)
            counter -= 1;
        for (int i = 0; i < COUNTS; ++i)
            counter--;
    };
    {
        Joined a(count), b(count);
    }
    EXPECT_EQ(counter.getValue(), TypeParam(2 * 2 * COUNTS));
}

TEST(LkCounter, OfLongHas32BitsAndWrapsAround)
{
    static_assert(sizeof(LkCounter<long>) == 4);
    LkCounter<long> counter(std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(counter++, std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(counter.getValue(), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(counter--, std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(++counter, std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(counter -= 1, std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(counter += 1, std::numeric_limits<std::int32_t>::min());
}

TEST(LkCounter, OfLongTakesTheLower32BitsOfAnyAmount)
{
    // If a long has 32 bits, the value is 7 from the beginning.
    constexpr long FAR = static_cast<long>((std::int64_t{1} << 40) + 7);
    LkCounter<long> counter(FAR);
    EXPECT_EQ(counter.getValue(), 7);
    EXPECT_EQ(counter = FAR + 1, 8) << "answers what it holds";
    EXPECT_EQ(counter.getValue(), 8);
    EXPECT_EQ(counter += FAR, 15);
    EXPECT_EQ(counter -= FAR, 8);
    constexpr long FARTHEST = static_cast<long>(std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(counter -= FARTHEST, 8) << "its lower half is zero";
}

TEST(LkThreadId, NullPrintsAsZeroAtTheRightEndOfSix)
{
    std::ostringstream stream;
    stream << LkThreadId(LkThreadId::NULL_ID);
    EXPECT_EQ(stream.str(), "0x     0");
}

TEST(LkThreadId, PrintsInHexadecimalWithTheStreamsFillAndLeavesTheBaseDecimal)
{
    std::ostringstream stream;
    stream.fill('0');
    stream << std::hex << LkThreadId(0xabcUL) << ' ' << 10;
    EXPECT_EQ(stream.str(), "0x000abc 10");
}

TEST(LkThreadId, KnowsTheCallingThread)
{
    LkThreadId const here(LkThreadId::CURRENT_THREAD);
    EXPECT_TRUE(here.isCurrentThread());
    EXPECT_FALSE(here.isNull());
    EXPECT_FALSE(elsewhere([&] { return here.isCurrentThread(); }));

    LkThreadId id;
    EXPECT_TRUE(id.isNull());
    id.setCurrentThread();
    EXPECT_EQ(id, here);
    id.reset();
    EXPECT_TRUE(id.isNull());
    EXPECT_EQ(id, LkThreadId(0UL));
    EXPECT_FALSE(id == here);
}

TEST(LkThreadId, EqualIdsHaveEqualHashes)
{
    LkThreadId const here(LkThreadId::CURRENT_THREAD);
    std::unordered_set<LkThreadId> seen{here, LkThreadId(here.getNumber()), LkThreadId()};
    EXPECT_EQ(seen.size(), 2u);
    EXPECT_TRUE(seen.contains(here));
    EXPECT_EQ(std::hash<LkThreadId>()(LkThreadId()), std::hash<LkThreadId>()(LkThreadId(0UL)));
}

TEST(LkThreadId, OrdersByNumberOfThread)
{
    EXPECT_TRUE(LkThreadId(1UL) < LkThreadId(2UL));
    EXPECT_FALSE(LkThreadId(2UL) < LkThreadId(2UL));
    EXPECT_EQ(LkThreadId(7UL).getNumber(), 7UL);
    LkThreadId const copy = LkThreadId(7UL);
    EXPECT_EQ(copy, LkThreadId(7UL));
}

} // namespace
} // namespace ZvTest
