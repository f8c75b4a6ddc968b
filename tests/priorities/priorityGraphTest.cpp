#include "resmgt/locks/lkGuard.h"
#include "resmgt/threads/priority.h"
#include "resmgt/threads/priorityEx.h"
#include "resmgt/threads/priorityMgr.h"
#include "testing/askingStream.h"
#include "testing/dump.h"
#include "testing/failures.h"
#include "testing/graphviz.h"
#include "zvbase/assertions.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <semaphore>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

using Relation = PriorityRelation;

class PriorityGraph : public testing::Test
{
protected:
    ~PriorityGraph() noexcept override = default;

    PriorityMgr mgr{"graph", 0, 6};
};

TEST_F(PriorityGraph, AFreeNodeBetweenTwoFixedOnesGetsTheLowestValueThatFits)
{
    Priority a("a", mgr, 3);
    Priority b("b", mgr, 5);
    Priority f("f", mgr, Priority::NOT_SET);
    Relation below("a<f", a, Relation::LESS, f);
    Relation above("f<b", f, Relation::LESS, b);
    EXPECT_EQ(f.getPriority(), 4);
    EXPECT_EQ(dumpOf(f, false),
              "                   f prio        4 fixed 0 lhs        4 rhs        4\n");
}

TEST_F(PriorityGraph, AFreeNodeWithoutRelationsHasTheMinimum)
{
    PriorityMgr other("other", 2, 9);
    Priority here("here", mgr, Priority::NOT_SET);
    Priority there("there", other, Priority::NOT_SET);
    EXPECT_EQ(here.getPriority(), 0);
    EXPECT_EQ(there.getPriority(), 2);
}

TEST_F(PriorityGraph, AFreeNodeFollowsAFixedEqualOnEitherSide)
{
    Priority fixed("fixed", mgr, 3);
    Priority left("left", mgr, Priority::NOT_SET);
    Priority right("right", mgr, Priority::NOT_SET);
    Relation onTheLeft("left==fixed", left, Relation::EQUAL, fixed);
    Relation onTheRight("fixed==right", fixed, Relation::EQUAL, right);
    EXPECT_EQ(left.getPriority(), 3);
    EXPECT_EQ(right.getPriority(), 3);
    fixed.setPriority(5);
    EXPECT_EQ(left.getPriority(), 5);
    EXPECT_EQ(right.getPriority(), 5);
}

TEST_F(PriorityGraph, FixedNodesThatBreakARelationAreReportedWithBothValues)
{
    Priority a("a", mgr, 3);
    Priority b("b", mgr, 3);
    EXPECT_EQ(
        reasonOf<PriorityEx::ExRelationInvalid>([&] { Relation("a<b", a, Relation::LESS, b); }),
        "Relation \"a<b\" invalid: \"a\" (3) <  \"b\" (3)");
    EXPECT_TRUE(dumpOf(mgr).ends_with("Relations: \n"));
}

TEST_F(PriorityGraph, EachKindOfRelationIsNamedInTheReport)
{
    Priority a("a", mgr, 4);
    Priority b("b", mgr, 2);
    EXPECT_EQ(
        reasonOf<PriorityEx::ExRelationInvalid>([&] { Relation("r", a, Relation::EQUAL, b); }),
        "Relation \"r\" invalid: \"a\" (4) == \"b\" (2)");
    EXPECT_EQ(
        reasonOf<PriorityEx::ExRelationInvalid>([&] { Relation("r", a, Relation::LESS_EQUAL, b); }),
        "Relation \"r\" invalid: \"a\" (4) <= \"b\" (2)");
}

