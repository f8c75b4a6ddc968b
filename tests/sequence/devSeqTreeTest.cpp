#include "resmgt/deviceManager/sequence/devSeqTree.h"
#include "testing/allocations.h"
#include "testing/meeting.h"

#include "recordingDevice.h"
#include "resmgt/deviceManager/devMgrEx.h"
#include "testing/asleep.h"
#include "testing/dump.h"
#include "testing/graphviz.h"
#include "zvbase/failures.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace ZvTest {

using namespace Zv;

namespace {

class DevSeqTreeTest : public testing::Test
{
protected:
    ~DevSeqTreeTest() noexcept override {}

    /// Root R with children A and B, A with child C.
    void build()
    {
        world.root("R");
        world.child("R", "A");
        world.child("R", "B");
        world.child("A", "C");
        double seconds = 1;
        for (char const * const name : {"R", "A", "B", "C"}) {
            world.devices[name]->mark = markAt(seconds);
            world.devices[name]->latency =
                DtTime(static_cast<DtTimeIndex>(seconds), Rational(10, 1));
            seconds += 1;
        }
    }
    void start()
    {
        world.tree->processEvent(DevSeqEv::START);
        for (char const * const name : {"C", "B", "A", "R"})
            world.complete(name);
    }
    void lock()
    {
        start();
        for (char const * const name : {"R", "A", "B", "C"})
            world.complete(name);
        expectStates("lock", "lock", "lock", "lock");
        (void)world.takeLog();
    }
    /// Asks on another thread, because this one may hold the lock.
    void expectLockIsFree()
    {
        std::thread([this] { (void)world.state("R"); }).join();
    }
    void expectStates(char const *r, char const *a, char const *b, char const *c)
    {
        EXPECT_EQ(world.state("R"), r);
        EXPECT_EQ(world.state("A"), a);
        EXPECT_EQ(world.state("B"), b);
        EXPECT_EQ(world.state("C"), c);
    }

