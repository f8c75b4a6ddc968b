// The table of the state machine: each cell in both machines, and each failure of a state that is
// entered.

#include "scene.h"

#include <gtest/gtest.h>

#include <semaphore>
#include <thread>
#include <tuple>

namespace ZvTest {
namespace {
using Model::eventNames;
using Model::EVENTS;

enum class Owner
{
    NOBODY,
    SELF,
    OTHER
};

class Cells : public testing::TestWithParam<std::tuple<bool, Owner>>
{
protected:
    bool const isTracing = std::get<0>(GetParam());
    Owner const owner = std::get<1>(GetParam());
    TraceCapture capture;

    LkThreadId ownerId() const
    {
        if (owner == Owner::NOBODY)
            return LkThreadId();
        return owner == Owner::SELF ? LkThreadId(LkThreadId::CURRENT_THREAD) : LkThreadId(1ul);
    }
    Model::Config configOf(std::string const &state, int lockCount) const
    {
        Model::Config config;
        config.state = state;
        config.lockCount = lockCount;
        config.hasRegion = true;
        config.owner = owner == Owner::NOBODY ? Model::NOBODY : owner == Owner::SELF ? 0 : 1;
        config.threads.resize(2);
        return config;
    }
    /// Delivers the event from thread 0. All calls of the protocol succeed.
    static Model::Config expected(Model::Config config, int event)
    {
        Model::Interpreter interpreter(config);
        interpreter.begin(0, event);
        interpreter.run(0);
        while (config.threads[0].status == Model::Status::IN_PROTOCOL) {
            interpreter.returnFromProtocol(0);
            interpreter.run(0);
        }
        return config;
    }
    Lines traceOf(Model::Config const &config) const
    {
        Lines lines;
        if (isTracing)
            for (std::string const &line : config.trace)
                lines.push_back("MbBuffer : b" + line);
        return lines;
    }