TEST_F(PriorityGraph, AFreeNodeBoundedFromBothSidesOfOneFixedNodeHasNoValue)
{
    Priority fixed("fixed", mgr, 3);
    Priority f("f", mgr, Priority::NOT_SET);
    Relation below("fixed<f", fixed, Relation::LESS, f);
    // A direct relation would be a cycle of order relations, so a node that equals f is used.
    EXPECT_EQ(failedAssertion([&] { Relation("f<fixed", f, Relation::LESS, fixed); }), "isValid()");
    Priority equal("equal", mgr, Priority::NOT_SET);
    Relation same("f==equal", f, Relation::EQUAL, equal);
    EXPECT_EQ(reasonOf<PriorityEx::ExTransientInvalid>(
                  [&] { Relation("equal<fixed", equal, Relation::LESS, fixed); }),
              "Transient \"f\" invalid: 6 2")
        << "the bound goes round the ring once more before it ends";
    EXPECT_EQ(f.getPriority(), 4);
}

TEST_F(PriorityGraph, ARingOfEqualRelationsEnds)
{
    Priority a("a", mgr, Priority::NOT_SET);
    Priority b("b", mgr, Priority::NOT_SET);
    Priority c("c", mgr, Priority::NOT_SET);
    Relation ab("ab", a, Relation::EQUAL, b);
    Relation bc("bc", b, Relation::EQUAL, c);
    Relation ca("ca", c, Relation::EQUAL, a);
    Relation aa("aa", a, Relation::EQUAL, a);
    Priority fixed("fixed", mgr, 4);
    {
        Relation above("fixed<=b", fixed, Relation::LESS_EQUAL, b);
        EXPECT_EQ(a.getPriority(), 4);
        EXPECT_EQ(b.getPriority(), 4);
        EXPECT_EQ(c.getPriority(), 4);
    }
    // The node that raised the ring is gone. The ring does not keep its value.
    EXPECT_EQ(a.getPriority(), 0);
    EXPECT_EQ(b.getPriority(), 0);
    EXPECT_EQ(c.getPriority(), 0);
}

TEST_F(PriorityGraph, ACycleOfOrderRelationsIsRefusedWhenItIsMade)
{
    Priority a("a", mgr, Priority::NOT_SET);
    Priority b("b", mgr, Priority::NOT_SET);
    Priority c("c", mgr, Priority::NOT_SET);
    Relation ab("a<b", a, Relation::LESS, b);
    Relation bc("b<=c", b, Relation::LESS_EQUAL, c);
    EXPECT_EQ(failedAssertion([&] { Relation("c<a", c, Relation::LESS, a); }), "isValid()");
    EXPECT_EQ(failedAssertion([&] { Relation("c<=b", c, Relation::LESS_EQUAL, b); }), "isValid()");
    EXPECT_EQ(failedAssertion([&] { Relation("a<a", a, Relation::LESS, a); }), "isValid()");
    EXPECT_EQ(failedAssertion([&] { Relation("a<=a", a, Relation::LESS_EQUAL, a); }), "isValid()");
    EXPECT_EQ(c.getPriority(), 1);
}

TEST_F(PriorityGraph, TheTestForCyclesRunsForEqualRelationsToo)
{
    Priority a("a", mgr, Priority::NOT_SET);
    Priority b("b", mgr, Priority::NOT_SET);
    Relation ab("a<b", a, Relation::LESS, b);
    EXPECT_EQ(failedAssertion([&] { Relation("b==a", b, Relation::EQUAL, a); }), "isValid()");
    EXPECT_EQ(reasonOf<PriorityEx>([&] { Relation("a==b", a, Relation::EQUAL, b); }).substr(0, 8),
              "Relation");
}

TEST_F(PriorityGraph, ManyWaysBetweenTwoNodesAreSearchedInNoTime)
{
    // Each layer doubles the number of paths.
    std::vector<std::unique_ptr<Priority>> nodes;
    std::vector<std::unique_ptr<Relation>> relations;
    auto const addNode = [&] {
        nodes.push_back(std::make_unique<Priority>("n", mgr, Priority::NOT_SET));
        return nodes.back().get();
    };
    Priority *first = addNode();
    Priority *last = first;
    for (int layer = 0; layer < 60; ++layer) {
        Priority * const next = addNode();
        for (int way = 0; way < 2; ++way) {
            Priority * const middle = addNode();
            for (auto [lhs, rhs] : {std::pair(last, middle), std::pair(middle, next)})
                relations.push_back(
                    std::make_unique<Relation>("r", *lhs, Relation::LESS_EQUAL, *rhs));
        }
        last = next;
    }
    EXPECT_EQ(failedAssertion([&] { Relation("r", *last, Relation::LESS_EQUAL, *first); }),
              "isValid()");
    Priority floor("floor", mgr, 2);
    Relation lift("lift", floor, Relation::LESS, *first);
    EXPECT_EQ(last->getPriority(), 3);
    relations.clear();
}

