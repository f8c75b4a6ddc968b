#include "resmgt/threads/mtPriorityLevels.private.h"
#include "resmgt/threads/mtPriorityMgr.h"
#include "resmgt/threads/mtThread.h"
#include "resmgt/threads/mtThreadFactory.h"
#include "resmgt/threads/priority.h"
#include "resmgt/threads/priorityEx.h"
#include "resmgt/threads/rtPriorities.h"
#include "resmgt/threads/rtPrioritiesWinNT.private.h"
#include "testing/failures.h"
#include "threads/threadTesting.h"
#include "zvbase/assertions.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

/// Thread that only records the levels that it is given.
class NotingThread : public StubThread
{
public:
    NotingThread() : _priority("noting", this) {}
    LiString getName() const override { return _priority.getName(); }
    Priority &getPriority() override { return _priority; }

    std::vector<int> _levels;
    bool _refuses = false;

protected:
    void setPriorityValue(int level) override
    {
        if (_refuses)
            throw std::runtime_error("refused");
        _levels.push_back(level);
    }

private:
    MtThreadPriority _priority; // last, because it sets the thread's level at once
};

using Levels = std::vector<int>;
using Relation = PriorityRelation;

RtPriorities &landmarks()
{
    return RtPriorities::getInstance();
}

TEST(RealTimePriorities, HaveTheirPlacesInTheScale)
{
    EXPECT_EQ(landmarks().getBaseLinePriority().getPriority(), 0);
    EXPECT_EQ(landmarks().getRealTimePriority().getPriority(), 1);
    EXPECT_EQ(landmarks().getInterruptPriority().getPriority(), 6);
    EXPECT_EQ(landmarks().getBaseLinePriority().getName(), "BaseLine");
    EXPECT_EQ(landmarks().getRealTimePriority().getName(), "RealTime");
    EXPECT_EQ(landmarks().getInterruptPriority().getName(), "Interrupt");
    EXPECT_EQ(landmarks().getProcessScopePriority().getName(), "rt-process-scope");
    for (Priority *priority :
         {&landmarks().getBaseLinePriority(), &landmarks().getRealTimePriority(),
          &landmarks().getInterruptPriority(), &landmarks().getProcessScopePriority()})
        EXPECT_EQ(&priority->getMgr(), &MtPriorityMgr::getInstance());
    EXPECT_FALSE(landmarks().getProcessScopePriority().isPriorityFixed());
}

TEST(RealTimePriorities, HaveTheRangeOfTheThreadFactory)
{
    EXPECT_EQ(MtThreadFactory::getInstance().getMinPriority(), 0);
    EXPECT_EQ(MtThreadFactory::getInstance().getMaxPriority(), 6);
    EXPECT_EQ(MtPriorityMgr::getInstance().getName(), "MtPriorityMgr");
    Priority node("node", MtPriorityMgr::getInstance(), Priority::NOT_SET);
    std::ostringstream os;
    node.dump(os, false);
    EXPECT_EQ(os.str(), "                node prio        0 fixed 0 lhs        0 rhs        6\n");
}

TEST(RealTimePriorities, DumpTakesANameForTheRelationsToShow)
{
    Priority const &node = landmarks().getRealTimePriority();
    auto const dumped = [&node](auto relations) {
        std::ostringstream os;
        node.dump(os, relations);
        return os.str();
    };
    EXPECT_EQ(dumped(Priority::DumpedRelations::NONE), dumped(false));
    EXPECT_EQ(dumped(Priority::DumpedRelations::OF_NODE), dumped(true));
    EXPECT_NE(dumped(true), dumped(false));
}

TEST(RealTimePriorities, AThreadEqualToInterruptBecomesTimeCritical)
{
    NotingThread thread;
    Relation relation("r", thread.getPriority(), Relation::EQUAL,
                      landmarks().getInterruptPriority());
    EXPECT_EQ(thread._levels, Levels({0, 6}));
    EXPECT_EQ(MtPriorityLevels::toSystemValue(thread._levels.back()), 15);
}

TEST(RealTimePriorities, AThreadWithoutRelationsIsIdle)
{
    NotingThread thread;
    EXPECT_EQ(thread._levels, Levels({0}));
    EXPECT_EQ(MtPriorityLevels::toSystemValue(thread._levels.back()), -15);
}

TEST(RealTimePriorities, AThreadIsNotifiedOfItsLevelOnlyIfItChanges)
{
    NotingThread device;
    NotingThread generator;
    NotingThread client;
    Relation atLeast("std-device", landmarks().getRealTimePriority(), Relation::LESS_EQUAL,
                     device.getPriority());
    {
        Relation above("rt<sync-gen", landmarks().getRealTimePriority(), Relation::LESS,
                       generator.getPriority());
        Relation below("client<generator", client.getPriority(), Relation::LESS,
                       generator.getPriority());
        NotingThread further;
        MtPriorityMgr::getInstance().notify(PriorityMgr::VALUE_CHANGED);
        EXPECT_EQ(generator._levels, Levels({0, 2}));
    }
    EXPECT_EQ(generator._levels, Levels({0, 2, 0}));
    EXPECT_EQ(device._levels, Levels({0, 1}));
    EXPECT_EQ(client._levels, Levels({0}));
}

