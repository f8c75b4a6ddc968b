#include "recordingDevice.h"

#include "resmgt/deviceManager/devMgrEx.h"
#include "testing/asleep.h"
#include "testing/meeting.h"
#include "zvbase/failures.h"
#include "zvbase/logTestUtil.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

namespace ZvTest {

namespace {

using namespace Zv;

class Observer : public DevSeqObserver
{
public:
    explicit Observer(Lines &log) : _log(log) {}

    void stateChanged(LiString const &device, LiString const &state) override
    {
        std::string const line = (device + " " + state).getChars();
        _log.push_back(line);
        if (onState)
            onState(line);
    }

    void machineFailed(DevMgrFailure const &failure) override
    {
        std::ostringstream text;
        text << "failed: device " << failure.device << ", state " << failure.state << ", event "
             << failure.event;
        _log.push_back(text.str());
        if (onFailure)
            onFailure();
    }

    std::function<void(std::string const &)> onState;
    std::function<void()> onFailure;
    std::function<void()> onEnd;

protected:
    ~Observer() override
    {
        if (onEnd)
            onEnd();
    }

private:
    Lines &_log;
};

/// Root R with children A and B.
class SequenceFailure : public testing::Test
{
protected:
    SequenceFailure()
    {
        world.root("R");
        world.child("R", "A");
        world.child("R", "B");
    }
    ~SequenceFailure() noexcept override {}

    void deliver(DevSeqEv::Event event) { world.tree->processEvent(event); }
    void deliver(char const *device, DevSeqEv::Event event)
    {
        world.tree->processEvent(device, event);
    }
    Observer &observe()
    {
        auto * const observer = new Observer(heard);
        world.tree->setObserver(RCShdPtr<DevSeqObserver>(observer));
        return *observer;
    }
    void makeFail(char const *device)
    {
        world.devices[device]->onCall = [](std::string const &) {
            throw DevMgrEx::StreamNotAvailable("../src/busy.cpp", 7, "busy");
        };
    }
    void makeBreak(char const *device)
    {
        world.devices[device]->onCall = [](std::string const &) {
            throw std::runtime_error("no lens");
        };
    }
    std::string failureText(char const *device)
    {
        auto const failure = world.tree->getFailure(device);
        if (!failure)
            return "none";
        std::ostringstream text;
        text << *failure;
        return text.str();
    }
    void expectLockIsFree()
    {
        std::thread([this] { (void)world.state("R"); }).join();
    }