    void check(std::string const &state, int event, int lockCount);
    void checkWait(Scene &scene, Model::Config const &config, int event);
};

/// The event waits. When the buffer is in Destroyed, the event is delivered to that state.
void Cells::checkWait(Scene &scene, Model::Config const &config, int event)
{
    ASSERT_NE(owner, Owner::SELF);
    std::binary_semaphore hasMutex(0);
    std::string outcome;
    std::thread thread([&] {
        LkGuard<LkMutex const> const guard(scene.probe.mutex());
        hasMutex.release();
        outcome = scene.deliverLocked(event);
    });
    hasMutex.acquire();
    {
        // The thread releases the mutex when it waits or when it is done.
        LkGuard<LkMutex const> const guard(scene.probe.mutex());
        EXPECT_EQ(scene.probe.waiters(), 1);
        EXPECT_EQ(scene.probe.stateName(), config.state);
        EXPECT_EQ(scene.probe.lockCount(), config.lockCount);
        EXPECT_EQ(scene.probe.pending(), 0u);
        EXPECT_EQ(scene.control->log.take(), Lines());
        EXPECT_EQ(capture.take(), traceOf(config));
        scene.probe.setState(stateOf(isTracing, "Destroyed"));
        scene.probe.announceChange();
    }
    thread.join();
    EXPECT_EQ(outcome, std::string("illegal ") + eventNames[event] + "() Destroyed");
}

void Cells::check(std::string const &state, int event, int lockCount)
{
    SCOPED_TRACE(state + " " + eventNames[event] + " with lock count " + std::to_string(lockCount));
    Scene scene(isTracing, state, lockCount);
    capture.take();
    {
        LkGuard<LkMutex const> const guard(scene.probe.mutex());
        scene.probe.setOwner(ownerId());
    }
    Model::Config const config = expected(configOf(state, lockCount), event);
    if (config.threads[0].status == Model::Status::WAITING)
        return checkWait(scene, config, event);

    std::string outcome = scene.deliver(event);
    if (outcome == "assertion ! _transientStateOwner.isCurrentThread()")
        outcome = "assertion";
    EXPECT_EQ(outcome, config.threads[0].outcome);
    EXPECT_EQ(scene.probe.stateName(), config.state);
    EXPECT_EQ(scene.probe.lockCount(), config.lockCount);
    EXPECT_EQ(scene.probe.pending(), config.pending);
    EXPECT_TRUE(ownerId() == scene.probe.owner());
    EXPECT_EQ(scene.control->log.take(), config.log);
    EXPECT_EQ(capture.take(), traceOf(config));
}

TEST_P(Cells, AreThoseOfTheTable)
{
    for (Model::Row const &row : Model::table) {
        for (int event = 0; event < EVENTS; ++event) {
            check(row.state, event, 1);
            if (std::string(row.state).find("Locked") != std::string::npos)
                check(row.state, event, 2);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    BothMachines, Cells,
    testing::Combine(testing::Bool(), testing::Values(Owner::NOBODY, Owner::SELF, Owner::OTHER)));

// ---- the table of the library beside that of the model

/// A reaction in the words of the model.
std::string textOf(MbReaction reaction)
{
    std::string const next =
        reaction.next == MbStateId::NONE ? "" : MbTable::rowOf(reaction.next).name;
    switch (reaction.kind) {
    case MbReaction::REFUSE:
        return "X";
    case MbReaction::IGNORE:
        return ".";
    case MbReaction::WAIT:
        return "W";
    case MbReaction::DEFER:
        return "D";
    case MbReaction::POSTPONE:
        return "Q";
    case MbReaction::ADD_LOCK:
        return next.empty() ? "+1" : "+1 " + next;
    case MbReaction::DROP_LOCK:
        return "-1 " + next;
    case MbReaction::TOUCH:
        return "touch";
    case MbReaction::DEALLOCATE:
        return "dealloc " + next;
    case MbReaction::CHANGE:
    case MbReaction::COMPLETE:
        return next;
    }
    return "unknown";
}

/// The actions of a row in the words of the model.
Lines actionsOf(MbEnteringRow const &row)
{
    static std::map<MbStep, std::string> const steps = {{MbStep::ALLOCATE, "allocateRegion"},
                                                        {MbStep::DEALLOCATE, "deallocateRegion"},
                                                        {MbStep::ADD_LOCK, "+1"},
                                                        {MbStep::UNLOADABLE, "bufferUnloadable"}};
    Lines actions;
    auto const addStep = [&](MbStep step) {
        if (step != MbStep::NOTHING)
            actions.push_back(steps.at(step));
    };
    auto const addCall = [&](MbProtocolCall const &call) {
        if (call.name)
            actions.push_back('[' + std::string(call.name) + ']');
    };
    addStep(row.before);
    addCall(row.calls.first);
    addCall(row.calls.second);
    addStep(row.after);
    return actions;
}

TEST(MbStateTable, HasTheReactionsOfTheModel)
{
    ASSERT_EQ(std::size(Model::table), std::size(MbTable::states));
    for (std::size_t i = 0; i < std::size(MbTable::states); ++i) {
        EXPECT_STREQ(MbTable::states[i].name, Model::table[i].state);
        for (int event = 0; event < EVENTS; ++event)
            EXPECT_EQ(textOf(MbTable::states[i].reactions[event]), Model::table[i].cells[event])
                << Model::table[i].state << ' ' << eventNames[event];
    }
}

TEST(MbStateTable, HasTheEnteringsOfTheModel)
{
    EXPECT_EQ(std::size(MbTable::enterings), Model::enterings.size());
    for (Model::Entering const &expected : Model::enterings) {
        SCOPED_TRACE(expected.state);
        auto const found =
            std::find_if(std::begin(MbTable::enterings), std::end(MbTable::enterings),
                         [&](MbEnteringRow const &row) {
                             return std::string(MbTable::rowOf(row.state).name) == expected.state;
                         });
        ASSERT_NE(found, std::end(MbTable::enterings));
        EXPECT_EQ(actionsOf(*found), expected.actions);
        EXPECT_EQ(textOf(found->next), expected.next);
    }
}

TEST(MbStateTable, NamesTheEventsInTheOrderOfTheirBits)
{
    for (int event = 0; event < EVENTS; ++event)
        EXPECT_STREQ(MbTable::nameOf(eventOf(event)), eventNames[event]);
}

TEST(MbStates, AreThirtyWithTheirNamesInBothMachines)
{
    EXPECT_EQ(std::size(Model::table), 30u);
    auto const silent = statesOf<false>();
    auto const tracing = statesOf<true>();
    EXPECT_EQ(silent.size(), 30u);
    EXPECT_EQ(tracing.size(), 30u);
    for (Model::Row const &row : Model::table) {
        ASSERT_TRUE(silent.count(row.state)) << row.state;
        ASSERT_TRUE(tracing.count(row.state)) << row.state;
        EXPECT_NE(silent.at(row.state), tracing.at(row.state));
    }
}

TEST(MbStates, SixOfThemAreLoaded)
{
    for (auto const &states : {statesOf<false>(), statesOf<true>()}) {
        std::string loaded;
        for (auto const &[name, state] : states)
            if (state->isLoaded())
                loaded += name + ' ';
        EXPECT_EQ(loaded, "Loaded RdLocked RdLockedFreed Synched WrLocked WrLockedFreed ");
    }
}

TEST(MbStateMachine, ThereAreTwoEachWithItsFreedState)
{
    EXPECT_EQ(&MbStateMachine::getInstance(false), &MbStateMachine::getInstance(false));
    EXPECT_EQ(&MbStateMachine::getInstance(true), &MbStateMachine::getInstance(true));
    EXPECT_NE(&MbStateMachine::getInstance(false), &MbStateMachine::getInstance(true));
    EXPECT_EQ(MbStateMachine::getInstance(false).getInitialState(), stateOf(false, "Freed"));
    EXPECT_EQ(MbStateMachine::getInstance(true).getInitialState(), stateOf(true, "Freed"));
}

TEST(MbStateMachine, TracingMachineIsSilentWhileItsLevelIsOff)
{
    TraceCapture capture;
    Trace::setEnabled("MbBuffers", false);
    Scene scene(true, "Loaded");
    EXPECT_EQ(scene.deliver(0), "");
    EXPECT_EQ(capture.take(), Lines());
}

// ---- a protocol that throws

/// A state, and an event that begins a run in which one call of the protocol fails.
struct FailingRun
{
    char const *state;
    int event;
};

/// All runs that begin with a cell of the table.
std::vector<FailingRun> runs()
{
    std::vector<FailingRun> found;
    for (Model::Row const &row : Model::table)
        for (int event = 0; event < EVENTS; ++event) {
            std::string cell = row.cells[event];
            auto const blank = cell.rfind(' ');
            cell = blank == std::string::npos ? cell : cell.substr(blank + 1);
            if (cell.size() > 2 && cell != "touch")
                found.push_back({row.state, event});
        }
    return found;
}

class Failures : public testing::TestWithParam<bool>
{};

TEST_P(Failures, ReturnTheBufferToItsStateBeforeTheRun)
{
    bool const isTracing = GetParam();
    TraceCapture capture;
    int failures = 0;
    for (FailingRun const &run : runs()) {
        // The first, the second … call of the protocol fails, until there are no more.
        for (int failing = 0;; ++failing) {
            SCOPED_TRACE(std::string(run.state) + " " + eventNames[run.event] + ", call " +
                         std::to_string(failing));
            Model::Config config;
            config.state = run.state;
            config.lockCount = 1;
            config.hasRegion = true;
            config.threads.resize(1);
            Model::Interpreter interpreter(config);
            interpreter.begin(0, run.event);
            interpreter.run(0);
            bool hasFailed = false;
            for (int call = 0; config.threads[0].status == Model::Status::IN_PROTOCOL; ++call) {
                hasFailed = hasFailed || call == failing;
                if (call == failing)
                    interpreter.throwFromProtocol(0);
                else
                    interpreter.returnFromProtocol(0);
                interpreter.run(0);
            }
            if (!hasFailed)
                break;
            ++failures;

            Scene scene(isTracing, run.state, 1);
            capture.take();
            int call = 0;
            scene.control->hook = [&](std::string const &) {
                if (call++ == failing)
                    throw Failure("asked for");
            };
            EXPECT_EQ(scene.deliver(run.event), "failure asked for");
            EXPECT_EQ(scene.probe.stateName(), config.state);
            EXPECT_EQ(scene.probe.stateName(), std::string(run.state));
            EXPECT_EQ(scene.probe.lockCount(), config.lockCount);
            EXPECT_EQ(scene.probe.pending(), 0u);
            EXPECT_TRUE(scene.probe.owner().isNull());
            EXPECT_EQ(scene.control->log.take(), config.log);
            Lines expectedTrace;
            for (std::string const &line : config.trace)
                expectedTrace.push_back("MbBuffer : b" + line);
            EXPECT_EQ(capture.take(), isTracing ? expectedTrace : Lines());
        }
    }
    EXPECT_EQ(failures, 25);
}

/// The first, the second … call fails that reports whether the buffer may be evicted.
TEST_P(Failures, OfTheManagerAlsoRestoreTheBuffer)
{
    bool const isTracing = GetParam();
    std::vector<FailingRun> all = runs();
    for (char const *state : {"Loaded", "Synched"})
        all.push_back({state, 3}); // prefetch touches it
    int failures = 0;
    for (FailingRun const &run : all) {
        for (int failing = 1;; ++failing) {
            SCOPED_TRACE(std::string(run.state) + " " + eventNames[run.event] + ", call " +
                         std::to_string(failing));
            Model::Config config;
            config.state = run.state;
            config.lockCount = 1;
            config.hasRegion = true;
            config.failing = failing;
            config.threads.resize(1);
            Model::Interpreter interpreter(config);
            interpreter.begin(0, run.event);
            interpreter.run(0);
            while (config.threads[0].status == Model::Status::IN_PROTOCOL) {
                interpreter.returnFromProtocol(0);
                interpreter.run(0);
            }
            if (config.failing != 0)
                break;
            ++failures;

            Scene scene(isTracing, run.state, 1);
            int call = 0;
            scene.manager->hook = [&](std::string const &what) {
                if (what.find("nloadable") != std::string::npos && ++call == failing)
                    throw Failure("asked for");
            };
            EXPECT_EQ(config.threads[0].outcome, "failure");
            EXPECT_EQ(scene.deliver(run.event), "failure asked for");
            EXPECT_EQ(scene.probe.stateName(), config.state);
            EXPECT_EQ(scene.probe.stateName(), std::string(run.state));
            EXPECT_EQ(scene.probe.lockCount(), config.lockCount);
            EXPECT_EQ(scene.probe.pending(), 0u);
            EXPECT_TRUE(scene.probe.owner().isNull());
            EXPECT_EQ(scene.control->log.take(), config.log);
        }
    }
    // Ten calls in runs that begin in Loaded, seven in runs that begin in Synched, and one in each
    // of six runs that end in one of the two.
    EXPECT_EQ(failures, 23);
}

INSTANTIATE_TEST_SUITE_P(BothMachines, Failures, testing::Bool());

} // namespace
} // namespace ZvTest
