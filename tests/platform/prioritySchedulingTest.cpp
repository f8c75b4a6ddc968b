// Levels and classes as Linux schedules them.
#include "platform/platformTest.h"

#include <algorithm>
#include <cerrno>
#include <linux/capability.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <atomic>
#include <map>
#include <mutex>
#include <thread>

namespace ZvTest {

namespace {

constexpr int LEVELS[] = {-15, -2, -1, 0, 1, 2, 15};

} // namespace

// The linker replaces the layer's calls of these functions by calls of the `__wrap_` functions
// below. A process that may not raise its limits cannot get a limit that lets it raise its threads
// half way, so these tests play such a kernel.

#if __SIZEOF_POINTER__ == 4 // the function for limits of 64 bits
#define __real_getrlimit __real_getrlimit64
#define __wrap_getrlimit __wrap_getrlimit64
#endif

extern "C" int __real_getrlimit(__rlimit_resource_t, rlimit *);
extern "C" int __real_getpriority(__priority_which_t, id_t);
extern "C" int __real_setpriority(__priority_which_t, id_t, int);

namespace {

/// Follows the kernel's rule: a nice value may rise, and may fall as far as the limit.
class PlayedKernel
{
public:
    explicit PlayedKernel(int lowestNice) : _lowest(lowestNice) { present = this; }
    ~PlayedKernel() { present = nullptr; }
    PlayedKernel(PlayedKernel const &) = delete;
    PlayedKernel &operator=(PlayedKernel const &) = delete;

    rlim_t getLimit() const { return static_cast<rlim_t>(20 - _lowest); }
    int setNice(id_t thread, int nice)
    {
        std::lock_guard const guard(_mutex);
        if (nice < _values[thread] && nice < _lowest) {
            errno = EACCES;
            return -1;
        }
        _values[thread] = nice;
        return 0;
    }
    int getNice(id_t thread)
    {
        std::lock_guard const guard(_mutex);
        return _values[thread];
    }

    static std::atomic<PlayedKernel *> present;

private:
    int const _lowest;
    std::mutex _mutex;
    std::map<id_t, int> _values;
};

std::atomic<PlayedKernel *> PlayedKernel::present{nullptr};
std::atomic<int> nbNiceCalls{0};

} // namespace

extern "C" int __wrap_getrlimit(__rlimit_resource_t resource, rlimit *limit)
{
    PlayedKernel * const kernel = PlayedKernel::present;
    if (!kernel || resource != RLIMIT_NICE)
        return __real_getrlimit(resource, limit);
    ++nbNiceCalls;
    *limit = {kernel->getLimit(), kernel->getLimit()};
    return 0;
}

extern "C" int __wrap_getpriority(__priority_which_t which, id_t who)
{
    PlayedKernel * const kernel = PlayedKernel::present;
    return kernel ? kernel->getNice(who ? who : static_cast<id_t>(::gettid()))
                  : __real_getpriority(which, who);
}

extern "C" int __wrap_setpriority(__priority_which_t which, id_t who, int nice)
{
    ++nbNiceCalls;
    PlayedKernel * const kernel = PlayedKernel::present;
    return kernel ? kernel->setNice(who, nice) : __real_setpriority(which, who, nice);
}

namespace {

struct Scheduling
{
    int policy = -1;
    int priority = -1;
    int nice = 100;

