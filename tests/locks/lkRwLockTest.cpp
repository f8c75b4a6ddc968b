#include "resmgt/locks/lkRwLock.h"

#include "locks/lockTestUtil.h"
#include "resmgt/locks/lkTicket.h"

#include <gtest/gtest.h>

#include <atomic>
#include <ctime>
#include <mutex>
#include <shared_mutex>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

static_assert(requires(LkRwLock & lock, LkRwLock const &reader) {
    std::lock_guard<LkRwLock>(lock);
    std::lock_guard<LkRwLock const>(reader);
});

LkRwLock const &reading(LkRwLock &lock)
{
    return lock;
}

TEST(LkRwLock, ConstnessChoosesTheKind)
{
    LkRwLock lock("l");
    EXPECT_TRUE(lock.lock());
    EXPECT_TRUE(lock.isWriteLock());
    lock.unlock();
    EXPECT_TRUE(reading(lock).lock());
    EXPECT_TRUE(lock.isReadLock());
    EXPECT_FALSE(lock.isWriteLock());
    lock.unlock();
    EXPECT_FALSE(lock.isLockedInline());
    {
        LkGuard<LkRwLock> writer(lock);
        EXPECT_TRUE(lock.isWriteLock());
    }
    {
        LkGuard<LkRwLock const> reader(lock);
        EXPECT_TRUE(lock.isReadLock());
        EXPECT_TRUE(lock.isLockedInline());
    }
}

TEST(LkRwLock, IsLockedAnswersForItsKindOnly)
{
    LkRwLock lock("l");
    lock.readLock();
    EXPECT_FALSE(lock.isLocked());
    EXPECT_FALSE(lock.isLockedByThread());
    EXPECT_TRUE(reading(lock).isLocked());
    EXPECT_TRUE(reading(lock).isLockedByThread());
    lock.unlock();
    lock.writeLock();
    EXPECT_TRUE(lock.isLocked());
    EXPECT_TRUE(lock.isLockedByThread());
    EXPECT_FALSE(reading(lock).isLocked());
    EXPECT_FALSE(reading(lock).isLockedByThread());
    lock.unlock();
}

TEST(LkRwLock, ManyReadersOrOneWriter)
{
    LkRwLock lock("l", LkMutexAttr::getDefaultAttr());
    EXPECT_TRUE(lock.tryReadLock());
    EXPECT_TRUE(reading(lock).tryLock());
    EXPECT_FALSE(lock.tryWriteLock());
    lock.unlock();
    EXPECT_FALSE(lock.tryLock());
    lock.unlock();
    EXPECT_TRUE(lock.tryLock());
    EXPECT_FALSE(lock.tryReadLock());
    EXPECT_FALSE(lock.tryWriteLock());
    lock.unlock();
}

TEST(LkRwLock, AWaitingWriterBlocksNewReaders)
{
    LkRwLock lock("l");
    lock.readLock();
    Watched writer([&] {
        lock.writeLock();
        lock.unlock();
    });
    writer.waitUntilAsleep();
    EXPECT_TRUE(lock.waitForWriters());
    EXPECT_FALSE(lock.tryReadLock());
    EXPECT_EQ(dumpOf(lock), "name l rwLock 1 wr wait 1 rd wait 0");
    lock.unlock();
    writer.join();
    EXPECT_TRUE(lock.tryReadLock());
    lock.unlock();
}

TEST(LkRwLock, WritersComeBeforeReadersThatWaited)
{
    LkRwLock lock("l");
    std::string order;
    lock.writeLock();
    Watched reader([&] {
        LkGuard<LkRwLock const> const guard(lock);
        order += 'r';
    });
    reader.waitUntilAsleep();
    Watched writer([&] {
        LkGuard<LkRwLock> const guard(lock);
        order += 'w';
    });
    writer.waitUntilAsleep();
    EXPECT_EQ(dumpOf(lock), "name l rwLock -1 wr wait 1 rd wait 1");
    lock.unlock();
    writer.join();
    reader.join();
    EXPECT_EQ(order, "wr");
}