    World world;
};

TEST_F(DevSeqTreeTest, ASingleNodeRunsFromStartToEnd)
{
    world.root("R");
    world.devices["R"]->latency = DtTime(3, Rational(2, 1));
    EXPECT_EQ(world.state("R"), "init");
    world.tree->processEvent(DevSeqEv::START);
    EXPECT_EQ(world.state("R"), "start");
    world.complete("R");
    EXPECT_EQ(world.state("R"), "sync");
    world.complete("R");
    EXPECT_EQ(world.state("R"), "lock");
    world.tree->processEvent(DevSeqEv::STOP);
    EXPECT_EQ(world.state("R"), "stop");
    world.complete("R");
    EXPECT_EQ(world.state("R"), "final");
    world.tree->wait();
    EXPECT_EQ(world.log, (Lines{"R start", "R sync time 1.5", "R stop"}));
}

TEST_F(DevSeqTreeTest, DevicesStartParentsFirst)
{
    build();
    world.tree->processEvent(DevSeqEv::START);
    EXPECT_EQ(world.log, (Lines{"R start", "A start", "C start", "B start"}));
    expectStates("start", "start", "start", "start");
}

TEST_F(DevSeqTreeTest, ReadinessRisesFromTheLeaves)
{
    build();
    world.tree->processEvent(DevSeqEv::START);
    (void)world.takeLog();
    world.complete("C");
    expectStates("start", "start", "start", "wml");
    world.complete("R");
    expectStates("wsr", "start", "start", "wml");
    world.complete("A");
    expectStates("wsr", "wml", "start", "wml");
    EXPECT_EQ(world.log, Lines());
    world.complete("B");
    expectStates("sync", "wml", "wml", "wml");
    EXPECT_EQ(world.log, (Lines{"R sync time 0.4"}));
}

TEST_F(DevSeqTreeTest, TheRootSyncsWithTheLargestLatencyOfAnyNode)
{
    for (char const * const slowest : {"R", "A", "B", "C"}) {
        World other;
        other.root("R");
        other.child("R", "A");
        other.child("R", "B");
        other.child("A", "C");
        for (auto const &[name, device] : other.devices)
            device->latency = DtTime(name == slowest ? 9 : 1, Rational(1, 1));
        other.tree->processEvent(DevSeqEv::START);
        for (char const * const name : {"A", "R", "C", "B"})
            other.complete(name);
        EXPECT_EQ(other.log.back(), "R sync time 9") << slowest;
    }
}

TEST_F(DevSeqTreeTest, AChildThatIsReadyFirstIsCountedOnce)
{
    build();
    world.tree->processEvent(DevSeqEv::START);
    world.complete("B");
    EXPECT_EQ(world.state("R"), "start");
    world.complete("R");
    EXPECT_EQ(world.state("R"), "wsr");
    world.complete("C");
    world.complete("A");
    EXPECT_EQ(world.state("R"), "sync");
}

TEST_F(DevSeqTreeTest, LockGoesDownWithEachParentsMark)
{
    build();
    start();
    (void)world.takeLog();
    world.complete("R");
    expectStates("lock", "sync", "sync", "wml");
    EXPECT_EQ(world.takeLog(), (Lines{"A sync mark 1", "B sync mark 1"}));
    world.complete("A");
    expectStates("lock", "lock", "sync", "sync");
    EXPECT_EQ(world.takeLog(), (Lines{"C sync mark 2"}));
    world.complete("C");
    world.complete("B");
    expectStates("lock", "lock", "lock", "lock");
    EXPECT_EQ(world.takeLog(), Lines());
}

TEST_F(DevSeqTreeTest, DevicesStopFromTheLeavesUp)
{
    build();
    lock();
    world.tree->processEvent(DevSeqEv::STOP);
    expectStates("wss", "wss", "stop", "stop");
    EXPECT_EQ(world.takeLog(), (Lines{"C stop", "B stop"}));
    world.complete("B");
    expectStates("wss", "wss", "final", "stop");
    EXPECT_EQ(world.takeLog(), Lines());
    world.complete("C");
    expectStates("wss", "stop", "final", "final");
    EXPECT_EQ(world.takeLog(), (Lines{"A stop"}));
    world.complete("A");
    expectStates("stop", "final", "final", "final");
    EXPECT_EQ(world.takeLog(), (Lines{"R stop"}));
    world.complete("R");
    expectStates("final", "final", "final", "final");
    world.tree->wait();
}

TEST_F(DevSeqTreeTest, AStopDuringSyncLetsTheChildrenSyncFirst)
{
    build();
    start();
    (void)world.takeLog();
    world.tree->processEvent(DevSeqEv::STOP);
    EXPECT_EQ(world.state("R"), "sync");
    world.complete("R");
    expectStates("wss", "sync", "sync", "wml");
    EXPECT_EQ(world.takeLog(), (Lines{"A sync mark 1", "B sync mark 1"}));
    world.complete("A");
    expectStates("wss", "wss", "sync", "sync");
    world.complete("C");
    world.complete("B");
    expectStates("wss", "wss", "stop", "stop");
    EXPECT_EQ(world.takeLog(), (Lines{"C sync mark 2", "C stop", "B stop"}));
}

TEST_F(DevSeqTreeTest, ALostLockIsFoundAgainUnderTheParent)
{
    build();
    lock();
    world.devices["R"]->mark = markAt(20);
    world.recover("A");
    expectStates("lock", "recover", "lock", "recover");
    EXPECT_EQ(world.takeLog(), (Lines{"A recover", "C recover"}));
    world.complete("A");
    expectStates("lock", "wsr", "lock", "recover");
    world.complete("C");
    // R stays in lock and reads its mark again. B ignores the event with which A syncs.
    expectStates("lock", "sync", "lock", "wml");
    EXPECT_EQ(world.takeLog(), (Lines{"A sync mark 20"}));
    world.complete("A");
    world.complete("C");
    expectStates("lock", "lock", "lock", "lock");
    EXPECT_EQ(world.takeLog(), (Lines{"C sync mark 2"}));
}

TEST_F(DevSeqTreeTest, AChildThatIsReadyFirstDuringARecoveryIsCountedOnce)
{
    build();
    lock();
    world.recover("A");
    world.complete("C");
    expectStates("lock", "recover", "lock", "wml"); // C's event is parked until A is ready, too
    world.complete("A");
    expectStates("lock", "sync", "lock", "wml");
}

TEST_F(DevSeqTreeTest, TheRootRecoversByItself)
{
    build();
    lock();
    world.recover("R");
    expectStates("recover", "recover", "recover", "recover");
    EXPECT_EQ(world.takeLog(), (Lines{"R recover", "A recover", "C recover", "B recover"}));
    for (char const * const name : {"R", "A", "B", "C"})
        world.complete(name);
    expectStates("sync", "wml", "wml", "wml");
    EXPECT_EQ(world.takeLog(), (Lines{"R sync time 0.4"}));
}

TEST_F(DevSeqTreeTest, ARecoveryAboveAChildThatHasNotLockedIsIllegalThere)
{
    build();
    start();
    world.complete("R");
    expectStates("lock", "sync", "sync", "wml");
    EXPECT_NO_THROW(world.recover("R"));
    expectStates("recover", "_ill", "_ill", "wml");
    EXPECT_THROW(world.tree->processEvent("A", DevSeqEv::LOCK), DevMgrEx::SMExecutionError);
}

TEST_F(DevSeqTreeTest, AnAbortIsTheDevicesOwn)
{
    build();
    lock();
    world.abort("A");
    expectStates("lock", "abort", "lock", "lock");
    EXPECT_EQ(world.takeLog(), (Lines{"A abort"}));
    world.complete("A");
    expectStates("lock", "final", "lock", "lock");
}

TEST_F(DevSeqTreeTest, WaitReturnsWhenOneAbortedAndTheOthersStopped)
{
    build();
    lock();
    world.tree->processEvent(DevSeqEv::STOP);
    world.abort("R");
    for (char const * const name : {"C", "B", "A"})
        world.complete(name);
    expectStates("abort", "final", "final", "final");
    std::thread waiter([this] { world.tree->wait(); });
    world.complete("R");
    waiter.join();
    expectStates("final", "final", "final", "final");
    EXPECT_EQ(world.log, (Lines{"C stop", "B stop", "R abort", "A stop"}));
}

TEST_F(DevSeqTreeTest, WaitEndsWithTheLastDevice)
{
    build();
    lock();
    world.tree->processEvent(DevSeqEv::STOP);
    Latch waiting(1);
    std::string rootWhenDone;
    std::thread waiter([&] {
        waiting.count_down();
        world.tree->wait();
        rootWhenDone = world.state("R");
    });
    waiting.wait();
    for (char const * const name : {"B", "C", "A", "R"})
        world.complete(name);
    waiter.join();
    EXPECT_EQ(rootWhenDone, "final");
}

TEST_F(DevSeqTreeTest, AnyNumberOfThreadsMayWaitForTheEndAgainAndAgain)
{
    build();
    lock();
    world.tree->processEvent(DevSeqEv::STOP);
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; ++i)
        waiters.emplace_back([this] {
            world.tree->wait();
            EXPECT_EQ(world.state("R"), "final");
        });
    for (char const * const name : {"B", "C", "A", "R"})
        world.complete(name);
    for (auto &waiter : waiters)
        waiter.join();
    world.tree->wait();
    world.tree->wait();
}

