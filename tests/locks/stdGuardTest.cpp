// Tests of the standard library's guards on the locks, and of LkGuard without its template
// argument.

#include "locks/lockTestUtil.h"
#include "resmgt/locks.h"

#include <gtest/gtest.h>

#include <functional>
#include <mutex>
#include <shared_mutex>
#include <type_traits>

namespace ZvTest {

using namespace Zv;

namespace {

template <class T>
concept CanTry = requires(T &lock)
{
    std::unique_lock<T>(lock, std::try_to_lock);
    std::scoped_lock<T, T>(lock, lock);
};

template <class T>
concept CanShare = requires(T &lock)
{
    std::shared_lock<T>(lock);
    std::shared_lock<T>(lock, std::try_to_lock);
};

static_assert(CanTry<LkMutex> && CanTry<LkMutex const>);
static_assert(CanTry<LkLock> && CanTry<LkLock const>);
static_assert(CanTry<LkRecLock> && CanTry<LkRecLock const>);
static_assert(CanTry<LkRwLock> && CanTry<LkRwLock const>);
static_assert(CanShare<LkRwLock> && CanShare<LkRwLock const>);

template <class Lock>
using Deduced = decltype(LkGuard(std::declval<Lock &>()));

static_assert(std::is_same_v<Deduced<LkMutex>, LkGuard<LkMutex const>>);
static_assert(std::is_same_v<Deduced<LkMutex const>, LkGuard<LkMutex const>>);
static_assert(std::is_same_v<Deduced<LkLock>, LkGuard<LkLock const>>);
static_assert(std::is_same_v<Deduced<LkLock const>, LkGuard<LkLock const>>);
static_assert(std::is_same_v<Deduced<LkRecLock>, LkGuard<LkRecLock const>>);
static_assert(std::is_same_v<Deduced<LkRecLock const>, LkGuard<LkRecLock const>>);
static_assert(std::is_same_v<Deduced<LkRwLock>, LkGuard<LkRwLock>>, "it writes");
static_assert(std::is_same_v<Deduced<LkRwLock const>, LkGuard<LkRwLock const>>, "it reads");

/// Returns whether another thread can take the lock.
template <class Lock>
bool isFree(Lock const &lock)
{
    return elsewhere([&] { return std::unique_lock(lock, std::try_to_lock).owns_lock(); });
}

template <class Lock>
class ExclusiveLock : public testing::Test
{};
using ExclusiveLocks = testing::Types<LkMutex, LkLock, LkRecLock>;
TYPED_TEST_SUITE(ExclusiveLock, ExclusiveLocks);

TYPED_TEST(ExclusiveLock, ScopedLockHoldsTwo)
{
    TypeParam const a("a");
    TypeParam const b("b");
    {
        std::scoped_lock const guard(a, b);
        EXPECT_FALSE(isFree(a));
        EXPECT_FALSE(isFree(b));
        EXPECT_TRUE(a.isLocked());
    }
    EXPECT_TRUE(isFree(a));
    EXPECT_TRUE(isFree(b));
    EXPECT_FALSE(a.isLocked());
}

TYPED_TEST(ExclusiveLock, ScopedLocksInOppositeOrderMeetWithoutDeadlock)
{
    TypeParam const a("a");
    TypeParam const b("b");
    int counter = 0;
    auto const count = [&counter](auto &first, auto &second) {
        for (int i = 0; i < 5000; ++i) {
            std::scoped_lock const guard(first, second);
            ++counter;
        }
    };
    {
        Joined forwards(std::bind(count, std::ref(a), std::ref(b)));
        Joined backwards(std::bind(count, std::ref(b), std::ref(a)));
    }
    EXPECT_EQ(counter, 10000);
}

TYPED_TEST(ExclusiveLock, TryToLockIsRefusedWhileAnotherThreadHolds)
{
    TypeParam const a("a");
    LkGuard const guard(a);
    EXPECT_FALSE(elsewhere([&] {
        std::unique_lock const other(a, std::try_to_lock);
        return other.owns_lock();
    }));
}

TYPED_TEST(ExclusiveLock, TryToLockTakesAFreeOneAndGivesItBack)
{
    TypeParam const a("a");
    {
        std::unique_lock const guard(a, std::try_to_lock);
        EXPECT_TRUE(guard.owns_lock());
        EXPECT_TRUE(a.isLocked());
        EXPECT_FALSE(isFree(a));
    }
    EXPECT_FALSE(a.isLocked());
    EXPECT_TRUE(isFree(a));
}

TYPED_TEST(ExclusiveLock, AGuardIsDeducedAndHolds)
{
    TypeParam const a("a");
    {
        LkGuard guard(a);
        EXPECT_FALSE(isFree(a));
        guard.unlock();
        EXPECT_TRUE(isFree(a));
        guard.relock();
        EXPECT_FALSE(isFree(a));
    }
    EXPECT_TRUE(isFree(a));
}

TEST(LkMutex, TryToLockByTheHolderIsRefused)
{
    LkMutex const mutex("m");
    LkGuard const guard(mutex);
    EXPECT_FALSE(std::unique_lock(mutex, std::try_to_lock).owns_lock());
    EXPECT_TRUE(mutex.isLocked());
}

TEST(LkRecLock, TryToLockByTheHolderCounts)
{
    LkRecLock const lock("l");
    LkGuard const guard(lock);
    {
        std::unique_lock const again(lock, std::try_to_lock);
        EXPECT_TRUE(again.owns_lock());
        EXPECT_TRUE(dumpOf(lock).ends_with(" count 2"));
    }
    EXPECT_FALSE(isFree(lock)) << "the outer guard has it still";
}

/// What another thread can get of a read-write lock without waiting.
struct Chances
{
    bool reads;
    bool writes;

