#include "platform/platformTest.h"

#include <atomic>

namespace ZvTest {

TEST(PlatformEvent, AManualOneStaysSet)
{
    Owned const e = manualEvent();
    EXPECT_EQ(WaitForSingleObject(e, 0), WAIT_TIMEOUT);
    EXPECT_SUCCEEDS(SetEvent(e));
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(WaitForSingleObject(e, INFINITE), WAIT_OBJECT_0);
    EXPECT_SUCCEEDS(SetEvent(e));
    EXPECT_SUCCEEDS(ResetEvent(e));
    EXPECT_EQ(WaitForSingleObject(e, 0), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(e, 1), WAIT_TIMEOUT);
    EXPECT_SUCCEEDS(ResetEvent(e));
}

TEST(PlatformEvent, AnAutomaticOneServesOneWait)
{
    Owned const e = autoEvent();
    EXPECT_EQ(WaitForSingleObject(e, 0), WAIT_TIMEOUT);
    EXPECT_TRUE(SetEvent(e));
    EXPECT_TRUE(SetEvent(e));
    EXPECT_EQ(WaitForSingleObject(e, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(e, 0), WAIT_TIMEOUT);
    EXPECT_TRUE(SetEvent(e));
    EXPECT_TRUE(ResetEvent(e));
    EXPECT_EQ(WaitForSingleObject(e, 0), WAIT_TIMEOUT);
}

TEST(PlatformEvent, InitialStates)
{
    EXPECT_EQ(WaitForSingleObject(manualEvent(true), 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(manualEvent(false), 0), WAIT_TIMEOUT);
    Owned const e = autoEvent(true);
    EXPECT_EQ(WaitForSingleObject(e, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(e, 0), WAIT_TIMEOUT);
}

TEST(PlatformEvent, CreationClearsTheLastError)
{
    SetLastError(UNTOUCHED);
    Owned const e = manualEvent();
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
}

TEST(PlatformEvent, BadHandlesFail)
{
    Owned const m = mutex(), s = semaphore();
    for (HANDLE bad : {HANDLE{nullptr}, INVALID, HANDLE{m}, HANDLE{s}}) {
        EXPECT_FAILS(ERROR_INVALID_HANDLE, SetEvent(bad));
        EXPECT_FAILS(ERROR_INVALID_HANDLE, ResetEvent(bad));
        EXPECT_FAILS(ERROR_INVALID_HANDLE, PulseEvent(bad));
    }
    HANDLE const closed = CreateEventA(nullptr, TRUE, TRUE, nullptr);
    EXPECT_TRUE(CloseHandle(closed));
    EXPECT_FAILS(ERROR_INVALID_HANDLE, SetEvent(closed));
    EXPECT_WAIT_FAILS(WaitForSingleObject(closed, 0));
}

TEST(PlatformEvent, SettingAManualOneReleasesAllWaiters)
{
    Owned const e = manualEvent(), begun = semaphore();
    std::vector<std::unique_ptr<Runner>> waiters;
    std::atomic<int> released{0};
    for (int i = 0; i < 8; ++i)
        waiters.push_back(std::make_unique<Runner>([&] {
            ReleaseSemaphore(begun, 1, nullptr);
            EXPECT_EQ(WaitForSingleObject(e, LONG_TIME), WAIT_OBJECT_0);
            ++released;
            return 0;
        }));
    for (int i = 0; i < 8; ++i)
        WaitForSingleObject(begun, INFINITE);
    EXPECT_EQ(released, 0);
    EXPECT_TRUE(SetEvent(e));
    waiters.clear();
    EXPECT_EQ(released, 8);
}

TEST(PlatformEvent, SettingAnAutomaticOneReleasesOneWaiter)
{
    Owned const e = autoEvent(), released = semaphore();
    std::vector<std::unique_ptr<Runner>> waiters;
    for (int i = 0; i < 4; ++i)
        waiters.push_back(std::make_unique<Runner>([&] {
            EXPECT_EQ(WaitForSingleObject(e, LONG_TIME), WAIT_OBJECT_0);
            ReleaseSemaphore(released, 1, nullptr);
            return 0;
        }));
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(SetEvent(e));
        EXPECT_EQ(WaitForSingleObject(released, LONG_TIME), WAIT_OBJECT_0);
        EXPECT_EQ(WaitForSingleObject(released, 0), WAIT_TIMEOUT);
    }
    waiters.clear();
    EXPECT_EQ(WaitForSingleObject(e, 0), WAIT_TIMEOUT);
}

TEST(PlatformEvent, APulseWithoutAWaiterIsLost)
{
    for (Owned const &e : {manualEvent(), autoEvent(), manualEvent(true), autoEvent(true)}) {
        EXPECT_SUCCEEDS(PulseEvent(e));
        EXPECT_EQ(WaitForSingleObject(e, 0), WAIT_TIMEOUT);
        EXPECT_EQ(WaitForSingleObject(e, 1), WAIT_TIMEOUT);
    }
}

namespace {

/// Waiters of an event, and how many have been released. A test cannot see whether a thread waits
/// already, so it sends pulses until they have had their effect.
struct Waiters
{
    Waiters(HANDLE event, int count)
    {
        for (int i = 0; i < count; ++i)
            runners.push_back(std::make_unique<Runner>([this, event] {
                EXPECT_EQ(WaitForSingleObject(event, LONG_TIME), WAIT_OBJECT_0);
                ++released;
                return 0;
            }));
    }

    std::atomic<int> released{0};
    std::vector<std::unique_ptr<Runner>> runners;
};

} // namespace

TEST(PlatformEvent, APulseReleasesTheWaiter)
{
    for (bool manual : {true, false}) {
        Owned const e = manual ? manualEvent() : autoEvent();
        Waiters waiters(e, 1);
        while (waiters.released == 0) {
            EXPECT_TRUE(PulseEvent(e));
            Sleep(0);
        }
        waiters.runners.clear();
        EXPECT_EQ(WaitForSingleObject(e, 0), WAIT_TIMEOUT);
    }
}

TEST(PlatformEvent, PulsesReleaseAllWaitersOfAManualOne)
{
    Owned const e = manualEvent();
    Waiters waiters(e, 6);
    while (waiters.released < 6) {
        EXPECT_TRUE(PulseEvent(e));
        Sleep(0);
    }
    waiters.runners.clear();
    EXPECT_EQ(WaitForSingleObject(e, 0), WAIT_TIMEOUT);
}

TEST(PlatformEvent, EachPulseReleasesAtMostOneWaiterOfAnAutomaticOne)
{
    Owned const e = autoEvent();
    Waiters waiters(e, 6);
    int pulses = 0;
    while (waiters.released < 6) {
        ++pulses;
        EXPECT_TRUE(PulseEvent(e));
        // Each released waiter has used up a pulse of its own.
        EXPECT_LE(waiters.released, pulses);
        Sleep(0);
    }
    EXPECT_GE(pulses, 6);
    waiters.runners.clear();
    EXPECT_EQ(WaitForSingleObject(e, 0), WAIT_TIMEOUT);
}

TEST(PlatformEvent, APulseReleasesNoLaterWaiter)
{
    // The thread that pulses is the only one that waits afterwards, and must find nothing.
    Owned const e = manualEvent();
    for (int i = 0; i < 1000; ++i) {
        EXPECT_TRUE(PulseEvent(e));
        ASSERT_EQ(WaitForSingleObject(e, 0), WAIT_TIMEOUT);
    }
}

TEST(PlatformEvent, NoSettingIsLostBetweenTwoThreads)
{
    constexpr int ROUNDS = 20000;
    Owned const there = autoEvent(), back = autoEvent();
    long shared = 0;
    Runner other([&] {
        for (int i = 0; i < ROUNDS; ++i) {
            EXPECT_EQ(WaitForSingleObject(there, LONG_TIME), WAIT_OBJECT_0);
            ++shared;
            SetEvent(back);
        }
        return 0;
    });
    for (int i = 0; i < ROUNDS; ++i) {
        ++shared;
        SetEvent(there);
        ASSERT_EQ(WaitForSingleObject(back, LONG_TIME), WAIT_OBJECT_0);
    }
    other.join();
    EXPECT_EQ(shared, 2 * ROUNDS);
}

TEST(PlatformEvent, TimeOutsAndSettingsRaceCleanly)
{
    constexpr int ROUNDS = 500;
    Owned const e = autoEvent();
    std::atomic<bool> stop{false};
    int taken = 0, missed = 0;
    Runner waiter([&] {
        while (!stop)
            ++(WaitForSingleObject(e, 1) == WAIT_OBJECT_0 ? taken : missed);
        return 0;
    });
    int set = 0;
    for (; set < ROUNDS; ++set) {
        SetEvent(e);
        while (WaitForSingleObject(e, 0) == WAIT_OBJECT_0)
            SetEvent(e);
    }
    stop = true;
    SetEvent(e);
    waiter.join();
    EXPECT_GE(taken, 1);
    EXPECT_LE(taken, ROUNDS + 1);
}

TEST(PlatformEvent, AReleasedThreadMayCloseIt)
{
    for (int round = 0; round < 300; ++round) {
        HANDLE const e = CreateEventA(nullptr, round % 2, FALSE, nullptr);
        Runner other([&] {
            EXPECT_EQ(WaitForSingleObject(e, LONG_TIME), WAIT_OBJECT_0);
            EXPECT_TRUE(CloseHandle(e));
            return 0;
        });
        EXPECT_TRUE(SetEvent(e));
    }
}

TEST(PlatformEvent, AHandleClosedUnderAWaiterIsHarmless)
{
    // The waiter keeps the object, although no thread can set the event.
    for (int round = 0; round < 50; ++round) {
        HANDLE const e = CreateEventA(nullptr, TRUE, FALSE, nullptr);
        Owned const begun = manualEvent();
        Runner other([&] {
            SetEvent(begun);
            DWORD const result = WaitForSingleObject(e, 2);
            // A wait that begins after the event is closed fails.
            EXPECT_TRUE(result == WAIT_TIMEOUT || result == WAIT_FAILED);
            return 0;
        });
        WaitForSingleObject(begun, INFINITE);
        EXPECT_TRUE(CloseHandle(e));
    }
}

} // namespace ZvTest