    World world;
    Lines heard;
};

/// Returns the lines that an action writes to the trace.
Lines traceOf(std::function<void()> const &action)
{
    CapturedLog log;
    LgLog::flush(); // writes the lines that are still queued
    std::size_t const before = log.getLines().size();
    action();
    LgLog::flush();
    Lines texts = log.getTexts();
    texts.erase(texts.begin(), texts.begin() + static_cast<std::ptrdiff_t>(before));
    for (std::string &text : texts)
        text.erase(text.find_last_not_of('\n') + 1);
    return texts;
}

TEST_F(SequenceFailure, FailureOfADeviceIsTracedAndCanBeRethrown)
{
    makeFail("A");
    Lines const trace = traceOf([this] { deliver(DevSeqEv::START); });
    EXPECT_EQ(trace, Lines{"node A comes to _exc: event \"start\" in state \"init\": "
                           "../src/busy.cpp(7): busy"});
    EXPECT_EQ(failureText("A"),
              "device A: event \"start\" in state \"init\": ../src/busy.cpp(7): busy");
    EXPECT_THROW(std::rethrow_exception(world.tree->getFailure("A")->exception),
                 DevMgrEx::StreamNotAvailable);
    EXPECT_EQ(failureText("R"), "none");
    EXPECT_EQ(failureText("B"), "none");
}

TEST_F(SequenceFailure, IllegalEventIsTracedAndHasAReason)
{
    deliver(DevSeqEv::START);
    Lines const trace = traceOf([this] { deliver(DevSeqEv::START); });
    EXPECT_EQ(trace,
              Lines{"node R comes to _ill: event \"start\" in state \"start\": illegal event"});
    EXPECT_EQ(failureText("R"), "device R: event \"start\" in state \"start\": illegal event");
    EXPECT_FALSE(world.tree->getFailure("R")->exception);
}

TEST_F(SequenceFailure, MachineThatBreaksIsTracedAndCanBeAskedFor)
{
    makeBreak("A");
    Lines const trace =
        traceOf([this] { EXPECT_THROW(deliver(DevSeqEv::START), std::runtime_error); });
    EXPECT_EQ(trace, Lines{"node A breaks: event \"start\" in state \"init\": no lens"});
    EXPECT_EQ(failureText("A"), "device A: event \"start\" in state \"init\": no lens");
    EXPECT_THROW(std::rethrow_exception(world.tree->getFailure("A")->exception),
                 std::runtime_error);
}

TEST_F(SequenceFailure, ExceptionOfAnUnknownClassIsTracedToo)
{
    world.devices["A"]->onCall = [](std::string const &) { throw 42; };
    Lines const trace = traceOf([this] { EXPECT_THROW(deliver(DevSeqEv::START), int); });
    EXPECT_EQ(trace, Lines{"node A breaks: event \"start\" in state \"init\": "
                           "exception of an unknown class"});
}

TEST_F(SequenceFailure, EventThatAFailedMachineRefusesIsTraced)
{
    deliver(DevSeqEv::START);
    deliver(DevSeqEv::START);
    Lines const trace =
        traceOf([this] { EXPECT_THROW(deliver(DevSeqEv::STOP), DevMgrEx::SMExecutionError); });
    ASSERT_EQ(trace.size(), 1u);
    EXPECT_TRUE(trace[0].starts_with("node R refuses an event: event \"stop\" in state \"_ill\": "
                                     "../src/resmgt/deviceManager/"))
        << trace[0];
    EXPECT_TRUE(trace[0].ends_with("State machine error condition.")) << trace[0];
    // The record of the failure stays.
    EXPECT_EQ(failureText("R"), "device R: event \"start\" in state \"start\": illegal event");
}

TEST_F(SequenceFailure, EventThatIsOutsideTheMachineFailsNothing)
{
    Lines const trace =
        traceOf([this] { EXPECT_THROW(world.tree->processEvent(99), DevMgrEx::SMDomainError); });
    ASSERT_EQ(trace.size(), 1u);
    EXPECT_TRUE(trace[0].starts_with("node R refuses an event: event \"99\" in state \"init\": "))
        << trace[0];
    EXPECT_EQ(failureText("R"), "none");
}

// The second stop is parked like the first one. When both are delivered, it is illegal.
TEST_F(SequenceFailure, ParkedEventThatIsIllegalIsTheOneThatIsReported)
{
    World single;
    single.root("R");
    single.tree->processEvent(DevSeqEv::START);
    single.complete("R");
    single.tree->processEvent(DevSeqEv::STOP);
    single.tree->processEvent(DevSeqEv::STOP);
    single.tree->setObserver(makeShd<Observer>(heard));
    Lines const trace = traceOf([&] { single.complete("R"); });
    EXPECT_EQ(trace,
              Lines{"node R comes to _ill: event \"stop\" in state \"stop\": illegal event"});
    EXPECT_EQ(heard,
              (Lines{"R lock", "R stop", "R _ill", "failed: device R, state stop, event stop"}));
}

TEST_F(SequenceFailure, FailuresAreAskedForByTheNamesOfDevices)
{
    EXPECT_THROW((void)world.tree->getFailure("nobody"), DevMgrEx::NameNotFound);
    expectLockIsFree();
    EXPECT_THROW((void)makeShd<DevSeqTree>()->getFailure("R"), RCEx::ExNullPtr);
}

TEST_F(SequenceFailure, ThrownExceptionSaysToWhichDeviceTheEventWent)
{
    deliver(DevSeqEv::START);
    deliver("A", DevSeqEv::LOCK);
    std::optional<DevMgrFailure> failure;
    EXPECT_THROW(world.tree->processEvent("A", DevSeqEv::READY, failure),
                 DevMgrEx::SMExecutionError);
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->device, "A");
    EXPECT_EQ(failure->state, "_ill");
    EXPECT_EQ(failure->event, "ready");
}

TEST_F(SequenceFailure, ObserverIsNotifiedOfEveryStateEvenOfShortOnes)
{
    World pair;
    pair.root("R");
    pair.child("R", "A");
    pair.tree->setObserver(makeShd<Observer>(heard));
    pair.tree->processEvent(DevSeqEv::START);
    pair.complete("A");
    EXPECT_EQ(std::exchange(heard, {}), (Lines{"R start", "A start", "A ready", "A wml"}));
    pair.complete("R");
    EXPECT_EQ(std::exchange(heard, {}), (Lines{"R wsr", "R ready", "R sync"}));
    pair.tree->processEvent(DevSeqEv::STOP);
    EXPECT_EQ(heard, Lines());
    pair.complete("R");
    EXPECT_EQ(std::exchange(heard, {}), (Lines{"R lock", "R wss", "A sync"}));
    pair.complete("A");
    EXPECT_EQ(std::exchange(heard, {}), (Lines{"A lock", "A stop"}));
    pair.complete("A");
    pair.complete("R");
    EXPECT_EQ(heard, (Lines{"A final", "R stop", "R final"}));
}

TEST_F(SequenceFailure, ObserverIsNotifiedOnceOfEachFailedMachine)
{
    observe();
    makeFail("A");
    makeBreak("B");
    EXPECT_THROW(deliver(DevSeqEv::START), std::runtime_error);
    deliver(DevSeqEv::START);
    EXPECT_EQ(std::exchange(heard, {}),
              (Lines{"R start", "A _exc", "failed: device A, state init, event start",
                     "failed: device B, state init, event start", "R _ill",
                     "failed: device R, state start, event start"}));
    for (char const *device : {"R", "A", "B"})
        EXPECT_THROW(deliver(device, DevSeqEv::STOP), DevMgrEx::SMExecutionError);
    EXPECT_EQ(heard, Lines());
}

TEST_F(SequenceFailure, FailureIsSetWhenTheStateIsNotified)
{
    std::string told;
    observe().onState = [&](std::string const &line) {
        if (line == "A _exc")
            told = failureText("A");
    };
    makeFail("A");
    deliver(DevSeqEv::START);
    EXPECT_EQ(told, "device A: event \"start\" in state \"init\": ../src/busy.cpp(7): busy");
}

TEST_F(SequenceFailure, DeliveryContinuesIfTheObserverThrowsAndItsFirstExceptionIsThrown)
{
    observe().onState = [](std::string const &line) { throw std::runtime_error(line); };
    Lines const trace = traceOf([this] {
        try {
            deliver(DevSeqEv::START);
            ADD_FAILURE() << "nothing came out";
        } catch (std::runtime_error const &failure) {
            EXPECT_STREQ(failure.what(), "R start");
        }
    });
    EXPECT_EQ(heard, (Lines{"R start", "A start", "B start"}));
    EXPECT_EQ(world.takeLog(), (Lines{"R start", "A start", "B start"}));
    EXPECT_EQ(trace, (Lines{"A sequence observer throws. device R: in state \"start\": R start",
                            "A sequence observer throws. device A: in state \"start\": A start",
                            "A sequence observer throws. device B: in state \"start\": B start"}));
    expectLockIsFree();
}

TEST_F(SequenceFailure, ObserverThatThrowsOnAFailureDoesNotHideIt)
{
    Observer &observer = observe();
    observer.onFailure = [] { throw std::logic_error("mine"); };
    makeFail("A");
    EXPECT_THROW(deliver(DevSeqEv::START), std::logic_error);
    EXPECT_EQ(world.state("B"), "start");
    EXPECT_NE(failureText("A"), "none");
    makeBreak("B");
    EXPECT_THROW(deliver("B", DevSeqEv::ABORT), std::runtime_error);
    EXPECT_NE(failureText("B"), "none");
}

TEST_F(SequenceFailure, ObserverMayTakeItselfAwayAndEndsWithoutTheLock)
{
    Observer &observer = observe();
    bool hasEnded = false;
    bool hasReturned = false;
    observer.onState = [&](std::string const &) {
        world.tree->setObserver(nullptr);
        EXPECT_FALSE(hasEnded); // this call still uses it
        hasReturned = true;
    };
    observer.onEnd = [&] {
        expectLockIsFree();
        hasEnded = true;
    };
    deliver(DevSeqEv::START);
    EXPECT_TRUE(hasReturned);
    EXPECT_TRUE(hasEnded);
    EXPECT_EQ(heard, Lines{"R start"});
    EXPECT_EQ(world.state("B"), "start");
}

TEST_F(SequenceFailure, ObserverMayBeReplacedByItsOwnCall)
{
    Lines heardBySecond;
    observe().onState = [&](std::string const &) {
        world.tree->setObserver(makeShd<Observer>(heardBySecond));
    };
    deliver(DevSeqEv::START);
    EXPECT_EQ(heard, Lines{"R start"});
    EXPECT_EQ(heardBySecond, (Lines{"A start", "B start"}));
}

// An observer must not deliver events. If it does, it is still kept until its call returns.
TEST_F(SequenceFailure, ObserverThatDeliversAndIsReplacedMeanwhileOutlivesItsCall)
{
    Observer &observer = observe();
    bool hasEnded = false;
    observer.onState = [&](std::string const &line) {
        if (line == "R start")
            deliver("R", DevSeqEv::ABORT);
        else
            world.tree->setObserver(nullptr);
        EXPECT_FALSE(hasEnded);
    };
    observer.onEnd = [&] { hasEnded = true; };
    deliver(DevSeqEv::START);
    EXPECT_TRUE(hasEnded);
    EXPECT_EQ(heard, (Lines{"R start", "R abort"}));
}

TEST_F(SequenceFailure, TakingTheObserverAwayWaitsForItsCall)
{
    Latch arrived(1);
    Latch released(1);
    observe().onState = [&](std::string const &line) {
        if (line == "R start") {
            arrived.count_down();
            released.wait();
        }
    };
    std::thread delivering([this] { deliver(DevSeqEv::START); });
    arrived.wait();
    std::atomic<bool> isDone{false};
    std::atomic<long> number{0};
    std::size_t nbHeard = 0;
    std::thread other([&] {
        number = threadNumber();
        world.tree->setObserver(nullptr);
        nbHeard = heard.size();
        isDone = true;
    });
    while (!number || (!isDone && !isAsleep(number)))
        std::this_thread::yield();
    EXPECT_FALSE(isDone);
    released.count_down();
    delivering.join();
    other.join();
    EXPECT_EQ(heard.size(), nbHeard);
    deliver("R", DevSeqEv::ABORT);
    EXPECT_EQ(heard.size(), nbHeard);
}

TEST_F(SequenceFailure, OnlyTheDeliveringThreadIsDelivering)
{
    EXPECT_FALSE(world.tree->isDelivering());
    bool inObserver = false;
    bool inDevice = false;
    observe().onState = [&](std::string const &) { inObserver = world.tree->isDelivering(); };
    world.devices["B"]->onCall = [&](std::string const &) {
        inDevice = world.tree->isDelivering();
    };
    deliver(DevSeqEv::START);
    EXPECT_TRUE(inObserver);
    EXPECT_TRUE(inDevice);
    EXPECT_FALSE(world.tree->isDelivering());
    makeBreak("R");
    EXPECT_ANY_THROW(deliver(DevSeqEv::ABORT));
    EXPECT_FALSE(world.tree->isDelivering());
}

TEST_F(SequenceFailure, NodesMayJoinWhileOthersAskForStates)
{
    constexpr int NB_NODES = 100;
    std::vector<RCShdPtr<DevSeqTreeNode>> nodes;
    for (int i = 0; i < NB_NODES; ++i)
        nodes.push_back(DevSeqTreeNode::createNoop(std::to_string(i).c_str()));
    std::atomic<bool> isFound{false};
    std::thread asking([&] {
        while (!isFound) {
            try {
                isFound = world.tree->getState(std::to_string(NB_NODES - 1).c_str()) == "init";
                (void)world.tree->getFailure("R");
                std::ostringstream text;
                text << *world.tree;
            } catch (DevMgrEx::NameNotFound const &) {
            }
        }
    });
    for (int i = 0; i < NB_NODES; ++i) {
        if (i % 10 == 0)
            world.tree->setRoot(nodes[static_cast<std::size_t>(i)]);
        else
            world.tree->attach(nodes[static_cast<std::size_t>(i - 1)],
                               nodes[static_cast<std::size_t>(i)]);
    }
    asking.join();
    EXPECT_TRUE(isFound);
}

} // namespace

} // namespace ZvTest
