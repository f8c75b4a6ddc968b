#include "resmgt/locks/lkPulse.h"

#include "locks/lockTestUtil.h"
#include "platform/services.h"
#include "resmgt/locks/lkEvent.h"
#include "resmgt/locks/lkEx.h"
#include "resmgt/locks/lkPulsePool.h"
#include "resmgt/locks/lkUtil.h"

#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <memory>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

/// Waits until the mutex is released, without a change of its flag.
void awaitRelease(LkMutex const &mutex)
{
    HANDLE const handle = mutex.getImp().getMutex();
    ASSERT_EQ(::WaitForSingleObject(handle, INFINITE), WAIT_OBJECT_0);
    ASSERT_TRUE(::ReleaseMutex(handle));
}

TEST(LkPulse, CountedPulseIsKeptUntilAThreadWaits)
{
    LkMutex const mutex("m");
    LkPulse const pulse("p", LkPulse::WAKE_ONE);
    pulse.pulse();
    LkGuard<LkMutex const> guard(mutex);
    pulse.wait(guard);
    EXPECT_TRUE(mutex.isLocked());
    EXPECT_FALSE(pulse.timedWait(guard, 0.0));
}

TEST(LkPulse, TwoCountedPulsesServeTwoWaitsAndTheThirdBlocks)
{
    LkMutex const mutex("m");
    LkPulse const pulse("p", LkPulse::WAKE_ONE);
    pulse.pulse();
    pulse.pulse();
    LkGuard<LkMutex const> guard(mutex);
    EXPECT_TRUE(pulse.timedWait(mutex, 1000.0));
    EXPECT_TRUE(pulse.timedWait(mutex, 1000.0));
    EXPECT_FALSE(pulse.timedWait(mutex, 0.001));

    std::atomic<bool> isDone = false;
    guard.unlock();
    Watched third([&] {
        LkGuard<LkMutex const> mine(mutex);
        pulse.wait(mine);
        isDone = true;
    });
    third.waitUntilAsleep();
    EXPECT_FALSE(isDone);
    pulse.pulse();
    third.join();
    EXPECT_TRUE(isDone);
}

TEST(LkPulse, LatchedPulseEndsAllLaterWaitsAtOnce)
{
    LkMutex const mutex("m");
    LkPulse const pulse("p", LkPulse::WAKE_ALL);
    LkGuard<LkMutex const> guard(mutex);
    EXPECT_FALSE(pulse.timedWait(guard, 0.0));
    pulse.pulse();
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(pulse.timedWait(guard, 0.0));
        pulse.wait(guard);
    }
}

TEST(LkPulse, TimedOutWaitReturnsWithTheMutexHeld)
{
    LkMutex const mutex("m");
    LkPulse const pulse("p", LkPulse::WAKE_ONE);
    mutex.lock();
    EXPECT_FALSE(pulse.timedWait(mutex, 0.0));
    EXPECT_TRUE(mutex.isLocked());
    EXPECT_FALSE(elsewhere([&] { return mutex.tryLock(); }));
    mutex.unlock();
}

TEST(LkPulse, MutexSeemsLockedDuringAWait)
{
    LkMutex const mutex("m");
    LkPulse const pulse("p", LkPulse::WAKE_ONE);
    std::binary_semaphore isHeld(0);
    std::thread waiter([&] {
        LkGuard<LkMutex const> guard(mutex);
        isHeld.release();
        pulse.wait(guard);
    });
    isHeld.acquire();
    awaitRelease(mutex);
    EXPECT_TRUE(mutex.isLocked());
    EXPECT_FALSE(mutex.tryLock());
    EXPECT_THROW(mutex.spinLock(1), LkEx::ExDeadLock);
    pulse.pulse();
    waiter.join();
    EXPECT_FALSE(mutex.isLocked());
}