TEST_F(PriorityGraph, NodesOfTwoManagersAreNotRelated)
{
    PriorityMgr other("other", 0, 6);
    Priority here("here", mgr, 1);
    Priority there("there", other, 1);
    EXPECT_EQ(failedAssertion([&] { Relation("r", here, Relation::EQUAL, there); }), "isValid()");
    EXPECT_EQ(failedAssertion([&] { Relation("r", there, Relation::EQUAL, here); }), "isValid()");
}

TEST_F(PriorityGraph, SetPriorityOnAFreeNodeIsOverwrittenAtOnce)
{
    Priority f("f", mgr, Priority::NOT_SET);
    f.setPriority(5);
    EXPECT_EQ(f.getPriorityNoCheck(), 0);
    EXPECT_FALSE(f.isPriorityFixed());
}

TEST_F(PriorityGraph, NoFreeNodeGetsAValueBeyondTheRange)
{
    Priority top("top", mgr, 6);
    Priority f("f", mgr, Priority::NOT_SET);
    EXPECT_EQ(reasonOf<PriorityEx::ExTransientInvalid>(
                  [&] { Relation("top<f", top, Relation::LESS, f); }),
              "Transient \"f\" invalid: 7 6");
    Priority bottom("bottom", mgr, 0);
    EXPECT_EQ(reasonOf<PriorityEx::ExTransientInvalid>(
                  [&] { Relation("f<bottom", f, Relation::LESS, bottom); }),
              "Transient \"f\" invalid: 0 -1");
    Priority outside("outside", mgr, 9);
    EXPECT_EQ(outside.getPriority(), 9) << "the range is for free nodes";
    EXPECT_EQ(reasonOf<PriorityEx::ExTransientInvalid>(
                  [&] { Relation("outside==f", outside, Relation::EQUAL, f); }),
              "Transient \"f\" invalid: 9 6");
}

TEST_F(PriorityGraph, AnEmptyRangeHasRoomForFixedNodesOnly)
{
    PriorityMgr empty("empty", 3, 2);
    Priority fixed("fixed", empty, 7);
    EXPECT_EQ(
        reasonOf<PriorityEx::ExTransientInvalid>([&] { Priority("f", empty, Priority::NOT_SET); }),
        "Transient \"f\" invalid: 3 2");
    EXPECT_EQ(fixed.getPriority(), 7);
}

TEST_F(PriorityGraph, AFreeNodeThatIsPushedDownIsReportedWithItsBounds)
{
    Priority top("top", mgr, 2);
    Priority x("x", mgr, Priority::NOT_SET);
    Priority y("y", mgr, Priority::NOT_SET);
    Relation xy("x<y", x, Relation::LESS, y);
    Relation yTop("y<top", y, Relation::LESS, top);
    EXPECT_EQ(x.getPriority(), 0);
    EXPECT_EQ(y.getPriority(), 1);
    EXPECT_EQ(reasonOf<PriorityEx::ExTransientInvalid>([&] { top.setPriority(1); }),
              "Transient \"x\" invalid: 0 -1");
}

