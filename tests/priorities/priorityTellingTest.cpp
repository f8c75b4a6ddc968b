#include "resmgt/threads/priority.h"
#include "resmgt/threads/priorityEx.h"
#include "resmgt/threads/priorityMgr.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

using Log = std::vector<std::string>;

class Listener : public Priority
{
public:
    enum Kind
    {
        EACH,
        CHANGED,
        SILENT
    };

    Listener(char const *name, PriorityMgr &mgr, int priority, Kind kind, Log &log)
        : Priority(name, mgr, priority,
                   kind == EACH      ? AT_EACH_SOLVING
                   : kind == CHANGED ? WHEN_CHANGED
                                     : NEVER),
          _log(log)
    {
        join();
    }
    ~Listener() noexcept(false) override { leave(); }

    void updatePriority(int priority) override
    {
        _log.push_back(std::string(getName().getChars()) + std::to_string(priority));
        if (_then) {
            auto const then = std::exchange(_then, nullptr);
            then();
        }
    }

    void joinAgain() { join(); }
    void leaveEarly() { leave(); }

    std::function<void()> _then;

private:
    Log &_log;
};

/// Listener that joins in the constructor of its base, before this class is complete.
class SimpleListener : public Priority
{
public:
    SimpleListener(char const *name, PriorityMgr &mgr, int priority, Log &log)
        : Priority(name, mgr, priority), _log(log)
    {}

    void updatePriority(int priority) override
    {
        _log.push_back(std::string(getName().getChars()) + std::to_string(priority));
    }

private:
    Log &_log;
};

class PriorityTelling : public testing::Test
{
protected:
    ~PriorityTelling() noexcept override = default;

    Log takeLog() { return std::exchange(log, {}); }

    Log log;
    PriorityMgr mgr{"mgr", 0, 6};
};

TEST_F(PriorityTelling, NotifiesEveryNodeAtEachSolvingInTheOrderOfJoining)
{
    Listener a("a", mgr, 3, Listener::EACH, log);
    EXPECT_EQ(takeLog(), Log({"a3"}));
    Listener b("b", mgr, Priority::NOT_SET, Listener::EACH, log);
    EXPECT_EQ(takeLog(), Log({"a3", "b0"}));
    {
        PriorityRelation ab("a<b", a, PriorityRelation::LESS, b);
        EXPECT_EQ(takeLog(), Log({"a3", "b4"}));
        a.setPriority(4);
        EXPECT_EQ(takeLog(), Log({"a4", "b5"}));
    }
    EXPECT_EQ(takeLog(), Log({"a4", "b0"}));
    b.setPriority(6);
    EXPECT_EQ(takeLog(), Log({"a4", "b0"}));
    mgr.notify(PriorityMgr::VALUE_CHANGED);
    EXPECT_EQ(takeLog(), Log({"a4", "b0"}));
    mgr.update();
    b.getPriority();
    EXPECT_EQ(takeLog(), Log()) << "a clean graph is not solved";
}

TEST_F(PriorityTelling, AnObserverOfChangesIsNotCalledWithoutAChange)
{
    Listener a("a", mgr, 3, Listener::EACH, log);
    Listener b("b", mgr, Priority::NOT_SET, Listener::CHANGED, log);
    EXPECT_EQ(takeLog(), Log({"a3", "a3", "b0"})) << "the first value is told";
    PriorityRelation ab("a<b", a, PriorityRelation::LESS, b);
    EXPECT_EQ(takeLog(), Log({"a3", "b4"}));
    PriorityRelation again("a<=b", a, PriorityRelation::LESS_EQUAL, b);
    EXPECT_EQ(takeLog(), Log({"a3"}));
    b.setPriority(6);
    EXPECT_EQ(takeLog(), Log({"a3"}));
    a.setPriority(2);
    EXPECT_EQ(takeLog(), Log({"a2", "b3"}));
}

TEST_F(PriorityTelling, LeavesOutOneThatWantsNothing)
{
    Listener a("a", mgr, 3, Listener::SILENT, log);
    a.setPriority(4);
    EXPECT_EQ(takeLog(), Log());
    EXPECT_EQ(a.getPriority(), 4);
}

/// Listener whose base class has joined without notifications.
class LateListener : public Listener
{
public:
    LateListener(PriorityMgr &mgr, Log &log, bool atEachSolving)
        : Listener("late", mgr, NOT_SET, SILENT, log)
    {
        setTelling(atEachSolving ? AT_EACH_SOLVING : WHEN_CHANGED);
    }
    ~LateListener() noexcept(false) override { listenNoMore(); }