    bool operator==(Scheduling const &) const = default;
};

std::ostream &operator<<(std::ostream &out, Scheduling const &s)
{
    return out << "policy " << s.policy << " priority " << s.priority << " nice " << s.nice;
}

Scheduling ownScheduling()
{
    Scheduling result;
    sched_param parameter{};
    result.policy = ::sched_getscheduler(0);
    ::sched_getparam(0, &parameter);
    result.priority = parameter.sched_priority;
    result.nice = ::getpriority(PRIO_PROCESS, 0);
    return result;
}

/// A thread that reports its scheduling on each request.
class Informant
{
public:
    Scheduling ask()
    {
        SetEvent(_question);
        EXPECT_EQ(WaitForSingleObject(_answer, LONG_TIME), WAIT_OBJECT_0);
        return _scheduling;
    }
    HANDLE handle() const { return _runner.handle(); }
    ~Informant()
    {
        _stop = true;
        SetEvent(_question);
    }

private:
    bool _stop = false;
    Scheduling _scheduling;
    Owned _question = autoEvent(), _answer = autoEvent();
    Runner _runner{[this] {
        while (WaitForSingleObject(_question, LONG_TIME) == WAIT_OBJECT_0 && !_stop) {
            _scheduling = ownScheduling();
            SetEvent(_answer);
        }
        return 0;
    }};
};

bool isPrivileged()
{
    bool may = false;
    pthread_t probe;
    ::pthread_create(
        &probe, nullptr,
        [](void *result) -> void * {
            sched_param parameter{};
            parameter.sched_priority = 31;
            *static_cast<bool *>(result) = ::sched_setscheduler(0, SCHED_RR, &parameter) == 0 &&
                                           ::setpriority(PRIO_PROCESS, 0, -20) == 0;
            return nullptr;
        },
        &may);
    ::pthread_join(probe, nullptr);
    return may;
}

constexpr int NICE[][7] = {
    {14, 12, 10, 8, 6, 4, -14}, {14, 4, 2, 0, -2, -4, -14}, {14, -6, -8, -10, -12, -14, -14}};
constexpr DWORD CLASSES[] = {IDLE_PRIORITY_CLASS, NORMAL_PRIORITY_CLASS, HIGH_PRIORITY_CLASS};
constexpr int REAL_TIME[] = {16, 22, 23, 24, 25, 26, 31};

bool dropPrivileges()
{
    rlimit const none{0, 0};
    bool const limited =
        ::setrlimit(RLIMIT_RTPRIO, &none) == 0 && ::setrlimit(RLIMIT_NICE, &none) == 0;
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[2]{};
    return ::syscall(SYS_capset, &header, data) == 0 && limited;
}

/// Runs a disabled test in a process of its own, in which it gives up its privileges.
void passesElsewhere(char const *test)
{
    ChildProcess child = startElsewhere(test);
    expectSuccess(child);
}

} // namespace

TEST(PlatformPriority, LevelsBecomeNiceValuesOutsideRealTime)
{
    if (!isPrivileged())
        GTEST_SKIP() << "needs the right to raise priorities";
    Informant t;
    EXPECT_EQ(t.ask(), (Scheduling{SCHED_OTHER, 0, 0}));
    for (int c = 0; c < 3; ++c) {
        EXPECT_TRUE(SetPriorityClass(GetCurrentProcess(), CLASSES[c]));
        for (int level = 0; level < 7; ++level) {
            EXPECT_TRUE(SetThreadPriority(t.handle(), LEVELS[level]));
            EXPECT_EQ(t.ask(), (Scheduling{SCHED_OTHER, 0, NICE[c][level]})) << c << ' ' << level;
        }
    }
    EXPECT_TRUE(SetPriorityClass(GetCurrentProcess(), NORMAL_PRIORITY_CLASS));
}

TEST(PlatformPriority, LevelsBecomeRealTimePriorities)
{
    if (!isPrivileged())
        GTEST_SKIP() << "needs the right to run in real time";
    Scheduling const mine = ownScheduling();
    Informant t;
    EXPECT_TRUE(SetThreadPriority(t.handle(), THREAD_PRIORITY_HIGHEST));
    EXPECT_SUCCEEDS(SetPriorityClass(GetCurrentProcess(), REALTIME_PRIORITY_CLASS));
    EXPECT_EQ(GetPriorityClass(GetCurrentProcess()), REALTIME_PRIORITY_CLASS);
    EXPECT_EQ(t.ask().policy, SCHED_RR);
    EXPECT_EQ(t.ask().priority, 26);
    for (int level = 0; level < 7; ++level) {
        EXPECT_TRUE(SetThreadPriority(t.handle(), LEVELS[level]));
        EXPECT_EQ(t.ask().policy, SCHED_RR);
        EXPECT_EQ(t.ask().priority, REAL_TIME[level]);
        ZvPlatform::Scheduling read{};
        EXPECT_NE(readScheduling(t.handle(), read), 0u);
        EXPECT_TRUE(read.isRealTime);
        EXPECT_EQ(read.priority, REAL_TIME[level]);
    }
    // Threads that CreateThread has not made never change.
    EXPECT_EQ(ownScheduling(), mine);
    EXPECT_TRUE(SetPriorityClass(GetCurrentProcess(), NORMAL_PRIORITY_CLASS));
    EXPECT_EQ(t.ask(), (Scheduling{SCHED_OTHER, 0, -14}));
    EXPECT_TRUE(SetThreadPriority(t.handle(), THREAD_PRIORITY_NORMAL));
    EXPECT_EQ(t.ask(), (Scheduling{SCHED_OTHER, 0, 0}));
}

TEST(PlatformPriority, AThreadMadeInRealTimeRunsInRealTimeAndItsChildToo)
{
    if (!isPrivileged())
        GTEST_SKIP() << "needs the right to run in real time";
    EXPECT_TRUE(SetPriorityClass(GetCurrentProcess(), REALTIME_PRIORITY_CLASS));
    {
        Informant t;
        EXPECT_EQ(t.ask().policy, SCHED_RR);
        EXPECT_EQ(t.ask().priority, 24);
        Scheduling child;
        Runner parent([&] {
            EXPECT_TRUE(SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_TIME_CRITICAL));
            Informant inner;
            child = inner.ask();
            return 0;
        });
        parent.join();
        // A new thread has a level of its own, and does not inherit that of its parent.
        EXPECT_EQ(child.policy, SCHED_RR);
        EXPECT_EQ(child.priority, 24);
    }
    EXPECT_TRUE(SetPriorityClass(GetCurrentProcess(), NORMAL_PRIORITY_CLASS));
    Informant after;
    EXPECT_EQ(after.ask(), (Scheduling{SCHED_OTHER, 0, 0}));
}