TEST_F(PriorityGraph, AFailedSetPriorityKeepsTheValueAndThenLeavesTheGraphClean)
{
    Priority a("a", mgr, 1);
    Priority b("b", mgr, 2);
    {
        Relation ab("a<b", a, Relation::LESS, b);
        EXPECT_EQ(reasonOf<PriorityEx::ExRelationInvalid>([&] { a.setPriority(4); }),
                  "Relation \"a<b\" invalid: \"a\" (4) <  \"b\" (2)");
        EXPECT_EQ(a.getPriority(), 4) << "the graph counts as solved";
        EXPECT_EQ(mgr.check(), PriorityMgr::RELATION_INVALID);
        EXPECT_EQ(reasonOf<PriorityEx::ExRelationInvalid>([&] { Priority("late", mgr, 1); }),
                  "Relation \"a<b\" invalid: \"a\" (4) <  \"b\" (2)")
            << "each further change meets the same failure";
    }
    EXPECT_EQ(mgr.check(), PriorityMgr::ALL_VALID);
}

TEST_F(PriorityGraph, AFailedRelationLeavesTheGraphAsBefore)
{
    Priority a("a", mgr, 3);
    Priority f("f", mgr, Priority::NOT_SET);
    Relation af("a<f", a, Relation::LESS, f);
    std::string const before = dumpOf(mgr);
    EXPECT_THROW(Relation("f<=a", a, Relation::EQUAL, f), PriorityEx);
    EXPECT_EQ(dumpOf(mgr), before);
    EXPECT_EQ(f.getPriority(), 4);
}

TEST_F(PriorityGraph, AnEqualRelationBetweenNodesOfOneNameSendsBoundsToTheRightOnly)
{
    Priority fixed("fixed", mgr, 3);
    Priority lhs("twin", mgr, Priority::NOT_SET);
    Priority rhs("twin", mgr, Priority::NOT_SET);
    Relation twins("twins", lhs, Relation::EQUAL, rhs);
    {
        Relation liftLeft("fixed<=lhs", fixed, Relation::LESS_EQUAL, lhs);
        EXPECT_EQ(rhs.getPriority(), 3);
    }
    EXPECT_EQ(reasonOf<PriorityEx::ExRelationInvalid>(
                  [&] { Relation("fixed<=rhs", fixed, Relation::LESS_EQUAL, rhs); }),
              "Relation \"twins\" invalid: \"twin\" (0) == \"twin\" (3)");
    rhs.setName("other");
    Relation liftRight("fixed<=rhs", fixed, Relation::LESS_EQUAL, rhs);
    EXPECT_EQ(lhs.getPriority(), 3);
}

TEST_F(PriorityGraph, ADestructorSolvesTheGraphAndCanThrow)
{
    Priority a("a", mgr, 3);
    Priority b("b", mgr, 5);
    Relation ab("a<b", a, Relation::LESS, b);
    auto node = std::make_unique<Priority>("node", mgr, 1);
    auto relation = std::make_unique<Relation>("node<a", *node, Relation::LESS, a);
    EXPECT_THROW(b.setPriority(0), PriorityEx::ExRelationInvalid);
    EXPECT_EQ(reasonOf<PriorityEx::ExRelationInvalid>([&] { delete relation.release(); }),
              "Relation \"a<b\" invalid: \"a\" (3) <  \"b\" (0)");
    EXPECT_EQ(reasonOf<PriorityEx::ExRelationInvalid>([&] { delete node.release(); }),
              "Relation \"a<b\" invalid: \"a\" (3) <  \"b\" (0)");
    b.setPriority(5);
}

TEST_F(PriorityGraph, ADestructorThrowsNothingWhileAnExceptionPasses)
{
    Priority a("a", mgr, 3);
    Priority b("b", mgr, 5);
    Relation ab("a<b", a, Relation::LESS, b);
    EXPECT_THROW(
        {
            Priority node("node", mgr, 1);
            Relation relation("node<a", node, Relation::LESS, a);
            b.setPriority(0);
        },
        PriorityEx::ExRelationInvalid);
    b.setPriority(5);
    EXPECT_EQ(dumpOf(mgr).find("node"), std::string::npos) << "it was removed all the same";
}

