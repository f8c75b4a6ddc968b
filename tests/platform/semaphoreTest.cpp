#include "platform/platformTest.h"

#include <atomic>

namespace ZvTest {

TEST(PlatformSemaphore, CountsDownByWaitsAndUpByReleases)
{
    Owned const s = semaphore(2);
    EXPECT_EQ(WaitForSingleObject(s, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(s, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(s, 0), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(s, 1), WAIT_TIMEOUT);
    LONG previous = -1;
    EXPECT_SUCCEEDS(ReleaseSemaphore(s, 3, &previous));
    EXPECT_EQ(previous, 0);
    EXPECT_SUCCEEDS(ReleaseSemaphore(s, 1, &previous));
    EXPECT_EQ(previous, 3);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(WaitForSingleObject(s, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(s, 0), WAIT_TIMEOUT);
}

TEST(PlatformSemaphore, NeverExceedsItsMaximum)
{
    Owned const s = semaphore(1, 3);
    LONG previous = -1;
    EXPECT_FAILS(ERROR_TOO_MANY_POSTS, ReleaseSemaphore(s, 3, &previous));
    EXPECT_EQ(previous, -1);
    EXPECT_TRUE(ReleaseSemaphore(s, 2, &previous));
    EXPECT_EQ(previous, 1);
    EXPECT_FAILS(ERROR_TOO_MANY_POSTS, ReleaseSemaphore(s, 1, nullptr));
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(WaitForSingleObject(s, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(s, 0), WAIT_TIMEOUT);
}

TEST(PlatformSemaphore, TheLargestCountIsNoOverflow)
{
    Owned const s = semaphore(1);
    EXPECT_FAILS(ERROR_TOO_MANY_POSTS, ReleaseSemaphore(s, 0x7FFFFFFF, nullptr));
    EXPECT_TRUE(ReleaseSemaphore(s, 0x7FFFFFFE, nullptr));
    EXPECT_FAILS(ERROR_TOO_MANY_POSTS, ReleaseSemaphore(s, 1, nullptr));
}

TEST(PlatformSemaphore, BadCountsAreRefused)
{
    EXPECT_FAILS(ERROR_INVALID_PARAMETER, CreateSemaphoreA(nullptr, -1, 1, nullptr));
    EXPECT_FAILS(ERROR_INVALID_PARAMETER, CreateSemaphoreA(nullptr, 0, 0, nullptr));
    EXPECT_FAILS(ERROR_INVALID_PARAMETER, CreateSemaphoreA(nullptr, 0, -1, nullptr));
    EXPECT_FAILS(ERROR_INVALID_PARAMETER, CreateSemaphoreA(nullptr, 2, 1, nullptr));
}

TEST(PlatformSemaphore, IsNotReleasedByNothing)
{
    Owned const s = semaphore();
    for (LONG count : {0, -1})
        EXPECT_FAILS(ERROR_INVALID_PARAMETER, ReleaseSemaphore(s, count, nullptr));
    EXPECT_EQ(WaitForSingleObject(s, 0), WAIT_TIMEOUT);
}

TEST(PlatformSemaphore, BadHandlesFail)
{
    Owned const m = mutex(), e = manualEvent();
    for (HANDLE bad : {HANDLE{nullptr}, INVALID, HANDLE{m}, HANDLE{e}})
        EXPECT_FAILS(ERROR_INVALID_HANDLE, ReleaseSemaphore(bad, 1, nullptr));
    HANDLE const closed = CreateSemaphoreA(nullptr, 1, 1, nullptr);
    EXPECT_TRUE(CloseHandle(closed));
    EXPECT_FAILS(ERROR_INVALID_HANDLE, ReleaseSemaphore(closed, 1, nullptr));
    EXPECT_WAIT_FAILS(WaitForSingleObject(closed, 0));
}

TEST(PlatformSemaphore, OneReleaseServesManyWaiters)
{
    Owned const s = semaphore();
    std::atomic<int> served{0};
    std::vector<std::unique_ptr<Runner>> waiters;
    for (int i = 0; i < 5; ++i)
        waiters.push_back(std::make_unique<Runner>([&] {
            EXPECT_EQ(WaitForSingleObject(s, LONG_TIME), WAIT_OBJECT_0);
            ++served;
            return 0;
        }));
    EXPECT_TRUE(ReleaseSemaphore(s, 5, nullptr));
    waiters.clear();
    EXPECT_EQ(served, 5);
    EXPECT_EQ(WaitForSingleObject(s, 0), WAIT_TIMEOUT);
}

TEST(PlatformSemaphore, NoUnitIsLostOrMade)
{
    constexpr int THREADS = 3, ROUNDS = 4000;
    Owned const s = semaphore();
    std::atomic<int> taken{0};
    std::vector<std::unique_ptr<Runner>> runners;
    for (int i = 0; i < THREADS; ++i) {
        runners.push_back(std::make_unique<Runner>([&, i] {
            for (int round = 0; round < ROUNDS; ++round) {
                // One of the threads gives up now and then, while others release units.
                while (WaitForSingleObject(s, i == 0 ? 1 : LONG_TIME) != WAIT_OBJECT_0) {
                }
                ++taken;
            }
            return 0;
        }));
        runners.push_back(std::make_unique<Runner>([&] {
            for (int round = 0; round < ROUNDS; round += 2)
                EXPECT_TRUE(ReleaseSemaphore(s, 2, nullptr));
            return 0;
        }));
    }
    runners.clear();
    EXPECT_EQ(taken, THREADS * ROUNDS);
    EXPECT_EQ(WaitForSingleObject(s, 0), WAIT_TIMEOUT);
}

TEST(PlatformSemaphore, AServedThreadMayCloseIt)
{
    for (int round = 0; round < 300; ++round) {
        HANDLE const s = CreateSemaphoreA(nullptr, 0, 1, nullptr);
        Runner other([&] {
            EXPECT_EQ(WaitForSingleObject(s, LONG_TIME), WAIT_OBJECT_0);
            EXPECT_TRUE(CloseHandle(s));
            return 0;
        });
        EXPECT_TRUE(ReleaseSemaphore(s, 1, nullptr));
    }
}

} // namespace ZvTest
