#include "resmgt/deviceManager/sequence/devSeqTreeNode.h"

#include "recordingDevice.h"
#include "resmgt/deviceManager/devMgrEx.h"
#include "testing/asleep.h"
#include "zvbase/failures.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>

namespace ZvTest {

using namespace Zv;

namespace {

using Events = Vector<std::int32_t>;

/// A machine without a tree. The events for its neighbours stay in the queues, for tests to look
/// at.
struct Machine
{
    explicit Machine(std::int32_t nbChildren = 0, bool hasParent = false)
        : device(new RecordingProtocol("", log)), util(new DevSeqTreeNodeUtil("device"))
    {
        util->setNbChildren(nbChildren);
        util->setHasParent(hasParent);
        RCShdPtr<DevSeqEvPend> const parked(new DevSeqEvPend);
        RCShdPtr<DevSeqPrtclUtil> const prtclUtil(
            new DevSeqPrtclUtil(RCShdPtr<DevMDSyncSeqPrtcl>(device)));
        ObjPtr<DevSMTransitionFactory> factory(new DevSeqTransFactory(parked, util, prtclUtil));
        sm.reset(new DevSeqSM(factory, parked, "node device"));
    }

    void feed(Events const &events)
    {
        for (std::int32_t const event : events)
            sm->execute(event);
        forget();
    }
    void forget()
    {
        log.clear();
        for (auto const &pend :
             {util->getSelfPend(), util->getParentPend(), util->getChildrenPend()})
            (void)pend->take();
    }
    std::string state() const { return sm->getStateName().getChars(); }
    static Events sent(RCShdPtr<DevSeqEvPend> const &pend)
    {
        return pend->isReleased() ? pend->take() : Events();
    }
    Events toSelf() const { return sent(util->getSelfPend()); }
    Events toParent() const { return sent(util->getParentPend()); }
    Events toChildren() const { return sent(util->getChildrenPend()); }