TEST(LkRwLock, AllReadersThatWaitedComeInTogether)
{
    LkRwLock lock("l");
    std::counting_semaphore<> areIn(0);
    std::counting_semaphore<> mayLeave(0);
    lock.writeLock();
    auto const read = [&] {
        LkGuard<LkRwLock const> const guard(lock);
        areIn.release();
        mayLeave.acquire();
    };
    Watched a(read);
    a.waitUntilAsleep();
    Watched b(read);
    b.waitUntilAsleep();
    EXPECT_EQ(dumpOf(lock), "name l rwLock -1 wr wait 0 rd wait 2");
    lock.unlock();
    areIn.acquire();
    areIn.acquire();
    EXPECT_EQ(dumpOf(lock), "name l rwLock 2 wr wait 0 rd wait 0");
    EXPECT_FALSE(lock.waitForWriters());
    mayLeave.release(2);
}

TEST(LkRwLock, EachOfTheWritersThatWaitIsCalled)
{
    LkRwLock lock("l");
    auto const write = [&] { LkGuard<LkRwLock> const guard(lock); };
    for (int round = 0; round < 3; ++round) {
        lock.writeLock();
        Watched a(write);
        a.waitUntilAsleep();
        Watched b(write);
        b.waitUntilAsleep();
        EXPECT_EQ(dumpOf(lock), "name l rwLock -1 wr wait 2 rd wait 0");
        lock.unlock();
    }
    EXPECT_EQ(dumpOf(lock), "name l rwLock 0 wr wait 0 rd wait 0");
}

TEST(LkRwLock, TheLastReaderCallsTheWriter)
{
    LkRwLock lock("l");
    lock.readLock();
    lock.readLock();
    std::atomic<bool> isWriting = false;
    Watched writer([&] {
        LkGuard<LkRwLock> const guard(lock);
        isWriting = true;
    });
    writer.waitUntilAsleep();
    lock.unlock();
    writer.waitUntilAsleep();
    EXPECT_FALSE(isWriting);
    EXPECT_EQ(dumpOf(lock), "name l rwLock 1 wr wait 1 rd wait 0");
    lock.unlock();
}

TEST(LkRwLock, SpinnersSleepOnceTheirTriesAreUsedUp)
{
    LkRwLock lock("l");
    lock.writeLock();
    Watched reader([&] {
        EXPECT_TRUE(lock.spinReadLock(1));
        lock.unlock();
    });
    reader.waitUntilAsleep();
    EXPECT_EQ(dumpOf(lock), "name l rwLock -1 wr wait 0 rd wait 1");
    Watched writer([&] {
        EXPECT_TRUE(lock.spinWriteLock(3));
        EXPECT_TRUE(lock.isWriteLock());
        lock.unlock();
    });
    writer.waitUntilAsleep();
    EXPECT_EQ(dumpOf(lock), "name l rwLock -1 wr wait 1 rd wait 1");
    lock.unlock();
}

TEST(LkRwLock, SpinnersDoNotSleepAsLongAsTheyHaveTries)
{
    LkRwLock lock("l");
    lock.writeLock();
    std::counting_semaphore<> begin(0);
    Joined reader([&] {
        begin.release();
        lock.spinReadLock(0);
        lock.unlock();
    });
    Joined writer([&] {
        begin.release();
        lock.spinWriteLock(0);
        lock.unlock();
    });
    begin.acquire();
    begin.acquire();
    // Long enough for the threads to fall asleep if they could, and much shorter than 2^32 tries.
    std::clock_t const start = std::clock();
    while (std::clock() - start < CLOCKS_PER_SEC / 20)
        std::this_thread::yield();
    EXPECT_EQ(dumpOf(lock), "name l rwLock -1 wr wait 0 rd wait 0");
    lock.unlock();
}

TEST(LkRwLock, DumpShowsItsState)
{
    LkRwLock lock("l");
    EXPECT_EQ(dumpOf(lock), "name l rwLock 0 wr wait 0 rd wait 0");
    lock.writeLock();
    EXPECT_EQ(dumpOf(lock), "name l rwLock -1 wr wait 0 rd wait 0");
    EXPECT_STREQ(lock.getName(), "l");
    lock.unlock();
}