    void listenNoMore() { setTelling(NEVER); }
};

TEST_F(PriorityTelling, CanBeChosenByADerivedClassWhenItIsComplete)
{
    Priority floor("floor", mgr, 3);
    {
        LateListener each(mgr, log, true);
        EXPECT_EQ(takeLog(), Log());
        PriorityRelation above("floor<=late", floor, PriorityRelation::LESS_EQUAL, each);
        EXPECT_EQ(takeLog(), Log({"late3"}));
        mgr.notify(PriorityMgr::VALUE_CHANGED);
        EXPECT_EQ(takeLog(), Log({"late3"}));
        each.listenNoMore();
        mgr.notify(PriorityMgr::VALUE_CHANGED);
        EXPECT_EQ(takeLog(), Log());
    }
    {
        LateListener changed(mgr, log, false);
        mgr.notify(PriorityMgr::VALUE_CHANGED);
        EXPECT_EQ(takeLog(), Log({"late0"})) << "the first value is told";
        mgr.notify(PriorityMgr::VALUE_CHANGED);
        EXPECT_EQ(takeLog(), Log());
        PriorityRelation above("floor<=late", floor, PriorityRelation::LESS_EQUAL, changed);
        EXPECT_EQ(takeLog(), Log({"late3"}));
    }
    EXPECT_EQ(takeLog(), Log({"late0"})) << "the relation went, the node heard no more";
}

TEST_F(PriorityTelling, FindsAnOverrideThatJoinedBeforeItWasComplete)
{
    SimpleListener a("a", mgr, 3, log);
    EXPECT_EQ(takeLog(), Log()) << "there was no override yet";
    SimpleListener b("b", mgr, Priority::NOT_SET, log);
    EXPECT_EQ(takeLog(), Log({"a3"}));
    PriorityRelation ab("a<b", a, PriorityRelation::LESS, b);
    EXPECT_EQ(takeLog(), Log({"a3", "b4"}));
    a.setPriority(1);
    EXPECT_EQ(takeLog(), Log({"a1", "b2"}));
}

TEST_F(PriorityTelling, StaysAwayFromAFailedSolving)
{
    Listener a("a", mgr, 3, Listener::EACH, log);
    Listener b("b", mgr, 5, Listener::EACH, log);
    PriorityRelation ab("a<b", a, PriorityRelation::LESS, b);
    takeLog();
    EXPECT_THROW(a.setPriority(5), PriorityEx::ExRelationInvalid);
    EXPECT_EQ(takeLog(), Log());
    EXPECT_THROW(Listener("c", mgr, 1, Listener::EACH, log), PriorityEx::ExRelationInvalid);
    EXPECT_EQ(takeLog(), Log());
    a.setPriority(4);
    EXPECT_EQ(takeLog(), Log({"a4", "b5"}));
}

TEST_F(PriorityTelling, NotifiesTheNodesAgainAfterARelationIsUndone)
{
    Listener a("a", mgr, 3, Listener::EACH, log);
    takeLog();
    EXPECT_THROW(PriorityRelation("a==a", a, static_cast<PriorityRelation::Relation>(9), a),
                 std::exception);
    takeLog();
    Priority b("b", mgr, 3);
    takeLog();
    EXPECT_THROW(PriorityRelation("a<b", a, PriorityRelation::LESS, b),
                 PriorityEx::ExRelationInvalid);
    EXPECT_EQ(takeLog(), Log({"a3"}));
}

TEST_F(PriorityTelling, MayChangeTheGraph)
{
    Listener a("a", mgr, 1, Listener::EACH, log);
    Listener b("b", mgr, 2, Listener::EACH, log);
    Listener c("c", mgr, Priority::NOT_SET, Listener::CHANGED, log);
    PriorityRelation bc("b<=c", b, PriorityRelation::LESS_EQUAL, c);
    takeLog();
    a._then = [&] { b.setPriority(4); };
    mgr.notify(PriorityMgr::VALUE_CHANGED);
    // The change is solved and notified inside the notification, which then continues.
    EXPECT_EQ(takeLog(), Log({"a1", "a1", "b4", "c4", "b4"}));
    EXPECT_EQ(c.getPriority(), 4);
}

TEST_F(PriorityTelling, MayAddAndRemoveNodes)
{
    Listener a("a", mgr, 1, Listener::EACH, log);
    auto b = std::make_unique<Listener>("b", mgr, 2, Listener::EACH, log);
    Listener c("c", mgr, 3, Listener::EACH, log);
    std::unique_ptr<Listener> d;
    takeLog();
    a._then = [&] {
        b.reset();
        d = std::make_unique<Listener>("d", mgr, 4, Listener::EACH, log);
    };
    mgr.notify(PriorityMgr::VALUE_CHANGED);
    EXPECT_EQ(takeLog(), Log({"a1", "a1", "c3", "a1", "c3", "d4", "c3", "d4"}));
}