    Lines log;
    RCShdPtr<RecordingProtocol> device;
    RCShdPtr<DevSeqTreeNodeUtil> util;
    ObjPtr<DevSeqSM> sm;
};

/// Returns events that lead to a state, for a node with or without children. Empty if they cannot
/// lead there.
Events pathTo(std::string const &state, bool hasChildren)
{
    using E = DevSeqEv;
    Events path;
    if (state == "init")
        return path;
    path = {E::START};
    if (state == "start")
        return path;
    if (state == "abort" || state == "final") {
        path.push_back(E::ABORT);
        if (state == "final")
            path.push_back(E::ABORTED);
        return path;
    }
    path.push_back(E::READY);
    if (state == "wsr")
        return hasChildren ? path : Events();
    if (hasChildren)
        path.insert(path.end(), {E::SREADY, E::SREADY});
    if (state == "ready")
        return path;
    path.push_back(E::PROCEED);
    if (state == "wml" || state == "sync")
        return path;
    path.push_back(E::LOCK);
    if (state == "lock")
        return path;
    path.push_back(state == "recover" ? E::RECOVER : E::STOP);
    if (state == "wss")
        return hasChildren ? path : Events();
    if (state == "stop" && hasChildren)
        path.insert(path.end(), {E::SSTOPPED, E::SSTOPPED});
    return path;
}

/// Returns the state after an event, from rules that are independent of the library's table.
std::string expectedNext(std::string const &state, std::int32_t event, bool hasChildren,
                         bool hasParent)
{
    using E = DevSeqEv;
    bool const isAbortable = state != "init" && state != "abort" && state != "final";
    if (event == E::ABORT && isAbortable)
        return "abort";
    if (state == "abort")
        return event == E::ABORTED ? "final" : event == E::START ? "_ill" : "abort";
    if (event == E::STOP && (state == "start" || state == "wsr" || state == "ready" ||
                             state == "wml" || state == "sync" || state == "recover"))
        return state;
    if (state == "init" && event == E::START)
        return "start";
    if (state == "start" || state == "recover") {
        if (event == E::READY)
            return hasChildren ? "wsr" : "ready";
        if (event == E::SREADY)
            return state;
    }
    if (state == "wsr" && event == E::SREADY)
        return "wsr"; // the first of two
    if (state == "ready" && event == E::PROCEED)
        return hasParent ? "wml" : "sync";
    if (state == "wml" && event == E::MLOCK)
        return "sync";
    if (state == "sync" && event == E::LOCK)
        return "lock";
    if (state == "lock") {
        if (event == E::STOP)
            return hasChildren ? "wss" : "stop";
        if (event == E::RECOVER)
            return "recover";
        if (event == E::SREADY || event == E::MLOCK)
            return "lock";
    }
    if (state == "wss" && event == E::SSTOPPED)
        return "wss"; // the first of two
    if (state == "stop" && event == E::STOPPED)
        return "final";
    return "_ill";
}

/// A node with a parent passes through `wml` before the later states.
Events pathWithParent(std::string const &state, bool hasChildren)
{
    Events path = pathTo(state, hasChildren);
    auto const proceed = std::find(path.begin(), path.end(), DevSeqEv::PROCEED);
    if (proceed != path.end() && state != "wml")
        path.insert(proceed + 1, DevSeqEv::MLOCK);
    return path;
}

TEST(DevSeqSMTest, EveryEventInEveryState)
{
    int pairs = 0;
    for (bool const hasChildren : {false, true})
        for (bool const hasParent : {false, true})
            for (char const * const state : {"init", "start", "wsr", "ready", "wml", "sync", "lock",
                                             "recover", "wss", "stop", "abort", "final"}) {
                if (!hasChildren && (state == std::string("wsr") || state == std::string("wss")))
                    continue;
                if (!hasParent && state == std::string("wml"))
                    continue;
                for (std::int32_t event = 0; event < 12; ++event) {
                    SCOPED_TRACE(std::string(state) + ", event " + std::to_string(event) +
                                 (hasChildren ? ", children" : "") + (hasParent ? ", parent" : ""));
                    Machine machine(hasChildren ? 2 : 0, hasParent);
                    machine.feed(hasParent ? pathWithParent(state, hasChildren)
                                           : pathTo(state, hasChildren));
                    ASSERT_EQ(machine.state(), state);
                    machine.sm->execute(event);
                    std::string const expected = expectedNext(state, event, hasChildren, hasParent);
                    EXPECT_EQ(machine.state(), expected);
                    if (expected == "_ill") {
                        EXPECT_THROW(machine.sm->execute(event), DevMgrEx::SMExecutionError);
                    }
                    ++pairs;
                }
            }
    EXPECT_EQ(pairs, 12 * (9 + 10 + 11 + 12));
}

TEST(DevSeqSMTest, TheFactoryKnowsItsSeventeenTransitionsOnly)
{
    DevSeqTransFactory factory(nullptr, nullptr, nullptr);
    for (char const * const name : {"wsrret", "ready", "sync", "wssret", "stop"}) {
        auto const transition = factory.create(name);
        EXPECT_EQ(transition->getName(), name);
        EXPECT_NE(dynamic_cast<DevSMConditionalTransition *>(transition.get()), nullptr) << name;
    }
    for (char const * const name : {"start", "psready", "wsr", "wml", "lock", "recover", "wss",
                                    "pstop", "stopped", "abort", "aborted", "ignore"}) {
        auto const transition = factory.create(name);
        EXPECT_EQ(transition->getName(), name);
        EXPECT_EQ(dynamic_cast<DevSMConditionalTransition *>(transition.get()), nullptr) << name;
    }
    for (char const * const name : {"", "_exc", "_ill", "final", "Start"})
        EXPECT_TRUE(factory.create(name).isNull()) << name;
}

TEST(DevSeqSMTest, StartCallsTheDeviceAndItsChildren)
{
    Machine leaf;
    leaf.sm->execute(DevSeqEv::START);
    EXPECT_EQ(leaf.log, (Lines{"start"}));
    EXPECT_EQ(leaf.toChildren(), Events());
    Machine node(1, true);
    node.sm->execute(DevSeqEv::START);
    EXPECT_EQ(node.log, (Lines{"start"}));
    EXPECT_EQ(node.toChildren(), (Events{DevSeqEv::START}));
    EXPECT_EQ(node.toSelf(), Events());
    EXPECT_EQ(node.toParent(), Events());
}

TEST(DevSeqSMTest, AReadyLeafNotifiesItsParentAndContinues)
{
    Machine root;
    root.device->latency = DtTime(5, Rational(1, 1));
    root.feed({DevSeqEv::START});
    root.sm->execute(DevSeqEv::READY);
    EXPECT_EQ(root.util->getLatency(), DtTime(5, Rational(1, 1)));
    EXPECT_EQ(root.toParent(), Events());
    EXPECT_EQ(root.toSelf(), (Events{DevSeqEv::PROCEED}));

    Machine leaf(0, true);
    leaf.feed({DevSeqEv::START});
    leaf.sm->execute(DevSeqEv::READY);
    EXPECT_EQ(leaf.toParent(), (Events{DevSeqEv::SREADY}));
    EXPECT_EQ(leaf.toSelf(), (Events{DevSeqEv::PROCEED}));
    EXPECT_EQ(leaf.toChildren(), Events());
}

TEST(DevSeqSMTest, ChildrenThatAreReadyFirstAreCountedOnce)
{
    Machine node(2);
    node.feed({DevSeqEv::START});
    node.sm->execute(DevSeqEv::SREADY);
    EXPECT_EQ(node.state(), "start");
    EXPECT_EQ(node.util->getSreadyCount(), 0);
    node.sm->execute(DevSeqEv::READY);
    EXPECT_EQ(node.state(), "wsr");
    EXPECT_EQ(node.util->getSreadyCount(), 1);
    node.sm->execute(DevSeqEv::SREADY);
    EXPECT_EQ(node.state(), "ready");
}

TEST(DevSeqSMTest, WhenAllChildrenWereReadyFirstTheNodeIsReadyAtOnce)
{
    Machine node(2);
    node.feed({DevSeqEv::START, DevSeqEv::SREADY, DevSeqEv::SREADY, DevSeqEv::READY});
    EXPECT_EQ(node.state(), "ready");
}

TEST(DevSeqSMTest, TheRootSyncsToATimeAndOthersToAMark)
{
    Machine root;
    root.feed({DevSeqEv::START, DevSeqEv::READY});
    root.util->setMaxLatency(DtTime(7, Rational(2, 1)));
    root.sm->execute(DevSeqEv::PROCEED);
    EXPECT_EQ(root.log, (Lines{"sync time 3.5"}));

    Machine child(0, true);
    child.feed({DevSeqEv::START, DevSeqEv::READY});
    child.util->setParentMark(markAt(12));
    child.sm->execute(DevSeqEv::PROCEED);
    EXPECT_EQ(child.log, Lines());
    child.sm->execute(DevSeqEv::MLOCK);
    EXPECT_EQ(child.log, (Lines{"sync mark 12"}));
}

TEST(DevSeqSMTest, LockKeepsTheMarkAndCallsTheChildren)
{
    Machine node(2);
    node.feed(pathTo("sync", true));
    node.device->mark = markAt(3);
    node.sm->execute(DevSeqEv::LOCK);
    EXPECT_EQ(node.util->getMark(), markAt(3));
    EXPECT_EQ(node.toChildren(), (Events{DevSeqEv::MLOCK}));

    node.device->mark = markAt(4);
    node.sm->execute(DevSeqEv::SREADY);
    EXPECT_EQ(node.state(), "lock");
    EXPECT_EQ(node.util->getMark(), markAt(4));
    EXPECT_EQ(node.toChildren(), (Events{DevSeqEv::MLOCK}));

    Machine leaf;
    leaf.feed(pathTo("sync", false));
    leaf.sm->execute(DevSeqEv::LOCK);
    EXPECT_EQ(leaf.toChildren(), Events());
}

TEST(DevSeqSMTest, MlockIsIgnoredInLock)
{
    Machine node(2, true);
    node.feed(pathWithParent("lock", true));
    node.sm->execute(DevSeqEv::MLOCK);
    EXPECT_EQ(node.state(), "lock");
    EXPECT_EQ(node.log, Lines());
    EXPECT_EQ(node.toChildren(), Events());
}

TEST(DevSeqSMTest, AnEarlyStopWaitsForTheLock)
{
    for (bool const hasChildren : {false, true})
        for (char const * const early : {"start", "wsr", "ready", "sync"}) {
            if (!hasChildren && early == std::string("wsr"))
                continue;
            SCOPED_TRACE(early);
            Machine node(hasChildren ? 2 : 0);
            Events const way = pathTo("lock", hasChildren);
            Events const before = pathTo(early, hasChildren);
            node.feed(before);
            node.sm->execute(DevSeqEv::STOP);
            EXPECT_EQ(node.state(), early);
            for (std::size_t i = before.size(); i < way.size(); ++i) {
                EXPECT_NE(node.state(), "wss");
                node.sm->execute(way[i]);
            }
            EXPECT_EQ(node.state(), hasChildren ? "wss" : "stop");
            if (hasChildren)
                EXPECT_EQ(node.toChildren(), (Events{DevSeqEv::MLOCK, DevSeqEv::STOP}));
            else
                EXPECT_EQ(node.log.back(), "stop");
        }
}

TEST(DevSeqSMTest, AStopDuringRecoveryWaitsForTheLock)
{
    Machine node(0);
    node.feed(pathTo("recover", false));
    node.sm->execute(DevSeqEv::STOP);
    EXPECT_EQ(node.state(), "recover");
    node.feed({DevSeqEv::READY, DevSeqEv::PROCEED});
    EXPECT_EQ(node.state(), "sync");
    node.sm->execute(DevSeqEv::LOCK);
    EXPECT_EQ(node.state(), "stop");
}

TEST(DevSeqSMTest, ANodeStopsAfterItsChildren)
{
    Machine node(2, true);
    node.feed(pathWithParent("lock", true));
    node.sm->execute(DevSeqEv::STOP);
    EXPECT_EQ(node.toChildren(), (Events{DevSeqEv::STOP}));
    EXPECT_EQ(node.log, Lines());
    node.sm->execute(DevSeqEv::SSTOPPED);
    EXPECT_EQ(node.state(), "wss");
    EXPECT_EQ(node.util->getSstoppedCount(), 1);
    EXPECT_EQ(node.log, Lines());
    node.sm->execute(DevSeqEv::SSTOPPED);
    EXPECT_EQ(node.state(), "stop");
    EXPECT_EQ(node.log, (Lines{"stop"}));
    EXPECT_EQ(node.toParent(), Events());
    node.sm->execute(DevSeqEv::STOPPED);
    EXPECT_EQ(node.state(), "final");
    EXPECT_EQ(node.toParent(), (Events{DevSeqEv::SSTOPPED}));
    node.util->waitDone();
}

TEST(DevSeqSMTest, ARootThatStoppedNotifiesNoNode)
{
    Machine root;
    root.feed(pathTo("stop", false));
    root.sm->execute(DevSeqEv::STOPPED);
    EXPECT_EQ(root.toParent(), Events());
    root.util->waitDone();
}

TEST(DevSeqSMTest, RecoverCallsTheDeviceAndItsChildren)
{
    Machine node(1);
    Events path = pathTo("lock", true);
    path.erase(path.begin() + 3); // the node has one child only
    node.feed(path);
    ASSERT_EQ(node.state(), "lock");
    node.sm->execute(DevSeqEv::RECOVER);
    EXPECT_EQ(node.log, (Lines{"recover"}));
    EXPECT_EQ(node.toChildren(), (Events{DevSeqEv::RECOVER}));
    // It counts its children from 0 again.
    node.sm->execute(DevSeqEv::READY);
    EXPECT_EQ(node.state(), "wsr");
    EXPECT_EQ(node.util->getSreadyCount(), 0);
}

TEST(DevSeqSMTest, AnAbortCallsTheDeviceOnce)
{
    Machine node(2, true);
    node.feed({DevSeqEv::START});
    node.sm->execute(DevSeqEv::ABORT);
    node.sm->execute(DevSeqEv::ABORT);
    EXPECT_EQ(node.state(), "abort");
    EXPECT_EQ(node.log, (Lines{"abort"}));
    EXPECT_EQ(node.toChildren(), Events());
    EXPECT_EQ(node.toParent(), Events());
    node.sm->execute(DevSeqEv::ABORTED);
    EXPECT_EQ(node.state(), "final");
    EXPECT_EQ(node.toParent(), Events());
    node.util->waitDone();
}

TEST(DevSeqSMTest, StartInAbortIsIllegal)
{
    Machine node;
    node.feed({DevSeqEv::START, DevSeqEv::ABORT, DevSeqEv::START});
    EXPECT_EQ(node.state(), "_ill");
}

TEST(DevSeqSMTest, AFailingDeviceLeadsToExcAndSendsNothing)
{
    Machine node(1);
    node.device->onCall = [](std::string const &) {
        ZV_THROW(DevMgrEx::StreamNotAvailable, "busy");
    };
    node.sm->execute(DevSeqEv::START);
    EXPECT_EQ(node.state(), "_exc");
    EXPECT_EQ(node.toChildren(), Events());
    EXPECT_THROW(node.sm->execute(DevSeqEv::READY), DevMgrEx::SMExecutionError);
}

/// Returns true if the machine releases the threads that wait for its end. Releases them otherwise.
bool hasPosted(Machine &node)
{
    std::atomic<bool> isDone{false};
    std::atomic<long> number{0};
    std::thread waiter([&] {
        number = threadNumber();
        node.util->waitDone();
        isDone = true;
    });
    while (!number || (!isDone && !isAsleep(number)))
        std::this_thread::yield();
    bool const result = isDone;
    if (!result)
        node.util->postDone();
    waiter.join();
    return result;
}

TEST(DevSeqSMTest, OnlyAMachineThatCameToItsEndLetsWaitersGo)
{
    Machine ended;
    ended.feed({DevSeqEv::START, DevSeqEv::ABORT, DevSeqEv::ABORTED});
    EXPECT_EQ(ended.state(), "final");
    EXPECT_TRUE(hasPosted(ended));

    Machine illegal;
    illegal.feed({DevSeqEv::START, DevSeqEv::LOCK});
    EXPECT_EQ(illegal.state(), "_ill");
    EXPECT_FALSE(hasPosted(illegal));

    Machine failed;
    failed.feed({DevSeqEv::START});
    failed.device->onCall = [](std::string const &) {
        ZV_THROW(DevMgrEx::StreamNotAvailable, "busy");
    };
    failed.feed({DevSeqEv::ABORT});
    EXPECT_EQ(failed.state(), "_exc");
    EXPECT_FALSE(hasPosted(failed));
}

TEST(DevSeqSMTest, HasItsLabel)
{
    Machine machine;
    EXPECT_EQ(machine.sm->getLabel(), "node device");
    EXPECT_EQ(machine.util->getName(), "device");
}

/// Guard that records its calls.
struct Guard final : DevSeqSMGuard
{
    void stateChanged(std::int32_t state) override { states.push_back(state); }
    void refused(std::int32_t event) override { refusals.push_back(event); }

