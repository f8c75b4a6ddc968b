// Waits for locks in the trace of events.

#include "resmgt/locks.h"
#include "testing/asleep.h"
#include "testing/traceFile.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>

namespace ZvTest {

using namespace Zv;

namespace {

constexpr double LONG = 1000; // seconds

struct Case
{
    char const *name;
    std::function<void()> take; // on the thread that has to wait
    std::function<void()> give; // on that thread
    std::function<void()> hold; // on the test's thread
    std::function<void()> letGo;
};

/// Lets a thread wait for a lock that this thread holds.
TracedEvents recordWait(Case const &lock, double limit)
{
    TraceRecording recording(limit);
    std::atomic<long> number = 0;
    lock.hold();
    std::thread waiting([&] {
        number = threadNumber();
        lock.take();
        lock.give();
    });
    while (number == 0)
        std::this_thread::yield();
    waitUntilAsleep(number);
    lock.letGo();
    waiting.join();
    return recording.stop();
}

void expectWait(Case const &lock)
{
    std::vector<TracedEvent> const waits = recordWait(lock, 0).find("lock", "wait");
    ASSERT_GE(waits.size(), 1u) << lock.name;
    for (TracedEvent const &wait : waits)
        EXPECT_EQ(wait.detail(), lock.name);
    EXPECT_EQ(recordWait(lock, LONG).find("lock").size(), 0u) << lock.name;
}

template <class Lock>
void expectWaitFor(Lock const &lock)
{
    auto const take = [&] { lock.lock(); };
    auto const give = [&] { lock.unlock(); };
    expectWait({lock.getName(), take, give, take, give});
}

TEST(LockWait, IsRecordedForALock)
{
    expectWaitFor(LkLock("a lock"));
}

TEST(LockWait, IsRecordedForARecursiveLock)
{
    expectWaitFor(LkRecLock("a recursive lock"));
}

TEST(LockWait, IsRecordedForAMutex)
{
    expectWaitFor(LkMutex("a mutex"));
}

TEST(LockWait, IsRecordedForAReaderAndAWriter)
{
    LkRwLock const lock("a reader-writer lock");
    auto const read = [&] { lock.readLock(); };
    auto const write = [&] { lock.writeLock(); };
    auto const give = [&] { lock.unlock(); };
    expectWait({"a reader-writer lock", read, give, write, give});
    expectWait({"a reader-writer lock", write, give, read, give});
}

TEST(LockWait, IsNotRecordedForALockThatIsFree)
{
    TraceRecording recording(0);
    LkLock const lock("lock");
    LkMutex const mutex("mutex");
    for (int i = 0; i < 10; ++i) {
        LkGuard const first(lock);
        LkGuard const second(mutex);
    }
    EXPECT_TRUE(recording.stop().find("lock").empty());
}

} // namespace
} // namespace ZvTest