TEST(LkPulse, EveryCountedPulseWakesExactlyOneWait)
{
    constexpr int PULSES = 3000;
    LkMutex const mutex("m");
    LkPulse const pulse("p", LkPulse::WAKE_ONE);
    auto const waitOften = [&] {
        for (int i = 0; i < PULSES; ++i) {
            LkGuard<LkMutex const> guard(mutex);
            pulse.wait(guard);
        }
    };
    auto const pulseOften = [&] {
        for (int i = 0; i < PULSES; ++i)
            pulse.pulse();
    };
    {
        Joined a(waitOften), b(waitOften), c(pulseOften), d(pulseOften);
    }
    LkGuard<LkMutex const> guard(mutex);
    EXPECT_FALSE(pulse.timedWait(guard, 0.0));
}

TEST(LkPulse, WaiterMayDestroyItAtOnce)
{
    for (int round = 0; round < 500; ++round) {
        LkMutex const mutex("m");
        auto pulse =
            std::make_unique<LkPulse>("p", round % 2 ? LkPulse::WAKE_ALL : LkPulse::WAKE_ONE);
        LkPulse const * const sender = pulse.get();
        Joined pulser([sender] { sender->pulse(); });
        LkGuard<LkMutex const> guard(mutex);
        pulse->wait(guard);
        pulse.reset();
    }
}

TEST(LkPulse, KeepsTheCallersName)
{
    LkPulse const pulse("beat", LkPulse::WAKE_ALL);
    EXPECT_STREQ(pulse.getName(), "beat");
    EXPECT_EQ(dumpOf(pulse), "beat");
    EXPECT_EQ(LkPulse::WAKE_ONE, 0);
    EXPECT_EQ(LkPulse::WAKE_ALL, 1);
}

TEST(LkPulse, WaitWithoutTheMutexFails)
{
    LkMutex const mutex("m");
    LkPulse const pulse("p", LkPulse::WAKE_ONE);
    pulse.pulse();
    char const * const text = "::ReleaseMutex( externalMutex.getImp().getMutex() )";
    EXPECT_EQ(failedAssertion([&]() ZV_NO_THREAD_SAFETY_ANALYSIS { pulse.wait(mutex); }), text);
    EXPECT_EQ(failedAssertion([&]() ZV_NO_THREAD_SAFETY_ANALYSIS { pulse.waitNextPulse(mutex); }),
              text);
    pulse.pulse(); // no thread waits
}

TEST(LkPulse, CanBeUsedThroughItsBaseClass)
{
    LkMutex const mutex("m");
    LkPulse const pulse("p", LkPulse::WAKE_ALL);
    LkWaitable const &waitable = pulse;
    pulse.pulse();
    LkGuard<LkMutex const> guard(mutex);
    waitable.wait(mutex);
    EXPECT_TRUE(waitable.timedWait(guard, 0.0));
}

// ---- waiting for the next pulse

TEST(LkPulseNext, EarlierPulsesDoNotCount)
{
    for (LkPulse::WakeType const type : {LkPulse::WAKE_ONE, LkPulse::WAKE_ALL}) {
        LkMutex const mutex("m");
        LkPulse const pulse("p", type);
        pulse.pulse();
        LkGuard<LkMutex const> guard(mutex);
        EXPECT_FALSE(pulse.timedWaitNextPulse(guard, 0.0));
        EXPECT_FALSE(pulse.timedWaitNextPulse(mutex, 0.001));
        EXPECT_TRUE(mutex.isLocked());
        EXPECT_FALSE(elsewhere([&] { return mutex.tryLock(); }));
        EXPECT_TRUE(pulse.timedWait(guard, 0.0)) << "took what belongs to the others";
    }
}

TEST(LkPulseNext, EndsATimedWaitInEachOfItsForms)
{
    LkMutex const mutex("m");
    LkPulse const pulse("p", LkPulse::WAKE_ALL);
    bool wasWoken[2] = {};
    Watched withMutex([&] {
        LkGuard<LkMutex const> guard(mutex);
        wasWoken[0] = pulse.timedWaitNextPulse(mutex, 1000.0);
    });
    Watched withGuard([&] {
        LkGuard<LkMutex const> guard(mutex);
        wasWoken[1] = pulse.timedWaitNextPulse(guard, 1000.0);
    });
    withMutex.waitUntilAsleep();
    withGuard.waitUntilAsleep();
    pulse.pulse();
    withMutex.join();
    withGuard.join();
    EXPECT_TRUE(wasWoken[0]);
    EXPECT_TRUE(wasWoken[1]);
}

