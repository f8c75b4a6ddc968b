// Processor time of a process whose threads all wait.

#include "../../examples/counter/counter.h"

#include "resmgt/locks.h"

#include <gtest/gtest.h>

#include <ctime>
#include <thread>

namespace ZvTest {

using namespace Zv;

namespace {

double processorSeconds()
{
    timespec used;
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) * 1e-9;
}

/// Returns the processor time that the process uses while this thread sleeps for a second.
double idleSeconds()
{
    double const before = processorSeconds();
    std::this_thread::sleep_for(std::chrono::seconds(1));
    return processorSeconds() - before;
}

constexpr double GENEROUS = 0.25; // a thread that polls uses a whole second

TEST(IdleProcess, AnOpenTreeInLockTakesNoProcessorTime)
{
    auto &registry = DevRegistry::getInstance();
    for (char const *name : {"root", "middle", "leaf"})
        registry.add(makeCounterEntry(name));
    {
        ObjPtr<DevMgr> manager = DevMgr::create();
        ObjPtr<DevMgrSyncSeqAcc> sequence = manager->createSyncSeqAcc();
        sequence->configure("( root ( middle ( leaf ) ) )");
        sequence->start();
        while (sequence->getState("leaf") != "lock")
            std::this_thread::yield();
        EXPECT_LT(idleSeconds(), GENEROUS);
        sequence->stop();
        sequence->wait();
    }
    for (char const *name : {"root", "middle", "leaf"})
        registry.remove(name);
}

TEST(IdleProcess, WaitersOnPulsesThatHaveLatchedTakeNoProcessorTime)
{
    LkRwLock lock("lock");
    LkTicket ticket("ticket");
    LkGate gate("gate", 2, true);
    LkUnnamedSema latched("latched", 0);
    LkUnnamedSema again("again", 0);
    // Each thread waits once and is woken, so that its pulse has latched. Then it waits again.
    lock.writeLock();
    std::thread reader([&] {
        lock.readLock();
        lock.unlock();
        latched.post();
        again.wait();
        lock.readLock();
        lock.unlock();
    });
    std::thread holder([&] {
        ticket.waitForTicket(1);
        ticket.waitForTicket(2);
    });
    std::thread observer([&] { gate.observeGateReady(); });
    lock.unlock();
    latched.wait();
    ticket.next();
    lock.writeLock();
    again.post();
    EXPECT_LT(idleSeconds(), GENEROUS);

    lock.unlock();
    ticket.next();
    std::thread first([&] { gate.ready(); });
    std::thread second([&] { gate.ready(); });
    {
        LkGateKeeperGuard const keeper(gate);
        observer.join();
    }
    first.join();
    second.join();
    reader.join();
    holder.join();
}

} // namespace
} // namespace ZvTest