/// Returns how a wait ends when the tree of `world` is destroyed during the wait.
std::string endOfWait(World &world)
{
    std::atomic<long> number{0};
    std::string end = "it returned";
    std::thread waiter([&end, &number, &tree = *world.tree] {
        number = threadNumber();
        try {
            tree.wait();
        } catch (DevMgrEx::SequenceAbandoned const &failure) {
            end = failure.what();
        }
    });
    while (!number)
        std::this_thread::yield();
    waitUntilAsleep(number);
    world.tree = nullptr;
    waiter.join();
    return end;
}

TEST_F(DevSeqTreeTest, DestroyingTheTreeWakesAThreadThatWaits)
{
    build();
    lock();
    EXPECT_EQ(endOfWait(world), "The sequence was abandoned before it had ended.");
}

TEST_F(DevSeqTreeTest, DestroyingTheTreeWakesAThreadThatWaitsForTheLastDevice)
{
    build();
    lock();
    world.tree->processEvent(DevSeqEv::STOP);
    for (char const * const name : {"B", "C", "A"})
        world.complete(name);
    EXPECT_EQ(endOfWait(world), "The sequence was abandoned before it had ended.");
}

TEST_F(DevSeqTreeTest, ReleasedWaitersLeaveATreeThatLivesOn)
{
    build();
    lock();
    std::atomic<int> nbFailures{0};
    auto const wait = [&] {
        try {
            world.tree->wait();
        } catch (DevMgrEx::SequenceAbandoned const &) {
            ++nbFailures;
        }
    };
    std::thread first(wait);
    std::thread second(wait);
    world.tree->releaseWaiters();
    first.join();
    second.join();
    wait();
    EXPECT_EQ(nbFailures, 3);

    world.tree->processEvent(DevSeqEv::STOP);
    for (char const * const name : {"B", "C", "A", "R"})
        world.complete(name);
    wait();
    EXPECT_EQ(nbFailures, 3);
}

