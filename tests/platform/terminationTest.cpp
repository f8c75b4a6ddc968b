// Ends of threads from outside. A victim owns nothing that a destructor would free, because its
// stack is not unwound. It is always in its own function, which it never leaves by itself. While a
// thread begins or ends, it holds locks of the system, which some systems do not get back from a
// killed thread.
#include "platform/platformTest.h"

#include "zvbase/platform/shared.h"

#include <atomic>

namespace ZvTest {

using ZvPlatform::Order;
using ZvPlatform::Shared;

namespace {

struct KillScene : VictimScene<KillScene>
{};

KillScene &killSceneOf(void *data)
{
    return *static_cast<KillScene *>(data);
}

DWORD waitToBeKilled(void *data)
{
    SetEvent(killSceneOf(data).begun);
    WaitForSingleObject(killSceneOf(data).object, INFINITE);
    WaitForSingleObject(GetCurrentThread(), INFINITE);
    return 1;
}

DWORD computeUntilKilled(void *data)
{
    SetEvent(killSceneOf(data).begun);
    for (;;)
        killSceneOf(data).rounds.fetch_add(1, Order::SEQ_CST);
}

void expectEnded(HANDLE thread, DWORD expected)
{
    EXPECT_EQ(WaitForSingleObject(thread, LONG_TIME), WAIT_OBJECT_0);
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeThread(thread, &code));
    EXPECT_EQ(code, expected);
    EXPECT_TRUE(CloseHandle(thread));
}

} // namespace

TEST(PlatformTermination, EndsOneThatComputes)
{
    for (int round = 0; round < 20; ++round) {
        KillScene scene;
        HANDLE const t = scene.start(computeUntilKilled);
        EXPECT_SUCCEEDS(TerminateThread(t, 17));
        EXPECT_EQ(WaitForSingleObject(t, LONG_TIME), WAIT_OBJECT_0);
        long const rounds = scene.rounds.load(Order::ACQUIRE);
        expectEnded(t, 17);
        EXPECT_EQ(scene.rounds.load(Order::ACQUIRE), rounds);
    }
}

TEST(PlatformTermination, EndsOneThatWaitsForAnything)
{
    std::string const name = "zv termination " + std::to_string(GetCurrentProcessId());
    Owned const objects[] = {Owned(CreateMutexA(nullptr, TRUE, nullptr)),
                             manualEvent(),
                             autoEvent(),
                             semaphore(),
                             Owned(CreateSemaphoreA(nullptr, 0, 1, name.c_str())),
                             Owned(CreateWaitableTimerA(nullptr, TRUE, nullptr))};
    for (int round = 0; round < 5; ++round)
        for (Owned const &object : objects) {
            KillScene scene;
            scene.object = object;
            HANDLE const t = scene.start(waitToBeKilled);
            EXPECT_SUCCEEDS(TerminateThread(t, 0xFFFFFFFF));
            expectEnded(t, 0xFFFFFFFF);
        }
    // The objects have no trace of the victims.
    EXPECT_TRUE(ReleaseMutex(objects[0]));
    EXPECT_EQ(waitElsewhere(objects[0], 0), WAIT_OBJECT_0);
    EXPECT_TRUE(SetEvent(objects[2]));
    EXPECT_EQ(WaitForSingleObject(objects[2], 0), WAIT_OBJECT_0);
    for (int i : {3, 4}) {
        EXPECT_TRUE(ReleaseSemaphore(objects[i], 1, nullptr));
        EXPECT_EQ(WaitForSingleObject(objects[i], 0), WAIT_OBJECT_0);
    }
}

TEST(PlatformTermination, EndsOneThatSleepsOrWaitsOnAnAddressOrForItself)
{
    LPTHREAD_START_ROUTINE const bodies[] = {[](void *data) -> DWORD {
                                                 SetEvent(killSceneOf(data).begun);
                                                 Sleep(INFINITE);
                                                 return 1;
                                             },
                                             [](void *data) -> DWORD {
                                                 long zero = 0;
                                                 SetEvent(killSceneOf(data).begun);
                                                 for (;;)
                                                     WaitOnAddress(&killSceneOf(data).rounds, &zero,
                                                                   sizeof zero, INFINITE);
                                             },
                                             [](void *data) -> DWORD {
                                                 SetEvent(killSceneOf(data).begun);
                                                 WaitForSingleObject(GetCurrentThread(), INFINITE);
                                                 return 1;
                                             }};
    for (LPTHREAD_START_ROUTINE body : bodies) {
        KillScene scene;
        HANDLE const t = scene.start(body);
        EXPECT_TRUE(TerminateThread(t, 3));
        expectEnded(t, 3);
        WakeByAddressAll(&scene.rounds);
    }
}