TEST(LkRwLock, SpinFormsTakeAFreeLockAndElseWait)
{
    LkRwLock lock("l");
    EXPECT_TRUE(lock.spinLock(0));
    EXPECT_TRUE(lock.isWriteLock());
    bool isOurs = false;
    Joined reader([&] {
        isOurs = reading(lock).spinLock(2);
        lock.unlock();
    });
    lock.unlock();
    reader.join();
    EXPECT_TRUE(isOurs);

    EXPECT_TRUE(lock.spinReadLock(1));
    EXPECT_TRUE(lock.isReadLock());
    Joined writer([&] {
        isOurs = lock.spinWriteLock(2);
        lock.unlock();
    });
    lock.unlock();
    writer.join();
    EXPECT_FALSE(lock.isLockedInline());
}

TEST(LkRwLock, ReadersThatWaitedOnceStillWaitTheNextTime)
{
    LkRwLock lock("l");
    for (int round = 0; round < 100; ++round) {
        lock.writeLock();
        std::atomic<bool> isReading = false;
        auto const read = [&] {
            LkGuard<LkRwLock const> guard(lock);
            isReading = true;
        };
        Joined a(read), b(read);
        EXPECT_FALSE(isReading);
        lock.unlock();
    }
}

TEST(LkRwLock, ExcludesAllOthersWhileAWriterHoldsIt)
{
    LkRwLock lock("l");
    int a = 0;
    int b = 0;
    auto const write = [&] {
        for (int i = 0; i < 2000; ++i) {
            LkGuard<LkRwLock> guard(lock);
            ++a;
            ++b;
        }
    };
    auto const read = [&] {
        for (int i = 0; i < 2000; ++i) {
            LkGuard<LkRwLock const> guard(lock);
            EXPECT_EQ(a, b);
        }
    };
    {
        Joined w1(write), w2(write), r1(read), r2(read);
    }
    EXPECT_EQ(a, 4000);
    EXPECT_EQ(dumpOf(lock), "name l rwLock 0 wr wait 0 rd wait 0");
}

TEST(LkTicket, OwnTurnNeedsNoWait)
{
    LkTicket ticket("t");
    EXPECT_FALSE(ticket.waitForTicket(0));
    ticket.next();
    EXPECT_FALSE(ticket.waitForTicket(1));
}

TEST(LkTicket, WaitsForItsTurn)
{
    LkTicket ticket("t");
    bool hadToWait = false;
    std::atomic<bool> isOver = false;
    Watched waiter([&] {
        hadToWait = ticket.waitForTicket(3);
        isOver = true;
        ticket.next();
    });
    for (int turn = 0; turn < 3; ++turn) {
        waiter.waitUntilAsleep();
        EXPECT_FALSE(isOver) << turn;
        ticket.next();
    }
    ticket.waitForTicket(4);
    waiter.join();
    EXPECT_TRUE(hadToWait);
    EXPECT_FALSE(ticket.waitForTicket(4));
}

TEST(LkTicket, ATurnThatIsOverFails)
{
    LkTicket ticket("t");
    ticket.next();
    EXPECT_EQ(failedAssertion([&] { ticket.waitForTicket(0); }), "ticket >= _current");
}

TEST(LkTicket, GivesThreadsTheirTurnsInOrder)
{
    constexpr int TURNS = 500;
    LkTicket ticket("t");
    std::vector<int> order;
    auto const take = [&](int parity) {
        return [&, parity] {
            for (int i = parity; i < TURNS; i += 2) {
                ticket.waitForTicket(i);
                order.push_back(i);
                ticket.next();
            }
        };
    };
    {
        Joined even(take(0)), odd(take(1));
    }
    ASSERT_EQ(order.size(), std::size_t{TURNS});
    for (int i = 0; i < TURNS; ++i)
        EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
}

TEST(LkTicket, ACounterOfOnesOwnFollowsTheTurns)
{
    LkTicket ticket("t");
    long long mine = 0;
    ticket.next();
    EXPECT_FALSE(ticket.waitForNextTicket(mine));
    EXPECT_EQ(mine, 1);
    bool hadToWait = false;
    Watched waiter([&] { hadToWait = ticket.waitForNextTicket(mine); });
    waiter.waitUntilAsleep();
    ticket.next();
    waiter.join();
    EXPECT_TRUE(hadToWait);
    EXPECT_EQ(mine, 2);
}

} // namespace
} // namespace ZvTest
