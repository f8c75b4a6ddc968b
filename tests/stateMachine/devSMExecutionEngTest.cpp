#include "resmgt/deviceManager/stateMachine/devSMExecutionEng.h"

#include "resmgt/deviceManager/devMgrEx.h"
#include "resmgt/deviceManager/stateMachine/devSMTableBuilder.h"
#include "zvbase/failures.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>

namespace ZvTest {

using namespace Zv;

namespace {

using Names = Vector<LiString>;
using Log = std::vector<std::string>;

class Plain final : public DevSMTransition
{
public:
    Plain(LiString const &name, std::function<void()> body)
        : DevSMTransition(name), _body(std::move(body))
    {}

    void execute() override { _body(); }

private:
    std::function<void()> _body;
};

class Conditional final : public DevSMConditionalTransition
{
public:
    Conditional(LiString const &name, std::function<void()> body, std::function<bool()> condition)
        : DevSMConditionalTransition(name), _body(std::move(body)), _condition(std::move(condition))
    {}

    void execute() override { _body(); }
    bool condition() override { return _condition(); }

private:
    std::function<void()> _body;
    std::function<bool()> _condition;
};

/// The log of the transitions, and the bodies and conditions that a test gives them.
struct Script
{
    Log log;
    std::map<std::string, std::function<void()>> bodies;
    std::map<std::string, std::function<bool()>> conditions;
    std::string missing;
    bool isFactoryAlive = false;

    void run(std::string const &name)
    {
        log.push_back(name);
        if (auto const body = bodies.find(name); body != bodies.end())
            body->second();
    }
    bool ask(std::string const &name)
    {
        log.push_back(name + "?");
        return conditions.at(name)();
    }
};

class Factory final : public DevSMTransitionFactory
{
public:
    explicit Factory(Script &script) : _script(script) { _script.isFactoryAlive = true; }
    ~Factory() override { _script.isFactoryAlive = false; }

    RCShdPtr<DevSMTransition> create(LiString const &name) override
    {
        std::string const key = name.getChars();
        _script.log.push_back("create " + key);
        if (key == _script.missing)
            return nullptr;
        auto const body = [&script = _script, key] { script.run(key); };
        if (_script.conditions.contains(key))
            return new Conditional(name, body,
                                   [&script = _script, key] { return script.ask(key); });
        return new Plain(name, body);
    }

private:
    Script &_script;
};

ObjPtr<DevSMExecutionEng> createEngine(RCShdPtr<DevSMTable> const &table, Script &script,
                                       std::int32_t initial = 0)
{
    return DevSMExecutionEng::create(table, initial, makeObj<Factory>(script));
}

/// Returns this table. In the last row, the first condition that holds selects the transition.
///
///     a --x--> t, b
///     b --x--> t, a
///     a --y--> first, second or third, b
RCShdPtr<DevSMTable> createTable()
{
    DevSMTableBuilder builder;
    for (char const * const state : {"a", "b"})
        builder.addState(state);
    for (char const * const event : {"x", "y"})
        builder.addEvent(event);
    for (char const * const transition : {"t", "first", "second", "third"})
        builder.addTransition(transition);
    builder.addTransitionForEvent("a", "x", "t");
    builder.setNextState("a", "t", "b");
    builder.addTransitionForEvent("b", "x", "t");
    builder.setNextState("b", "t", "a");
    for (char const * const choice : {"first", "second", "third"}) {
        builder.addTransitionForEvent("a", "y", choice);
        builder.setNextState("a", choice, "b");
    }
    builder.expand();
    return builder.createTable();
}

constexpr std::int32_t X = 0;
constexpr std::int32_t Y = 1;

class DevSMExecutionEngTest : public testing::Test
{
protected:
    DevSMExecutionEngTest()
    {
        script.conditions["first"] = [] { return false; };
        script.conditions["second"] = [] { return false; };
        engine = createEngine(table, script);
        script.log.clear();
    }

    ~DevSMExecutionEngTest() noexcept override {}

    std::string stateName() const
    {
        return engine->getTable()->getStateName(engine->getState()).getChars();
    }

