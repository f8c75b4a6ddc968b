// Tests of the priority graph when memory runs out.

#include "priorities/follower.h"
#include "resmgt/threads/mtPriorityMgr.h"
#include "resmgt/threads/priority.h"
#include "resmgt/threads/priorityMgr.h"
#include "resmgt/threads/rtPrioritiesWinNT.private.h"
#include "testing/allocations.h"
#include "testing/dump.h"

#include <gtest/gtest.h>

#include <optional>
#include <sstream>
#include <string>

namespace ZvTest {

using namespace Zv;

namespace {

/// Lets each allocation of `action` fail. Calls `check` after each failure and after the success.
template <class Action, class Check>
int checkEachOutcome(Action const &action, Check const &check)
{
    int const nbFailures = failEachAllocation(action, check);
    check();
    return nbFailures;
}

TEST(PriorityMemory, ANodeThatFailsToJoinLeavesTheGraphAsItWas)
{
    PriorityMgr mgr("mgr", 0, 6);
    Priority fixed("fixed", mgr, 3);
    std::string const before = dumpOf(mgr);
    std::optional<Follower> follower;
    EXPECT_GT(checkEachOutcome(
                  [&] {
                      follower.emplace(mgr);
                      follower.reset();
                  },
                  [&] {
                      follower.reset();
                      EXPECT_EQ(dumpOf(mgr), before);
                      EXPECT_EQ(mgr.check(), PriorityMgr::ALL_VALID);
                  }),
              0);
}

TEST(PriorityMemory, ARelationThatFailsToBeMadeLeavesTheGraphAsItWas)
{
    PriorityMgr mgr("mgr", 0, 6);
    Priority fixed("fixed", mgr, 3);
    Follower follower(mgr);
    Follower other(mgr);
    PriorityRelation between("r", follower, PriorityRelation::EQUAL, other);
    std::string const before = dumpOf(mgr);
    std::optional<PriorityRelation> relation;
    EXPECT_GT(
        checkEachOutcome([&] { relation.emplace("r", fixed, PriorityRelation::LESS, follower); },
                         [&] {
                             if (relation) {
                                 EXPECT_EQ(follower.getPriority(), 4);
                                 EXPECT_EQ(other._told, 4);
                                 relation.reset();
                             }
                             EXPECT_EQ(dumpOf(mgr), before);
                             EXPECT_EQ(follower._told, 0);
                             EXPECT_EQ(other._told, 0);
                         }),
        0);
}

TEST(PriorityMemory, AProcessScopeThatFailsToBeSetFollowsWhatItFollowed)
{
    PriorityMgr &mgr = MtPriorityMgr::getInstance();
    Priority first("first", mgr, 3);
    Priority second("second", mgr, 5);
    RtPrioritiesWinNT own;
    Priority const &scope = own.getProcessScopePriority();
    own.setProcessScope(first);
    bool isSet = false;
    EXPECT_GT(checkEachOutcome(
                  [&] {
                      isSet = false;
                      own.setProcessScope(second);
                      isSet = true;
                  },
                  [&] {
                      EXPECT_EQ(scope.getPriority(), isSet ? 5 : 3);
                      EXPECT_EQ(mgr.check(), PriorityMgr::ALL_VALID);
                      own.setProcessScope(first);
                      EXPECT_EQ(scope.getPriority(), 3);
                  }),
              0);
}

TEST(PriorityMemory, ASolvingThatRunsOutIsMadeUpForByTheNext)
{
    PriorityMgr mgr("mgr", 0, 6);
    Priority fixed("fixed", mgr, 3);
    Follower follower(mgr);
    PriorityRelation relation("r", fixed, PriorityRelation::LESS, follower);
    int value = 0;
    EXPECT_GT(checkEachOutcome([&] { fixed.setPriority(value = (value + 1) % 6); },
                               [&] {
                                   mgr.notify(PriorityMgr::VALUE_CHANGED);
                                   EXPECT_EQ(follower.getPriority(), value + 1);
                                   EXPECT_EQ(follower._told, value + 1);
                               }),
              0);
}

TEST(PriorityMemory, ARemovedNodeStaysRemovedEvenIfSolvingRunsOutOfMemory)
{
    PriorityMgr mgr("mgr", 0, 6);
    Priority fixed("fixed", mgr, 3);
    Follower follower(mgr);
    std::string const before = dumpOf(mgr);
    std::optional<PriorityRelation> relation;
    std::optional<Follower> between;
    auto const make = [&] {
        between.emplace(mgr);
        relation.emplace("r", fixed, PriorityRelation::LESS, follower);
    };
    make();
    EXPECT_GT(checkEachOutcome(
                  [&] {
                      EXPECT_NO_THROW(relation.reset());
                      EXPECT_NO_THROW(between.reset());
                  },
                  [&] {
                      EXPECT_EQ(follower.getPriority(), 0);
                      EXPECT_EQ(follower._told, 0);
                      EXPECT_EQ(dumpOf(mgr), before);
                      make();
                  }),
              0);
}

} // namespace

} // namespace ZvTest