TEST_F(DevSeqTreeTest, AnUnknownNameIsNotFoundAndChangesNothing)
{
    build();
    lock();
    try {
        world.tree->processEvent("nobody", DevSeqEv::STOP);
        FAIL();
    } catch (DevMgrEx::NameNotFound const &failure) {
        EXPECT_STREQ(failure.what(), "Named device not found.");
    }
    EXPECT_THROW((void)world.tree->getState("nobody"), DevMgrEx::NameNotFound);
    expectStates("lock", "lock", "lock", "lock");
    EXPECT_EQ(world.takeLog(), Lines());
}

TEST_F(DevSeqTreeTest, AnUnknownEventIsOutsideTheMachine)
{
    build();
    EXPECT_THROW(world.tree->processEvent(12), DevMgrEx::SMDomainError);
    EXPECT_THROW(world.tree->processEvent(-1), DevMgrEx::SMDomainError);
    EXPECT_EQ(world.state("R"), "init");
}

TEST_F(DevSeqTreeTest, AnEmptyTreeIsANullPointer)
{
    EXPECT_THROW(world.tree->processEvent(DevSeqEv::START), RCEx::ExNullPtr);
    EXPECT_THROW(world.tree->processEvent("R", DevSeqEv::START), RCEx::ExNullPtr);
    EXPECT_THROW((void)world.tree->getState("R"), RCEx::ExNullPtr);
    EXPECT_THROW(world.tree->wait(), RCEx::ExNullPtr);
    EXPECT_THROW((void)textOf(*world.tree), RCEx::ExNullPtr);
}

TEST_F(DevSeqTreeTest, AttachingToNothingIsANullPointer)
{
    build();
    auto const orphan = world.createNode("D");
    EXPECT_THROW(world.tree->attach(nullptr, orphan), RCEx::ExNullPtr);
    EXPECT_THROW(world.tree->attach(orphan, nullptr), RCEx::ExNullPtr);
    EXPECT_EQ(textOf(*world.tree), "( R ( A ( C ) B ) )");
}

TEST_F(DevSeqTreeTest, HasATextForm)
{
    world.root("R");
    EXPECT_EQ(textOf(*world.tree), "( R )");
    world.child("R", "A");
    world.child("R", "B");
    EXPECT_EQ(textOf(*world.tree), "( R ( A B ) )");
    world.child("A", "C");
    world.child("C", "D");
    EXPECT_EQ(textOf(*world.tree), "( R ( A ( C ( D ) ) B ) )");
}

TEST_F(DevSeqTreeTest, ANewRootTakesTheOldOneAsItsLastChild)
{
    build();
    auto const top = world.createNode("T");
    world.tree->attach(top, world.createNode("S"));
    world.tree->setRoot(top);
    EXPECT_EQ(textOf(*world.tree), "( T ( S R ( A ( C ) B ) ) )");
    world.tree->processEvent(DevSeqEv::START);
    EXPECT_EQ(world.log, (Lines{"T start", "S start", "R start", "A start", "C start", "B start"}));
    EXPECT_EQ(world.state("C"), "start");
}