TEST(PlatformPriority, ANewThreadDoesNotInheritItsParentsLevel)
{
    if (!isPrivileged())
        GTEST_SKIP() << "needs the right to raise priorities";
    Runner parent([] {
        EXPECT_TRUE(SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_IDLE));
        Informant child;
        EXPECT_EQ(child.ask(), (Scheduling{SCHED_OTHER, 0, 0}));
        return 0;
    });
}

TEST(PlatformPriority, ThreadsThatOthersMadeOnlyRememberTheirLevel)
{
    Scheduling const mine = ownScheduling();
    EXPECT_TRUE(SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_IDLE));
    EXPECT_EQ(GetThreadPriority(GetCurrentThread()), THREAD_PRIORITY_IDLE);
    EXPECT_EQ(ownScheduling(), mine);
    EXPECT_TRUE(SetPriorityClass(GetCurrentProcess(), IDLE_PRIORITY_CLASS));
    EXPECT_EQ(ownScheduling(), mine);
    EXPECT_TRUE(SetPriorityClass(GetCurrentProcess(), NORMAL_PRIORITY_CLASS));
    EXPECT_TRUE(SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_NORMAL));
}

TEST(PlatformPriority, DISABLED_RealTimeIsRefusedAndNothingHasChanged)
{
    ASSERT_TRUE(dropPrivileges());
    Informant t;
    Scheduling const before = t.ask();
    EXPECT_FAILS(ERROR_PRIVILEGE_NOT_HELD,
                 SetPriorityClass(GetCurrentProcess(), REALTIME_PRIORITY_CLASS));
    EXPECT_EQ(GetPriorityClass(GetCurrentProcess()), NORMAL_PRIORITY_CLASS);
    EXPECT_EQ(t.ask(), before);
}

TEST(PlatformPriority, WithoutPrivilegeRealTimeIsRefusedAndNothingHasChanged)
{
    passesElsewhere("PlatformPriority.DISABLED_RealTimeIsRefusedAndNothingHasChanged");
}