TEST(PlatformTermination, MutexesThatItHeldAreAbandoned)
{
    Owned const held = mutex();
    KillScene scene;
    scene.object = held;
    HANDLE const t = scene.start([](void *data) -> DWORD {
        WaitForSingleObject(killSceneOf(data).object, INFINITE);
        WaitForSingleObject(killSceneOf(data).object, INFINITE);
        return computeUntilKilled(data);
    });
    DWORD result = 0;
    Runner waiter([&] {
        result = WaitForSingleObject(held, LONG_TIME);
        EXPECT_TRUE(ReleaseMutex(held));
        return 0;
    });
    EXPECT_TRUE(TerminateThread(t, 0));
    waiter.join();
    EXPECT_EQ(result, WAIT_ABANDONED);
    expectEnded(t, 0);
    EXPECT_EQ(WaitForSingleObject(held, 0), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseMutex(held));
}

TEST(PlatformTermination, WhileLockingLeavesNoMutexOwned)
{
    Owned const contended = mutex();
    for (int round = 0; round < 200; ++round) {
        KillScene scene;
        scene.object = contended;
        HANDLE const t = scene.start([](void *data) -> DWORD {
            SetEvent(killSceneOf(data).begun);
            for (;;) {
                WaitForSingleObject(killSceneOf(data).object, INFINITE);
                WaitForSingleObject(killSceneOf(data).object, INFINITE);
                ReleaseMutex(killSceneOf(data).object);
                ReleaseMutex(killSceneOf(data).object);
            }
        });
        for (int i = 0; i < round % 8; ++i) {
            EXPECT_NE(WaitForSingleObject(contended, LONG_TIME), WAIT_TIMEOUT);
            EXPECT_TRUE(ReleaseMutex(contended));
        }
        EXPECT_TRUE(TerminateThread(t, 0));
        expectEnded(t, 0);
        DWORD const result = WaitForSingleObject(contended, LONG_TIME);
        ASSERT_TRUE(result == WAIT_OBJECT_0 || result == WAIT_ABANDONED);
        ASSERT_TRUE(ReleaseMutex(contended));
    }
}

TEST(PlatformTermination, InAnyServiceLeavesTheObjectsIntact)
{
    Owned const e = autoEvent(), s = semaphore();
    struct Objects
    {
        HANDLE e, s, begun;
    } objects{e, s, nullptr};
    for (int round = 0; round < 100; ++round) {
        Owned const begun = manualEvent();
        objects.begun = begun;
        HANDLE const t = CreateThread(
            nullptr, 0x10000,
            [](void *data) -> DWORD {
                auto const o = *static_cast<Objects *>(data);
                SetEvent(o.begun);
                for (;;) {
                    SetEvent(o.e);
                    WaitForSingleObject(o.e, 0);
                    PulseEvent(o.e);
                    ReleaseSemaphore(o.s, 1, nullptr);
                    WaitForSingleObject(o.s, INFINITE);
                    WaitForSingleObject(o.s, 1);
                }
            },
            &objects, 0, nullptr);
        WaitForSingleObject(begun, INFINITE);
        for (int i = 0; i < round; ++i)
            SetEvent(e);
        EXPECT_TRUE(TerminateThread(t, 0));
        expectEnded(t, 0);
        ASSERT_TRUE(SetEvent(e));
        ASSERT_EQ(WaitForSingleObject(e, 0), WAIT_OBJECT_0);
        ASSERT_TRUE(ReleaseSemaphore(s, 1, nullptr));
        ASSERT_EQ(WaitForSingleObject(s, 0), WAIT_OBJECT_0);
        while (WaitForSingleObject(s, 0) == WAIT_OBJECT_0) {
        }
    }
}

TEST(PlatformTermination, WaitersBehindAVictimAreServed)
{
    for (int round = 0; round < 50; ++round) {
        Owned const m(CreateMutexA(nullptr, TRUE, nullptr));
        KillScene scene;
        scene.object = m;
        HANDLE const victim = scene.start(waitToBeKilled);
        Runner behind([&] {
            EXPECT_NE(WaitForSingleObject(m, LONG_TIME), WAIT_TIMEOUT);
            EXPECT_TRUE(ReleaseMutex(m));
            return 0;
        });
        // The victim may be on its way to the mutex when it is killed.
        EXPECT_TRUE(ReleaseMutex(m));
        EXPECT_TRUE(TerminateThread(victim, 0));
        expectEnded(victim, 0);
    }
}

