#include "resmgt/locks/lkMutex.h"

#include "locks/lockTestUtil.h"
#include "platform/services.h"
#include "resmgt/locks/lkEx.h"
#include "resmgt/locks/lkGuard.h"

#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <stdexcept>

namespace ZvTest {

using namespace Zv;

namespace {

static_assert(requires(LkMutex const &mutex) {
    std::lock_guard<LkMutex const>(mutex);
    std::unique_lock<LkMutex const>(mutex);
});

/// Returns whether another thread could take the mutex, as the system says.
bool isFreeForOthers(LkMutex const &mutex)
{
    return elsewhere([&] {
        HANDLE const handle = mutex.getImp().getMutex();
        bool const isFree = ::WaitForSingleObject(handle, 0) == WAIT_OBJECT_0;
        if (isFree)
            ::ReleaseMutex(handle);
        return isFree;
    });
}

TEST(LkMutex, ReportsWhetherItIsLocked)
{
    LkMutex const mutex("m");
    EXPECT_FALSE(mutex.isLocked());
    EXPECT_TRUE(mutex.lock());
    EXPECT_TRUE(mutex.isLocked());
    EXPECT_TRUE(elsewhere([&] { return mutex.isLockedByThread(); })) << "the flag has no owner";
    EXPECT_FALSE(isFreeForOthers(mutex));
    mutex.unlock();
    EXPECT_FALSE(mutex.isLockedByThread());
    EXPECT_TRUE(isFreeForOthers(mutex));
}

TEST(LkMutex, KeepsTheCallersName)
{
    static char const name[] = "camera";
    LkMutex const mutex(name);
    EXPECT_EQ(mutex.getName(), name);
    EXPECT_EQ(dumpOf(mutex), "camera");
}

TEST(LkMutex, LockedTwiceAndUnlockedOnceStaysHeldWithoutItsFlag)
{
    auto mutex = std::make_unique<LkMutex>("m");
    mutex->lock();
    mutex->lock();
    mutex->unlock();
    EXPECT_FALSE(mutex->isLocked());
    EXPECT_FALSE(isFreeForOthers(*mutex));
    EXPECT_NO_THROW(mutex.reset()) << "the destructor asks the flag";
}

TEST(LkMutex, TryLockByTheHolderIsRefusedAndChangesNothing)
{
    LkMutex const mutex("m");
    ASSERT_TRUE(mutex.tryLock());
    EXPECT_FALSE(mutex.tryLock());
    EXPECT_TRUE(mutex.isLocked());
    EXPECT_FALSE(isFreeForOthers(mutex));
    mutex.unlock();
    EXPECT_TRUE(isFreeForOthers(mutex));
}

TEST(LkMutex, TryLockFailsIfAnotherThreadHoldsIt)
{
    LkMutex const mutex("m");
    mutex.lock();
    EXPECT_FALSE(elsewhere([&] { return mutex.tryLock(); }));
    mutex.unlock();
}

TEST(LkMutex, SpinLockByTheHolderReportsADeadlockAndChangesNothing)
{
    LkMutex const mutex("name");
    mutex.lock();
    try {
        mutex.spinLock(1);
        FAIL() << "no deadlock reported";
    } catch (LkEx::ExDeadLock const &failure) {
        EXPECT_STREQ(failure.getReason(),
                     "LkMutexWindows \"name\" deadlocked in thread 0x0 (self deadlock)");
    }
    EXPECT_TRUE(mutex.isLocked());
    EXPECT_FALSE(isFreeForOthers(mutex));
    mutex.unlock();
    EXPECT_TRUE(isFreeForOthers(mutex));
}

TEST(LkMutex, SpinLockTakesAFreeMutexForEveryNumberOfTries)
{
    LkMutex const mutex("m");
    for (unsigned tries : {0u, 1u, 1000u}) {
        EXPECT_TRUE(mutex.spinLock(tries));
        EXPECT_TRUE(mutex.isLocked());
        mutex.unlock();
    }
}

TEST(LkMutex, SpinLockWaitsWhenItsTriesAreUsedUp)
{
    LkMutex const mutex("m");
    mutex.lock();
    bool isOurs = false;
    std::thread spinner([&] {
        isOurs = mutex.spinLock(3);
        mutex.unlock();
    });
    mutex.unlock();
    spinner.join();
    EXPECT_TRUE(isOurs);
}

TEST(LkMutex, DestroyedWhileHeldFailsItsAssertion)
{
    EXPECT_EQ(failedAssertion([] {
                  LkMutex mutex("m");
                  mutex.lock();
              }),
              "!_isLocked");
}

TEST(LkMutex, DestroyedWhileHeldIsSilentWhileAnExceptionPasses)
{
    EXPECT_THROW(
        {
            LkMutex mutex("m");
            mutex.lock();
            throw std::runtime_error("passing");
        },
        std::runtime_error);
}

TEST(LkMutex, UnlockByAnotherThreadFailsWithTheSystemsError)
{
    LkMutex const mutex("m");
    std::binary_semaphore isHeld(0);
    std::binary_semaphore mayEnd(0);
    Joined holder([&] {
        mutex.lock();
        isHeld.release();
        mayEnd.acquire();
        mutex.unlock();
    });
    isHeld.acquire();
    try {
        mutex.unlock();
        ADD_FAILURE() << "unlocked";
    } catch (AssertionFailed const &failure) {
        EXPECT_STREQ(failure.getExpression(), "::ReleaseMutex( _mutex )");
        EXPECT_TRUE(failure.hasSystemError());
        EXPECT_EQ(failure.getSystemError(), 288);
    }
    EXPECT_FALSE(mutex.isLocked()) << "the flag has no owner";
    EXPECT_FALSE(isFreeForOthers(mutex));
    mayEnd.release();
}

/// Calls `action` with a mutex whose thread has ended while it held it. Expects that the mutex is
/// free after that.
template <class Action>
void expectRefusedOnce(Action action)
{
    LkMutex const mutex("m");
    std::thread([&] { mutex.lock(); }).join();
    action(mutex);
    EXPECT_FALSE(mutex.isLocked());
    EXPECT_TRUE(isFreeForOthers(mutex));
    EXPECT_TRUE(elsewhere([&] { return mutex.tryLock() && (mutex.unlock(), true); }));
}

TEST(LkMutex, AnAbandonedMutexFailsTheWaitsAssertionAndIsFree)
{
    char const * const text = "::WaitForSingleObject( _mutex, INFINITE ) == WAIT_OBJECT_0";
    expectRefusedOnce(
        [&](LkMutex const &mutex) { EXPECT_EQ(failedAssertion([&] { mutex.lock(); }), text); });
    expectRefusedOnce([&](LkMutex const &mutex) {
        EXPECT_EQ(failedAssertion([&] { LkGuard<LkMutex const> guard(mutex); }), text);
    });
    for (unsigned tries : {0u, 1u, 10u})
        expectRefusedOnce([&](LkMutex const &mutex) {
            EXPECT_EQ(failedAssertion([&] { mutex.spinLock(tries); }), text);
        });
}

TEST(LkMutex, TryLockIsRefusedAnAbandonedMutexOnce)
{
    expectRefusedOnce([](LkMutex const &mutex) { EXPECT_FALSE(mutex.tryLock()); });
}

TEST(LkMutex, ExcludesOthers)
{
    LkMutex const mutex("m");
    int counter = 0;
    auto const count = [&] {
        for (int i = 0; i < 10000; ++i) {
            LkGuard<LkMutex const> guard(mutex);
            ++counter;
        }
    };
    {
        Joined a(count), b(count), c(count);
    }
    EXPECT_EQ(counter, 30000);
}

TEST(LkMutexAttr, AMutexBuiltWithoutTakesTheDefaultOnes)
{
    LkMutexAttr const &attr = LkMutexAttr::getDefaultAttr();
    EXPECT_EQ(&attr, &LkMutexAttr::getDefaultAttr());
    EXPECT_STREQ(attr.getName(), "DefaultLkMutexAttr");
    EXPECT_EQ(dumpOf(attr), "DefaultLkMutexAttr prot UNIMPLEMENTED ceil 0");
}

TEST(LkMutexAttr, HasNoPriorityProtocolHere)
{
    LkMutexAttr attr("a");
    EXPECT_FALSE(LkMutexAttr::isSetPrioProtocolImplemented());
    attr.setPrioProtocol(LkMutexAttrTypes::PROTECT, 7);
    EXPECT_EQ(attr.getPrioProtocol(), LkMutexAttrTypes::UNIMPLEMENTED);
    EXPECT_EQ(attr.getPrioCeiling(), 0);
    LkMutex const mutex("m", attr);
    EXPECT_TRUE(mutex.tryLock());
    mutex.unlock();
}

TEST(LkMutexAttr, NamesItsProtocols)
{
    EXPECT_EQ(LkMutexAttrTypes::UNIMPLEMENTED, 0);
    EXPECT_EQ(LkMutexAttrTypes::NONE, 1);
    EXPECT_EQ(LkMutexAttrTypes::INHERIT, 2);
    EXPECT_EQ(LkMutexAttrTypes::PROTECT, 3);
    EXPECT_STREQ(LkMutexAttrTypes::getText(LkMutexAttrTypes::UNIMPLEMENTED), "UNIMPLEMENTED");
    EXPECT_STREQ(LkMutexAttrTypes::getText(LkMutexAttrTypes::NONE), "NONE");
    EXPECT_STREQ(LkMutexAttrTypes::getText(LkMutexAttrTypes::INHERIT), "INHERIT");
    EXPECT_STREQ(LkMutexAttrTypes::getText(LkMutexAttrTypes::PROTECT), "PROTECT");
    int const volatile unknown = 4;
    EXPECT_THROW(LkMutexAttrTypes::getText(static_cast<LkMutexAttrTypes::PrioProtocol>(unknown)),
                 ProgramAborted);
}

TEST(LkEx, ADeadlockIsCaughtInAllItsForms)
{
    LkEx::ExDeadLock const failure("file", 3, "Kind", "lock", 0x1f, "why");
    char const * const text = "Kind \"lock\" deadlocked in thread 0x1f (why)";
    EXPECT_STREQ(static_cast<ExBase const &>(failure).getReason(), text);
    EXPECT_STREQ(static_cast<std::runtime_error const &>(failure).what(), text);
    EXPECT_STREQ(static_cast<LkEx const &>(failure).getReason(), text);
    std::unique_ptr<ExBase> const copy(failure.clone());
    EXPECT_STREQ(copy->getReason(), text);
    EXPECT_NE(dynamic_cast<LkEx::ExDeadLock *>(copy.get()), nullptr);
}

} // namespace
} // namespace ZvTest