    Events states;
    Events refusals;
};

TEST(DevSeqSMTest, AGuardedMachineRefusesWhatIsIllegal)
{
    RCShdPtr<DevSMTable> const table = DevSeqSMTable::getInstance().getTable();
    for (char const * const state : {"init", "start", "wsr", "ready", "sync", "lock", "recover",
                                     "wss", "stop", "abort", "final"})
        for (std::int32_t event = 0; event < 12; ++event) {
            SCOPED_TRACE(std::string(state) + ", event " + std::to_string(event));
            Machine machine(2, false);
            Guard guard;
            machine.feed(pathTo(state, true));
            machine.sm->setGuard(&guard);
            machine.sm->execute(event);
            std::string const expected = expectedNext(state, event, true, false);
            bool const isIllegal = expected == "_ill";
            EXPECT_EQ(machine.state(), isIllegal ? state : expected);
            EXPECT_EQ(guard.refusals, isIllegal ? Events{event} : Events{});
            bool const hasMoved = !isIllegal && expected != state;
            EXPECT_EQ(guard.states,
                      hasMoved ? Events{table->getState(LiString(expected.c_str()))} : Events{});
        }
}

TEST(DevSeqSMTest, AGuardedMachineThatHasFailedRefusesEverything)
{
    Machine node;
    Guard guard;
    node.sm->setGuard(&guard);
    node.device->onCall = [](std::string const &) {
        ZV_THROW(DevMgrEx::StreamNotAvailable, "busy");
    };
    node.sm->execute(DevSeqEv::START);
    node.sm->execute(DevSeqEv::READY);
    EXPECT_EQ(node.state(), "_exc");
    EXPECT_EQ(guard.refusals, Events{DevSeqEv::READY});
}

} // namespace
} // namespace ZvTest