TEST(PlatformPriority, DISABLED_EveryLevelIsAcceptedAndNoneChangesAThread)
{
    ASSERT_TRUE(dropPrivileges());
    Informant t;
    Scheduling const before = t.ask();
    for (DWORD priorityClass : CLASSES) {
        EXPECT_SUCCEEDS(SetPriorityClass(GetCurrentProcess(), priorityClass));
        for (int level : LEVELS) {
            EXPECT_SUCCEEDS(SetThreadPriority(t.handle(), level));
            EXPECT_EQ(GetThreadPriority(t.handle()), level);
            EXPECT_EQ(t.ask(), before);
        }
    }
}

TEST(PlatformPriority, WithoutPrivilegeEveryLevelIsAcceptedAndNoneChangesAThread)
{
    // The thread may not be raised. It is not lowered either, because it could not be raised again.
    passesElsewhere("PlatformPriority.DISABLED_EveryLevelIsAcceptedAndNoneChangesAThread");
}

TEST(PlatformPriority, DISABLED_AThreadOfANicedProcessRunsAtItsLevel)
{
    ASSERT_EQ(::setpriority(PRIO_PROCESS, 0, 5), 0);
    Scheduling const mine = ownScheduling();
    Informant t;
    EXPECT_EQ(t.ask(), (Scheduling{SCHED_OTHER, 0, 0}));
    EXPECT_SUCCEEDS(SetThreadPriority(t.handle(), THREAD_PRIORITY_LOWEST));
    EXPECT_EQ(t.ask(), (Scheduling{SCHED_OTHER, 0, 4}));
    Runner parent([] {
        Informant child;
        EXPECT_EQ(child.ask(), (Scheduling{SCHED_OTHER, 0, 0}));
        return 0;
    });
    parent.join();
    EXPECT_EQ(ownScheduling(), mine);
    EXPECT_EQ(mine.nice, 5);
}

TEST(PlatformPriority, AThreadOfANicedProcessRunsAtItsLevel)
{
    if (!isPrivileged())
        GTEST_SKIP() << "needs the right to raise priorities";
    passesElsewhere("PlatformPriority.DISABLED_AThreadOfANicedProcessRunsAtItsLevel");
}

TEST(PlatformPriority, DISABLED_AThreadOfANicedProcessStays)
{
    ASSERT_TRUE(dropPrivileges());
    int const nice = std::min(ownScheduling().nice + 5, 19);
    ASSERT_EQ(::setpriority(PRIO_PROCESS, 0, nice), 0);
    Informant t;
    Scheduling const before = t.ask();
    EXPECT_EQ(before.nice, nice);
    for (int level : LEVELS) {
        EXPECT_SUCCEEDS(SetThreadPriority(t.handle(), level));
        EXPECT_EQ(t.ask(), before) << level;
    }
}

TEST(PlatformPriority, WithoutPrivilegeAThreadOfANicedProcessStays)
{
    passesElsewhere("PlatformPriority.DISABLED_AThreadOfANicedProcessStays");
}

TEST(PlatformPriority, DISABLED_AThreadDoesNotInheritThePolicyOfTheApplication)
{
    for (int policy : {SCHED_FIFO, SCHED_RR, SCHED_BATCH, SCHED_IDLE}) {
        sched_param parameter{};
        parameter.sched_priority = ::sched_get_priority_min(policy);
        ASSERT_EQ(::sched_setscheduler(0, policy, &parameter), 0) << policy;
        Informant t;
        EXPECT_EQ(t.ask(), (Scheduling{SCHED_OTHER, 0, 0})) << policy;
        EXPECT_SUCCEEDS(SetPriorityClass(GetCurrentProcess(), REALTIME_PRIORITY_CLASS));
        EXPECT_EQ(t.ask().policy, SCHED_RR);
        EXPECT_EQ(t.ask().priority, 24);
        EXPECT_SUCCEEDS(SetPriorityClass(GetCurrentProcess(), NORMAL_PRIORITY_CLASS));
        EXPECT_EQ(::sched_getscheduler(0), policy);
    }
}

