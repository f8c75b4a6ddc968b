// Ends of threads that have blocked signals, and the application's own signals.
#include "platform/platformTest.h"

#include "zvbase/platform/shared.h"

#include <csignal>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace ZvTest {

using ZvPlatform::Order;
using ZvPlatform::Shared;

#if defined(__SANITIZE_THREAD__)
#define ZV_OWN_SIGNAL
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define ZV_OWN_SIGNAL
#endif
#endif
#ifdef ZV_OWN_SIGNAL
#define ZV_NEEDS_THE_LIBRARYS_SIGNAL                                                               \
    GTEST_SKIP() << "under the thread sanitizer the signal is an ordinary one"
#else
#define ZV_NEEDS_THE_LIBRARYS_SIGNAL static_cast<void>(0)
#endif

namespace {

void blockAllSignals()
{
    sigset_t all;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

/// Blocks all signals, including those that the C library keeps for itself.
void blockAllSignalsPastTheLibrary()
{
    std::uint64_t const all = ~std::uint64_t{0};
    ::syscall(SYS_rt_sigprocmask, SIG_SETMASK, &all, nullptr, sizeof all);
}

struct Scene : VictimScene<Scene>
{
    CRITICAL_SECTION section{};
    Shared<long> isToGoOn{0};

    Scene() { InitializeCriticalSection(&section); }
    ~Scene() { DeleteCriticalSection(&section); }
};

Scene &sceneOf(void *data)
{
    return *static_cast<Scene *>(data);
}

/// Kills a thread from another thread, and checks that the call returns.
void expectKilled(HANDLE thread)
{
    Runner killer([&] { return TerminateThread(thread, 7); });
    killer.join();
    EXPECT_EQ(killer.exitCode(), DWORD{TRUE});
    EXPECT_EQ(WaitForSingleObject(thread, LONG_TIME), WAIT_OBJECT_0);
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeThread(thread, &code));
    EXPECT_EQ(code, 7u);
    EXPECT_TRUE(CloseHandle(thread));
}

DWORD computeForEver(void *data)
{
    SetEvent(sceneOf(data).begun);
    for (;;)
        sceneOf(data).rounds.fetch_add(1, Order::SEQ_CST);
}

DWORD waitForEver(void *data)
{
    blockAllSignalsPastTheLibrary();
    SetEvent(sceneOf(data).begun);
    WaitForSingleObject(sceneOf(data).object, INFINITE);
    return 1;
}

/// Runs the test of that name in a process of its own.
void runElsewhere(char const *test)
{
    ChildProcess child = startElsewhere(std::string("PlatformSignals.DISABLED_") + test);
    expectSuccess(child);
}

std::vector<void (*)(int)> handlers()
{
    std::vector<void (*)(int)> all;
    for (int number = 1; number <= SIGRTMAX; ++number) {
        struct sigaction action;
        all.push_back(::sigaction(number, nullptr, &action) == 0 ? action.sa_handler : SIG_ERR);
    }
    return all;
}

} // namespace

TEST(PlatformSignals, AThreadThatHasBlockedAllAndComputesIsEnded)
{
    ZV_NEEDS_THE_LIBRARYS_SIGNAL;
    Scene scene;
    expectKilled(scene.start([](void *data) {
        blockAllSignals();
        return computeForEver(data);
    }));
}

TEST(PlatformSignals, AThreadThatItsStarterHasBlockedThemForIsEnded)
{
    Scene scene;
    HANDLE victim = nullptr;
    Runner starter([&] {
        blockAllSignalsPastTheLibrary();
        victim = scene.start(computeForEver);
        return 0;
    });
    starter.join();
    expectKilled(victim);
}

TEST(PlatformSignals, AThreadThatWaitsIsEndedWithoutAny)
{
    std::string const name = "zv signals " + std::to_string(GetCurrentProcessId());
    Owned const objects[] = {Owned(CreateMutexA(nullptr, TRUE, nullptr)),
                             manualEvent(),
                             autoEvent(),
                             semaphore(),
                             Owned(CreateSemaphoreA(nullptr, 0, 1, name.c_str())),
                             Owned(CreateWaitableTimerA(nullptr, TRUE, nullptr)),
                             Owned()};
    for (int round = 0; round < 5; ++round)
        for (Owned const &object : objects) {
            Scene scene;
            scene.object = object ? HANDLE{object} : GetCurrentThread();
            expectKilled(scene.start(waitForEver));
        }
    EXPECT_TRUE(ReleaseMutex(objects[0]));
}

TEST(PlatformSignals, AThreadThatSleepsOrWaitsInItsProcessIsEndedWithoutAny)
{
    LPTHREAD_START_ROUTINE const bodies[] = {[](void *data) -> DWORD {
                                                 blockAllSignalsPastTheLibrary();
                                                 SetEvent(sceneOf(data).begun);
                                                 Sleep(INFINITE);
                                                 return 1;
                                             },
                                             [](void *data) -> DWORD {
                                                 long zero = 0;
                                                 blockAllSignalsPastTheLibrary();
                                                 SetEvent(sceneOf(data).begun);
                                                 for (;;)
                                                     WaitOnAddress(&sceneOf(data).rounds, &zero,
                                                                   sizeof zero, INFINITE);
                                             },
                                             [](void *data) -> DWORD {
                                                 blockAllSignalsPastTheLibrary();
                                                 SetEvent(sceneOf(data).begun);
                                                 EnterCriticalSection(&sceneOf(data).section);
                                                 return 1;
                                             }};
    for (int round = 0; round < 5; ++round)
        for (LPTHREAD_START_ROUTINE body : bodies) {
            Scene scene;
            EnterCriticalSection(&scene.section);
            expectKilled(scene.start(body));
            LeaveCriticalSection(&scene.section);
            // The victim does not keep the section.
            EXPECT_TRUE(TryEnterCriticalSection(&scene.section));
            LeaveCriticalSection(&scene.section);
        }
}