TEST_F(PriorityTelling, MayDestroyTheNotifiedNode)
{
    auto a = std::make_unique<Listener>("a", mgr, 1, Listener::EACH, log);
    Listener b("b", mgr, 2, Listener::EACH, log);
    takeLog();
    a->_then = [&] { a->leaveEarly(); };
    mgr.notify(PriorityMgr::VALUE_CHANGED);
    EXPECT_EQ(takeLog(), Log({"a1", "b2", "b2"}));
    a->joinAgain();
    EXPECT_EQ(takeLog(), Log({"b2", "a1"})) << "it joined last now";
}

TEST_F(PriorityTelling, BeginsAnewForANodeThatHasJoinedAnew)
{
    Listener a("a", mgr, 3, Listener::CHANGED, log);
    EXPECT_EQ(takeLog(), Log({"a3"}));
    a.leaveEarly();
    a.joinAgain();
    EXPECT_EQ(takeLog(), Log({"a3"})) << "the first value is told, also if it was told before";
}

TEST_F(PriorityTelling, ThatThrowsReachesTheCallerAndIsMadeUpFor)
{
    Listener a("a", mgr, Priority::NOT_SET, Listener::CHANGED, log);
    Listener b("b", mgr, Priority::NOT_SET, Listener::CHANGED, log);
    takeLog();
    a._then = [] { throw std::runtime_error("refused"); };
    {
        Priority floor("floor", mgr, 3);
        PriorityRelation fb("floor<=b", floor, PriorityRelation::LESS_EQUAL, b);
        EXPECT_EQ(takeLog(), Log({"b3"}));
        EXPECT_THROW(PriorityRelation("floor<=a", floor, PriorityRelation::LESS_EQUAL, a),
                     std::runtime_error);
        EXPECT_EQ(takeLog(), Log({"a3", "a0", "b3"}));
        PriorityRelation fa("floor<=a", floor, PriorityRelation::LESS_EQUAL, a);
        EXPECT_EQ(takeLog(), Log({"a3"}));
    }
    EXPECT_EQ(takeLog(), Log({"a0", "b0"}));
}

TEST_F(PriorityTelling, ANodeHasNotJoinedIfItsJoiningIsRefused)
{
    Listener a("a", mgr, 1, Listener::EACH, log);
    Listener b("b", mgr, 2, Listener::EACH, log);
    takeLog();
    b._then = [] { throw std::runtime_error("refused"); };
    EXPECT_THROW(Listener("c", mgr, 3, Listener::EACH, log), std::runtime_error);
    EXPECT_EQ(takeLog(), Log({"a1", "b2"}));
    mgr.notify(PriorityMgr::VALUE_CHANGED);
    EXPECT_EQ(takeLog(), Log({"a1", "b2"}));
}

/// Manager that counts its solvings, and that can leave them out.
class CountingMgr : public PriorityMgr
{
public:
    using PriorityMgr::PriorityMgr;
    int _nbSolvings = 0;
    bool _solves = true;

protected:
    void performUpdate() override
    {
        ++_nbSolvings;
        if (_solves)
            PriorityMgr::performUpdate();
    }
};

TEST(PriorityOverriding, AnOverriddenSolverIsCalledForEveryChange)
{
    Log log;
    CountingMgr mgr("counting", 0, 6);
    Listener f("f", mgr, Priority::NOT_SET, Listener::CHANGED, log);
    EXPECT_EQ(mgr._nbSolvings, 1);
    Priority a("a", mgr, 3);
    PriorityRelation af("a<f", a, PriorityRelation::LESS, f);
    EXPECT_EQ(mgr._nbSolvings, 3);
    a.setPriority(1);
    EXPECT_EQ(mgr._nbSolvings, 4);
    EXPECT_EQ(log, Log({"f0", "f4", "f2"}));
    mgr._solves = false;
    EXPECT_NO_THROW(a.setPriority(0));
    EXPECT_EQ(f.getPriority(), 2) << "no solving took place";
    EXPECT_THROW(a.setPriority(2), PriorityEx::ExRelationInvalid);
    mgr._solves = true;
    a.setPriority(3);
    EXPECT_EQ(log, Log({"f0", "f4", "f2", "f4"}));
}

} // namespace

} // namespace ZvTest
