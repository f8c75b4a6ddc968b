#include "platform/platformTest.h"
#include "testing/watchedThread.h"

namespace ZvTest {

namespace {

constexpr LONGLONG MILLISECOND = 10000;
constexpr LONGLONG HOUR = 3600ll * 1000 * MILLISECOND;

Owned timer(bool manual)
{
    return Owned(CreateWaitableTimerA(nullptr, manual, nullptr));
}

BOOL set(HANDLE timer, LONGLONG due, LONG period = 0)
{
    LARGE_INTEGER time;
    time.QuadPart = due;
    return SetWaitableTimer(timer, &time, period, nullptr, nullptr, FALSE);
}

LONGLONG today()
{
    FILETIME file;
    GetSystemTimePreciseAsFileTime(&file);
    return static_cast<LONGLONG>(std::uint64_t{file.dwHighDateTime} << 32 | file.dwLowDateTime);
}

} // namespace

TEST(PlatformTimer, IsNotSignalledBeforeItIsSet)
{
    Owned const t = timer(true);
    EXPECT_EQ(WaitForSingleObject(t, 0), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(t, 1), WAIT_TIMEOUT);
}

TEST(PlatformTimer, AManualOneStaysSignalledOnceItWasDue)
{
    Owned const t = timer(true);
    EXPECT_SUCCEEDS(set(t, -MILLISECOND));
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(WaitForSingleObject(t, INFINITE), WAIT_OBJECT_0);
    // Setting the timer again takes its signal back.
    EXPECT_TRUE(set(t, -HOUR));
    EXPECT_EQ(WaitForSingleObject(t, 0), WAIT_TIMEOUT);
}

TEST(PlatformTimer, AnAutomaticOneServesOneWait)
{
    Owned const t = timer(false);
    EXPECT_TRUE(set(t, -MILLISECOND));
    EXPECT_EQ(WaitForSingleObject(t, LONG_TIME), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(t, 0), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(t, 3), WAIT_TIMEOUT);
}

TEST(PlatformTimer, IsNeverEarly)
{
    Owned const t = timer(false);
    LARGE_INTEGER frequency, before, after;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&before);
    EXPECT_TRUE(set(t, -5 * MILLISECOND));
    EXPECT_EQ(WaitForSingleObject(t, LONG_TIME), WAIT_OBJECT_0);
    QueryPerformanceCounter(&after);
    EXPECT_GE((after.QuadPart - before.QuadPart) * 1000, 5 * frequency.QuadPart);
}

TEST(PlatformTimer, AbsoluteTimes)
{
    Owned const t = timer(false);
    EXPECT_TRUE(set(t, 0));
    EXPECT_EQ(WaitForSingleObject(t, 0), WAIT_OBJECT_0);
    EXPECT_TRUE(set(t, today() - HOUR));
    EXPECT_EQ(WaitForSingleObject(t, 0), WAIT_OBJECT_0);
    EXPECT_TRUE(set(t, today() + 2 * MILLISECOND));
    EXPECT_EQ(WaitForSingleObject(t, LONG_TIME), WAIT_OBJECT_0);
    EXPECT_TRUE(set(t, today() + HOUR));
    EXPECT_EQ(WaitForSingleObject(t, 1), WAIT_TIMEOUT);
}

TEST(PlatformTimer, AbsurdTimesAreFarAway)
{
    Owned const t = timer(false);
    EXPECT_TRUE(set(t, INT64_MAX));
    EXPECT_EQ(WaitForSingleObject(t, 0), WAIT_TIMEOUT);
    EXPECT_TRUE(set(t, INT64_MIN));
    EXPECT_EQ(WaitForSingleObject(t, 0), WAIT_TIMEOUT);
}

TEST(PlatformTimer, AWaitForADistantTimeSleeps)
{
    Owned const t = timer(false);
    EXPECT_TRUE(set(t, INT64_MIN));
    Watched waiter([&] { EXPECT_EQ(WaitForSingleObject(t, INFINITE), WAIT_OBJECT_0); });
    waiter.waitUntilAsleep();
    EXPECT_TRUE(set(t, 0));
}

TEST(PlatformTimer, PeriodsStayOnTheirGrid)
{
    constexpr int PERIODS = 10;
    Owned const t = timer(false);
    LARGE_INTEGER frequency, before, after;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&before);
    EXPECT_TRUE(set(t, -MILLISECOND, 2));
    for (int i = 0; i <= PERIODS; ++i)
        EXPECT_EQ(WaitForSingleObject(t, LONG_TIME), WAIT_OBJECT_0);
    QueryPerformanceCounter(&after);
    // Late waits skip periods, but no wait returns early.
    EXPECT_GE((after.QuadPart - before.QuadPart) * 1000, (1 + 2 * PERIODS) * frequency.QuadPart);
}

TEST(PlatformTimer, PeriodsWithoutAWaiterCountOnce)
{
    Owned const t = timer(false);
    EXPECT_TRUE(set(t, 0, 1000 * 3600));
    EXPECT_EQ(WaitForSingleObject(t, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(t, 0), WAIT_TIMEOUT);
}

TEST(PlatformTimer, ACancelledOneIsNotSignalled)
{
    Owned const t = timer(true);
    EXPECT_TRUE(set(t, -MILLISECOND, 1));
    EXPECT_SUCCEEDS(CancelWaitableTimer(t));
    EXPECT_SUCCEEDS(CancelWaitableTimer(t));
    // A signal that came before is kept, but no new one follows.
    if (WaitForSingleObject(t, 0) == WAIT_TIMEOUT) {
        EXPECT_EQ(WaitForSingleObject(t, 3), WAIT_TIMEOUT);
    }
    EXPECT_TRUE(set(t, 0));
    EXPECT_TRUE(CancelWaitableTimer(t));
    EXPECT_EQ(WaitForSingleObject(t, 0), WAIT_OBJECT_0);
}

TEST(PlatformTimer, WaitersFollowANewDueTime)
{
    for (bool manual : {true, false}) {
        Owned const t = timer(manual), begun = semaphore();
        EXPECT_TRUE(set(t, -HOUR));
        std::vector<std::unique_ptr<Runner>> waiters;
        for (int i = 0; i < 3; ++i)
            waiters.push_back(std::make_unique<Runner>([&] {
                ReleaseSemaphore(begun, 1, nullptr);
                EXPECT_EQ(WaitForSingleObject(t, LONG_TIME), WAIT_OBJECT_0);
                return 0;
            }));
        for (int i = 0; i < 3; ++i)
            WaitForSingleObject(begun, INFINITE);
        EXPECT_TRUE(set(t, -MILLISECOND, 1));
    }
}

TEST(PlatformTimer, MisuseFails)
{
    Owned const t = timer(true), e = manualEvent();
    for (HANDLE bad : {HANDLE{nullptr}, INVALID, HANDLE{e}}) {
        EXPECT_FAILS(ERROR_INVALID_HANDLE, set(bad, 0));
        EXPECT_FAILS(ERROR_INVALID_HANDLE, CancelWaitableTimer(bad));
    }
    EXPECT_FAILS(ERROR_INVALID_HANDLE, SetEvent(t));
}

TEST(PlatformTimer, ANegativePeriodIsRefused)
{
    Owned const t = timer(true);
    EXPECT_FAILS(ERROR_INVALID_PARAMETER, set(t, 0, -1));
}

} // namespace ZvTest
