#include "resmgt/threads/mtPriorityLevels.private.h"
#include "zvbase/assertions.h"

#include <gtest/gtest.h>

#include <array>

namespace ZvTest {

using namespace Zv;

namespace {

TEST(PriorityLevels, HaveAValueOfTheSystemEach)
{
    std::array<int, 7> const values = {-15, -2, -1, 0, 1, 2, 15};
    for (int level = MtPriorityLevels::MINIMUM; level <= MtPriorityLevels::MAXIMUM; ++level) {
        EXPECT_EQ(MtPriorityLevels::toSystemValue(level), values.at(level));
        EXPECT_EQ(MtPriorityLevels::fromSystemValue(values.at(level)), level);
    }
}

TEST(PriorityLevels, OfAnyOtherNumberAbortTheProgram)
{
    EXPECT_THROW(MtPriorityLevels::toSystemValue(-1), ProgramAborted);
    EXPECT_THROW(MtPriorityLevels::toSystemValue(7), ProgramAborted);
    for (int value : {-16, -14, -3, 3, 14, 16})
        EXPECT_THROW(MtPriorityLevels::fromSystemValue(value), ProgramAborted);
    EXPECT_THROW(MtPriorityLevels::getBasePriority(32, 7), ProgramAborted);
    EXPECT_THROW(MtPriorityLevels::getBasePriority(32, -1), ProgramAborted);
    EXPECT_THROW(MtPriorityLevels::getBasePriority(0, 3), ProgramAborted);
    EXPECT_THROW(MtPriorityLevels::getBasePriority(0x4000, 3), ProgramAborted);
}

TEST(PriorityLevels, GiveTheBasePriorityTogetherWithTheClass)
{
    std::array<int, 7> const idle = {1, 2, 3, 4, 5, 6, 15};
    std::array<int, 7> const normal = {1, 6, 7, 8, 9, 10, 15};
    std::array<int, 7> const high = {1, 11, 12, 13, 14, 15, 15};
    std::array<int, 7> const realTime = {16, 22, 23, 24, 25, 26, 31};
    for (int level = 0; level < 7; ++level) {
        EXPECT_EQ(MtPriorityLevels::getBasePriority(64, level), idle.at(level));
        EXPECT_EQ(MtPriorityLevels::getBasePriority(32, level), normal.at(level));
        EXPECT_EQ(MtPriorityLevels::getBasePriority(128, level), high.at(level));
        EXPECT_EQ(MtPriorityLevels::getBasePriority(256, level), realTime.at(level));
    }
}

} // namespace

} // namespace ZvTest