TEST(PlatformSignals, AThreadThatHasBlockedThemPastTheLibraryEndsAtItsNextService)
{
    Scene scene;
    HANDLE const victim = scene.start([](void *data) -> DWORD {
        blockAllSignalsPastTheLibrary();
        SetEvent(sceneOf(data).begun);
        while (!sceneOf(data).isToGoOn.load(Order::ACQUIRE))
            sceneOf(data).rounds.fetch_add(1, Order::SEQ_CST);
        for (;;)
            GetThreadPriority(GetCurrentThread());
    });
    while (!scene.rounds.load(Order::ACQUIRE))
        Sleep(0); // until it has left the service that reported its beginning
    Runner killer([&] { return TerminateThread(victim, 7); });
    // While the killer waits, the process continues and the victim's handle can be used.
    EXPECT_EQ(GetThreadPriority(victim), THREAD_PRIORITY_NORMAL);
    EXPECT_EQ(WaitForSingleObject(victim, 0), WAIT_TIMEOUT);
    scene.isToGoOn.store(1L, Order::RELEASE);
    killer.join();
    EXPECT_EQ(killer.exitCode(), DWORD{TRUE});
    EXPECT_EQ(WaitForSingleObject(victim, LONG_TIME), WAIT_OBJECT_0);
    EXPECT_TRUE(CloseHandle(victim));
}

/// Not a test: the process of the test below.
TEST(PlatformSignals, DISABLED_NoneOfTheApplicationsIsTaken)
{
    std::vector<void (*)(int)> const before = handlers();
    for (int number = SIGRTMIN; number <= SIGRTMAX; ++number)
        EXPECT_EQ(before[static_cast<std::size_t>(number - 1)], SIG_DFL) << number;
    Scene scene;
    expectKilled(scene.start(computeForEver));
    EXPECT_EQ(handlers(), before);
}

TEST(PlatformSignals, NoneOfTheApplicationsIsTaken)
{
    ZV_NEEDS_THE_LIBRARYS_SIGNAL;
    runElsewhere("NoneOfTheApplicationsIsTaken");
}

/// Not a test: the process of the test below.
TEST(PlatformSignals, DISABLED_AnApplicationMayHandleOrIgnoreAll)
{
    for (auto handler : {SIG_IGN, +[](int) {}}) {
        struct sigaction action = {};
        action.sa_handler = handler;
        for (int number = 1; number <= SIGRTMAX; ++number)
            if (number != SIGCHLD)
                ::sigaction(number, &action, nullptr);
        Scene scene;
        expectKilled(scene.start(computeForEver));
        scene.object = scene.begun;
        EXPECT_TRUE(ResetEvent(scene.begun));
        Owned const never = manualEvent();
        scene.object = never;
        expectKilled(scene.start(waitForEver));
    }
}

TEST(PlatformSignals, AnApplicationMayHandleOrIgnoreAll)
{
    ZV_NEEDS_THE_LIBRARYS_SIGNAL;
    runElsewhere("AnApplicationMayHandleOrIgnoreAll");
}

/// Not a test: the process of the test below.
TEST(PlatformSignals, DISABLED_AnApplicationKeepsAllThatItHandles)
{
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    for (int number = SIGRTMIN; number <= SIGRTMAX; ++number)
        ::sigaction(number, &action, nullptr);
    std::vector<void (*)(int)> const before = handlers();
    Owned const never = manualEvent();
    Scene scene;
    scene.object = never;
    expectKilled(scene.start(waitForEver));
    EXPECT_EQ(handlers(), before);
}

TEST(PlatformSignals, AnApplicationKeepsAllThatItHandles)
{
    runElsewhere("AnApplicationKeepsAllThatItHandles");
}

TEST(PlatformSignals, TheLibraryStillGetsItsOwn)
{
    Scene scene;
    expectKilled(scene.start(computeForEver));
    Owned const go = manualEvent();
    Runner waiting([&] { return WaitForSingleObject(go, LONG_TIME); });
    Shared<long> isOver{0};
    Runner computing([&] {
        while (!isOver.load(Order::ACQUIRE)) {
        }
        return 0;
    });
    // The C library changes the user of each thread by a signal, and waits for all of them.
    EXPECT_EQ(::setresuid(::getuid(), ::geteuid(), static_cast<uid_t>(-1)), 0);
    isOver.store(1L, Order::RELEASE);
    EXPECT_TRUE(SetEvent(go));
    waiting.join();
    EXPECT_EQ(waiting.exitCode(), WAIT_OBJECT_0);
}

} // namespace ZvTest