TEST(LkPulseNext, PulseSentAfterTheMutexWasReleasedIsNotLost)
{
    LkMutex const mutex("m");
    LkPulse const pulse("p", LkPulse::WAKE_ALL);
    for (int round = 0; round < 2000; ++round) {
        bool isSet = false;
        LkGuard<LkMutex const> guard(mutex);
        Joined setter([&] {
            {
                LkGuard<LkMutex const> mine(mutex);
                isSet = true;
            }
            pulse.pulse();
        });
        while (!isSet)
            pulse.waitNextPulse(guard);
        guard.unlock();
    }
}

TEST(LkPulseNext, OnePulseOfEitherTypeWakesAll)
{
    for (LkPulse::WakeType const type : {LkPulse::WAKE_ONE, LkPulse::WAKE_ALL}) {
        LkMutex const mutex("m");
        LkPulse const pulse("p", type);
        std::counting_semaphore<> arrived(0);
        auto const wait = [&] {
            LkGuard<LkMutex const> guard(mutex);
            arrived.release();
            pulse.waitNextPulse(guard);
        };
        Joined a(wait), b(wait), c(wait);
        for (int i = 0; i < 3; ++i)
            arrived.acquire();
        awaitRelease(mutex); // the last thread holds it until it is counted as a waiter
        pulse.pulse();
    }
}

TEST(LkPulseNext, TakesNoPulseFromWaitersForACount)
{
    LkMutex const mutex("m");
    LkPulse const pulse("p", LkPulse::WAKE_ONE);
    std::binary_semaphore isHeld(0);
    Joined sleeper([&] {
        LkGuard<LkMutex const> guard(mutex);
        isHeld.release();
        pulse.waitNextPulse(guard);
    });
    isHeld.acquire();
    awaitRelease(mutex);
    pulse.pulse();
    sleeper.join();
    LkGuard<LkMutex const> guard(mutex);
    EXPECT_TRUE(pulse.timedWait(guard, 0.0));
    EXPECT_FALSE(pulse.timedWait(guard, 0.0));
}

TEST(LkPulseNext, MixesWithTimeOutsAndLosesNoWaiter)
{
    LkMutex const mutex("m");
    LkPulse const pulse("p", LkPulse::WAKE_ALL);
    bool isOver = false;
    auto const sleep = [&](double seconds) {
        return [&, seconds] {
            LkGuard<LkMutex const> guard(mutex);
            while (!isOver)
                static_cast<void>(pulse.timedWaitNextPulse(guard, seconds));
        };
    };
    Joined impatient(sleep(0.0)), hasty(sleep(0.001)), patient(sleep(1.0e9));
    auto const pulseOften = [&] {
        for (int i = 0; i < 5000; ++i)
            pulse.pulse();
    };
    {
        Joined a(pulseOften), b(pulseOften);
    }
    {
        LkGuard<LkMutex const> guard(mutex);
        isOver = true;
    }
    pulse.pulse();
}

// ---- pools, events, times

TEST(LkPulsePool, HandsOutWhatCameBackLast)
{
    LkPulsePool pool;
    ObjPtr<LkPulse> first = pool.getPulse();
    ObjPtr<LkPulse> second = pool.getPulse();
    EXPECT_STREQ(first->getName(), "LkPulsePool_pulse");
    LkPulse const * const firstAddress = first.get();
    LkPulse const * const secondAddress = second.get();
    EXPECT_NE(firstAddress, secondAddress);
    pool.recyclePulse(first);
    EXPECT_TRUE(first.isNull());
    pool.recyclePulse(second);
    EXPECT_EQ(ObjPtr<LkPulse>(pool.getPulse()).get(), secondAddress);
    EXPECT_EQ(ObjPtr<LkPulse>(pool.getPulse()).get(), firstAddress);
}

