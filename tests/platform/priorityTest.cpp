#include "platform/platformTest.h"

namespace ZvTest {

namespace {

constexpr int LEVELS[] = {-15, -2, -1, 0, 1, 2, 15};

/// A thread that runs until the end of the test.
struct Waiting
{
    Owned go = manualEvent();
    Runner runner{[this] { return WaitForSingleObject(go, LONG_TIME); }};
    ~Waiting() { SetEvent(go); }
    HANDLE handle() const { return runner.handle(); }
};

} // namespace

TEST(PlatformPriority, EveryLevelIsRememberedAsRequested)
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

} // namespace ZvTest
