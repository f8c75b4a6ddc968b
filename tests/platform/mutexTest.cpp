#include "platform/platformTest.h"

#include <atomic>

namespace ZvTest {

TEST(PlatformMutex, IsFreeWhenMadeAndTakenByAWait)
{
    Owned const m = mutex();
    SetLastError(UNTOUCHED);
    EXPECT_EQ(WaitForSingleObject(m, 0), WAIT_OBJECT_0);
    EXPECT_EQ(waitElsewhere(m, 0), WAIT_TIMEOUT);
    EXPECT_SUCCEEDS(ReleaseMutex(m));
    EXPECT_EQ(waitElsewhere(m, 0), WAIT_OBJECT_0);
}

TEST(PlatformMutex, IsRecursive)
{
    Owned const m = mutex();
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(WaitForSingleObject(m, i % 2 ? INFINITE : 0), WAIT_OBJECT_0);
    for (int i = 0; i < 4; ++i)
        EXPECT_TRUE(ReleaseMutex(m));
    EXPECT_EQ(waitElsewhere(m, 0), WAIT_TIMEOUT);
    EXPECT_TRUE(ReleaseMutex(m));
    EXPECT_EQ(waitElsewhere(m, INFINITE), WAIT_OBJECT_0);
}

TEST(PlatformMutex, IsRecursiveWhileOthersWait)
{
    Owned const m = mutex();
    ASSERT_EQ(WaitForSingleObject(m, 0), WAIT_OBJECT_0);
    Owned const begun = manualEvent();
    std::atomic<bool> had{false};
    Runner other([&] {
        SetEvent(begun);
        EXPECT_EQ(WaitForSingleObject(m, LONG_TIME), WAIT_OBJECT_0);
        had = true;
        EXPECT_TRUE(ReleaseMutex(m));
        return 0;
    });
    WaitForSingleObject(begun, INFINITE);
    for (int i = 0; i < 100000; ++i) {
        ASSERT_EQ(WaitForSingleObject(m, i % 2 ? INFINITE : 0), WAIT_OBJECT_0);
        ASSERT_TRUE(ReleaseMutex(m));
    }
    EXPECT_FALSE(had);
    EXPECT_TRUE(ReleaseMutex(m));
    other.join();
    EXPECT_TRUE(had);
}

TEST(PlatformMutex, InitiallyOwned)
{
    Owned const m(CreateMutexA(nullptr, TRUE, nullptr));
    EXPECT_EQ(waitElsewhere(m, 0), WAIT_TIMEOUT);
    EXPECT_TRUE(ReleaseMutex(m));
    EXPECT_FAILS(ERROR_NOT_OWNER, ReleaseMutex(m));
}

TEST(PlatformMutex, ReleasedByAnotherThanItsOwnerFails)
{
    Owned const m = mutex();
    EXPECT_FAILS(ERROR_NOT_OWNER, ReleaseMutex(m));
    ASSERT_EQ(WaitForSingleObject(m, 0), WAIT_OBJECT_0);
    Runner other([&] {
        EXPECT_FAILS(ERROR_NOT_OWNER, ReleaseMutex(m));
        return 0;
    });
    other.join();
    EXPECT_TRUE(ReleaseMutex(m));
}

TEST(PlatformMutex, BadHandlesFail)
{
    Owned const e = manualEvent(true);
    EXPECT_FAILS(ERROR_INVALID_HANDLE, ReleaseMutex(nullptr));
    EXPECT_FAILS(ERROR_INVALID_HANDLE, ReleaseMutex(INVALID));
    EXPECT_FAILS(ERROR_INVALID_HANDLE, ReleaseMutex(e));
    EXPECT_WAIT_FAILS(WaitForSingleObject(nullptr, 0));
    EXPECT_WAIT_FAILS(WaitForSingleObject(nullptr, INFINITE));
    EXPECT_WAIT_FAILS(WaitForSingleObjectEx(nullptr, 5, FALSE));
}

TEST(PlatformMutex, AClosedHandleFails)
{
    HANDLE const m = CreateMutexA(nullptr, FALSE, nullptr);
    EXPECT_SUCCEEDS(CloseHandle(m));
    EXPECT_FAILS(ERROR_INVALID_HANDLE, CloseHandle(m));
    EXPECT_FAILS(ERROR_INVALID_HANDLE, ReleaseMutex(m));
    EXPECT_WAIT_FAILS(WaitForSingleObject(m, INFINITE));
}

TEST(PlatformMutex, MayBeClosedWhileHeld)
{
    HANDLE const m = CreateMutexA(nullptr, TRUE, nullptr);
    EXPECT_TRUE(CloseHandle(m));
    EXPECT_WAIT_FAILS(WaitForSingleObject(m, 0));
    // The closed mutex does not disturb the owner's next mutexes.
    Owned const next = mutex();
    ASSERT_EQ(WaitForSingleObject(next, 0), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseMutex(next));
    EXPECT_FAILS(ERROR_NOT_OWNER, ReleaseMutex(next));
}

TEST(PlatformMutex, MayBeClosedWhileAnotherHoldsIt)
{
    HANDLE const m = CreateMutexA(nullptr, FALSE, nullptr);
    Owned const taken = manualEvent(), closed = manualEvent();
    Runner other([&] {
        EXPECT_EQ(WaitForSingleObject(m, 0), WAIT_OBJECT_0);
        SetEvent(taken);
        WaitForSingleObject(closed, INFINITE);
        return 0;
    });
    WaitForSingleObject(taken, INFINITE);
    EXPECT_TRUE(CloseHandle(m));
    EXPECT_WAIT_FAILS(WaitForSingleObject(m, 0));
    SetEvent(closed);
    other.join();
}

TEST(PlatformMutex, AnOwnerThatEndsAbandonsIt)
{
    Owned const m = mutex(), n = mutex();
    Runner owner([&] {
        EXPECT_EQ(WaitForSingleObject(m, 0), WAIT_OBJECT_0);
        EXPECT_EQ(WaitForSingleObject(m, 0), WAIT_OBJECT_0);
        EXPECT_EQ(WaitForSingleObject(n, 0), WAIT_OBJECT_0);
        return 0;
    });
    owner.join();
    EXPECT_EQ(WaitForSingleObject(m, 0), WAIT_ABANDONED);
    EXPECT_EQ(WaitForSingleObject(n, INFINITE), WAIT_ABANDONED);
    // The new owner has taken the mutex once, and can use it like a new one.
    EXPECT_EQ(WaitForSingleObject(m, 0), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseMutex(m));
    EXPECT_TRUE(ReleaseMutex(m));
    EXPECT_FAILS(ERROR_NOT_OWNER, ReleaseMutex(m));
    EXPECT_TRUE(ReleaseMutex(n));
    EXPECT_EQ(waitElsewhere(m, 0), WAIT_OBJECT_0);
}

TEST(PlatformMutex, AWaiterLearnsThatAMutexIsAbandoned)
{
    Owned const m = mutex();
    Owned const taken = manualEvent(), waiting = manualEvent();
    Runner owner([&] {
        EXPECT_EQ(WaitForSingleObject(m, 0), WAIT_OBJECT_0);
        SetEvent(taken);
        WaitForSingleObject(waiting, INFINITE);
        return 0;
    });
    WaitForSingleObject(taken, INFINITE);
    DWORD result = 0;
    Runner waiter([&] {
        SetEvent(waiting);
        result = WaitForSingleObject(m, LONG_TIME);
        EXPECT_TRUE(ReleaseMutex(m));
        return 0;
    });
    waiter.join();
    EXPECT_EQ(result, WAIT_ABANDONED);
}

TEST(PlatformMutex, ManyAreReleasedInAnyOrder)
{
    std::vector<Owned> mutexes;
    for (int i = 0; i < 50; ++i)
        mutexes.push_back(mutex());
    for (Owned const &m : mutexes)
        ASSERT_EQ(WaitForSingleObject(m, 0), WAIT_OBJECT_0);
    for (std::size_t i = 0; i < mutexes.size(); ++i)
        ASSERT_TRUE(ReleaseMutex(mutexes[i * 7 % mutexes.size()]));
    for (Owned const &m : mutexes)
        EXPECT_EQ(waitElsewhere(m, 0), WAIT_OBJECT_0);
}

TEST(PlatformMutex, ATimedWaitGivesUp)
{
    Owned const m(CreateMutexA(nullptr, TRUE, nullptr));
    EXPECT_EQ(waitElsewhere(m, 1), WAIT_TIMEOUT);
    EXPECT_EQ(waitElsewhere(m, 0), WAIT_TIMEOUT);
    EXPECT_TRUE(ReleaseMutex(m));
}

TEST(PlatformMutex, ExcludesUnderContention)
{
    constexpr int THREADS = 4, ROUNDS = 5000;
    Owned const m = mutex();
    long count = 0;
    {
        std::vector<std::unique_ptr<Runner>> runners;
        for (int i = 0; i < THREADS; ++i)
            runners.push_back(std::make_unique<Runner>([&, i] {
                for (int round = 0; round < ROUNDS; ++round) {
                    // Some wait without a limit, one only tries, and one gives up quickly.
                    DWORD const patience = i == 0 ? 0 : i == 1 ? 1 : INFINITE;
                    while (WaitForSingleObject(m, patience) != WAIT_OBJECT_0) {
                    }
                    if (round % 16 == 0) {
                        EXPECT_EQ(WaitForSingleObject(m, INFINITE), WAIT_OBJECT_0);
                        EXPECT_TRUE(ReleaseMutex(m));
                    }
                    ++count;
                    EXPECT_TRUE(ReleaseMutex(m));
                }
                return 0;
            }));
    }
    EXPECT_EQ(count, THREADS * ROUNDS);
    EXPECT_EQ(WaitForSingleObject(m, 0), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseMutex(m));
}

TEST(PlatformMutex, ATimeMayBeUpWhileTheWakeUpIsOnItsWay)
{
    // There are so many time-outs and wake-ups that some of them coincide.
    constexpr int THREADS = 16, ROUNDS = 1000;
    Owned const m = mutex();
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    long count = 0;
    std::atomic<long> taken{0};
    {
        std::vector<std::unique_ptr<Runner>> runners;
        for (int i = 0; i < THREADS; ++i)
            runners.push_back(std::make_unique<Runner>([&] {
                for (int round = 0; round < ROUNDS; ++round) {
                    if (WaitForSingleObject(m, 1) != WAIT_OBJECT_0)
                        continue;
                    ++count;
                    ++taken;
                    LARGE_INTEGER now;
                    QueryPerformanceCounter(&now);
                    LONGLONG const due = now.QuadPart + frequency.QuadPart / 50000;
                    while (now.QuadPart < due)
                        QueryPerformanceCounter(&now);
                    EXPECT_TRUE(ReleaseMutex(m));
                }
                return 0;
            }));
    }
    EXPECT_EQ(count, taken);
    EXPECT_EQ(WaitForSingleObject(m, 0), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseMutex(m));
}

TEST(PlatformMutex, AThreadThatTakesItRepeatedlyDoesNotStarveOthers)
{
    Owned const m = mutex();
    std::atomic<bool> done{false};
    Runner greedy([&] {
        while (!done) {
            EXPECT_EQ(WaitForSingleObject(m, LONG_TIME), WAIT_OBJECT_0);
            EXPECT_TRUE(ReleaseMutex(m));
        }
        return 0;
    });
    std::vector<std::unique_ptr<Runner>> patient;
    for (int i = 0; i < 3; ++i)
        patient.push_back(std::make_unique<Runner>([&] {
            for (int round = 0; round < 20; ++round) {
                EXPECT_EQ(WaitForSingleObject(m, LONG_TIME), WAIT_OBJECT_0);
                Sleep(0);
                EXPECT_TRUE(ReleaseMutex(m));
            }
            return 0;
        }));
    patient.clear();
    done = true;
}

TEST(PlatformMutex, TheThreadThatGetsItMayCloseIt)
{
    for (int round = 0; round < 300; ++round) {
        HANDLE const m = CreateMutexA(nullptr, TRUE, nullptr);
        Owned const begun = manualEvent();
        Runner other([&] {
            SetEvent(begun);
            EXPECT_EQ(WaitForSingleObject(m, LONG_TIME), WAIT_OBJECT_0);
            EXPECT_TRUE(ReleaseMutex(m));
            EXPECT_TRUE(CloseHandle(m));
            return 0;
        });
        WaitForSingleObject(begun, INFINITE);
        EXPECT_TRUE(ReleaseMutex(m));
        other.join();
    }
}

} // namespace ZvTest