TEST(LkPulsePool, PulsesAreLatchingAndComeBackAsTheyAre)
{
    LkMutex const mutex("m");
    LkGuard<LkMutex const> guard(mutex);
    LkPulsePool pool;
    ObjPtr<LkPulse> pulse = pool.getPulse();
    EXPECT_FALSE(pulse->timedWait(guard, 0.0));
    pulse->pulse();
    pool.recyclePulse(pulse);
    pulse = ObjPtr<LkPulse>(pool.getPulse());
    EXPECT_TRUE(pulse->timedWait(guard, 0.0));
    EXPECT_TRUE(pulse->timedWait(guard, 0.0));
}

TEST(LkPulsePool, NullEntryIsReturnedAsNull)
{
    LkPulsePool pool;
    ObjPtr<LkPulse> null;
    pool.recyclePulse(null);
    EXPECT_TRUE(pool.getPulse().isNull());
    EXPECT_FALSE(pool.getPulse().isNull());
}

TEST(LkEvent, StaysSetUntilItIsReset)
{
    LkEvent event("e", false);
    EXPECT_FALSE(event.timedWait(0.0));
    event.set();
    event.wait();
    event.wait();
    EXPECT_TRUE(event.timedWait(0.0));
    event.reset();
    EXPECT_FALSE(event.timedWait(0.001));
    EXPECT_TRUE(LkEvent("initially set", true).timedWait(0.0));
    EXPECT_EQ(dumpOf(event), "e");
}

TEST(LkEvent, WakesAllWaiters)
{
    LkEvent event("e", false);
    EXPECT_STREQ(event.getName(), "e");
    std::atomic<bool> isSet = false;
    Watched a([&] {
        event.wait();
        EXPECT_TRUE(isSet);
    });
    Watched b([&] {
        EXPECT_TRUE(event.timedWait(1000.0));
        EXPECT_TRUE(isSet);
    });
    a.waitUntilAsleep();
    b.waitUntilAsleep();
    isSet = true;
    event.set();
}

TEST(LkUtil, RoundsTimesToMilliseconds)
{
    EXPECT_EQ(LkUtil::toMilliseconds(0.0), 0u);
    EXPECT_EQ(LkUtil::toMilliseconds(0.0004), 0u);
    EXPECT_EQ(LkUtil::toMilliseconds(0.0005), 1u);
    EXPECT_EQ(LkUtil::toMilliseconds(0.0014), 1u);
    EXPECT_EQ(LkUtil::toMilliseconds(2.5), 2500u);
}

TEST(LkUtil, KeepsTimesWithinBounds)
{
    EXPECT_EQ(LkUtil::toMilliseconds(-1.0), 0u);
    EXPECT_EQ(LkUtil::toMilliseconds(-0.001), 0u);
    EXPECT_EQ(LkUtil::toMilliseconds(1.0e12), 0xFFFFFFFEu)
        << "a limited time never becomes endless";
    EXPECT_EQ(LkUtil::toMilliseconds(std::numeric_limits<double>::infinity()), 0xFFFFFFFEu);
    EXPECT_EQ(LkUtil::toMilliseconds(std::numeric_limits<double>::quiet_NaN()), 0u);
}

TEST(LkUtil, YieldIsSwitchedInTheEnvironment)
{
    EXPECT_EQ(LkUtil::getMinSchedulingPriority(), 0);
    LkUtil::enableYield();
    EXPECT_TRUE(LkUtil::isYieldEnabled());
    EXPECT_STREQ(std::getenv("ZV_LOCK_YIELD"), "1");
    LkUtil::yield();
    LkUtil::disableYield();
    EXPECT_FALSE(LkUtil::isYieldEnabled());
    EXPECT_STREQ(std::getenv("ZV_LOCK_YIELD"), "0");
    LkUtil::yield();
    LkUtil::performYield();
}

} // namespace
} // namespace ZvTest