    friend bool operator==(Chances const &, Chances const &) = default;
};

Chances chancesAt(LkRwLock &lock)
{
    return elsewhere([&] {
        Chances chances{};
        chances.reads = std::shared_lock(lock, std::try_to_lock).owns_lock();
        chances.writes = std::unique_lock(lock, std::try_to_lock).owns_lock();
        return chances;
    });
}

TEST(LkRwLock, SharedLockReadsAndUniqueLockWrites)
{
    LkRwLock lock("l");
    LkRwLock const &reader = lock;
    EXPECT_EQ(chancesAt(lock), (Chances{true, true}));
    {
        std::shared_lock const guard(lock);
        EXPECT_EQ(chancesAt(lock), (Chances{true, false}));
    }
    {
        std::shared_lock const guard(reader);
        EXPECT_EQ(chancesAt(lock), (Chances{true, false}));
    }
    {
        std::unique_lock const guard(reader, std::try_to_lock);
        EXPECT_TRUE(guard.owns_lock());
        EXPECT_EQ(chancesAt(lock), (Chances{true, false})) << "a const lock is read";
    }
    {
        std::unique_lock const guard(lock);
        EXPECT_EQ(chancesAt(lock), (Chances{false, false}));
    }
    {
        std::unique_lock const guard(lock, std::try_to_lock);
        EXPECT_TRUE(guard.owns_lock());
        EXPECT_TRUE(lock.isWriteLock());
    }
    EXPECT_EQ(chancesAt(lock), (Chances{true, true}));
}

TEST(LkRwLock, SharedLockIsRefusedWhileAWriterWaits)
{
    LkRwLock lock("l");
    std::shared_lock reader(lock);
    Watched writer([&] { std::unique_lock const guard(lock); });
    writer.waitUntilAsleep();
    EXPECT_FALSE(elsewhere([&] { return std::shared_lock(lock, std::try_to_lock).owns_lock(); }));
    reader.unlock();
    writer.join();
    EXPECT_EQ(chancesAt(lock), (Chances{true, true}));
}

TEST(LkRwLock, ScopedLockTakesOneToReadAndOneToWrite)
{
    LkRwLock source("source");
    LkRwLock target("target");
    {
        std::scoped_lock const guard(std::as_const(source), target);
        EXPECT_EQ(chancesAt(source), (Chances{true, false}));
        EXPECT_EQ(chancesAt(target), (Chances{false, false}));
    }
    EXPECT_EQ(chancesAt(source), (Chances{true, true}));
    EXPECT_EQ(chancesAt(target), (Chances{true, true}));
}

} // namespace
} // namespace ZvTest