TEST_F(PriorityGraph, ACopyIsAFurtherNodeWithoutRelations)
{
    Priority fixed("fixed", mgr, 3);
    Priority f("f", mgr, Priority::NOT_SET);
    Relation relation("fixed<f", fixed, Relation::LESS, f);
    Priority fixedCopy(fixed);
    Priority freeCopy(f);
    EXPECT_EQ(fixedCopy.getName(), "fixed");
    EXPECT_TRUE(fixedCopy.isPriorityFixed());
    EXPECT_EQ(fixedCopy.getPriority(), 3);
    EXPECT_EQ(freeCopy.getPriority(), 0);
    EXPECT_EQ(&freeCopy.getMgr(), &mgr);
    EXPECT_FALSE(f.isIndependantButNotSet());
    EXPECT_TRUE(freeCopy.isIndependantButNotSet());
    EXPECT_FALSE(fixedCopy.isIndependantButNotSet());
}

TEST_F(PriorityGraph, ARemovedNodeTakesItsRelationsOffTheManagersList)
{
    Priority a("a", mgr, 3);
    Priority b("b", mgr, 3);
    Priority c("c", mgr, 5);
    Relation ab("a==b", a, Relation::EQUAL, b);
    Relation bc("b<c", b, Relation::LESS, c);
    mgr.remove(b);
    std::string const dump = dumpOf(mgr);
    EXPECT_EQ(dump.find("\"b\""), std::string::npos);
    EXPECT_TRUE(dump.ends_with("Relations: \n")) << dump;
    EXPECT_NE(dumpOf(a, true).find("a==b"), std::string::npos) << "the other node keeps it";
    b.setPriority(7);
    EXPECT_EQ(mgr.check(), PriorityMgr::ALL_VALID) << "the relations are no longer checked";
}

TEST_F(PriorityGraph, AManagerRefusesNodesAndRelationsOfAnother)
{
    PriorityMgr other("other", 0, 6);
    Priority a("a", other, 1);
    Priority b("b", other, Priority::NOT_SET);
    Relation ab("a<b", a, Relation::LESS, b);
    std::string const before = dumpOf(other);
    EXPECT_EQ(failedAssertion([&] { mgr.add(a); }), "&priority.getMgr() == this");
    EXPECT_EQ(failedAssertion([&] { mgr.remove(a); }), "&priority.getMgr() == this");
    EXPECT_EQ(failedAssertion([&] { mgr.add(ab); }), "relation._mgr == this");
    EXPECT_EQ(failedAssertion([&] { mgr.remove(ab); }), "relation._mgr == this");
    EXPECT_EQ(dumpOf(other), before);
    EXPECT_EQ(dumpOf(mgr), "\ngraph \nPriorities:\nIndependant: \nRelations: \n");
}

TEST_F(PriorityGraph, ANodeThatIsDestroyedBeforeItsRelationsIsReportedAndDoesNoHarm)
{
    Priority a("a", mgr, 3);
    auto b = std::make_unique<Priority>("b", mgr, Priority::NOT_SET);
    Priority c("c", mgr, Priority::NOT_SET);
    {
        Relation ab("a<b", a, Relation::LESS, *b);
        Relation bc("b==c", *b, Relation::EQUAL, c);
        Relation cb("c<=b", c, Relation::LESS_EQUAL, *b);
        EXPECT_EQ(c.getPriority(), 4);
        EXPECT_EQ(failedAssertion([&] { delete b.release(); }), "hasNoRelations");
        EXPECT_EQ(c.getPriority(), 0) << "no relation leads through it now";
        a.setPriority(5);
    }
    EXPECT_EQ(mgr.check(), PriorityMgr::ALL_VALID);
    EXPECT_EQ(dumpOf(c, true),
              "                   c prio        0 fixed 0 lhs        0 rhs        6\n"
              "Dependants: \nDependOns: \nEquals: \n");
}

TEST_F(PriorityGraph, AValueIsReadWhileAnotherThreadHoldsTheManagersLock)
{
    Priority a("a", mgr, 3);
    std::binary_semaphore locked{0};
    std::binary_semaphore read{0};
    std::thread holder([&] {
        LkGuard<LkRecLock const> guard(mgr.getLock());
        locked.release();
        read.acquire();
    });
    locked.acquire();
    EXPECT_EQ(a.getPriorityNoCheck(), 3);
    read.release();
    holder.join();
}

