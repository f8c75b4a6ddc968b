// What the services on Linux do beyond Windows, or differently.
#include "platform/platformTest.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <ctime>
#include <pthread.h>
#include <sched.h>
#include <set>
#include <string>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ZvTest {

// The linker replaces the layer's calls of these functions by calls of the `__wrap_` functions
// below.

#if __SIZEOF_POINTER__ == 4 // the function for times of 64 bits
#define __real_clock_nanosleep __real___clock_nanosleep_time64
#define __wrap_clock_nanosleep __wrap___clock_nanosleep_time64
#endif

extern "C" int __real_sched_getaffinity(pid_t, std::size_t, cpu_set_t *);
extern "C" int __real_sched_setaffinity(pid_t, std::size_t, cpu_set_t const *);
extern "C" int __real_pthread_create(pthread_t *, pthread_attr_t const *, void *(*)(void *),
                                     void *);
extern "C" int __real_flock(int, int);
extern "C" int __real_clock_nanosleep(clockid_t, int, timespec const *, timespec *);
extern "C" long __real_sysconf(int);

namespace {

constexpr int MASK_BITS = sizeof(DWORD_PTR) * CHAR_BIT;

/// If this is not 0, the machine seems to have so many processors.
long nbPlayedProcessors = 0;
/// If this is not empty, every thread may run on these processors instead of those of the machine.
cpu_set_t playedProcessors{};
cpu_set_t lastSet{};
thread_local int refusal = 0; // error for the next thread

/// What another process has done to the locks of files, as the calling thread sees it.
enum class Files
{
    FREE,
    LOCKED,
    /// The calling thread is killed when it waits for the first time.
    DEADLY
};
thread_local Files files = Files::FREE;
/// Nanoseconds that threads have waited for locked files, and the number of pauses.
std::int64_t waitedForFiles = 0;
int nbPauses = 0;

bool isPlayed()
{
    return CPU_COUNT(&playedProcessors) != 0;
}

} // namespace

extern "C" int __wrap_sched_getaffinity(pid_t thread, std::size_t size, cpu_set_t *set)
{
    if (!isPlayed())
        return __real_sched_getaffinity(thread, size, set);
    *set = playedProcessors;
    return 0;
}

extern "C" int __wrap_sched_setaffinity(pid_t thread, std::size_t size, cpu_set_t const *set)
{
    if (!isPlayed())
        return __real_sched_setaffinity(thread, size, set);
    lastSet = *set;
    return 0;
}

extern "C" int __wrap_pthread_create(pthread_t *thread, pthread_attr_t const *attributes,
                                     void *(*function)(void *), void *argument)
{
    return refusal ? std::exchange(refusal, 0)
                   : __real_pthread_create(thread, attributes, function, argument);
}

extern "C" int __wrap_flock(int file, int operation)
{
    if (files == Files::FREE || operation == LOCK_UN)
        return __real_flock(file, operation);
    EXPECT_TRUE(operation & LOCK_NB) << "this call would never return";
    errno = EWOULDBLOCK;
    return -1;
}

extern "C" int __wrap_clock_nanosleep(clockid_t clock, int flags, timespec const *time,
                                      timespec *left)
{
    if (files == Files::FREE)
        return __real_clock_nanosleep(clock, flags, time, left);
    waitedForFiles += time->tv_nsec;
    ++nbPauses;
    if (files == Files::DEADLY)
        TerminateThread(GetCurrentThread(), 7);
    return 0;
}

extern "C" long __wrap_sysconf(int name)
{
    return name == _SC_NPROCESSORS_CONF && nbPlayedProcessors ? nbPlayedProcessors
                                                              : __real_sysconf(name);
}

// The layer keeps the mask of the process once the main thread has one of its own, so the next two
// tests need a process without such a thread.

TEST(PlatformThread, TheMaskOfTheSystemHasABitForEachProcessor)
{
    ChildProcess child = startElsewhere("PlatformThread.DISABLED_TheMaskOfTheSystem");
    expectSuccess(child);
}

TEST(PlatformThread, DISABLED_TheMaskOfTheSystem)
{
    CPU_SET(0, &playedProcessors);
    for (int count : {1, 31, 32, 40, 63, 64, 200}) {
        nbPlayedProcessors = count;
        DWORD_PTR process = 0, system = 0;
        EXPECT_SUCCEEDS(GetProcessAffinityMask(GetCurrentProcess(), &process, &system));
        EXPECT_EQ(process, 1u);
        EXPECT_EQ(system, count < MASK_BITS ? (DWORD_PTR{1} << count) - 1 : ~DWORD_PTR{0}) << count;
    }
    nbPlayedProcessors = 0;
    CPU_ZERO(&playedProcessors);
}

