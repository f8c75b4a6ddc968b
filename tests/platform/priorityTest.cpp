#include "platform/platformTest.h"

#ifndef _WIN32
#include <algorithm>
#include <cerrno>
#include <linux/capability.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#endif

using namespace ZvTest;

namespace {

constexpr int LEVELS[] = {-15, -2, -1, 0, 1, 2, 15};

/// A thread that stays until the test ends.
struct Waiting
{
    Owned go = manualEvent();
    Runner runner{[this] { return WaitForSingleObject(go, LONG_TIME); }};
    ~Waiting() { SetEvent(go); }
    HANDLE handle() const { return runner.handle(); }
};

} // namespace

TEST(PlatformPriority, EveryLevelIsRememberedAsAskedFor)
{
    Waiting t;
    EXPECT_EQ(GetThreadPriority(t.handle()), THREAD_PRIORITY_NORMAL);
    for (int level : LEVELS) {
        EXPECT_SUCCEEDS(SetThreadPriority(t.handle(), level));
        EXPECT_EQ(GetThreadPriority(t.handle()), level);
    }
}

TEST(PlatformPriority, OtherLevelsAreRefusedAndChangeNothing)
{
    Waiting t;
    EXPECT_TRUE(SetThreadPriority(t.handle(), THREAD_PRIORITY_HIGHEST));
    for (int level : {-16, -14, -3, 3, 14, 16, 1000, THREAD_PRIORITY_ERROR_RETURN}) {
        EXPECT_FAILS(ERROR_INVALID_PARAMETER, SetThreadPriority(t.handle(), level));
        EXPECT_EQ(GetThreadPriority(t.handle()), THREAD_PRIORITY_HIGHEST);
    }
}

TEST(PlatformPriority, BadHandlesFail)
{
    Owned const e = manualEvent();
    for (HANDLE bad : {HANDLE{nullptr}, INVALID, HANDLE{e}}) {
        EXPECT_FAILS(ERROR_INVALID_HANDLE, SetThreadPriority(bad, 0));
        SetLastError(UNTOUCHED);
        EXPECT_EQ(GetThreadPriority(bad), THREAD_PRIORITY_ERROR_RETURN);
        EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    }
    EXPECT_FAILS(ERROR_INVALID_HANDLE, SetPriorityClass(e, NORMAL_PRIORITY_CLASS));
    EXPECT_FAILS(ERROR_INVALID_HANDLE, GetPriorityClass(nullptr));
}

TEST(PlatformPriority, AnEndedThreadStillHasItsLevel)
{
    Runner t([] { return 0; });
    t.join();
    EXPECT_TRUE(SetThreadPriority(t.handle(), THREAD_PRIORITY_LOWEST));
    EXPECT_EQ(GetThreadPriority(t.handle()), THREAD_PRIORITY_LOWEST);
    EXPECT_FAILS(ERROR_INVALID_PARAMETER, SetThreadPriority(t.handle(), 3));
}

TEST(PlatformPriority, OwnLevelThroughThePseudoHandle)
{
    Runner t([] {
        EXPECT_TRUE(SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_ABOVE_NORMAL));
        EXPECT_EQ(GetThreadPriority(GetCurrentThread()), THREAD_PRIORITY_ABOVE_NORMAL);
        return 0;
    });
    t.join();
    EXPECT_EQ(GetThreadPriority(t.handle()), THREAD_PRIORITY_ABOVE_NORMAL);
}

TEST(PlatformPriority, ClassesAreReadBackAndOthersRefused)
{
    EXPECT_EQ(GetPriorityClass(GetCurrentProcess()), NORMAL_PRIORITY_CLASS);
    for (DWORD priorityClass : {IDLE_PRIORITY_CLASS, HIGH_PRIORITY_CLASS, NORMAL_PRIORITY_CLASS}) {
        EXPECT_SUCCEEDS(SetPriorityClass(GetCurrentProcess(), priorityClass));
        EXPECT_EQ(GetPriorityClass(GetCurrentProcess()), priorityClass);
    }
    for (DWORD priorityClass : {0u, 1u, 33u, 512u})
        EXPECT_FAILS(ERROR_INVALID_PARAMETER, SetPriorityClass(GetCurrentProcess(), priorityClass));
    EXPECT_EQ(GetPriorityClass(GetCurrentProcess()), NORMAL_PRIORITY_CLASS);
}