TEST_F(DevSeqTreeTest, ASubtreeThatIsJoinedLaterIsFound)
{
    world.root("R");
    EXPECT_EQ(world.state("R"), "init");
    auto const a = world.createNode("A");
    world.tree->attach(a, world.createNode("B"));
    EXPECT_THROW((void)world.tree->getState("B"), DevMgrEx::NameNotFound);
    world.tree->attach(world.nodes["R"], a);
    EXPECT_EQ(world.state("B"), "init");
}

TEST_F(DevSeqTreeTest, OfEqualNamesTheFirstOneCounts)
{
    auto const started = [&] {
        world.tree->processEvent("same", DevSeqEv::START);
        return world.takeLog();
    };
    auto const node = [&](std::string const &label) {
        auto const device = RCShdPtr<RecordingProtocol>(new RecordingProtocol(label, world.log));
        return DevSeqTreeNode::create("same", RCShdPtr<DevSeqPrtclUtil>(new DevSeqPrtclUtil(
                                                  RCShdPtr<DevMDSyncSeqPrtcl>(device))));
    };
    // R ( A ( same ) B ( D ( same ) ) same ). R's own children are searched before A's, and A's
    // before deeper ones.
    world.root("R");
    world.child("R", "A");
    world.child("R", "B");
    world.child("B", "D");
    world.tree->attach(world.nodes["D"], node("under D"));
    EXPECT_EQ(started(), (Lines{"under D start"}));
    world.tree->attach(world.nodes["A"], node("under A"));
    EXPECT_EQ(started(), (Lines{"under A start"}));
    world.tree->attach(world.nodes["R"], node("under R"));
    EXPECT_EQ(started(), (Lines{"under R start"}));
    auto const top = DevSeqTreeNode::createNoop("same");
    world.tree->setRoot(top);
    EXPECT_EQ(world.state("same"), "init");
    world.tree->processEvent("same", DevSeqEv::START);
    EXPECT_EQ(world.state("same"), "start");
}

TEST_F(DevSeqTreeTest, AFailingDeviceFallsOutSilently)
{
    build();
    world.devices["A"]->onCall = [](std::string const &) {
        ZV_THROW(DevMgrEx::StreamNotAvailable, "busy");
    };
    EXPECT_NO_THROW(world.tree->processEvent(DevSeqEv::START));
    expectStates("start", "_exc", "start", "init");
    EXPECT_THROW(world.tree->processEvent("A", DevSeqEv::READY), DevMgrEx::SMExecutionError);
    expectLockIsFree();
}

TEST_F(DevSeqTreeTest, AnExceptionOtherThanAnExBaseAbandonsTheDelivery)
{
    build();
    world.devices["A"]->onCall = [](std::string const &) { ZV_ASSERT(1 > 2); };
    EXPECT_THROW(world.tree->processEvent(DevSeqEv::START), AssertionFailed);
    expectLockIsFree();
    expectStates("start", "init", "init", "init");
    EXPECT_EQ(world.takeLog(), (Lines{"R start", "A start"}));
    EXPECT_THROW(world.tree->processEvent("A", DevSeqEv::START), DevMgrEx::SMExecutionError);
    // B has lost the start that was on its way. It can still be started by an event of its own.
    world.tree->processEvent("B", DevSeqEv::START);
    EXPECT_EQ(world.state("B"), "start");
}

TEST_F(DevSeqTreeTest, TheLockIsFreeAfterANameThatIsNotFound)
{
    build();
    EXPECT_THROW(world.tree->processEvent("nobody", DevSeqEv::START), DevMgrEx::NameNotFound);
    expectLockIsFree();
    EXPECT_THROW((void)world.tree->getState("nobody"), DevMgrEx::NameNotFound);
    expectLockIsFree();
}

