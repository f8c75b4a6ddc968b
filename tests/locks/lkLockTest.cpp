#include "resmgt/locks/lkLock.h"
#include "locks/lockTestUtil.h"
#include "resmgt/locks/lkGuard.h"
#include "resmgt/locks/lkRecLock.h"
#include "resmgt/locks/lkThreadId.h"

#include <gtest/gtest.h>

#include <mutex>
#include <stdexcept>

namespace ZvTest {

using namespace Zv;

namespace {

static_assert(requires(LkLock const &lock) { std::lock_guard<LkLock const>(lock); });
static_assert(requires(LkRecLock const &lock) { std::lock_guard<LkRecLock const>(lock); });

TEST(LkLock, ReportsWhetherSomeThreadHoldsIt)
{
    LkLock const lock("l");
    EXPECT_FALSE(lock.isLocked());
    EXPECT_TRUE(lock.lock());
    EXPECT_TRUE(lock.isLocked());
    EXPECT_TRUE(elsewhere([&] { return lock.isLockedByThread(); }));
    lock.unlock();
    EXPECT_FALSE(lock.isLocked());
}

TEST(LkLock, IsHeldByAThreadThatHadToWait)
{
    LkLock const lock("l");
    bool isLocked = false;
    lock.lock();
    Watched waiter([&] {
        lock.lock();
        isLocked = lock.isLocked();
        lock.unlock();
    });
    waiter.waitUntilAsleep();
    lock.unlock();
    waiter.join();
    EXPECT_TRUE(isLocked);
}

TEST(LkLock, FirstUnlockOfANestedPairClearsTheFlag)
{
    LkLock const lock("l");
    lock.lock();
    lock.lock();
    lock.unlock();
    EXPECT_FALSE(lock.isLocked());
    lock.unlock();
}

TEST(LkLock, DumpLacksItsClosingQuote)
{
    EXPECT_EQ(dumpOf(LkLock("queue")), "Critical section \"queue");
}

template <class Lock>
class LightLock : public testing::Test
{};
using LightLocks = testing::Types<LkLock, LkRecLock>;
TYPED_TEST_SUITE(LightLock, LightLocks);

TYPED_TEST(LightLock, ExcludesOthers)
{
    TypeParam const lock("l");
    int counter = 0;
    auto const count = [&] {
        for (int i = 0; i < 20000; ++i) {
            LkGuard<TypeParam const> guard(lock);
            ++counter;
        }
    };
    {
        Joined a(count), b(count), c(count);
    }
    EXPECT_EQ(counter, 60000);
}

TEST(LkRecLock, DistinguishesItsHolderFromOthers)
{
    LkRecLock const lock("r", LkMutexAttr::getDefaultAttr());
    EXPECT_FALSE(lock.isLocked());
    EXPECT_FALSE(lock.isLockedByThread());
    lock.lock();
    EXPECT_TRUE(lock.isLocked());
    EXPECT_TRUE(lock.isLockedByThread());
    EXPECT_TRUE(elsewhere([&] { return lock.isLocked(); }));
    EXPECT_FALSE(elsewhere([&] { return lock.isLockedByThread(); }));
    lock.unlock();
    EXPECT_FALSE(elsewhere([&] { return lock.isLocked(); }));
}

TEST(LkRecLock, CountsItsDepthAndForgetsItsHolderAtTheFirstUnlock)
{
    LkRecLock const lock("r");
    EXPECT_EQ(dumpOf(lock), "name r holder 0x     0 count 0");
    lock.lock();
    lock.lock();
    std::ostringstream expected;
    expected << "name r holder " << LkThreadId(LkThreadId::CURRENT_THREAD) << " count 2";
    EXPECT_EQ(dumpOf(lock), expected.str());
    lock.unlock();
    EXPECT_EQ(dumpOf(lock), "name r holder 0x     0 count 1");
    EXPECT_TRUE(lock.isLockedByThread());
    lock.unlock();
    EXPECT_FALSE(lock.isLockedByThread());
}

TEST(LkGuard, HoldsForItsScope)
{
    LkRecLock const lock("r");
    {
        LkGuard<LkRecLock const> guard(lock);
        EXPECT_TRUE(guard.isLocked());
        EXPECT_EQ(&guard.getLock(), &lock);
        EXPECT_TRUE(lock.isLockedByThread());
    }
    EXPECT_FALSE(lock.isLocked());
}

TEST(LkGuard, CanUnlockAndLockAgain)
{
    LkRecLock const lock("r");
    {
        LkGuard<LkRecLock const> guard(lock);
        guard.unlock();
        EXPECT_FALSE(guard.isLocked());
        EXPECT_FALSE(lock.isLocked());
        guard.relock();
        EXPECT_TRUE(guard.isLocked());
        EXPECT_TRUE(lock.isLockedByThread());
    }
    EXPECT_FALSE(lock.isLocked()) << "not let go a second time";
}

TEST(LkGuard, UnlockedOnceOnly)
{
    struct Counting
    {
        bool lock() { return ++locks; }
        void unlock() { ++unlocks; }
        int locks = 0;
        int unlocks = 0;
    } lock;
    {
        LkGuard<Counting> guard(lock);
        guard.unlock();
    }
    EXPECT_EQ(lock.locks, 1);
    EXPECT_EQ(lock.unlocks, 1);
}

TEST(LkGuard, DoesNotUnlockWhatItCouldNotLock)
{
    struct Refusing
    {
        bool lock() { return false; }
        void unlock() { ADD_FAILURE() << "unlocked"; }
    } lock;
    LkGuard<Refusing> guard(lock);
    EXPECT_FALSE(guard.isLocked());
}

struct FailsToUnlock
{
    bool lock() { return true; }
    void unlock() { throw std::logic_error("unlock"); }
};

TEST(LkGuard, PassesAFailedUnlockOn)
{
    FailsToUnlock lock;
    EXPECT_THROW({ LkGuard<FailsToUnlock> guard(lock); }, std::logic_error);
}

TEST(LkGuard, LetsAPassingExceptionPass)
{
    FailsToUnlock lock;
    EXPECT_THROW(
        {
            LkGuard<FailsToUnlock> guard(lock);
            throw std::runtime_error("passing");
        },
        std::runtime_error);
}

} // namespace
} // namespace ZvTest