TEST_F(PriorityGraph, RelationArithmetic)
{
    Priority a("a", mgr, 1);
    Priority b("b", mgr, 1);
    Priority c("c", mgr, 2);
    Relation equal("a==b", a, Relation::EQUAL, b);
    Relation less("a<c", a, Relation::LESS, c);
    Relation lessEqual("b<=c", b, Relation::LESS_EQUAL, c);
    EXPECT_EQ(equal.computeRhsPriority(7), 7);
    EXPECT_EQ(equal.computeLhsPriority(7), 7);
    EXPECT_EQ(less.computeRhsPriority(7), 8);
    EXPECT_EQ(less.computeLhsPriority(7), 6);
    EXPECT_EQ(lessEqual.computeRhsPriority(7), 7);
    EXPECT_EQ(lessEqual.computeLhsPriority(7), 7);
    EXPECT_EQ(less.computePriority(PriorityTypes::LEFT, 7), 6);
    EXPECT_EQ(less.computePriority(PriorityTypes::RIGHT, 7), 8);
    EXPECT_TRUE(less.isRelation(Relation::LESS));
    EXPECT_FALSE(less.isRelation(Relation::EQUAL));
    EXPECT_TRUE(less.uses(a));
    EXPECT_TRUE(less.uses(c));
    EXPECT_FALSE(less.uses(b));
    EXPECT_EQ(&less.getLhs(), &a);
    EXPECT_EQ(&less.getRhs(), &c);
    EXPECT_EQ(&less.get(PriorityTypes::LEFT), &a);
    EXPECT_EQ(&less.get(PriorityTypes::RIGHT), &c);
    EXPECT_EQ(PriorityTypes::getOpposite(PriorityTypes::LEFT), PriorityTypes::RIGHT);
    EXPECT_EQ(PriorityTypes::getOpposite(PriorityTypes::RIGHT), PriorityTypes::LEFT);
    EXPECT_TRUE(equal.check());
    EXPECT_TRUE(less.check());
    EXPECT_TRUE(lessEqual.check());
}

TEST_F(PriorityGraph, ValuesAtTheEndsOfTheNumbersAreReportedAndNotWrapped)
{
    Priority highest("highest", mgr, std::numeric_limits<int>::max());
    Priority f("f", mgr, Priority::NOT_SET);
    EXPECT_EQ(
        reasonOf<PriorityEx::ExRelationInvalid>([&] { Relation("r", highest, Relation::LESS, f); }),
        "Relation \"r\" invalid: \"highest\" (2147483647) <  \"f\" (0)");
    EXPECT_EQ(f.getPriority(), 0);
}

TEST_F(PriorityGraph, ValuesOutsideTheEnumerationsAbortTheProgram)
{
    auto const bad = static_cast<Relation::Relation>(3);
    EXPECT_THROW(Relation::relationToString(bad), ProgramAborted);
    EXPECT_STREQ(Relation::relationToString(Relation::EQUAL), "==");
    EXPECT_STREQ(Relation::relationToString(Relation::LESS), "< ");
    EXPECT_STREQ(Relation::relationToString(Relation::LESS_EQUAL), "<=");
    EXPECT_STREQ(PriorityMgr::errorToString(PriorityMgr::TRANSIENT_INVALID), "TRANSIENT_INVALID");
    EXPECT_STREQ(PriorityMgr::errorToString(PriorityMgr::RELATION_INVALID), "RELATION_INVALID");
    EXPECT_THROW(PriorityMgr::errorToString(PriorityMgr::ALL_VALID), ProgramAborted);
    EXPECT_THROW(PriorityMgr::errorToString(static_cast<PriorityMgr::Error>(3)), ProgramAborted);

    Priority a("a", mgr, 1);
    Priority b("b", mgr, Priority::NOT_SET);
    EXPECT_THROW(Relation("r", a, bad, b), ProgramAborted);
    Relation good("a<b", a, Relation::LESS, b);
    EXPECT_EQ(b.getPriority(), 2) << "the graph is none the worse";
}