TEST_F(DevSeqTreeTest, TheObserverIsNotifiedOfFailedMachines)
{
    class Observer : public DevSeqObserver
    {
    public:
        explicit Observer(Lines &log) : _log(log) {}
        void stateChanged(LiString const &device, LiString const &state) override
        {
            _log.push_back((device + " " + state).getChars());
        }

    private:
        Lines &_log;
    };
    build();
    Lines states;
    world.tree->setObserver(makeShd<Observer>(states));
    world.devices["A"]->onCall = [](std::string const &) {
        ZV_THROW(DevMgrEx::StreamNotAvailable, "busy");
    };
    world.tree->processEvent(DevSeqEv::START);
    world.tree->processEvent("B", DevSeqEv::LOCK);
    EXPECT_EQ(states, (Lines{"R start", "A _exc", "B start", "B _ill"}));
}

TEST_F(DevSeqTreeTest, AnObserverThatIsReplacedEndsWithoutTheLock)
{
    class Asking : public DevSeqObserver
    {
    public:
        Asking(DevSeqTree &tree, bool &hasEnded) : _tree(tree), _hasEnded(hasEnded) {}
        void stateChanged(LiString const &, LiString const &) override {}

    protected:
        ~Asking() override
        {
            std::thread([this] { (void)_tree.getState("R"); }).join();
            _hasEnded = true;
        }

    private:
        DevSeqTree &_tree;
        bool &_hasEnded;
    };
    world.root("R");
    bool hasEnded = false;
    world.tree->setObserver(makeShd<Asking>(*world.tree, hasEnded));
    world.tree->setObserver(nullptr);
    EXPECT_TRUE(hasEnded);
}

using DevSeqTreeDeathTest = DevSeqTreeTest;

// Runs in a process of its own, because nothing ends that wait.
TEST_F(DevSeqTreeDeathTest, WaitDoesNotReturnForADeviceThatFailedOrGotAnIllegalEvent)
{
    for (bool const isIllegal : {false, true})
        EXPECT_EXIT(
            {
                world.root("R");
                world.tree->processEvent(DevSeqEv::START);
                world.devices["R"]->onCall = [](std::string const &) {
                    ZV_THROW(DevMgrEx::StreamNotAvailable, "busy");
                };
                world.tree->processEvent(isIllegal ? DevSeqEv::LOCK : DevSeqEv::ABORT);
                std::atomic<long> number{0};
                std::thread waiter([&] {
                    number = threadNumber();
                    world.tree->wait();
                    std::_Exit(1);
                });
                while (!number || !isAsleep(number))
                    std::this_thread::yield();
                std::_Exit(world.state("R") == (isIllegal ? "_ill" : "_exc") ? 0 : 2);
            },
            testing::ExitedWithCode(0), "");
}

TEST_F(DevSeqTreeTest, ANodeThatEndedAndThenFellHasEnded)
{
    world.root("R");
    world.tree->processEvent(DevSeqEv::START);
    world.abort("R");
    world.complete("R");
    EXPECT_EQ(world.state("R"), "final");
    world.tree->processEvent(DevSeqEv::START);
    EXPECT_EQ(world.state("R"), "_ill");
    world.tree->wait();
}

TEST_F(DevSeqTreeTest, ANodeWithoutADeviceReportsNothing)
{
    auto const node = DevSeqTreeNode::createNoop("nobody");
    EXPECT_EQ(node->getName(), "nobody");
    world.tree->setRoot(node);
    world.tree->processEvent(DevSeqEv::START);
    EXPECT_EQ(world.state("nobody"), "start");
    for (auto const event : {DevSeqEv::READY, DevSeqEv::LOCK, DevSeqEv::STOP, DevSeqEv::STOPPED})
        world.tree->processEvent("nobody", event);
    EXPECT_EQ(world.state("nobody"), "final");
    world.tree->wait();
}

TEST_F(DevSeqTreeTest, NodesDieAfterTheirChildren)
{
    build();
    world.nodes.clear();
    world.tree = nullptr;
    EXPECT_EQ(world.log, (Lines{"C gone", "A gone", "B gone", "R gone"}));
}

TEST_F(DevSeqTreeTest, AReferencedNodeOutlivesItsTree)
{
    build();
    auto const held = world.nodes["A"];
    world.nodes.clear();
    world.tree = nullptr;
    EXPECT_EQ(world.log, (Lines{"B gone", "R gone"}));
}