#ifndef _WIN32

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

/// A thread that says how it is scheduled each time that it is asked.
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

bool isCapable(unsigned capability)
{
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[2]{};
    return ::syscall(SYS_capget, &header, data) == 0 &&
           data[capability / 32].effective >> capability % 32 & 1;
}

constexpr int NICE[][7] = {
    {14, 12, 10, 8, 6, 4, -14}, {14, 4, 2, 0, -2, -4, -14}, {14, -6, -8, -10, -12, -14, -14}};
constexpr DWORD CLASSES[] = {IDLE_PRIORITY_CLASS, NORMAL_PRIORITY_CLASS, HIGH_PRIORITY_CLASS};
constexpr int REAL_TIME[] = {16, 22, 23, 24, 25, 26, 31};

/// Gives up every privilege but nice values down to 20 - `niceLimit`. False when that limit cannot be set.
bool dropPrivileges(rlim_t niceLimit)
{
    rlimit const none{0, 0}, nice{niceLimit, niceLimit};
    bool const limited =
        ::setrlimit(RLIMIT_RTPRIO, &none) == 0 && ::setrlimit(RLIMIT_NICE, &nice) == 0;
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[2]{};
    return ::syscall(SYS_capset, &header, data) == 0 && limited;
}

/// Runs a disabled test in a process of its own, which is to give up its privileges.
void passesElsewhere(char const *test)
{
    int const status = statusOf(startElsewhere(test));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
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
    }
    // Threads that others made never change.
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
        // A new thread's level is its own, not its parent's.
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
    ASSERT_TRUE(dropPrivileges(0));
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
    ASSERT_TRUE(dropPrivileges(0));
    Informant t;
    for (DWORD priorityClass : CLASSES) {
        EXPECT_SUCCEEDS(SetPriorityClass(GetCurrentProcess(), priorityClass));
        for (int level : LEVELS) {
            EXPECT_SUCCEEDS(SetThreadPriority(t.handle(), level));
            EXPECT_EQ(GetThreadPriority(t.handle()), level);
            EXPECT_EQ(t.ask(), (Scheduling{SCHED_OTHER, 0, 0}));
        }
    }
}

TEST(PlatformPriority, WithoutPrivilegeEveryLevelIsAcceptedAndNoneChangesAThread)
{
    // It may not be raised, and is not lowered because it could not be raised again.
    passesElsewhere("PlatformPriority.DISABLED_EveryLevelIsAcceptedAndNoneChangesAThread");
}

TEST(PlatformPriority, DISABLED_TheNearestLevelIsKept)
{
    // Nice values from -5 on are allowed.
    ASSERT_TRUE(dropPrivileges(25));
    Informant t;
    EXPECT_TRUE(SetThreadPriority(t.handle(), THREAD_PRIORITY_ABOVE_NORMAL));
    EXPECT_EQ(t.ask().nice, -2);
    EXPECT_TRUE(SetThreadPriority(t.handle(), THREAD_PRIORITY_TIME_CRITICAL));
    EXPECT_EQ(t.ask().nice, -5);
    EXPECT_EQ(GetThreadPriority(t.handle()), THREAD_PRIORITY_TIME_CRITICAL);
    EXPECT_TRUE(SetThreadPriority(t.handle(), THREAD_PRIORITY_IDLE));
    EXPECT_EQ(t.ask().nice, 14);
    EXPECT_TRUE(SetThreadPriority(t.handle(), THREAD_PRIORITY_NORMAL));
    EXPECT_EQ(t.ask().nice, 0);
}

TEST(PlatformPriority, WithALimitTheNearestLevelIsKept)
{
    rlimit limit{};
    ::getrlimit(RLIMIT_NICE, &limit);
    if (limit.rlim_max < 25 && !isCapable(CAP_SYS_RESOURCE))
        GTEST_SKIP() << "needs the right to raise the limit of nice values";
    passesElsewhere("PlatformPriority.DISABLED_TheNearestLevelIsKept");
}

#endif