TEST(PlatformPriority, AThreadDoesNotInheritThePolicyOfTheApplication)
{
    if (!isPrivileged())
        GTEST_SKIP() << "needs the right to run in real time";
    passesElsewhere("PlatformPriority.DISABLED_AThreadDoesNotInheritThePolicyOfTheApplication");
}

TEST(PlatformPriority, DISABLED_APolicyThatCannotBeLeftIsKept)
{
    sched_param const parameter{};
    ASSERT_EQ(::sched_setscheduler(0, SCHED_IDLE, &parameter), 0);
    ASSERT_TRUE(dropPrivileges());
    Informant t;
    Scheduling const before = t.ask();
    EXPECT_EQ(before.policy, SCHED_IDLE);
    for (DWORD priorityClass : CLASSES) {
        EXPECT_SUCCEEDS(SetPriorityClass(GetCurrentProcess(), priorityClass));
        EXPECT_SUCCEEDS(SetThreadPriority(t.handle(), THREAD_PRIORITY_HIGHEST));
        EXPECT_EQ(t.ask(), before);
        EXPECT_SUCCEEDS(SetThreadPriority(t.handle(), THREAD_PRIORITY_NORMAL));
    }
}

TEST(PlatformPriority, WithoutPrivilegeAPolicyThatCannotBeLeftIsKept)
{
    passesElsewhere("PlatformPriority.DISABLED_APolicyThatCannotBeLeftIsKept");
}

namespace {

/// A thread that runs until the end of the test, on a kernel that is played.
struct Subject
{
    explicit Subject(int lowestNice) : kernel(lowestNice)
    {
        WaitForSingleObject(begun, INFINITE);
        nbNiceCalls = 0;
    }
    ~Subject() { SetEvent(go); }

    int niceAt(int level)
    {
        EXPECT_SUCCEEDS(SetThreadPriority(runner.handle(), level));
        EXPECT_EQ(GetThreadPriority(runner.handle()), level);
        return kernel.getNice(id);
    }

    PlayedKernel kernel;
    id_t id = 0;
    /// Returns the nice value that the layer reads.
    int readNice() const
    {
        ZvPlatform::Scheduling read{true, 100};
        EXPECT_EQ(readScheduling(runner.handle(), read), id);
        EXPECT_FALSE(read.isRealTime);
        return read.priority;
    }

    Owned go = manualEvent(), begun = manualEvent();
    Runner runner{[this] {
        id = static_cast<id_t>(::syscall(SYS_gettid));
        SetEvent(begun);
        return WaitForSingleObject(go, LONG_TIME);
    }};
};

} // namespace

TEST(PlatformPriority, WithALimitTheNearestLevelIsKept)
{
    Subject t(-5);
    EXPECT_EQ(t.niceAt(THREAD_PRIORITY_ABOVE_NORMAL), -2);
    EXPECT_EQ(t.niceAt(THREAD_PRIORITY_TIME_CRITICAL), -5);
    EXPECT_EQ(t.niceAt(THREAD_PRIORITY_IDLE), 14);
    EXPECT_EQ(t.niceAt(THREAD_PRIORITY_NORMAL), 0);
    EXPECT_EQ(t.niceAt(THREAD_PRIORITY_TIME_CRITICAL), -5);
    EXPECT_EQ(t.niceAt(THREAD_PRIORITY_HIGHEST), -4);
}

TEST(PlatformPriority, WhatTheSystemHasGrantedIsRead)
{
    Subject t(-5);
    EXPECT_EQ(t.niceAt(THREAD_PRIORITY_TIME_CRITICAL), -5);
    EXPECT_EQ(t.readNice(), -5);
    ZvPlatform::Scheduling const asked =
        schedulingOf(NORMAL_PRIORITY_CLASS, THREAD_PRIORITY_TIME_CRITICAL);
    EXPECT_FALSE(asked.isRealTime);
    EXPECT_EQ(asked.priority, -14);
    EXPECT_EQ(t.niceAt(THREAD_PRIORITY_IDLE), 14);
    EXPECT_EQ(t.readNice(), 14);
    // A change by another process is seen.
    EXPECT_EQ(t.kernel.setNice(t.id, 17), 0);
    EXPECT_EQ(t.readNice(), 17);
}