TEST_F(DevSeqTreeTest, ThrowsWhatADevicesDestructorThrows)
{
    build();
    world.devices["A"]->onDestruction = [] { ZV_ASSERT(3 < 2); };
    world.nodes.clear();
    EXPECT_THROW(world.tree = nullptr, AssertionFailed);
    EXPECT_TRUE(world.tree.isNull());
    Lines gone = world.takeLog();
    std::sort(gone.begin(), gone.end());
    EXPECT_EQ(gone, (Lines{"A gone", "B gone", "C gone", "R gone"}));
}

TEST_F(DevSeqTreeTest, ThrowsTheFirstOfSeveralExceptionsAfterDestroyingAll)
{
    build();
    for (auto const &[name, device] : world.devices)
        device->onDestruction = [text = name] { throw std::runtime_error(text); };
    world.nodes.clear();
    try {
        world.tree = nullptr;
        ADD_FAILURE() << "nothing came out";
    } catch (std::runtime_error const &failure) {
        EXPECT_STREQ(failure.what(), "C");
    }
    EXPECT_EQ(world.takeLog(), (Lines{"C gone", "A gone", "B gone", "R gone"}));
}

TEST_F(DevSeqTreeTest, ASubtreeOutsideOfATreeIsDestroyedWithItsLastReference)
{
    RCShdPtr<DevSeqTreeNode> top = world.createNode("P");
    world.child("P", "C");
    world.child("C", "G");
    world.nodes.clear();
    top = nullptr;
    EXPECT_EQ(world.log, (Lines{"G gone", "C gone", "P gone"}));
}

TEST_F(DevSeqTreeTest, ANodeThatOutlivesItsParentHasNone)
{
    world.createNode("P");
    world.child("P", "C");
    auto const held = world.nodes["C"];
    world.nodes.clear();
    EXPECT_EQ(world.takeLog(), Lines{"P gone"});
    world.root("R");
    world.tree->attach(world.nodes["R"], held);
    world.tree->processEvent(DevSeqEv::START);
    world.complete("C");
    world.complete("R");
    EXPECT_EQ(world.state("R"), "sync");
}

TEST_F(DevSeqTreeTest, ANodeHeldBelowOneThatEndsHasNoParent)
{
    RCShdPtr<DevSeqTreeNode> top = world.createNode("P");
    world.child("P", "C");
    world.child("C", "G");
    auto const held = world.nodes["G"];
    world.nodes.clear();
    top = nullptr; // destroys C, too
    EXPECT_EQ(world.takeLog(), (Lines{"C gone", "P gone"}));
    world.tree->setRoot(held);
    world.tree->processEvent(DevSeqEv::START);
    // It still sends its event to a parent, as before.
    EXPECT_THROW(world.complete("G"), RCEx::ExNullPtr);
}

TEST_F(DevSeqTreeTest, AnAttachThatFailsChangesNothing)
{
    world.root("R");
    RCShdPtr<DevSeqTreeNode> child = world.createNode("A");
    int const nbFailures = failEachAllocation(
        [&] { world.tree->attach(world.nodes["R"], child); },
        [&] {
            EXPECT_EQ(textOf(*world.tree), "( R )");
            RCShdPtr<DevSeqTree> const own(new DevSeqTree);
            own->setRoot(child);
            own->processEvent(DevSeqEv::START);
            own->processEvent("A", DevSeqEv::READY);
            EXPECT_EQ(own->getState("A"), "sync"); // a root has no parent to wait for
            child = world.createNode("A");
        });
    EXPECT_EQ(nbFailures, 1);
    EXPECT_EQ(textOf(*world.tree), "( R ( A ) )");
}

TEST_F(DevSeqTreeTest, ALateReportOfADeviceIsDropped)
{
    build();
    start();
    ObjPtr<DevANO> const recovery = world.devices["A"]->takeRecover();
    world.devices["R"]->complete(); // the report waits in the queue
    world.nodes.clear();
    world.tree = nullptr;
    EXPECT_NO_THROW(world.deliverReports());
    EXPECT_NO_THROW(recovery->performExecute());
}

