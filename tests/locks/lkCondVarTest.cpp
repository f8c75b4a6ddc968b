#include "resmgt/locks/lkCondVar.h"

#include "locks/lockTestUtil.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

/// Threads that wait on a condition variable until they are told to end.
class Waiters
{
public:
    Waiters(LkCondVar const &condVar, int number) : _condVar(condVar)
    {
        for (int i = 0; i < number; ++i)
            _threads.emplace_back([this] { run(); });
        // When all have released the mutex, all of them wait.
        for (int i = 0; i < number; ++i)
            _arrived.acquire();
        LkGuard<LkMutex const> guard(_mutex);
    }
    ~Waiters()
    {
        for (Joined &thread : _threads) {
            _condVar.broadcast();
            thread.join();
        }
    }

    int getNbWoken()
    {
        LkGuard<LkMutex const> guard(_mutex);
        return _nbWoken;
    }
    /// Waits until another thread has been woken.
    void awaitOne() { _woken.acquire(); }
    LkMutex const &mutex() const { return _mutex; }

private:
    void run()
    {
        LkGuard<LkMutex const> guard(_mutex);
        _arrived.release();
        _condVar.wait(guard);
        ++_nbWoken;
        _woken.release();
    }

    LkCondVar const &_condVar;
    LkMutex _mutex{"waiters"};
    int _nbWoken = 0;
    std::counting_semaphore<> _arrived{0};
    std::counting_semaphore<> _woken{0};
    std::vector<Joined> _threads;
};

TEST(LkCondVar, KeepsTheCallersName)
{
    LkCondVar const condVar("ready");
    EXPECT_STREQ(condVar.getName(), "ready");
    EXPECT_EQ(dumpOf(condVar), "ready");
    LkCondVarAttr const attr("a");
    EXPECT_STREQ(LkCondVar("with attribute", attr).getName(), "with attribute");
    EXPECT_STREQ(LkCondVarAttr::getDefaultAttr().getName(), "DefaultLkCondVarAttr");
}

TEST(LkCondVar, SignalWithoutAWaiterIsLost)
{
    LkMutex const mutex("m");
    LkCondVar const condVar("c");
    condVar.signal();
    LkGuard<LkMutex const> guard(mutex);
    EXPECT_FALSE(condVar.timedWait(mutex, 0.0));
}

TEST(LkCondVar, TimedOutWaitReturnsWithTheMutexHeld)
{
    LkMutex const mutex("m");
    LkCondVar const condVar("c");
    mutex.lock();
    EXPECT_FALSE(condVar.timedWait(mutex, 0.0));
    EXPECT_TRUE(mutex.isLocked());
    EXPECT_FALSE(elsewhere([&] { return mutex.tryLock(); }));
    EXPECT_FALSE(condVar.timedWait(mutex, 0.001));
    mutex.unlock();
    EXPECT_TRUE(mutex.tryLock());
    mutex.unlock();
}

TEST(LkCondVar, SignalWakesOneWaiter)
{
    LkCondVar const condVar("c");
    Waiters waiters(condVar, 3);
    condVar.signal();
    waiters.awaitOne();
    EXPECT_EQ(waiters.getNbWoken(), 1);
    condVar.signal();
    waiters.awaitOne();
    EXPECT_EQ(waiters.getNbWoken(), 2);
}

TEST(LkCondVar, MutexIsNotLockedDuringAWait)
{
    LkCondVar const condVar("c");
    Waiters waiters(condVar, 1);
    EXPECT_FALSE(waiters.mutex().isLocked());
    EXPECT_TRUE(waiters.mutex().tryLock());
    waiters.mutex().unlock();
}

TEST(LkCondVar, BroadcastWithoutAWaiterReturnsAtOnceAndLeavesNothingBehind)
{
    LkCondVar const condVar("c");
    condVar.broadcast();
    condVar.broadcast();
    LkMutex const mutex("m");
    LkGuard<LkMutex const> guard(mutex);
    EXPECT_FALSE(condVar.timedWait(guard, 0.0)) << "a broadcast without waiters counted";
}

TEST(LkCondVar, BroadcastWakesAllWithAndWithoutTheMutex)
{
    for (bool const withMutex : {false, true}) {
        LkCondVar const condVar("c");
        Waiters waiters(condVar, 3);
        if (withMutex) {
            LkGuard<LkMutex const> guard(waiters.mutex());
            condVar.broadcast();
        } else {
            condVar.broadcast();
        }
        for (int i = 0; i < 3; ++i)
            waiters.awaitOne();
        EXPECT_EQ(waiters.getNbWoken(), 3);
    }
}

TEST(LkCondVar, MayBeDestroyedWhenBroadcastHasReturned)
{
    for (int round = 0; round < 200; ++round) {
        LkMutex const mutex("m");
        auto condVar = std::make_unique<LkCondVar>("c");
        std::counting_semaphore<> arrived(0);
        auto const wait = [&] {
            LkGuard<LkMutex const> guard(mutex);
            arrived.release();
            condVar->wait(guard);
        };
        Joined a(wait), b(wait);
        arrived.acquire();
        arrived.acquire();
        mutex.lock();
        if (round % 2)
            mutex.unlock();
        condVar->broadcast();
        condVar.reset();
        if (round % 2 == 0)
            mutex.unlock();
    }
}

TEST(LkCondVar, BroadcastNeverHangsAmongNewcomersTimeOutsSignalsAndOtherBroadcasts)
{
    LkMutex const mutex("m");
    LkCondVar const condVar("c");
    bool isOver = false;
    int nbWaiting = 3;
    auto const waitWithTimeOut = [&](double seconds) {
        return [&, seconds] {
            LkGuard<LkMutex const> guard(mutex);
            while (!isOver)
                static_cast<void>(condVar.timedWait(guard, seconds));
            --nbWaiting;
        };
    };
    Joined impatient(waitWithTimeOut(0.0));
    Joined hasty(waitWithTimeOut(0.001));
    Joined patient(waitWithTimeOut(1000.0));
    auto const broadcast = [&] {
        for (int i = 0; i < 500; ++i)
            condVar.broadcast();
    };
    auto const broadcastWithMutex = [&] {
        for (int i = 0; i < 500; ++i) {
            LkGuard<LkMutex const> guard(mutex);
            condVar.broadcast();
        }
    };
    {
        Joined a(broadcast), b(broadcastWithMutex), c([&] {
            for (int i = 0; i < 500; ++i)
                condVar.signal();
        });
    }
    {
        LkGuard<LkMutex const> guard(mutex);
        isOver = true;
    }
    condVar.broadcast();
    patient.join();
    hasty.join();
    impatient.join();
    EXPECT_EQ(nbWaiting, 0);
}

TEST(LkCondVar, WaitWithoutTheMutexFailsAndCountsNoWaiter)
{
    LkMutex const mutex("m");
    LkCondVar const condVar("c");
    EXPECT_EQ(failedAssertion([&]() ZV_NO_THREAD_SAFETY_ANALYSIS { condVar.wait(mutex); }),
              "::ReleaseMutex( externalMutex.getImp().getMutex() )");
    condVar.broadcast(); // would hang if it still counted a waiter
}

} // namespace
} // namespace ZvTest
