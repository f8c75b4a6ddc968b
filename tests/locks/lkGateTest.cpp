#include "resmgt/locks/lkGate.h"

#include "locks/lockTestUtil.h"
#include "resmgt/locks/lkAsyncHandle.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

TEST(LkGate, ASingleGateeWithoutAKeeperPassesAtOnce)
{
    LkGate gate("g", 1, false);
    gate.ready();
    gate.ready();
}

TEST(LkGate, HoldsAllThreadsUntilTheLastArrives)
{
    LkGate gate("g", 3, false);
    std::counting_semaphore<> through(0);
    std::atomic<int> nbThrough = 0;
    auto const come = [&] {
        gate.ready();
        ++nbThrough;
        through.release();
    };
    Watched a(come), b(come);
    a.waitUntilAsleep();
    b.waitUntilAsleep();
    EXPECT_EQ(nbThrough, 0);
    gate.ready();
    through.acquire();
    through.acquire();
    EXPECT_EQ(nbThrough, 2);
}

TEST(LkGate, OpensForGood)
{
    LkGate gate("g", 2, false);
    {
        Joined other([&] { gate.ready(); });
        gate.ready();
    }
    gate.ready(); // the first of two, which does not block
    EXPECT_EQ(dumpOf(gate).find("num ready: 1\n") != std::string::npos, true);
}

TEST(LkGate, TheKeeperActsWhileAllWaitAtTheGate)
{
    LkGate gate("g", 2, true);
    std::atomic<int> nbThrough = 0;
    auto const come = [&] {
        gate.ready();
        ++nbThrough;
    };
    Watched a(come), b(come);
    {
        LkGateKeeperGuard keeper(gate);
        a.waitUntilAsleep();
        b.waitUntilAsleep();
        EXPECT_EQ(nbThrough, 0);
        EXPECT_FALSE(gate.isGateReady()) << "the keeper has come";
        EXPECT_NE(dumpOf(gate).find("num ready: 2\n"), std::string::npos);
    }
    a.join();
    b.join();
    EXPECT_EQ(nbThrough, 2);
    EXPECT_NE(dumpOf(gate).find("num ready: 0\n"), std::string::npos);
}

TEST(LkGate, LastArrivalWaitsForTheKeeper)
{
    LkGate gate("g", 1, true);
    std::atomic<bool> isThrough = false;
    Watched last([&] {
        gate.ready();
        isThrough = true;
    });
    gate.observeGateReady();
    last.waitUntilAsleep();
    EXPECT_FALSE(isThrough);
    {
        LkGateKeeperGuard keeper(gate);
        EXPECT_FALSE(isThrough);
    }
    last.join();
    EXPECT_TRUE(isThrough);
}

TEST(LkGate, AskingWhetherItIsReadyChangesNothing)
{
    LkGate gate("g", 1, true);
    EXPECT_FALSE(gate.isGateReady());
    Joined gatee([&] { gate.ready(); });
    gate.observeGateReady();
    EXPECT_TRUE(gate.isGateReady());
    EXPECT_TRUE(gate.isGateReady());
    LkGateKeeperGuard keeper(gate);
    EXPECT_FALSE(gate.isGateReady());
}

TEST(LkGate, ObserversSeeAllThreadsAtTheGate)
{
    LkGate gate("g", 2, true);
    Joined observer([&] {
        gate.observeGateReady();
        EXPECT_TRUE(gate.isGateReady());
        LkGateKeeperGuard keeper(gate);
    });
    Joined a([&] { gate.ready(); });
    Joined b([&] { gate.ready(); });
}

TEST(LkGate, AnObserverSleepsUntilTheLastHasCome)
{
    LkGate gate("g", 2, true);
    std::atomic<bool> hasSeen = false;
    Watched observer([&] {
        gate.observeGateReady();
        hasSeen = true;
    });
    Joined a([&] { gate.ready(); });
    observer.waitUntilAsleep();
    EXPECT_FALSE(hasSeen);
    EXPECT_FALSE(gate.isGateReady());
    Joined b([&] { gate.ready(); });
    observer.join();
    LkGateKeeperGuard keeper(gate);
}

TEST(LkGate, TheKeeperSleepsUntilTheLastHasCome)
{
    LkGate gate("g", 1, true);
    std::atomic<bool> hasCome = false;
    Watched keeper([&] {
        LkGateKeeperGuard const guard(gate);
        EXPECT_TRUE(hasCome);
    });
    keeper.waitUntilAsleep();
    hasCome = true;
    gate.ready();
}

TEST(LkGate, WithoutAKeeperNoneCanBeAskedFor)
{
    LkGate gate("g", 1, false);
    EXPECT_THROW(gate.isGateReady(), RCEx::ExNullPtr);
}

TEST(LkGate, OneArrivalTooManyFails)
{
    LkGate gate("g", 1, true);
    Joined gatee([&] { gate.ready(); });
    gate.observeGateReady();
    EXPECT_EQ(failedAssertion([&] { gate.ready(); }), "_numReady < _numGatees");
    LkGateKeeperGuard keeper(gate);
}

TEST(LkGate, NeedsAtLeastOneGatee)
{
    EXPECT_EQ(failedAssertion([] { LkGate gate("g", 0, false); }), "numGatees > 0");
    EXPECT_EQ(failedAssertion([] { LkGate gate("g", -1, true); }), "numGatees > 0");
}

TEST(LkGate, WithoutAKeeperItCannotBeKept)
{
    LkGate gate("g", 1, false);
    EXPECT_EQ(failedAssertion([&] { LkGateKeeperGuard keeper(gate); }), "_useGateKeeper");
}

TEST(LkGate, TakesOverFromAnotherGate)
{
    LkGate source("taken", 2, true);
    LkGate gate(source);
    EXPECT_STREQ(gate.getName(), "taken");
    Joined a([&] { gate.ready(); });
    Joined b([&] { gate.ready(); });
    LkGateKeeperGuard keeper(gate);
    LkGate const moved(LkGate("m", 1, false));
    EXPECT_STREQ(moved.getName(), "m");
}

TEST(LkGate, DumpShowsItsState)
{
    EXPECT_EQ(dumpOf(LkGate("g", 2, false)),
              "g: gatekeeper: no, num gatees: 2\n"
              "Current state: num ready: 0\n"
              "Internal lock: GateInternalGate cond var: GateGatekeeper sema: unused");
    LkGate gate("k", 1, true);
    char const * const head = "k: gatekeeper: yes, num gatees: 1\nCurrent state: num ready: ";
    char const * const body = "\nInternal lock: GateInternalGate cond var: GateGatekeeper sema: ";
    EXPECT_EQ(dumpOf(gate), std::string(head) + "0" + body + "not set");
    Joined gatee([&] { gate.ready(); });
    gate.observeGateReady();
    EXPECT_EQ(dumpOf(gate), std::string(head) + "1" + body + "set");
    LkGateKeeperGuard keeper(gate);
}

TEST(LkAsyncHandle, ReportsToItsImplementation)
{
    struct Handle : LkAsyncHandle
    {
        void performSucceeded() override { ++nbSucceeded; }
        void performFailed() override { ++nbFailed; }
        int nbSucceeded = 0;
        int nbFailed = 0;
    } handle;
    LkAsyncHandle &base = handle;
    base.performSucceeded();
    base.performSucceeded();
    base.performFailed();
    EXPECT_EQ(handle.nbSucceeded, 2);
    EXPECT_EQ(handle.nbFailed, 1);
    EXPECT_TRUE(std::has_virtual_destructor_v<LkAsyncHandle>);
}

} // namespace
} // namespace ZvTest
