#include "resmgt/deviceManager/stateMachine/devSMTable.h"

#include "resmgt/deviceManager/devMgrEx.h"
#include "resmgt/deviceManager/stateMachine/devSMTableBuilder.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "testing/failures.h"
#include "testing/graphviz.h"

#include <gtest/gtest.h>

#include <sstream>

namespace ZvTest {

using namespace Zv;

namespace {

using Names = Vector<LiString>;
using Desc = DevSMTable::ConditionalTransitionDesc;

/// The parts of a table. A test changes the part that it checks.
struct Parts
{
    Names states{"on", "off", "_cs(on:x)"};
    Names events{"x", "y", "_ce(a)", "_noexc"};
    Names transitions{"a", "b", "_ct(on:x)", "_exc", "_noexc", "_ill"};
    DevSMTable::Matrix stateEvent{{2, 0, -1, -1}, {5, 1, -1, 4}, {-1, -1, 0, -1}};
    DevSMTable::Matrix stateTransition{
        {1, -1, 2, -1, -1, -1}, {-1, 0, -1, -1, 1, -1}, {0, -1, -1, -1, -1, 1}};
    Vector<Desc> descs{{"_ct(on:x)", {"a", "b"}, {"_ce(a)", "y"}}};
    Names auxiliaries{"_exc", "_noexc", "_ill"};
    Names primaryStates{"on", "off"};
    Names primaryEvents{"x", "y"};