TEST_F(PriorityGraph, TheDumpShowsNodesFixedNodesAndRelations)
{
    Priority a("a", mgr, 3);
    Priority f("free", mgr, Priority::NOT_SET);
    Relation af("a<f", a, Relation::LESS, f);
    Relation ff("a-longer-name", f, Relation::EQUAL, f);
    std::string const lineOfA =
        "                   a prio        3 fixed 1 lhs        3 rhs        3\n";
    std::string const lineOfF =
        "                free prio        4 fixed 0 lhs        4 rhs        6\n";
    std::string const af_ = "\"       a<f\" : a (    3 ) <  free (    4 ) valid";
    std::string const ff_ = "\"a-longer-name\" : free (    4 ) == free (    4 ) valid";
    EXPECT_EQ(dumpOf(af), af_);
    EXPECT_EQ(dumpOf(mgr), "\ngraph \nPriorities:\n\t" + lineOfA + "\t" + lineOfF +
                               "Independant: \n\t" + lineOfA + "Relations: \n\t" + af_ + "\n\t" +
                               ff_ + "\n");
    EXPECT_EQ(dumpOf(a, true), lineOfA + "Dependants: \n" + af_ + "\nDependOns: \nEquals: \n");
    EXPECT_EQ(dumpOf(f, true), lineOfF + "Dependants: \nDependOns: \n" + af_ + "\nEquals: \n" +
                                   ff_ + "\n" + ff_ + "\n");
    std::ostringstream os;
    os << mgr;
    EXPECT_EQ(os.str(), dumpOf(mgr));

    EXPECT_THROW(a.setPriority(6), PriorityEx::ExTransientInvalid);
    EXPECT_EQ(dumpOf(af), "\"       a<f\" : a (    6 ) <  free (    7 ) valid");
    a.setPriority(3);
}

TEST_F(PriorityGraph, DumpsWriteWithoutTheLocks)
{
    Priority a("a", mgr, 1);
    Priority b("b", mgr, 2);
    Relation ab("a<b", a, Relation::LESS, b);
    auto const expectUnlocked = [&](auto const &object, auto... arguments) {
        auto const work = [&] {
            EXPECT_FALSE(mgr.getLock().isLocked());
            EXPECT_FALSE(a.getLock().isLocked());
        };
        auto const write = [&](std::ostream &os) { object.dump(os, arguments...); };
        EXPECT_EQ(ZvTest::writtenDuring(work, write), dumpOf(object, arguments...));
    };
    expectUnlocked(mgr);
    expectUnlocked(a, true);
    expectUnlocked(a, false);
    expectUnlocked(ab);
}

TEST_F(PriorityGraph, TheDumpMarksABrokenRelation)
{
    Priority a("a", mgr, 1);
    Priority b("b", mgr, 2);
    Relation ab("a<b", a, Relation::LESS, b);
    EXPECT_THROW(a.setPriority(2), PriorityEx);
    EXPECT_EQ(dumpOf(ab), "\"       a<b\" : a (    2 ) <  b (    2 ) NOT valid");
    a.setPriority(0);
}

TEST_F(PriorityGraph, AManagerIsNamedAndMarked)
{
    EXPECT_EQ(mgr.getName(), "graph");
    EXPECT_FALSE(mgr.isTracingEnabled());
    mgr.enableTracing(true);
    EXPECT_TRUE(mgr.isTracingEnabled());
    mgr.enableTracing(false);
    EXPECT_FALSE(mgr.isTracingEnabled());
    EXPECT_STREQ(mgr.getLock().getName(), "PriorityMgr");
    Priority node("node", mgr, 1);
    EXPECT_STREQ(node.getLock().getName(), "Priority");
    node.setName("renamed");
    EXPECT_EQ(node.getName(), "renamed");
}