    RCShdPtr<DevSMTable> table = createTable();
    Script script;
    ObjPtr<DevSMExecutionEng> engine;
};

TEST_F(DevSMExecutionEngTest, AsksTheFactoryForEachPrimaryTransitionInOrder)
{
    Script fresh;
    fresh.conditions = script.conditions;
    auto const other = createEngine(table, fresh);
    EXPECT_EQ(fresh.log, (Log{"create t", "create first", "create second", "create third"}));
}

TEST_F(DevSMExecutionEngTest, KeepsItsFactoryAndItsTable)
{
    EXPECT_TRUE(script.isFactoryAlive);
    EXPECT_EQ(engine->getTable(), table);
    engine = nullptr;
    EXPECT_FALSE(script.isFactoryAlive);
}

TEST_F(DevSMExecutionEngTest, AnEventRunsItsTransitionToTheNextState)
{
    EXPECT_EQ(stateName(), "a");
    engine->execute(X);
    EXPECT_EQ(stateName(), "b");
    engine->execute(X);
    EXPECT_EQ(stateName(), "a");
    EXPECT_EQ(script.log, (Log{"t", "t"}));
    EXPECT_EQ(engine->getStatus(), 0);
    ObjPtr<ExBase> const none = engine->takeException();
    EXPECT_TRUE(none.isNull());
}

TEST_F(DevSMExecutionEngTest, ARunningTransitionSeesTheOldState)
{
    std::int32_t seen = -1;
    std::int32_t status = -1;
    script.bodies["t"] = [&] {
        seen = engine->getState();
        status = engine->getStatus();
    };
    engine->execute(X);
    EXPECT_EQ(seen, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(engine->getState(), 1);
}

TEST_F(DevSMExecutionEngTest, TheFirstConditionThatHoldsWins)
{
    script.conditions["first"] = [] { return true; };
    script.conditions["second"] = [] { return true; };
    engine->execute(Y);
    EXPECT_EQ(script.log, (Log{"first?", "first"}));
    EXPECT_EQ(stateName(), "b");
}

TEST_F(DevSMExecutionEngTest, ConditionsAreEvaluatedOneByOne)
{
    script.conditions["second"] = [] { return true; };
    engine->execute(Y);
    EXPECT_EQ(script.log, (Log{"first?", "second?", "second"}));
    EXPECT_EQ(stateName(), "b");
}

TEST_F(DevSMExecutionEngTest, TheLastCandidateIsTakenWithoutAQuestion)
{
    engine->execute(Y);
    EXPECT_EQ(script.log, (Log{"first?", "second?", "third"}));
    EXPECT_EQ(stateName(), "b");
}

TEST_F(DevSMExecutionEngTest, TheConditionOfALastCandidateIsNotEvaluated)
{
    Script asked;
    asked.conditions = script.conditions;
    asked.conditions["third"] = [] { return false; };
    auto const other = createEngine(table, asked);
    asked.log.clear();
    other->execute(Y);
    EXPECT_EQ(asked.log, (Log{"first?", "second?", "third"}));
}

TEST_F(DevSMExecutionEngTest, AFailedTransitionLeadsToExc)
{
    script.bodies["t"] = [] { ZV_THROW(DevMgrEx::ConfigSyntaxError, "no disc"); };
    EXPECT_NO_THROW(engine->execute(X));
    EXPECT_EQ(stateName(), "_exc");
    EXPECT_EQ(engine->getStatus(), 0);

    ObjPtr<ExBase> const kept = engine->takeException();
    ASSERT_FALSE(kept.isNull());
    EXPECT_STREQ(kept->getReason(), "no disc");
    EXPECT_NE(dynamic_cast<DevMgrEx::ConfigSyntaxError *>(kept.get()), nullptr);
    ObjPtr<ExBase> const second = engine->takeException();
    EXPECT_TRUE(second.isNull());

    EXPECT_THROW(engine->execute(X), DevMgrEx::SMExecutionError);
    EXPECT_EQ(engine->getStatus(), 0);
    EXPECT_EQ(script.log, (Log{"t"}));
}

TEST_F(DevSMExecutionEngTest, AFailedConditionLeadsToExc)
{
    script.conditions["second"] = []() -> bool { ZV_THROW(DevMgrEx::NameNotFound); };
    EXPECT_NO_THROW(engine->execute(Y));
    EXPECT_EQ(stateName(), "_exc");
    EXPECT_EQ(script.log, (Log{"first?", "second?"}));
    ObjPtr<ExBase> const kept = engine->takeException();
    EXPECT_STREQ(kept->getReason(), "Named device not found.");
    EXPECT_THROW(engine->execute(X), DevMgrEx::SMExecutionError);
}

TEST_F(DevSMExecutionEngTest, AFailedChosenTransitionLeadsToExc)
{
    script.bodies["third"] = [] { ZV_THROW(DevMgrEx::NameNotFound); };
    EXPECT_NO_THROW(engine->execute(Y));
    EXPECT_EQ(stateName(), "_exc");
}

TEST_F(DevSMExecutionEngTest, AnExceptionOtherThanAnExBaseBreaksTheEngine)
{
    script.bodies["t"] = [] { throw std::runtime_error("lost"); };
    EXPECT_THROW(engine->execute(X), std::runtime_error);
    EXPECT_EQ(engine->getStatus(), 2);
    EXPECT_EQ(stateName(), "a");
    ObjPtr<ExBase> const none = engine->takeException();
    EXPECT_TRUE(none.isNull());
    EXPECT_THROW(engine->execute(X), DevMgrEx::SMExecutionError);
    EXPECT_EQ(script.log, (Log{"t"}));
}

TEST_F(DevSMExecutionEngTest, AFailedAssertionBreaksTheEngine)
{
    script.conditions["first"] = []() -> bool {
        ZV_ASSERT(2 < 1);
        return true;
    };
    EXPECT_THROW(engine->execute(Y), AssertionFailed);
    EXPECT_EQ(engine->getStatus(), 2);
    EXPECT_THROW(engine->execute(X), DevMgrEx::SMExecutionError);
}

TEST_F(DevSMExecutionEngTest, AnIllegalEventIsReportedAtTheNextOne)
{
    engine->execute(X);
    EXPECT_NO_THROW(engine->execute(Y));
    EXPECT_EQ(stateName(), "_ill");
    EXPECT_EQ(engine->getStatus(), 0);
    EXPECT_THROW(engine->execute(X), DevMgrEx::SMExecutionError);
    EXPECT_EQ(engine->getStatus(), 0);
    EXPECT_EQ(script.log, (Log{"t"}));
}

TEST_F(DevSMExecutionEngTest, OnlyPrimaryEventsAreAccepted)
{
    EXPECT_THROW(engine->execute(table->getEvent("_noexc")), DevMgrEx::SMDomainError);
    EXPECT_THROW(engine->execute(table->getEvent("_exc")), DevMgrEx::SMDomainError);
    EXPECT_THROW(engine->execute(table->getEvent("_ce(first)")), DevMgrEx::SMDomainError);
    EXPECT_THROW(engine->execute(-1), DevMgrEx::SMDomainError);
    EXPECT_THROW(engine->execute(1000), DevMgrEx::SMDomainError);
    EXPECT_EQ(engine->getStatus(), 0);
    engine->execute(X);
    EXPECT_EQ(stateName(), "b");
}

TEST_F(DevSMExecutionEngTest, TheInitialStateIsAPrimaryOne)
{
    EXPECT_THROW(createEngine(table, script, 2), DevMgrEx::SMDomainError);
    EXPECT_THROW(createEngine(table, script, -1), DevMgrEx::SMDomainError);
    EXPECT_EQ(createEngine(table, script, 1)->getState(), 1);
}

TEST_F(DevSMExecutionEngTest, ATransitionThatTheFactoryLacksIsBad)
{
    script.missing = "third";
    EXPECT_THROW(createEngine(table, script), DevMgrEx::SMBadTransitionImp);
}

TEST_F(DevSMExecutionEngTest, AllCandidatesButTheLastAreConditional)
{
    script.conditions.erase("second");
    EXPECT_THROW(createEngine(table, script), DevMgrEx::SMBadTransitionImp);
}

/// A table of one state, one event and one transition. The test spoils a part of it.
struct Crafted
{
    Names states{"a", "_exc", "_ill"};
    Names events{"x", "_noexc", "_exc"};
    Names transitions{"t", "_exc", "_noexc", "_ill"};
    DevSMTable::Matrix stateEvent{{0, 2, 1}, {-1, -1, -1}, {-1, -1, -1}};
    DevSMTable::Matrix stateTransition{{0, 1, 0, -1}, {-1, -1, -1, -1}, {-1, -1, -1, -1}};
    Vector<DevSMTable::ConditionalTransitionDesc> descs;
    Names auxiliaries{"_exc", "_noexc", "_ill"};
    Names primaryStates{"a"};
    Names primaryEvents{"x"};
    Script script;

    ObjPtr<DevSMExecutionEng> create()
    {
        return createEngine(new DevSMTable(states, events, transitions, stateEvent, stateTransition,
                                           descs, auxiliaries, primaryStates, primaryEvents),
                            script);
    }
};

TEST(DevSMExecutionEngTableTest, ATableThatFitsTogetherRuns)
{
    Crafted crafted;
    auto const engine = crafted.create();
    engine->execute(X);
    EXPECT_EQ(engine->getState(), 0);
    EXPECT_EQ(engine->getStatus(), 0);
}

void expectInconsistent(Crafted &crafted, std::int32_t state)
{
    auto const engine = crafted.create();
    EXPECT_THROW(engine->execute(X), DevMgrEx::SMBadImp);
    EXPECT_EQ(engine->getStatus(), 4);
    EXPECT_EQ(engine->getState(), state);
    EXPECT_THROW(engine->execute(X), DevMgrEx::SMExecutionError);
}

TEST(DevSMExecutionEngTableTest, AnEventWithoutATransitionIsInconsistent)
{
    Crafted crafted;
    crafted.stateEvent[0] = {-1, 2, 1};
    expectInconsistent(crafted, 0);
    EXPECT_EQ(crafted.script.log, (Log{"create t"}));
}

TEST(DevSMExecutionEngTableTest, AnInternalEventWithoutATransitionIsInconsistent)
{
    Crafted crafted;
    crafted.stateEvent[0] = {0, -1, 1};
    expectInconsistent(crafted, 0);
}

TEST(DevSMExecutionEngTableTest, AFailureWithoutATransitionIsInconsistent)
{
    Crafted crafted;
    crafted.stateEvent[0] = {0, 2, -1};
    crafted.script.bodies["t"] = [] { ZV_THROW(DevMgrEx::NameNotFound); };
    expectInconsistent(crafted, 0);
}

TEST(DevSMExecutionEngTableTest, ATransitionBeyondTheListIsInconsistent)
{
    Crafted crafted;
    crafted.stateEvent[0] = {4, 2, 1};
    expectInconsistent(crafted, 0);
}

TEST(DevSMExecutionEngTableTest, ATransitionWithoutANextStateIsInconsistent)
{
    Crafted crafted;
    crafted.stateTransition[0] = {-1, 1, 0, -1};
    expectInconsistent(crafted, -1);
    EXPECT_EQ(crafted.script.log, (Log{"create t", "t"}));
}

TEST(DevSMExecutionEngTableTest, ANextStateBeyondTheListIsInconsistent)
{
    Crafted crafted;
    crafted.stateTransition[0] = {3, 1, 0, -1};
    expectInconsistent(crafted, 3);
}

TEST(DevSMExecutionEngTableTest, ATransitionInPlaceOfACheckIsRun)
{
    Crafted crafted;
    crafted.states = {"a", "b"};
    crafted.transitions = {"t", "u", "_exc", "_noexc", "_ill"};
    crafted.stateEvent = {{0, 3, 2}, {-1, 1, 2}};
    crafted.stateTransition = {{1, -1, 0, 0, -1}, {-1, 0, 0, -1, -1}};
    auto const engine = crafted.create();
    crafted.script.log.clear();
    engine->execute(X);
    EXPECT_EQ(crafted.script.log, (Log{"t", "u"}));
    EXPECT_EQ(engine->getState(), 0);
    EXPECT_EQ(engine->getStatus(), 0);
}

TEST(DevSMExecutionEngTableTest, DeadEndsAreReportedByName)
{
    for (char const * const name : {"_ill", "_exc"}) {
        Crafted crafted;
        crafted.states = {name, "b", "c"};
        crafted.primaryStates = {name};
        auto const engine = crafted.create();
        EXPECT_THROW(engine->execute(X), DevMgrEx::SMExecutionError) << name;
        EXPECT_EQ(engine->getStatus(), 0);
        EXPECT_THROW(engine->execute(1), DevMgrEx::SMDomainError) << name;
    }
}

TEST(DevSMExecutionEngTableTest, ATransitionWithoutAnObjectIsABadImplementation)
{
    Crafted crafted;
    crafted.transitions = {"t", "t", "_exc", "_noexc", "_ill"};
    EXPECT_THROW(crafted.create(), DevMgrEx::SMBadImp);
}

TEST(DevSMExecutionEngTableTest, NamesThatTheTableLacksAreOutsideItsDomain)
{
    for (char const * const event : {"_noexc", "_exc"}) {
        Crafted crafted;
        for (LiString &name : crafted.events)
            if (name == event)
                name = "other";
        EXPECT_THROW(crafted.create(), DevMgrEx::SMDomainError) << event;
    }
    Crafted auxiliary;
    auxiliary.auxiliaries.push_back("other");
    EXPECT_THROW(auxiliary.create(), DevMgrEx::SMDomainError);

    Crafted selecting;
    selecting.script.conditions["t"] = [] { return true; };
    selecting.descs = {{"_ct", {"t", "t"}, {"_ce(t)", "x"}}};
    EXPECT_THROW(selecting.create(), DevMgrEx::SMDomainError);

    Crafted conditional;
    conditional.script.conditions["t"] = [] { return true; };
    conditional.descs = {{"_ct", {"t", "t"}, {"x", "x"}}};
    EXPECT_THROW(conditional.create(), DevMgrEx::SMDomainError);
}

TEST(DevSMExecutionEngTableTest, ACandidateThatIsNoPrimaryTransitionIsBad)
{
    Crafted crafted;
    crafted.descs = {{"_ct", {"_exc", "t"}, {"x", "x"}}};
    EXPECT_THROW(crafted.create(), DevMgrEx::SMBadTransitionImp);
}

TEST(DevSMExecutionEngTableTest, AChoiceHasAnEventForEachOfItsTransitions)
{
    Crafted crafted;
    for (Names const &events : {Names{"x"}, Names{"x", "x", "x"}}) {
        crafted.descs = {{"_ct", {"t", "t"}, events}};
        EXPECT_THROW(crafted.create(), AssertionFailed) << events.size();
    }
    crafted.descs = {{"_ct", {"t"}, {"x"}}};
    EXPECT_THROW(crafted.create(), AssertionFailed) << "a choice of one";
}

TEST(DevSMExecutionEngTableTest, AChoiceAfterAChoiceFindsItsOwnEvents)
{
    DevSMTableBuilder builder;
    builder.addState("a");
    builder.addState("b");
    builder.addEvent("x");
    for (char const * const name : {"no", "yes"}) {
        builder.addTransition(name);
        builder.addTransitionForEvent("a", "x", name);
        builder.setNextState("a", name, "b");
        builder.addTransitionForEvent("b", "x", name);
        builder.setNextState("b", name, "a");
    }
    builder.expand();
    Script script;
    script.conditions["no"] = [] { return false; };
    auto const engine = createEngine(builder.createTable(), script);
    script.log.clear();
    for (std::int32_t i = 0; i < 100; ++i) {
        engine->execute(X);
        ASSERT_EQ(engine->getState(), (i + 1) % 2);
    }
    EXPECT_EQ(script.log.size(), 200u);
    EXPECT_EQ(engine->getStatus(), 0);
}

TEST(DevSMExecutionEngTableTest, ThrowsWhatATransitionsDestructorThrewAfterDestroyingAll)
{
    class Failing : public DevSMConditionalTransition
    {
    public:
        Failing(LiString const &name, Log &log) : DevSMConditionalTransition(name), _log(log) {}
        ~Failing() noexcept(false) override
        {
            _log.push_back(getName().getChars());
            throw std::runtime_error(_log.back());
        }
        void execute() override {}
        bool condition() override { return true; }

    private:
        Log &_log;
    };
    struct FailingFactory : DevSMTransitionFactory
    {
        explicit FailingFactory(Log &l) : log(l) {}
        RCShdPtr<DevSMTransition> create(LiString const &name) override
        {
            return RCShdPtr<DevSMTransition>(new Failing(name, log));
        }
        Log &log;
    };
    DevSMTableBuilder builder;
    builder.addState("a");
    builder.addEvent("x");
    builder.addEvent("y");
    for (char const * const name : {"one", "two", "three", "plain"}) {
        builder.addTransition(name);
        builder.addTransitionForEvent("a", name == std::string("plain") ? "y" : "x", name);
        builder.setNextState("a", name, "a");
    }
    builder.expand();
    Log log;
    ObjPtr<DevSMExecutionEng> engine =
        DevSMExecutionEng::create(builder.createTable(), 0, makeObj<FailingFactory>(log));
    EXPECT_THROW(engine = nullptr, std::runtime_error);
    std::sort(log.begin(), log.end());
    EXPECT_EQ(log, (Log{"one", "plain", "three", "two"}));
}

} // namespace
} // namespace ZvTest