    RCShdPtr<DevSMTable> create() const
    {
        return RCShdPtr<DevSMTable>(new DevSMTable(states, events, transitions, stateEvent,
                                                   stateTransition, descs, auxiliaries,
                                                   primaryStates, primaryEvents));
    }
};

TEST(DevSMTableTest, CountsAndDomains)
{
    auto const table = Parts().create();
    EXPECT_EQ(table->getNbStates(), 3);
    EXPECT_EQ(table->getNbEvents(), 4);
    EXPECT_EQ(table->getNbTransitions(), 6);
    EXPECT_TRUE(table->isState(0));
    EXPECT_TRUE(table->isState(2));
    EXPECT_FALSE(table->isState(3));
    EXPECT_FALSE(table->isState(-1));
    EXPECT_TRUE(table->isEvent(3));
    EXPECT_FALSE(table->isEvent(4));
    EXPECT_FALSE(table->isEvent(-1));
    EXPECT_TRUE(table->isTransition(5));
    EXPECT_FALSE(table->isTransition(6));
    EXPECT_FALSE(table->isTransition(-1));
}

TEST(DevSMTableTest, AdditionsOfTheExpansionAreNotPrimary)
{
    auto const table = Parts().create();
    EXPECT_TRUE(table->isPrimaryState(1));
    EXPECT_FALSE(table->isPrimaryState(2));
    EXPECT_FALSE(table->isPrimaryState(-1));
    EXPECT_TRUE(table->isPrimaryEvent(1));
    for (char const * const added : {"_ce(a)", "_noexc"}) {
        EXPECT_TRUE(table->isEvent(table->getEvent(added)));
        EXPECT_FALSE(table->isPrimaryEvent(table->getEvent(added)));
    }
    EXPECT_FALSE(table->isPrimaryEvent(-1));
    EXPECT_TRUE(table->isPrimaryTransition(1));
    EXPECT_FALSE(table->isPrimaryTransition(2));
    EXPECT_FALSE(table->isPrimaryTransition(-1));
}

TEST(DevSMTableTest, AnExistingPairWithoutEntryIsMinusOne)
{
    auto const table = Parts().create();
    EXPECT_EQ(table->getTransition(0, 0), 2);
    EXPECT_EQ(table->getTransition(1, 3), 4);
    EXPECT_EQ(table->getTransition(0, 2), -1);
    EXPECT_EQ(table->getTransition(2, 2), 0);
    EXPECT_EQ(table->getState(0, 0), 1);
    EXPECT_EQ(table->getState(1, 1), 0);
    EXPECT_EQ(table->getState(0, 1), -1);
    EXPECT_EQ(table->getState(2, 5), 1);
}

TEST(DevSMTableTest, ANumberOutsideTheListsThrows)
{
    auto const table = Parts().create();
    EXPECT_THROW(table->getTransition(3, 0), DevMgrEx::SMDomainError);
    EXPECT_THROW(table->getTransition(-1, 0), DevMgrEx::SMDomainError);
    EXPECT_THROW(table->getTransition(0, 4), DevMgrEx::SMDomainError);
    EXPECT_THROW(table->getTransition(0, -1), DevMgrEx::SMDomainError);
    EXPECT_THROW(table->getState(3, 0), DevMgrEx::SMDomainError);
    EXPECT_THROW(table->getState(-1, 0), DevMgrEx::SMDomainError);
    EXPECT_THROW(table->getState(0, 6), DevMgrEx::SMDomainError);
    EXPECT_THROW(table->getState(0, -1), DevMgrEx::SMDomainError);
    EXPECT_THROW((void)table->getStateName(3), DevMgrEx::SMDomainError);
    EXPECT_THROW((void)table->getStateName(-1), DevMgrEx::SMDomainError);
    EXPECT_THROW((void)table->getEventName(4), DevMgrEx::SMDomainError);
    EXPECT_THROW((void)table->getEventName(-1), DevMgrEx::SMDomainError);
    EXPECT_THROW((void)table->getTransitionName(6), DevMgrEx::SMDomainError);
    EXPECT_THROW((void)table->getTransitionName(-1), DevMgrEx::SMDomainError);
}

TEST(DevSMTableTest, NamesAndNumbersAgree)
{
    Parts const parts;
    auto const table = parts.create();
    for (std::int32_t i = 0; i < table->getNbStates(); ++i) {
        EXPECT_EQ(table->getStateName(i), parts.states[static_cast<std::size_t>(i)]);
        EXPECT_EQ(table->getState(table->getStateName(i)), i);
    }
    for (std::int32_t i = 0; i < table->getNbEvents(); ++i) {
        EXPECT_EQ(table->getEventName(i), parts.events[static_cast<std::size_t>(i)]);
        EXPECT_EQ(table->getEvent(table->getEventName(i)), i);
    }
    for (std::int32_t i = 0; i < table->getNbTransitions(); ++i) {
        EXPECT_EQ(table->getTransitionName(i), parts.transitions[static_cast<std::size_t>(i)]);
        EXPECT_EQ(table->getTransition(table->getTransitionName(i)), i);
    }
}

TEST(DevSMTableTest, ANameThatIsNotThereThrows)
{
    auto const table = Parts().create();
    EXPECT_THROW((void)table->getState(LiString("z")), DevMgrEx::SMDomainError);
    EXPECT_THROW((void)table->getEvent("z"), DevMgrEx::SMDomainError);
    EXPECT_THROW((void)table->getTransition(LiString("z")), DevMgrEx::SMDomainError);
}

TEST(DevSMTableTest, TheFirstOfEqualNamesIsFound)
{
    Parts parts;
    parts.states[2] = "on";
    parts.events[3] = "x";
    parts.transitions[5] = "_exc";
    auto const table = parts.create();
    EXPECT_EQ(table->getState(LiString("on")), 0);
    EXPECT_EQ(table->getEvent("x"), 0);
    EXPECT_EQ(table->getTransition(LiString("_exc")), 3);
}

TEST(DevSMTableTest, PrimaryTransitionsExcludeConditionalAndAuxiliaryOnes)
{
    auto const table = Parts().create();
    EXPECT_EQ(table->getPrimaryTransitions(), (Names{"a", "b"}));
    EXPECT_EQ(table->getAuxiliaryTransitions(), (Names{"_exc", "_noexc", "_ill"}));
    auto const descs = table->getConditionalTransitions();
    ASSERT_EQ(descs.size(), 1u);
    EXPECT_EQ(descs[0].name, "_ct(on:x)");
    EXPECT_EQ(descs[0].transitions, (Names{"a", "b"}));
    EXPECT_EQ(descs[0].events, (Names{"_ce(a)", "y"}));
}

TEST(DevSMTableTest, EachFullListBeginsWithItsPrimaryList)
{
    Parts states;
    states.primaryStates = {"off"};
    EXPECT_EQ(failedAssertion([&] { states.create(); }),
              "verifyPrimary( _primaryStateVector, _s )");
    Parts events;
    events.primaryEvents = {"x", "y", "_ce(a)", "_noexc", "z"};
    EXPECT_EQ(failedAssertion([&] { events.create(); }),
              "verifyPrimary( _primaryEventVector, _e )");
    Parts transitions;
    transitions.transitions = {"a", "_ill", "b"};
    EXPECT_EQ(failedAssertion([&] { transitions.create(); }),
              "verifyPrimary( _primaryTransitionVector, _t )");
}

TEST(DevSMTableTest, AChoiceHasTwoTransitionsAndAnEventForEach)
{
    for (Desc const &desc : {Desc{"_ct(on:x)", {"a", "b"}, {"_ce(a)"}},
                             Desc{"_ct(on:x)", {"a", "b"}, {"_ce(a)", "x", "y"}},
                             Desc{"_ct(on:x)", {"a"}, {"_ce(a)"}}, Desc{"_ct(on:x)", {}, {}}}) {
        Parts parts;
        parts.descs = {desc};
        EXPECT_EQ(failedAssertion([&] { parts.create(); }),
                  "desc.transitions.size() >= 2 && desc.events.size() == desc.transitions.size()");
    }
}

TEST(DevSMTableTest, DumpsListsThenMatrices)
{
    auto const table = Parts().create();
    std::ostringstream stream;
    stream << *table;
    EXPECT_EQ(stream.str(),
              "3 states:\n0\ton\n1\toff\n2\t_cs(on:x)\n\n"
              "4 events:\n0\tx\n1\ty\n2\t_ce(a)\n3\t_noexc\n\n"
              "6 transitions:\n0\ta\n1\tb\n2\t_ct(on:x)\n3\t_exc\n4\t_noexc\n5\t_ill\n\n"
              "2 primary states:\non, off\n\n"
              "2 primary events:\nx, y\n\n"
              "2 primary transitions:\na, b\n\n"
              "3 auxilliary transitions:\n_exc, _noexc, _ill\n\n"
              "1 conditional transition descriptions:\n"
              "{ _ct(on:x), { a, b }, { _ce(a), y } }\n\n"
              "state:event=>transition table:\n"
              "2\t0\t-1\t-1\t\n5\t1\t-1\t4\t\n-1\t-1\t0\t-1\t\n\n"
              "state:transition=>state table:\n"
              "1\t-1\t2\t-1\t-1\t-1\t\n-1\t0\t-1\t-1\t1\t-1\t\n0\t-1\t-1\t-1\t-1\t1\t\n");
    std::ostringstream direct;
    table->dump(direct);
    EXPECT_EQ(direct.str(), stream.str());
}

TEST(DevSMTableTest, AMachineWithoutChoicesDumpsNone)
{
    Parts parts;
    parts.descs.clear();
    parts.transitions[2] = "c";
    std::ostringstream stream;
    parts.create()->dump(stream);
    EXPECT_NE(stream.str().find("\n0 conditional transition descriptions:\n\n"
                                "state:event=>transition table:\n"),
              std::string::npos);
}

TEST(DevSMTableDot, HasTheDeclaredStatesAndTheEventsBetweenThem)
{
    DevSMTableBuilder builder;
    for (char const *state : {"off", "on", "worn \"out\""})
        builder.addState(state);
    for (char const *event : {"press", "hold", "fall"})
        builder.addEvent(event);
    for (char const *transition : {"toggle", "blink", "break"})
        builder.addTransition(transition);
    for (char const *event : {"press", "hold"})
        builder.addTransitionForEvent("off", event, "toggle");
    builder.setNextState("off", "toggle", "on");
    // A choice: it blinks, or goes off.
    builder.addTransitionForEvent("on", "press", "blink");
    builder.addTransitionForEvent("on", "press", "toggle");
    builder.setNextState("on", "blink", "on");
    builder.setNextState("on", "toggle", "off");
    builder.addTransitionForEvent("on", "fall", "break");
    builder.setNextState("on", "break", "worn \"out\"");
    builder.expand();
    auto const table = builder.createTable();
    EXPECT_EQ(graphOf(*table),
              (std::vector<std::string>{"s0: off", "s1: on", "s2: worn \"out\"",
                                        "s0 -> s1: press / toggle hold / toggle",
                                        "s1 -> s0: press / toggle", "s1 -> s1: press / blink",
                                        "s1 -> s2: fall / break"}));
    std::ostringstream text;
    table->dumpDot(text);
    EXPECT_NE(text.str().find("s2 [label=\"worn \\\"out\\\"\", peripheries=2];"), std::string::npos)
        << text.str();
}

TEST(DevSMTableDot, ACircleOfInnerStatesEnds)
{
    Parts parts; // x leads from "on" to "_cs(on:x)", where _ce(a) now leads back to itself
    parts.stateTransition[2][0] = 2;
    EXPECT_EQ(
        graphOf(*parts.create()),
        (std::vector<std::string>{"s0: on", "s1: off", "s0 -> s1: y / a", "s1 -> s0: y / b"}));
}

} // namespace
} // namespace ZvTest