TEST(PlatformThread, TheMaskOfTheProcessAllowsAllItsProcessors)
{
    ChildProcess child = startElsewhere("PlatformThread.DISABLED_TheMaskOfTheProcess");
    expectSuccess(child);
}

TEST(PlatformThread, DISABLED_TheMaskOfTheProcess)
{
    Owned const go = manualEvent();
    Runner t([&] { return WaitForSingleObject(go, LONG_TIME); });
    for (int first : {0, MASK_BITS - 4, MASK_BITS, 100}) {
        cpu_set_t all;
        CPU_ZERO(&all);
        for (int i = first; i != first + 8; ++i)
            CPU_SET(i, &all);
        playedProcessors = all;
        DWORD_PTR process = 0, system = 0;
        EXPECT_SUCCEEDS(GetProcessAffinityMask(GetCurrentProcess(), &process, &system));
        EXPECT_EQ(process, first < MASK_BITS ? DWORD_PTR{0xFF} << first : 0);
        CPU_ZERO(&lastSet);
        EXPECT_NE(SetThreadAffinityMask(t.handle(), process), 0u);
        EXPECT_TRUE(CPU_EQUAL(&lastSet, &all)) << first;
        CPU_ZERO(&playedProcessors);
    }
    EXPECT_TRUE(SetEvent(go));
}

TEST(PlatformThread, ARefusalReportsWhetherThereIsMemory)
{
    refusal = EAGAIN;
    EXPECT_FAILS(ERROR_MAX_THRDS_REACHED,
                 CreateThread(
                     nullptr, 0x10000, [](void *) -> DWORD { return 0; }, nullptr, 0, nullptr));
    // On a machine of 32 bits, there may be memory for each size that is not refused at once.
    if constexpr (sizeof(SIZE_T) > 4) {
        refusal = EAGAIN;
        EXPECT_FAILS(
            ERROR_NOT_ENOUGH_MEMORY,
            CreateThread(
                nullptr, SIZE_MAX >> 17, [](void *) -> DWORD { return 0; }, nullptr, 0, nullptr));
    }
}

TEST(PlatformPriority, ARefusedThreadIsNoMissingPrivilege)
{
    // A thread finds out whether real-time operation is allowed.
    refusal = EAGAIN;
    EXPECT_FAILS(ERROR_MAX_THRDS_REACHED,
                 SetPriorityClass(GetCurrentProcess(), REALTIME_PRIORITY_CLASS));
    EXPECT_EQ(refusal, 0);
    EXPECT_EQ(GetPriorityClass(GetCurrentProcess()), NORMAL_PRIORITY_CLASS);
}

TEST(PlatformThread, IsMadeAlsoIfItsProcessorsAreGone)
{
    // The first attempt fails. The second one requests no processors.
    refusal = EINVAL;
    Runner t([] { return DWORD{3}; });
    t.join();
    EXPECT_EQ(t.exitCode(), 3u);
}

/// Not a test: the process of the test below.
TEST(PlatformMemory, DISABLED_LittleAddressSpaceIsEnough)
{
    Owned const go = manualEvent();
    std::vector<std::unique_ptr<Runner>> runners;
    std::vector<Owned> objects;
    for (int i = 0; i < 30; ++i)
        runners.push_back(
            std::make_unique<Runner>([&] { return WaitForSingleObject(go, LONG_TIME); }));
    for (int i = 0; i < 20000; ++i)
        objects.push_back(mutex());
    for (Owned const &each : objects)
        EXPECT_EQ(WaitForSingleObject(each, 0), WAIT_OBJECT_0);
    for (Owned const &each : objects)
        EXPECT_TRUE(ReleaseMutex(each));
    EXPECT_FAILS(ERROR_INVALID_HANDLE,
                 ReleaseMutex(static_cast<char *>(HANDLE{objects.back()}) + 1));
    EXPECT_TRUE(SetEvent(go));
}