TEST_F(PriorityGraph, AddingAgainChangesNothing)
{
    Priority a("a", mgr, 1);
    Priority b("b", mgr, Priority::NOT_SET);
    Relation ab("a<b", a, Relation::LESS, b);
    std::string const before = dumpOf(mgr);
    mgr.add(a);
    mgr.add(ab);
    mgr.notify(PriorityMgr::VALUE_CHANGED);
    mgr.update();
    EXPECT_EQ(dumpOf(mgr), before);
}

class ForgivingMgr : public PriorityMgr
{
public:
    using PriorityMgr::PriorityMgr;
    using PriorityMgr::updateError;
    std::vector<Error> _errors;

protected:
    void updateError(Error error) override { _errors.push_back(error); }
};

TEST(PriorityErrors, AManagerMayForgiveThem)
{
    ForgivingMgr mgr("forgiving", 0, 6);
    Priority a("a", mgr, 3);
    Priority b("b", mgr, 3);
    PriorityRelation ab("a<b", a, PriorityRelation::LESS, b);
    EXPECT_EQ(mgr._errors, std::vector{PriorityMgr::RELATION_INVALID});
    b.setPriority(4);
    EXPECT_EQ(mgr._errors.size(), 1u);
    EXPECT_EQ(mgr.check(), PriorityMgr::ALL_VALID);
}

class AskingMgr : public PriorityMgr
{
public:
    using PriorityMgr::PriorityMgr;
    void fail(Error error) { updateError(error); }
};

TEST(PriorityErrors, AnErrorWithoutAFormOfItsOwnIsNamed)
{
    AskingMgr mgr("asking", 0, 6);
    EXPECT_THROW(mgr.fail(PriorityMgr::ALL_VALID), ProgramAborted);
}

TEST(PriorityErrors, AreCaughtByFamilyAndStandardClass)
{
    PriorityEx::ExTransientInvalid const transient("file", 1, "node", 4, 2);
    EXPECT_STREQ(transient.getReason(), "Transient \"node\" invalid: 4 2");
    EXPECT_STREQ(static_cast<std::logic_error const &>(transient).what(), transient.getReason());
    PriorityEx::ExRelationInvalid const relation("file", 1, "r", "a", 3, "< ", "b", 3);
    EXPECT_STREQ(relation.what(), "Relation \"r\" invalid: \"a\" (3) <  \"b\" (3)");
    std::unique_ptr<ExBase> const copy(relation.clone());
    EXPECT_STREQ(copy->getReason(), relation.getReason());
}

TEST(PriorityErrors, ExErrorIsNoStandardException)
{
    static_assert(!std::is_base_of_v<std::exception, PriorityEx::ExError>);
    static_assert(std::is_base_of_v<std::exception, PriorityEx::ExTransientInvalid>);
    PriorityEx::ExError const error("file", 1, "RELATION_INVALID");
    EXPECT_STREQ(error.getReason(), "RELATION_INVALID");
    std::unique_ptr<ExBase> const copy(error.clone());
    EXPECT_STREQ(copy->getReason(), "RELATION_INVALID");
    try {
        throw error;
    } catch (std::exception const &) {
        FAIL();
    } catch (ExBase const &) {
    }
}

TEST_F(PriorityGraph, ItsDotHasEachNodeWithItsValueAndEachRelation)
{
    Priority floor("floor", mgr, 3);
    Priority worker("worker \\1", mgr, Priority::NOT_SET);
    Priority twin("twin", mgr, Priority::NOT_SET);
    Relation above("above", floor, Relation::LESS, worker);
    Relation same("same", worker, Relation::EQUAL, twin);
    EXPECT_EQ(graphOf(mgr),
              (std::vector<std::string>{"p1: floor 3", "p2: worker \\1 4", "p3: twin 4",
                                        "p1 -> p2: <", "p2 -> p3: =="}));
    Relation notBelow("notBelow", floor, Relation::LESS_EQUAL, twin);
    EXPECT_EQ(graphOf(mgr)[4], "p1 -> p3: <=");
}

} // namespace

} // namespace ZvTest