TEST(PlatformTermination, AThreadMayEndItself)
{
    Owned const held = mutex();
    KillScene scene;
    scene.object = held;
    HANDLE const t = scene.start([](void *data) -> DWORD {
        WaitForSingleObject(killSceneOf(data).object, INFINITE);
        SetEvent(killSceneOf(data).begun);
        TerminateThread(GetCurrentThread(), 5);
        return 6;
    });
    EXPECT_EQ(WaitForSingleObject(t, LONG_TIME), WAIT_OBJECT_0);
    expectEnded(t, 5);
    EXPECT_EQ(WaitForSingleObject(held, 0), WAIT_ABANDONED);
    EXPECT_TRUE(ReleaseMutex(held));
}

TEST(PlatformTermination, OneThatHasEndedKeepsItsExitCode)
{
    Runner t([] { return DWORD{9}; });
    t.join();
    EXPECT_TRUE(TerminateThread(t.handle(), 10));
    EXPECT_EQ(t.exitCode(), 9u);
}

TEST(PlatformTermination, TwoMayKillOne)
{
    for (int round = 0; round < 30; ++round) {
        KillScene scene;
        HANDLE const t = scene.start(computeUntilKilled);
        {
            Runner first([&] { return TerminateThread(t, 1); }),
                second([&] { return TerminateThread(t, 1); });
            first.join();
            second.join();
            EXPECT_EQ(first.exitCode(), DWORD{TRUE});
            EXPECT_EQ(second.exitCode(), DWORD{TRUE});
        }
        expectEnded(t, 1);
    }
}

TEST(PlatformTermination, TwoMayKillEachOther)
{
    struct Pair
    {
        std::atomic<HANDLE> first{nullptr}, second{nullptr};
        std::atomic<int> nbBegun{0};
    };
    for (int round = 0; round < 50; ++round) {
        Pair pair;
        auto const kill = [](std::atomic<HANDLE> &other) {
            HANDLE victim;
            while (!(victim = other.load()))
                Sleep(0);
            TerminateThread(victim, 1);
            TerminateThread(GetCurrentThread(), 1);
        };
        static auto const killer = kill;
        HANDLE const a = CreateThread(
            nullptr, 0x10000,
            [](void *data) -> DWORD {
                ++static_cast<Pair *>(data)->nbBegun;
                killer(static_cast<Pair *>(data)->second);
                return 0;
            },
            &pair, 0, nullptr);
        HANDLE const b = CreateThread(
            nullptr, 0x10000,
            [](void *data) -> DWORD {
                ++static_cast<Pair *>(data)->nbBegun;
                killer(static_cast<Pair *>(data)->first);
                return 0;
            },
            &pair, 0, nullptr);
        while (pair.nbBegun < 2)
            Sleep(0);
        pair.first = a;
        pair.second = b;
        EXPECT_EQ(WaitForSingleObject(a, LONG_TIME), WAIT_OBJECT_0);
        EXPECT_EQ(WaitForSingleObject(b, LONG_TIME), WAIT_OBJECT_0);
        EXPECT_TRUE(CloseHandle(a));
        EXPECT_TRUE(CloseHandle(b));
    }
}

TEST(PlatformTermination, AHandleThatIsNoThreadIsRefused)
{
    Owned const e = manualEvent();
    for (HANDLE bad : {HANDLE{nullptr}, INVALID, HANDLE{e}})
        EXPECT_FAILS(ERROR_INVALID_HANDLE, TerminateThread(bad, 0));
}

TEST(PlatformTermination, TheProcessContinues)
{
    // There are many victims. If their resources were not freed, the address space would be
    // used up.
    for (int round = 0; round < 300; ++round) {
        KillScene scene;
        scene.object = scene.begun;
        HANDLE const t = CreateThread(nullptr, 0x1000000, computeUntilKilled, &scene, 0, nullptr);
        ASSERT_NE(t, nullptr);
        EXPECT_EQ(WaitForSingleObject(scene.begun, LONG_TIME), WAIT_OBJECT_0);
        EXPECT_TRUE(TerminateThread(t, 0));
        EXPECT_TRUE(CloseHandle(t));
    }
    Runner t([] { return DWORD{1}; });
    t.join();
    EXPECT_EQ(t.exitCode(), 1u);
}

} // namespace ZvTest