TEST(PlatformMemory, LittleAddressSpaceIsEnough)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer takes more address space than any limit allows";
#endif
    pid_t const child = ::fork();
    if (child == 0) {
        rlimit const limit = {rlim_t{64} << 20, rlim_t{64} << 20};
        ::setrlimit(RLIMIT_AS, &limit);
        ::execl("/proc/self/exe", "test", "--gtest_filter=PlatformMemory.DISABLED_Little*",
                "--gtest_also_run_disabled_tests", "--gtest_brief=1", nullptr);
        ::_exit(127);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST(PlatformThread, TheFirst15BytesOfANameReachTheSystem)
{
    std::string seen[4];
    wchar_t const * const names[] = {L"short", L"a name of more than fifteen bytes",
                                     L"fourteen bytes\u00E9", L"\xDCF6\xDC80"};
    for (int i = 0; i < 4; ++i) {
        Runner t([&] {
            SetThreadDescription(GetCurrentThread(), names[i]);
            char text[16];
            ::pthread_getname_np(::pthread_self(), text, sizeof text);
            seen[i] = text;
            return 0;
        });
    }
    EXPECT_EQ(seen[0], "short");
    EXPECT_EQ(seen[1], "a name of more ");
    // A character is never cut in two.
    EXPECT_EQ(seen[2], "fourteen bytes");
    // These bytes are part of no character.
    EXPECT_EQ(seen[3], "\xF6\x80");
}

TEST(PlatformNames, ALockOfAnotherProcessDelaysASemaphoreForSecondsOnly)
{
    std::string const stem = "zvlinux-" + std::to_string(GetCurrentProcessId());
    Owned present(CreateSemaphoreA(nullptr, 0, 1, (stem + "-present").c_str()));
    std::string const name = stem + "-new";
    constexpr std::int64_t SECOND = 1'000'000'000;
    waitedForFiles = 0;
    files = Files::LOCKED;
    EXPECT_FAILS(ERROR_TIMEOUT, CreateSemaphoreA(nullptr, 0, 1, name.c_str()));
    EXPECT_GE(waitedForFiles, SECOND);
    EXPECT_LE(waitedForFiles, 10 * SECOND);
    EXPECT_FAILS(ERROR_TIMEOUT, OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, name.c_str()));
    // A semaphore is closed all the same. Only its file remains.
    present.close();
    files = Files::FREE;
    Owned const created(CreateSemaphoreA(nullptr, 0, 1, name.c_str()));
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    EXPECT_FAILS(ERROR_FILE_NOT_FOUND,
                 OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, (stem + "-present").c_str()));
}

TEST(PlatformNames, AThreadThatWaitsForALockOfAnotherProcessCanBeKilled)
{
    std::string const name = "zvlinux-deadly-" + std::to_string(GetCurrentProcessId());
    nbPauses = 0;
    Runner victim([&] {
        files = Files::DEADLY;
        CreateSemaphoreA(nullptr, 0, 1, name.c_str());
        return 1;
    });
    victim.join();
    EXPECT_EQ(victim.exitCode(), 7u);
    EXPECT_EQ(nbPauses, 1);
    // The names are free for the other threads.
    Owned const created(CreateSemaphoreA(nullptr, 0, 1, name.c_str()));
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
}

TEST(PlatformFls, ACallbackMayStoreInASlotThatComesLater)
{
    static DWORD slots[2];
    static int calls[2];
    static int value;
    slots[0] = FlsAlloc([](void *) {
        ++calls[0];
        FlsSetValue(slots[1], &value);
    });
    slots[1] = FlsAlloc([](void *) { ++calls[1]; });
    Runner([] { return FlsSetValue(slots[0], &value); }).join();
    EXPECT_EQ(calls[0], 1);
    EXPECT_EQ(calls[1], 1);
    for (DWORD slot : slots)
        EXPECT_TRUE(TlsFree(slot));
}

TEST(PlatformThread, AThreadMayEndByPthreadExit)
{
    Owned const m = mutex();
    Runner t([&]() -> DWORD {
        EXPECT_EQ(WaitForSingleObject(m, 0), WAIT_OBJECT_0);
        ::pthread_exit(nullptr);
    });
    t.join();
    EXPECT_EQ(t.exitCode(), 0u);
    EXPECT_EQ(WaitForSingleObject(m, 0), WAIT_ABANDONED);
    EXPECT_TRUE(ReleaseMutex(m));
}

