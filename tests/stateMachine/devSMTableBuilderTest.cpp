#include "resmgt/deviceManager/stateMachine/devSMTableBuilder.h"

#include "resmgt/deviceManager/devMgrEx.h"
#include "testing/failures.h"

#include <gtest/gtest.h>

#include <sstream>

namespace ZvTest {

using namespace Zv;

namespace {

using Names = Vector<LiString>;

struct Declaration
{
    char const *state;
    char const *event;
    char const *transition;
    char const *next;
};

void declare(DevSMTableBuilder &builder, Names const &states, Names const &events,
             Names const &transitions, std::initializer_list<Declaration> rows)
{
    for (auto const &name : states)
        builder.addState(name);
    for (auto const &name : events)
        builder.addEvent(name);
    for (auto const &name : transitions)
        builder.addTransition(name);
    for (auto const &row : rows) {
        builder.addTransitionForEvent(row.state, row.event, row.transition);
        builder.setNextState(row.state, row.transition, row.next);
    }
}

RCShdPtr<DevSMTable> expanded(DevSMTableBuilder &builder)
{
    builder.expand();
    return builder.createTable();
}

Names statesOf(DevSMTable const &table)
{
    Names names;
    for (std::int32_t i = 0; i < table.getNbStates(); ++i)
        names.push_back(table.getStateName(i));
    return names;
}

Names eventsOf(DevSMTable const &table)
{
    Names names;
    for (std::int32_t i = 0; i < table.getNbEvents(); ++i)
        names.push_back(table.getEventName(i));
    return names;
}

Names transitionsOf(DevSMTable const &table)
{
    Names names;
    for (std::int32_t i = 0; i < table.getNbTransitions(); ++i)
        names.push_back(table.getTransitionName(i));
    return names;
}

/// Returns the name of the transition that an event selects, or "" if there is none.
LiString fired(DevSMTable const &table, LiString const &state, LiString const &event)
{
    std::int32_t const t = table.getTransition(table.getState(state), table.getEvent(event));
    return t < 0 ? LiString() : table.getTransitionName(t);
}

/// Returns the name of the state that a transition leads to, or "" if there is none.
LiString next(DevSMTable const &table, LiString const &state, LiString const &transition)
{
    std::int32_t const s = table.getState(table.getState(state), table.getTransition(transition));
    return s < 0 ? LiString() : table.getStateName(s);
}

TEST(DevSMTableBuilderTest, ANameIsDeclaredOnce)
{
    DevSMTableBuilder builder;
    builder.addState("a");
    builder.addEvent("a");
    builder.addTransition("a");
    EXPECT_THROW(builder.addState("a"), DevMgrEx::NameNotUnique);
    EXPECT_THROW(builder.addEvent("a"), DevMgrEx::NameNotUnique);
    EXPECT_THROW(builder.addTransition("a"), DevMgrEx::NameNotUnique);
}

TEST(DevSMTableBuilderTest, ATransitionThatAStateHasNotLeadsToNone)
{
    DevSMTableBuilder builder;
    for (char const *name : {"a", "b"}) {
        builder.addState(name);
        builder.addEvent(name);
        builder.addTransition(name);
    }
    builder.addTransitionForEvent("a", "a", "a");
    builder.setNextState("a", "a", "b");
    builder.expand();
    auto const table = builder.createTable();
    EXPECT_EQ(table->getState(table->getState("b"), table->getTransition("b")), -1);
}

TEST(DevSMTableBuilderTest, TransitionsOfAPairAddUpAndANextStateIsOverwritten)
{
    DevSMTableBuilder builder;
    EXPECT_FALSE(builder.isAssociatedStateEvent("s", "e"));
    builder.addTransitionForEvent("s", "e", "t");
    builder.addTransitionForEvent("s", "e", "u");
    builder.addTransitionForEvent("s", "e", "t");
    EXPECT_TRUE(builder.isAssociatedStateEvent("s", "e"));
    EXPECT_EQ(builder.getTransitions("s", "e"), (Names{"t", "u", "t"}));

    EXPECT_FALSE(builder.isAssociatedStateTransition("s", "t"));
    builder.setNextState("s", "t", "a");
    builder.setNextState("s", "t", "b");
    EXPECT_TRUE(builder.isAssociatedStateTransition("s", "t"));
    EXPECT_EQ(builder.getState("s", "t"), "b");
    EXPECT_EQ(builder.replaceNextState("s", "t", "c"), "b");
    EXPECT_EQ(builder.getState("s", "t"), "c");
}

TEST(DevSMTableBuilderTest, AnUndeclaredNameFailsAnAssertion)
{
    DevSMTableBuilder builder;
    EXPECT_EQ(failedAssertion([&] { (void)builder.getTransitions("s", "e"); }),
              "setTblIter != _setTbl.end()");
    EXPECT_EQ(failedAssertion([&] { (void)builder.getState("s", "t"); }),
              "isAssociatedStateTransition(state, transition)");
    EXPECT_EQ(failedAssertion([&] { (void)builder.replaceNextState("s", "t", "n"); }),
              "isAssociatedStateTransition(state, transition)");
    EXPECT_EQ(failedAssertion([&] { (void)builder.createTable(); }), "_isExpanded");
}

TEST(DevSMTableBuilderTest, APlainDeclarationExpandsToATransitionAndItsCheck)
{
    DevSMTableBuilder builder;
    declare(builder, {"a", "b"}, {"x"}, {"t"}, {{"a", "x", "t", "b"}});
    auto const table = expanded(builder);
    EXPECT_EQ(statesOf(*table), (Names{"a", "b", "_exchk(a:x:t)", "_exc", "_ill"}));
    EXPECT_EQ(eventsOf(*table), (Names{"x", "_noexc", "_exc"}));
    EXPECT_EQ(transitionsOf(*table), (Names{"t", "_noexc", "_exc", "_ill"}));
    EXPECT_EQ(table->getPrimaryTransitions(), (Names{"t"}));
    EXPECT_EQ(table->getAuxiliaryTransitions(), (Names{"_exc", "_noexc", "_ill"}));
    EXPECT_TRUE(table->getConditionalTransitions().empty());
    EXPECT_TRUE(table->isPrimaryState(1));
    EXPECT_FALSE(table->isPrimaryState(2));
    EXPECT_TRUE(table->isPrimaryEvent(0));
    EXPECT_FALSE(table->isPrimaryEvent(1));

    EXPECT_EQ(fired(*table, "a", "x"), "t");
    EXPECT_EQ(next(*table, "a", "t"), "_exchk(a:x:t)");
    EXPECT_EQ(fired(*table, "_exchk(a:x:t)", "_noexc"), "_noexc");
    EXPECT_EQ(next(*table, "_exchk(a:x:t)", "_noexc"), "b");
    EXPECT_EQ(fired(*table, "_exchk(a:x:t)", "_exc"), "_exc");
    EXPECT_EQ(next(*table, "_exchk(a:x:t)", "_exc"), "_exc");
}

TEST(DevSMTableBuilderTest, AChoiceExpandsToAConditionalTransitionAndItsState)
{
    DevSMTableBuilder builder;
    declare(builder, {"a", "b", "c"}, {"x"}, {"t1", "t2"},
            {{"a", "x", "t1", "b"}, {"a", "x", "t2", "c"}});
    auto const table = expanded(builder);
    EXPECT_EQ(statesOf(*table), (Names{"a", "b", "c", "_cs(a:x)", "_exchk(a:x:_ct(a:x))",
                                       "_exchk(_cs(a:x):_ce(t1):t1)", "_exchk(_cs(a:x):_ce(t2):t2)",
                                       "_exc", "_ill"}));
    EXPECT_EQ(eventsOf(*table), (Names{"x", "_ce(t1)", "_ce(t2)", "_noexc", "_exc"}));
    EXPECT_EQ(transitionsOf(*table), (Names{"t1", "t2", "_ct(a:x)", "_noexc", "_exc", "_ill"}));
    auto const descs = table->getConditionalTransitions();
    ASSERT_EQ(descs.size(), 1u);
    EXPECT_EQ(descs[0].name, "_ct(a:x)");
    EXPECT_EQ(descs[0].transitions, (Names{"t1", "t2"}));
    EXPECT_EQ(descs[0].events, (Names{"_ce(t1)", "_ce(t2)"}));

    EXPECT_EQ(fired(*table, "a", "x"), "_ct(a:x)");
    EXPECT_EQ(next(*table, "a", "_ct(a:x)"), "_exchk(a:x:_ct(a:x))");
    EXPECT_EQ(next(*table, "_exchk(a:x:_ct(a:x))", "_noexc"), "_cs(a:x)");
    EXPECT_EQ(fired(*table, "_cs(a:x)", "_ce(t1)"), "t1");
    EXPECT_EQ(next(*table, "_cs(a:x)", "t1"), "_exchk(_cs(a:x):_ce(t1):t1)");
    EXPECT_EQ(next(*table, "_exchk(_cs(a:x):_ce(t1):t1)", "_noexc"), "b");
    EXPECT_EQ(next(*table, "_exchk(_cs(a:x):_ce(t2):t2)", "_noexc"), "c");
    EXPECT_EQ(next(*table, "_exchk(_cs(a:x):_ce(t2):t2)", "_exc"), "_exc");
    // Only the choice runs t1, so state a has no next state for it.
    EXPECT_EQ(next(*table, "a", "t1"), "");
}

TEST(DevSMTableBuilderTest, OnePairOfATransitionGivesOneSelectingEvent)
{
    DevSMTableBuilder builder;
    declare(builder, {"a", "b"}, {"x", "y"}, {"t", "u"},
            {{"a", "x", "t", "a"}, {"a", "x", "u", "b"}, {"a", "y", "t", "a"}});
    auto const table = expanded(builder);
    EXPECT_EQ(eventsOf(*table), (Names{"x", "y", "_ce(t)", "_ce(u)", "_noexc", "_exc"}));
}

TEST(DevSMTableBuilderTest, AChoiceOfTwoStatesSharesItsSelectingEventsOnly)
{
    DevSMTableBuilder builder;
    declare(
        builder, {"a", "b"}, {"x"}, {"t", "u"},
        {{"a", "x", "t", "a"}, {"a", "x", "u", "b"}, {"b", "x", "t", "a"}, {"b", "x", "u", "b"}});
    auto const table = expanded(builder);
    EXPECT_EQ(eventsOf(*table), (Names{"x", "_ce(t)", "_ce(u)", "_noexc", "_exc"}));
    EXPECT_EQ(transitionsOf(*table),
              (Names{"t", "u", "_ct(a:x)", "_ct(b:x)", "_noexc", "_exc", "_ill"}));
    EXPECT_NO_THROW((void)table->getState(LiString("_cs(a:x)")));
    EXPECT_NO_THROW((void)table->getState(LiString("_cs(b:x)")));
}

TEST(DevSMTableBuilderTest, DeclaredNamesComeFirstInDeclaredOrder)
{
    DevSMTableBuilder builder;
    Names const states{"z", "y", "x"};
    Names const events{"f", "e"};
    Names const transitions{"v", "u"};
    declare(builder, states, events, transitions, {{"y", "f", "u", "z"}, {"y", "f", "v", "x"}});
    auto const table = expanded(builder);
    Names const all = statesOf(*table);
    EXPECT_EQ(Names(all.begin(), all.begin() + 3), states);
    Names const allEvents = eventsOf(*table);
    EXPECT_EQ(Names(allEvents.begin(), allEvents.begin() + 2), events);
    EXPECT_EQ(table->getPrimaryTransitions(), transitions);
}

TEST(DevSMTableBuilderTest, OnlyDeclaredPairsAreIllegal)
{
    DevSMTableBuilder builder;
    declare(builder, {"a", "b"}, {"x", "y"}, {"t", "u"},
            {{"a", "x", "t", "a"}, {"a", "x", "u", "b"}});
    auto const table = expanded(builder);
    EXPECT_EQ(fired(*table, "a", "y"), "_ill");
    EXPECT_EQ(next(*table, "a", "_ill"), "_ill");
    EXPECT_EQ(fired(*table, "b", "x"), "_ill");
    EXPECT_EQ(next(*table, "b", "_ill"), "_ill");
    for (char const * const added : {"_exc", "_ill", "_cs(a:x)", "_exchk(a:x:_ct(a:x))"}) {
        EXPECT_EQ(fired(*table, added, "y"), "") << added;
        EXPECT_EQ(next(*table, added, "_ill"), "") << added;
    }
    EXPECT_EQ(fired(*table, "a", "_exc"), "");
}

TEST(DevSMTableBuilderTest, OfSeveralEventsForOneTransitionTheLastOnesCheckIsUsed)
{
    DevSMTableBuilder builder;
    declare(builder, {"a", "b"}, {"x", "y", "z"}, {"t"},
            {{"a", "y", "t", "b"}, {"a", "z", "t", "b"}, {"a", "x", "t", "b"}});
    auto const table = expanded(builder);
    EXPECT_EQ(statesOf(*table),
              (Names{"a", "b", "_exchk(a:x:t)", "_exchk(a:y:t)", "_exchk(a:z:t)", "_exc", "_ill"}));
    EXPECT_EQ(next(*table, "a", "t"), "_exchk(a:z:t)");
    EXPECT_EQ(next(*table, "_exchk(a:z:t)", "_noexc"), "b");
    EXPECT_EQ(fired(*table, "_exchk(a:x:t)", "_noexc"), "_noexc");
    EXPECT_EQ(next(*table, "_exchk(a:x:t)", "_noexc"), "");
    EXPECT_EQ(next(*table, "_exchk(a:x:t)", "_exc"), "_exc");
}

TEST(DevSMTableBuilderTest, AForgottenNextStateIsStateZero)
{
    DevSMTableBuilder builder;
    declare(builder, {"a", "b"}, {"x"}, {"t"}, {});
    builder.addTransitionForEvent("b", "x", "t");
    auto const table = expanded(builder);
    EXPECT_EQ(next(*table, "_exchk(b:x:t)", "_noexc"), "a");

    DevSMTableBuilder choice;
    declare(choice, {"a", "b"}, {"x"}, {"t", "u"}, {});
    choice.addTransitionForEvent("b", "x", "t");
    choice.addTransitionForEvent("b", "x", "u");
    auto const choiceTable = expanded(choice);
    EXPECT_EQ(next(*choiceTable, "_exchk(_cs(b:x):_ce(u):u)", "_noexc"), "a");
}

TEST(DevSMTableBuilderTest, AnUndeclaredTransitionIsTransitionZero)
{
    DevSMTableBuilder builder;
    declare(builder, {"a", "b"}, {"x"}, {"t"}, {{"b", "x", "nobody", "b"}});
    EXPECT_EQ(fired(*expanded(builder), "b", "x"), "t");
}

TEST(DevSMTableBuilderTest, AGeneratedNameThatIsTakenIsNotUnique)
{
    DevSMTableBuilder builder;
    declare(builder, {"a", "_exc"}, {"x"}, {"t"}, {{"a", "x", "t", "a"}});
    EXPECT_THROW(builder.expand(), DevMgrEx::NameNotUnique);

    DevSMTableBuilder checking;
    declare(checking, {"a", "_exchk(a:x:t)"}, {"x"}, {"t"}, {{"a", "x", "t", "a"}});
    EXPECT_THROW(checking.expand(), DevMgrEx::NameNotUnique);
    EXPECT_EQ(failedAssertion([&] { (void)checking.createTable(); }), "_isExpanded");
}

TEST(DevSMTableBuilderTest, OneTransitionTwiceInAChoiceIsAnAssertion)
{
    DevSMTableBuilder builder;
    declare(builder, {"a"}, {"x"}, {"t"}, {{"a", "x", "t", "a"}, {"a", "x", "t", "a"}});
    EXPECT_EQ(failedAssertion([&] { builder.expand(); }),
              "!sm->isAssociatedStateEvent(condStateName,condEventName)");
}

TEST(DevSMTableBuilderTest, NamesOfTheExpansionsOwnFormAreFound)
{
    DevSMTableBuilder stateName;
    declare(stateName, {"_cs(a:x)", "a"}, {"y", "x"}, {"t", "u"},
            {{"_cs(a:x)", "y", "t", "a"}, {"a", "x", "t", "a"}, {"a", "x", "u", "a"}});
    EXPECT_EQ(failedAssertion([&] { stateName.expand(); }),
              "!sm->isAssociatedStateTransition(condStateName,t)");

    DevSMTableBuilder transitionName;
    declare(transitionName, {"a"}, {"x", "y"}, {"t", "u", "_ct(a:x)"},
            {{"a", "x", "t", "a"}, {"a", "x", "u", "a"}, {"a", "y", "_ct(a:x)", "a"}});
    EXPECT_EQ(failedAssertion([&] { transitionName.expand(); }),
              "nextState == sm->getState(s, tv[0])");

    DevSMTableBuilder both;
    declare(both, {"a", "_cs(a:x)"}, {"x", "_ce(t)"}, {"t", "u"},
            {{"a", "x", "t", "a"},
             {"a", "x", "u", "a"},
             {"_cs(a:x)", "_ce(t)", "t", "a"},
             {"_cs(a:x)", "_ce(t)", "u", "a"}});
    EXPECT_EQ(failedAssertion([&] { both.expand(); }), "1 == tv.size()");
}

TEST(DevSMTableBuilderTest, NamesThatDifferOnlyBySeparatorsAreFound)
{
    DevSMTableBuilder single;
    declare(single, {"a", "a:b"}, {"b:c", "c"}, {"t"}, {{"a", "b:c", "t", "a"}});
    EXPECT_EQ(failedAssertion([&] { single.expand(); }), "!sm->isAssociatedStateEvent(s, e)");

    DevSMTableBuilder check;
    declare(check, {"a", "a:b"}, {"b"}, {"b:c", "c"}, {{"a", "b", "b:c", "a"}});
    EXPECT_EQ(failedAssertion([&] { check.expand(); }),
              "!isAssociatedStateTransition(exchkStateName, _noException)");
}

TEST(DevSMTableBuilderTest, ADeclarationAfterTheExpansionWaitsForTheNextOne)
{
    DevSMTableBuilder builder;
    declare(builder, {"a"}, {"x"}, {"t"}, {{"a", "x", "t", "a"}});
    builder.expand();
    builder.addTransition("u");
    builder.addTransitionForEvent("a", "x", "u");
    EXPECT_EQ(transitionsOf(*builder.createTable()), (Names{"t", "_noexc", "_exc", "_ill"}));
    builder.expand();
    EXPECT_EQ(transitionsOf(*builder.createTable()),
              (Names{"t", "u", "_ct(a:x)", "_noexc", "_exc", "_ill"}));
}

TEST(DevSMTableBuilderTest, AnExpansionThatFailsLeavesTheFormerOne)
{
    DevSMTableBuilder builder;
    declare(builder, {"a"}, {"x"}, {"t"}, {{"a", "x", "t", "a"}});
    builder.expand();
    builder.addTransition("_ill");
    EXPECT_THROW(builder.expand(), DevMgrEx::NameNotUnique);
    EXPECT_EQ(transitionsOf(*builder.createTable()), (Names{"t", "_noexc", "_exc", "_ill"}));
}

TEST(DevSMTableBuilderTest, ATableDoesNotFitStatesAndEventsThatCameLater)
{
    DevSMTableBuilder states;
    declare(states, {"a"}, {"x"}, {"t"}, {{"a", "x", "t", "a"}});
    states.expand();
    states.addState("b");
    EXPECT_EQ(failedAssertion([&] { (void)states.createTable(); }),
              "verifyPrimary( _primaryStateVector, _s )");
    DevSMTableBuilder events;
    declare(events, {"a"}, {"x"}, {"t"}, {{"a", "x", "t", "a"}});
    events.expand();
    events.addEvent("y");
    EXPECT_EQ(failedAssertion([&] { (void)events.createTable(); }),
              "verifyPrimary( _primaryEventVector, _e )");
}

char const * const declaration = "States: a, b\n"
                                 "Events: x, y\n"
                                 "Transitions: t, u\n"
                                 "\n"
                                 "State:Event=>Transition Table\n"
                                 "\tx\ty\n"
                                 "a\tt,u\t.\n"
                                 "b\t.\tt\n"
                                 "\n"
                                 "State:Transition=>State Table\n"
                                 "\tt\tu\n"
                                 "a\ta\tb\n"
                                 "b\tb\t.\n";

TEST(DevSMTableBuilderTest, DumpsItsDeclaration)
{
    DevSMTableBuilder builder;
    declare(builder, {"a", "b"}, {"x", "y"}, {"t", "u"},
            {{"a", "x", "t", "a"}, {"a", "x", "u", "b"}, {"b", "y", "t", "b"}});
    std::ostringstream stream;
    builder.dump(stream);
    EXPECT_EQ(stream.str(), declaration);
}

TEST(DevSMTableBuilderTest, DumpsTheExpandedMachineBehindIt)
{
    DevSMTableBuilder builder;
    declare(builder, {"a"}, {"x"}, {"t", "u"}, {{"a", "x", "t", "a"}, {"a", "x", "u", "a"}});
    builder.expand();
    std::ostringstream stream;
    builder.dump(stream);
    EXPECT_EQ(stream.str(),
              "States: a\nEvents: x\nTransitions: t, u\n\n"
              "State:Event=>Transition Table\n\tx\na\tt,u\n\n"
              "State:Transition=>State Table\n\tt\tu\na\ta\ta\n"
              "\n---- Expanded State Machine ----\n\n"
              "States: a, _cs(a:x), _exchk(a:x:_ct(a:x)), _exchk(_cs(a:x):_ce(t):t), "
              "_exchk(_cs(a:x):_ce(u):u), _exc, _ill\n"
              "Events: x, _ce(t), _ce(u), _noexc, _exc\n"
              "Transitions: t, u, _ct(a:x), _noexc, _exc, _ill\n\n"
              "State:Event=>Transition Table\n"
              "\tx\t_ce(t)\t_ce(u)\t_noexc\t_exc\n"
              "a\t_ct(a:x)\t.\t.\t.\t.\n"
              "_cs(a:x)\t.\tt\tu\t.\t.\n"
              "_exchk(a:x:_ct(a:x))\t.\t.\t.\t_noexc\t_exc\n"
              "_exchk(_cs(a:x):_ce(t):t)\t.\t.\t.\t_noexc\t_exc\n"
              "_exchk(_cs(a:x):_ce(u):u)\t.\t.\t.\t_noexc\t_exc\n"
              "_exc\t.\t.\t.\t.\t.\n"
              "_ill\t.\t.\t.\t.\t.\n\n"
              "State:Transition=>State Table\n"
              "\tt\tu\t_ct(a:x)\t_noexc\t_exc\t_ill\n"
              "a\t.\t.\t_exchk(a:x:_ct(a:x))\t.\t.\t.\n"
              "_cs(a:x)\t_exchk(_cs(a:x):_ce(t):t)\t_exchk(_cs(a:x):_ce(u):u)\t.\t.\t.\t.\n"
              "_exchk(a:x:_ct(a:x))\t.\t.\t.\t_cs(a:x)\t_exc\t.\n"
              "_exchk(_cs(a:x):_ce(t):t)\t.\t.\t.\ta\t_exc\t.\n"
              "_exchk(_cs(a:x):_ce(u):u)\t.\t.\t.\ta\t_exc\t.\n"
              "_exc\t.\t.\t.\t.\t.\t.\n"
              "_ill\t.\t.\t.\t.\t.\t.\n"
              "\nCondition descriptions:\n"
              "{ _ct(a:x), { t, u }, { _ce(t), _ce(u) } }\n");
}

} // namespace
} // namespace ZvTest