TEST(PlatformPriority, WhatALevelAsksForDependsOnTheClass)
{
    for (int level = 0; level < 7; ++level) {
        for (int c = 0; c < 3; ++c) {
            ZvPlatform::Scheduling const asked = schedulingOf(CLASSES[c], LEVELS[level]);
            EXPECT_FALSE(asked.isRealTime);
            EXPECT_EQ(asked.priority, NICE[c][level]) << c << ' ' << level;
        }
        ZvPlatform::Scheduling const asked = schedulingOf(REALTIME_PRIORITY_CLASS, LEVELS[level]);
        EXPECT_TRUE(asked.isRealTime);
        EXPECT_EQ(asked.priority, REAL_TIME[level]);
    }
}

TEST(PlatformPriority, AThreadThatHasEndedHasNoScheduling)
{
    ZvPlatform::Scheduling read{true, 100};
    Runner t([] { return 0; });
    t.join();
    EXPECT_EQ(readScheduling(t.handle(), read), 0u);
    EXPECT_TRUE(read.isRealTime);
    EXPECT_EQ(read.priority, 100);
    EXPECT_EQ(readScheduling(GetCurrentThread(), read), static_cast<DWORD>(::gettid()));
    EXPECT_EQ(readScheduling(nullptr, read), 0u);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

TEST(PlatformPriority, WithALimitThatJustLetsItComeBackAThreadIsLowered)
{
    Subject t(0);
    EXPECT_EQ(t.niceAt(THREAD_PRIORITY_IDLE), 14);
    EXPECT_EQ(t.niceAt(THREAD_PRIORITY_LOWEST), 4);
    EXPECT_EQ(t.niceAt(THREAD_PRIORITY_NORMAL), 0);
    EXPECT_EQ(t.niceAt(THREAD_PRIORITY_HIGHEST), 0);
}

TEST(PlatformPriority, AThreadThatCouldNotComeBackIsNotLowered)
{
    Subject t(1);
    EXPECT_EQ(t.niceAt(THREAD_PRIORITY_IDLE), 0);
    EXPECT_EQ(t.niceAt(THREAD_PRIORITY_TIME_CRITICAL), 0);
}

TEST(PlatformPriority, ALevelThatDoesNotChangeMakesNoSystemCall)
{
    Subject t(-20);
    EXPECT_EQ(t.niceAt(THREAD_PRIORITY_NORMAL), 0);
    EXPECT_EQ(nbNiceCalls, 0);
    EXPECT_EQ(t.niceAt(THREAD_PRIORITY_IDLE), 14);
    EXPECT_EQ(nbNiceCalls, 2); // one tries whether the thread could be raised again
    EXPECT_EQ(t.niceAt(THREAD_PRIORITY_IDLE), 14);
    EXPECT_EQ(nbNiceCalls, 2);
    EXPECT_EQ(t.niceAt(THREAD_PRIORITY_NORMAL), 0);
    EXPECT_EQ(nbNiceCalls, 3);
    Runner child([] { return 0; });
    child.join();
    EXPECT_EQ(nbNiceCalls, 3);
}

TEST(PlatformPriority, ThreadsOfOthersThatComeAndGoMeanwhileDoNotChange)
{
    Scheduling const mine = ownScheduling();
    std::atomic<bool> isOver{false};
    std::thread strangers([&] {
        while (!isOver)
            std::thread([&mine] {
                EXPECT_NE(GetCurrentThreadId(), 0u);
                EXPECT_EQ(ownScheduling(), mine);
            }).join();
    });
    for (int round = 0; round < 100; ++round) {
        for (DWORD priorityClass : {IDLE_PRIORITY_CLASS, HIGH_PRIORITY_CLASS}) {
            EXPECT_TRUE(SetPriorityClass(GetCurrentProcess(), priorityClass));
            Runner t([] { return 0; });
        }
    }
    EXPECT_TRUE(SetPriorityClass(GetCurrentProcess(), NORMAL_PRIORITY_CLASS));
    isOver = true;
    strangers.join();
}

} // namespace ZvTest