TEST(PlatformThread, NumbersComeRoundAgain)
{
    // The block of a thread is freed, however the thread ends. Otherwise the numbers would run
    // out.
    Owned const never = manualEvent();
    std::set<DWORD> numbers;
    for (int i = 0; i < 400; ++i) {
        bool const isKilled = i % 2;
        Runner t(
            [&never, isKilled] { return isKilled ? WaitForSingleObject(never, INFINITE) : 0; });
        if (isKilled) {
            EXPECT_TRUE(TerminateThread(t.handle(), 0));
        }
        t.join();
        numbers.insert(t.number());
    }
    EXPECT_LT(numbers.size(), 200u);
}

TEST(PlatformThread, AFunctionIsNeeded)
{
    EXPECT_FAILS(ERROR_INVALID_PARAMETER, CreateThread(nullptr, 0, nullptr, nullptr, 0, nullptr));
}

TEST(PlatformThread, HasTheWholeRequestedStack)
{
    usesStack<0x1000000 - 0x100>(0x1000000);
}

TEST(PlatformTermination, IsOverWhenItReturns)
{
    for (int round = 0; round < 20; ++round) {
        Owned const begun = manualEvent();
        Runner t([&] {
            SetEvent(begun);
            return WaitForSingleObject(GetCurrentThread(), INFINITE);
        });
        WaitForSingleObject(begun, INFINITE);
        EXPECT_TRUE(TerminateThread(t.handle(), 0));
        EXPECT_EQ(WaitForSingleObject(t.handle(), 0), WAIT_OBJECT_0);
    }
}

namespace {

/// The C library keeps a large stack, together with its data of the thread, for the next thread
/// that wants one of that size.
constexpr SIZE_T LARGE = 0x1000000;

void killOneWithALargeStack()
{
    Owned const begun = manualEvent();
    Runner victim(
        [&] {
            SetEvent(begun);
            return WaitForSingleObject(GetCurrentThread(), INFINITE);
        },
        LARGE);
    WaitForSingleObject(begun, INFINITE);
    EXPECT_TRUE(TerminateThread(victim.handle(), 0));
}

void runAStrangerOnALargeStack()
{
    pthread_attr_t attributes;
    ::pthread_attr_init(&attributes);
    ::pthread_attr_setstacksize(&attributes, LARGE);
    pthread_t stranger;
    int const error = ::pthread_create(
        &stranger, &attributes, [](void *) -> void * { return nullptr; }, nullptr);
    ::pthread_attr_destroy(&attributes);
    ASSERT_EQ(error, 0);
    ::pthread_join(stranger, nullptr);
}

} // namespace

TEST(PlatformTermination, AThreadThatOthersMakeInItsPlaceIsNotTakenForIt)
{
    for (int round = 0; round < 50; ++round) {
        killOneWithALargeStack();
        Owned const go = manualEvent();
        // The new thread gets the victim's block, and the stranger may get the victim's stack.
        Runner successor([&] { return WaitForSingleObject(go, LONG_TIME); });
        runAStrangerOnALargeStack();
        EXPECT_EQ(WaitForSingleObject(successor.handle(), 0), WAIT_TIMEOUT);
        SetEvent(go);
    }
}

TEST(PlatformTermination, OneThatHasHardlyBegun)
{
    Owned const never = manualEvent();
    for (int round = 0; round < 100; ++round) {
        Owned const t(CreateThread(
            nullptr, 0x10000,
            [](void *data) -> DWORD {
                WaitForSingleObject(data, INFINITE);
                return 1;
            },
            HANDLE{never}, 0, nullptr));
        EXPECT_TRUE(TerminateThread(t, 2));
        DWORD code = 0;
        EXPECT_TRUE(GetExitCodeThread(t, &code));
        EXPECT_EQ(code, 2u);
    }
}

TEST(PlatformTermination, RacesWithTheThreadsOwnEnd)
{
    for (int round = 0; round < 200; ++round) {
        Owned const t(CreateThread(
            nullptr, 0x10000, [](void *) -> DWORD { return 1; }, nullptr, 0, nullptr));
        EXPECT_TRUE(TerminateThread(t, 2));
        EXPECT_EQ(WaitForSingleObject(t, 0), WAIT_OBJECT_0);
        DWORD code = 0;
        EXPECT_TRUE(GetExitCodeThread(t, &code));
        EXPECT_TRUE(code == 1 || code == 2);
    }
}