TEST(RealTimePriorities, AThreadPriorityNeedsAThread)
{
    EXPECT_EQ(failedAssertion([&] { MtThreadPriority priority("nobody's", nullptr); }), "_thread");
}

TEST(RealTimePriorities, TheProcessScopeFollowsWhatItWasSetToLast)
{
    PriorityMgr &mgr = MtPriorityMgr::getInstance();
    Priority first("first", mgr, 3);
    Priority second("second", mgr, 5);
    NotingThread follower;
    RtPrioritiesWinNT own;
    Priority &scope = own.getProcessScopePriority();
    EXPECT_EQ(scope.getPriority(), 0);
    Relation relation("follower", scope, Relation::EQUAL, follower.getPriority());

    own.setProcessScope(first);
    EXPECT_EQ(scope.getPriority(), 3);
    own.setProcessScope(second);
    EXPECT_EQ(scope.getPriority(), 5);
    EXPECT_EQ(follower._levels.back(), 5);
    second.setPriority(4);
    first.setPriority(1);
    EXPECT_EQ(follower._levels.back(), 4);

    std::ostringstream os;
    scope.dump(os, true);
    EXPECT_EQ(os.str(), "    rt-process-scope prio        4 fixed 0 lhs        4 rhs        4\n"
                        "Dependants: \nDependOns: \nEquals: \n"
                        "\"  follower\" : rt-process-scope (    4 ) == noting (    4 ) valid\n"
                        "\"rt-process-scope\" : second (    4 ) == rt-process-scope (    4 ) "
                        "valid\n");
    own.setProcessScope(own.getRealTimePriority());
    EXPECT_EQ(follower._levels.back(), 1);
}

TEST(RealTimePriorities, AProcessScopeThatCannotBeSetLeavesTheOldOneInForce)
{
    PriorityMgr &mgr = MtPriorityMgr::getInstance();
    Priority first("first", mgr, 3);
    Priority low("low", mgr, 1);
    Priority floor("floor", mgr, 2);
    RtPrioritiesWinNT own;
    Priority &scope = own.getProcessScopePriority();
    own.setProcessScope(first);
    {
        Relation relation("floor<scope", floor, Relation::LESS, scope);
        EXPECT_THROW(own.setProcessScope(low), PriorityEx);
        EXPECT_EQ(scope.getPriority(), 3);
        first.setPriority(4);
        EXPECT_EQ(scope.getPriority(), 4);
    }
    PriorityMgr other("other", 0, 6);
    Priority foreign("foreign", other, 3);
    EXPECT_THROW(own.setProcessScope(foreign), AssertionFailed);
    first.setPriority(5);
    EXPECT_EQ(scope.getPriority(), 5);
    own.setProcessScope(low);
    EXPECT_EQ(scope.getPriority(), 1);
}

TEST(RealTimePriorities, AProcessScopeThatIsSetAnewTakesItsFollowersThereAtOnce)
{
    PriorityMgr &mgr = MtPriorityMgr::getInstance();
    Priority first("first", mgr, 3);
    Priority second("second", mgr, 5);
    NotingThread follower;
    RtPrioritiesWinNT own;
    Relation relation("follower", own.getProcessScopePriority(), Relation::EQUAL,
                      follower.getPriority());
    own.setProcessScope(first);
    own.setProcessScope(second);
    own.setProcessScope(first);
    EXPECT_EQ(follower._levels, Levels({0, 3, 5, 3})) << "never the lowest in between";
}

TEST(RealTimePriorities, AProcessScopeThatIsSetInABrokenGraphLeavesTheOldOneInForce)
{
    PriorityMgr &mgr = MtPriorityMgr::getInstance();
    Priority first("first", mgr, 3);
    Priority second("second", mgr, 5);
    Priority below("below", mgr, 1);
    Priority above("above", mgr, 2);
    RtPrioritiesWinNT own;
    Priority &scope = own.getProcessScopePriority();
    own.setProcessScope(first);
    {
        Relation order("below<above", below, Relation::LESS, above);
        EXPECT_THROW(below.setPriority(4), PriorityEx);
        EXPECT_THROW(own.setProcessScope(second), PriorityEx);
        below.setPriority(1);
        EXPECT_EQ(scope.getPriority(), 3);
        first.setPriority(4);
        EXPECT_EQ(scope.getPriority(), 4);
        // This also holds for a failure outside the graph.
        NotingThread refusing;
        Relation follows("refusing", scope, Relation::EQUAL, refusing.getPriority());
        refusing._refuses = true;
        EXPECT_THROW(own.setProcessScope(second), std::runtime_error);
        refusing._refuses = false;
        mgr.notify(PriorityMgr::VALUE_CHANGED);
        EXPECT_EQ(refusing._levels.back(), 4);
    }
    EXPECT_EQ(scope.getPriority(), 4);
    own.setProcessScope(second);
    EXPECT_EQ(scope.getPriority(), 5);
}

TEST(RealTimePriorities, TheProcessScopeOfTheProcessCanBeSetAndSetBack)
{
    Priority chosen("chosen", MtPriorityMgr::getInstance(), 4);
    landmarks().setProcessScope(chosen);
    EXPECT_EQ(landmarks().getProcessScopePriority().getPriority(), 4);
    landmarks().setProcessScope(landmarks().getBaseLinePriority());
    EXPECT_EQ(landmarks().getProcessScopePriority().getPriority(), 0);
}

} // namespace

} // namespace ZvTest