TEST_F(DevSeqTreeTest, ANotificationDoesNotKeepItsTreeAlive)
{
    build();
    ObjPtr<DevClonableANO> notification =
        SeqANOFactory(world.tree).create("R", static_cast<unsigned int>(DevSeqEv::START));
    ObjPtr<DevClonableANO> clone = notification->clone();
    clone->performExecute();
    EXPECT_EQ(world.state("R"), "start");
    EXPECT_TRUE(world.tree.isUnique());
    world.nodes.clear();
    world.tree = nullptr;
    EXPECT_EQ(std::count(world.log.begin(), world.log.end(), "R gone"), 1);
    EXPECT_NO_THROW(notification->performExecute());
}

TEST_F(DevSeqTreeTest, AFactoryOfNotificationsKeepsItsTreeAlive)
{
    build();
    SeqANOFactory const factory(world.tree);
    world.nodes.clear();
    world.tree = nullptr;
    EXPECT_EQ(world.log, Lines());
    ObjPtr<DevClonableANO> const notification = factory.create("R", DevSeqEv::START);
    notification->performExecute();
    EXPECT_EQ(world.log.at(0), "R start");
}

TEST_F(DevSeqTreeTest, ANotificationOfNoTreeIsANullPointer)
{
    SeqANOFactory const factory(nullptr);
    EXPECT_THROW((void)factory.create("R", DevSeqEv::START), RCEx::ExNullPtr);
}

TEST_F(DevSeqTreeTest, ATreeThatEndsWaitsForTheReportThatIsBeingDelivered)
{
    build();
    start();
    // Another thread delivers R's report, and waits in R's getMark until the destructor of the tree
    // is about to run.
    ObjPtr<DevClonableANO> const report = SeqANOFactory(world.tree).create("R", DevSeqEv::LOCK);
    Latch isInside(1);
    Latch mayLeave(1);
    bool hasLeft = false;
    world.devices["R"]->onMark = [&] {
        isInside.count_down();
        mayLeave.wait();
        hasLeft = true;
    };
    world.nodes.clear();
    std::thread reporter([&] { report->performExecute(); });
    isInside.wait();
    std::thread ender([&] {
        mayLeave.count_down();
        world.tree = nullptr;
        EXPECT_TRUE(hasLeft);
    });
    reporter.join();
    ender.join();
}

TEST_F(DevSeqTreeTest, DeliveriesOfTwoThreadsTakeTurns)
{
    build();
    lock();
    // Each recovery of B runs to its end before any other event is delivered.
    int inside = 0;
    int most = 0;
    auto const count = [&](std::string const &) {
        most = std::max(most, ++inside);
        --inside;
    };
    for (auto const &[name, device] : world.devices)
        device->onCall = count;
    std::thread other([&] {
        for (int i = 0; i < 200; ++i) {
            world.tree->processEvent("C", DevSeqEv::RECOVER);
            world.tree->processEvent("C", DevSeqEv::READY);
            world.tree->processEvent("C", DevSeqEv::LOCK);
        }
    });
    for (int i = 0; i < 200; ++i) {
        world.tree->processEvent("B", DevSeqEv::RECOVER);
        world.tree->processEvent("B", DevSeqEv::READY);
        world.tree->processEvent("B", DevSeqEv::LOCK);
    }
    other.join();
    expectStates("lock", "lock", "lock", "lock");
    EXPECT_EQ(most, 1);
}

TEST_F(DevSeqTreeTest, ItsDotHasEachDeviceBelowItsParentWithItsState)
{
    build();
    start();
    EXPECT_EQ(graphOf(*world.tree),
              (std::vector<std::string>{"d0: R sync", "d1: A wml", "d2: C wml", "d3: B wml",
                                        "d0 -> d1", "d0 -> d3", "d1 -> d2"}));
}

TEST_F(DevSeqTreeTest, TheDotOfAnEmptyTreeThrows)
{
    std::ostringstream text;
    EXPECT_THROW(world.tree->dumpDot(text), RCEx::ExNullPtr);
    EXPECT_EQ(text.str(), "");
}

} // namespace
} // namespace ZvTest