TEST(PlatformTermination, ASectionsWaitersAreNotForgotten)
{
    struct Scene
    {
        HANDLE begun;
        CRITICAL_SECTION section;
    };
    for (int round = 0; round < 50; ++round) {
        Owned const victimBegun = manualEvent(), begun = manualEvent();
        Scene scene = {victimBegun, {}};
        InitializeCriticalSection(&scene.section);
        EnterCriticalSection(&scene.section);
        Owned const victim(CreateThread(
            nullptr, 0x10000,
            [](void *data) -> DWORD {
                auto &own = *static_cast<Scene *>(data);
                SetEvent(own.begun);
                EnterCriticalSection(&own.section);
                LeaveCriticalSection(&own.section);
                return 0;
            },
            &scene, 0, nullptr));
        WaitForSingleObject(victimBegun, INFINITE);
        // A victim that is killed inside the section keeps it. It is therefore killed while this
        // thread owns the section.
        Runner behind([&] {
            SetEvent(begun);
            EnterCriticalSection(&scene.section);
            LeaveCriticalSection(&scene.section);
            return 0;
        });
        WaitForSingleObject(begun, INFINITE);
        EXPECT_TRUE(TerminateThread(victim, 0));
        LeaveCriticalSection(&scene.section);
    }
}

TEST(PlatformAddress, NoAddressIsRefused)
{
    long value = 0, same = 0;
    EXPECT_FAILS(ERROR_INVALID_PARAMETER, WaitOnAddress(nullptr, &same, sizeof value, 0));
    EXPECT_FAILS(ERROR_INVALID_PARAMETER, WaitOnAddress(&value, nullptr, sizeof value, 0));
}

TEST(PlatformFls, ItsIndexesAreThoseOfTls)
{
    int value = 0;
    EXPECT_FAILS(ERROR_INVALID_PARAMETER, FlsSetValue(1088, &value));
}

TEST(PlatformUuid, AStatusMayBeLeftOut)
{
    UUID one{}, two{};
    two.Data1 = 1;
    EXPECT_TRUE(UuidIsNil(&one, nullptr));
    EXPECT_TRUE(UuidEqual(&one, &one, nullptr));
    EXPECT_EQ(UuidCompare(&one, &two, nullptr), -1);
    EXPECT_EQ(UuidHash(&one, nullptr), UuidHash(&one, nullptr));
}

TEST(PlatformNames, APrefixAloneIsAPathToNothing)
{
    for (char const *nothing : {"Local\\", "Global\\"}) {
        EXPECT_FAILS(ERROR_PATH_NOT_FOUND, CreateMutexA(nullptr, FALSE, nothing));
        EXPECT_FAILS(ERROR_PATH_NOT_FOUND, CreateEventA(nullptr, TRUE, FALSE, nothing));
        EXPECT_FAILS(ERROR_PATH_NOT_FOUND, CreateSemaphoreA(nullptr, 0, 1, nothing));
        EXPECT_FAILS(ERROR_PATH_NOT_FOUND, CreateWaitableTimerA(nullptr, TRUE, nothing));
    }
}

TEST(PlatformTimer, ADueTimeIsNeeded)
{
    Owned const t(CreateWaitableTimerA(nullptr, TRUE, nullptr));
    EXPECT_FAILS(ERROR_INVALID_PARAMETER, SetWaitableTimer(t, nullptr, 0, nullptr, nullptr, FALSE));
}

TEST(PlatformTimer, CompletionRoutinesAreNotServed)
{
    Owned const t(CreateWaitableTimerA(nullptr, TRUE, nullptr));
    LARGE_INTEGER due;
    due.QuadPart = 0;
    int routine = 0;
    EXPECT_FAILS(ERROR_NOT_SUPPORTED, SetWaitableTimer(t, &due, 0, &routine, nullptr, FALSE));
}

TEST(PlatformMemory, MoreThanThereIsOfAddressesIsTooMuchMemory)
{
    for (SIZE_T tooMuch : {TOO_MUCH, SIZE_T{SIZE_MAX}})
        EXPECT_FAILS(ERROR_NOT_ENOUGH_MEMORY,
                     VirtualAlloc(nullptr, tooMuch, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE));
}

TEST(PlatformMemory, AStackIsNoReservation)
{
    int onStack = 0;
    EXPECT_FAILS(ERROR_INVALID_ADDRESS, VirtualFree(&onStack, 0, MEM_RELEASE));
    EXPECT_FAILS(ERROR_INVALID_ADDRESS, VirtualAlloc(&onStack, 1, MEM_COMMIT, PAGE_READWRITE));
}

} // namespace ZvTest
