#include "platform/platformTest.h"

#include <atomic>
#include <cstring>
#include <set>
#include <thread>

namespace ZvTest {

namespace {

DWORD returnArgument(void *argument)
{
    return static_cast<DWORD>(reinterpret_cast<std::uintptr_t>(argument));
}

} // namespace

TEST(PlatformThread, GetsItsArgumentAndLeavesAnExitCode)
{
    DWORD number = 0;
    Owned const t(CreateThread(nullptr, 0, returnArgument,
                               reinterpret_cast<void *>(std::uintptr_t{42}), 0, &number));
    EXPECT_NE(number, 0u);
    EXPECT_NE(number, GetCurrentThreadId());
    EXPECT_EQ(WaitForSingleObject(t, LONG_TIME), WAIT_OBJECT_0);
    // The handle stays signalled.
    EXPECT_EQ(WaitForSingleObject(t, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(t, INFINITE), WAIT_OBJECT_0);
    DWORD code = 0;
    EXPECT_SUCCEEDS(GetExitCodeThread(t, &code));
    EXPECT_EQ(code, 42u);
}

TEST(PlatformThread, ItsHandleIsNotSignalledWhileItRuns)
{
    Owned const go = manualEvent();
    Runner t([&] { return WaitForSingleObject(go, LONG_TIME); });
    EXPECT_EQ(WaitForSingleObject(t.handle(), 0), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(t.handle(), 1), WAIT_TIMEOUT);
    EXPECT_EQ(t.exitCode(), STILL_ACTIVE);
    SetEvent(go);
    t.join();
    EXPECT_EQ(t.exitCode(), WAIT_OBJECT_0);
}

TEST(PlatformThread, HasTheNumberThatItsCreatorGot)
{
    DWORD inside = 0;
    Runner t([&] {
        inside = GetCurrentThreadId();
        return 0;
    });
    t.join();
    EXPECT_EQ(inside, t.number());
}

TEST(PlatformThread, NumbersOfRunningThreadsDiffer)
{
    Owned const go = manualEvent();
    std::vector<std::unique_ptr<Runner>> runners;
    std::set<DWORD> numbers{GetCurrentThreadId()};
    for (int i = 0; i < 50; ++i) {
        runners.push_back(
            std::make_unique<Runner>([&] { return WaitForSingleObject(go, LONG_TIME); }));
        numbers.insert(runners.back()->number());
    }
    EXPECT_EQ(numbers.size(), 51u);
    EXPECT_EQ(numbers.count(0), 0u);
    SetEvent(go);
}

TEST(PlatformThread, ANumberIsNotGivenOutAnewWhileAHandleIsOpen)
{
    // This holds even if the thread has ended or was killed. The owner of a handle may know the
    // thread by its number.
    Owned const begun = autoEvent(), never = manualEvent();
    std::vector<std::unique_ptr<Runner>> ended;
    std::set<DWORD> numbers{GetCurrentThreadId()};
    for (int i = 0; i < 20; ++i) {
        bool const isKilled = i % 4 == 3;
        ended.push_back(std::make_unique<Runner>([&, isKilled] {
            SetEvent(begun);
            return isKilled ? WaitForSingleObject(never, INFINITE) : 0;
        }));
        WaitForSingleObject(begun, INFINITE);
        if (isKilled) {
            EXPECT_TRUE(TerminateThread(ended.back()->handle(), 0));
        }
        ended.back()->join();
        EXPECT_TRUE(numbers.insert(ended.back()->number()).second) << i;
    }
}

TEST(PlatformThread, AHandleMayBeClosedWhileTheThreadRuns)
{
    Owned const begun = manualEvent(), go = manualEvent(), done = manualEvent();
    struct Events
    {
        HANDLE begun, go, done;
    } all{begun, go, done};
    HANDLE const t = CreateThread(
        nullptr, 0x10000,
        [](void *data) -> DWORD {
            auto const events = *static_cast<Events *>(data);
            SetEvent(events.begun);
            WaitForSingleObject(events.go, LONG_TIME);
            SetEvent(events.done);
            return 0;
        },
        &all, 0, nullptr);
    // Waits until the thread has begun. Its beginning may make handles, and the system may reuse
    // the value of the closed one.
    WaitForSingleObject(begun, INFINITE);
    EXPECT_SUCCEEDS(CloseHandle(t));
    EXPECT_FAILS(ERROR_INVALID_HANDLE, CloseHandle(t));
    EXPECT_WAIT_FAILS(WaitForSingleObject(t, 0));
    SetEvent(go);
    EXPECT_EQ(WaitForSingleObject(done, LONG_TIME), WAIT_OBJECT_0);
}

TEST(PlatformThread, ManyMayWaitForOne)
{
    Owned const go = manualEvent();
    Runner t([&] { return WaitForSingleObject(go, LONG_TIME); });
    std::vector<std::unique_ptr<Runner>> waiters;
    for (int i = 0; i < 5; ++i)
        waiters.push_back(std::make_unique<Runner>([&] {
            EXPECT_EQ(WaitForSingleObject(t.handle(), LONG_TIME), WAIT_OBJECT_0);
            return 0;
        }));
    SetEvent(go);
}

TEST(PlatformThread, CreationThatCannotBe)
{
    EXPECT_FAILS(ERROR_NOT_ENOUGH_MEMORY,
                 CreateThread(nullptr, TOO_MUCH, returnArgument, nullptr, 0, nullptr));
    EXPECT_FAILS(ERROR_NOT_ENOUGH_MEMORY,
                 CreateThread(nullptr, STILL_TOO_MUCH, returnArgument, nullptr, 0, nullptr));
}

TEST(PlatformThread, AnUnknownFlagIsRefused)
{
    EXPECT_FAILS(ERROR_INVALID_PARAMETER,
                 CreateThread(nullptr, 0, returnArgument, nullptr, 0x80000000, nullptr));
}

TEST(PlatformThread, TheReservationFlagIsAccepted)
{
    Owned const t(CreateThread(nullptr, 0x10000, returnArgument, nullptr,
                               STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr));
    EXPECT_EQ(WaitForSingleObject(t, LONG_TIME), WAIT_OBJECT_0);
}

TEST(PlatformThread, HasTheRequestedStack)
{
    // 0x100 bytes are for the frame's own needs. A large stack has its guard inside, if the system
    // puts it there.
    usesStack<0x4000 - 0x100>(0x4000);
    usesStack<0x10000 - 0x100>(0x10000);
    usesStack<0x1000000 - 0x10000>(0x1000000);
    usesStack<0x100000 - 0x1000>(0);
}

TEST(PlatformThread, ManyComeAndGo)
{
    std::atomic<int> ran{0};
    for (int round = 0; round < 20; ++round) {
        std::vector<std::unique_ptr<Runner>> runners;
        for (int i = 0; i < 20; ++i)
            runners.push_back(std::make_unique<Runner>([&] {
                ++ran;
                return 0;
            }));
    }
    EXPECT_EQ(ran, 400);
}

TEST(PlatformThread, PseudoHandles)
{
    DWORD code = 0;
    EXPECT_SUCCEEDS(GetExitCodeThread(GetCurrentThread(), &code));
    EXPECT_EQ(code, STILL_ACTIVE);
    EXPECT_EQ(WaitForSingleObject(GetCurrentThread(), 0), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(GetCurrentThread(), 1), WAIT_TIMEOUT);
    // The process waits for its own end.
    EXPECT_EQ(WaitForSingleObject(GetCurrentProcess(), 0), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(GetCurrentProcess(), 1), WAIT_TIMEOUT);
    EXPECT_SUCCEEDS(CloseHandle(GetCurrentThread()));
    EXPECT_SUCCEEDS(CloseHandle(GetCurrentProcess()));
    EXPECT_EQ(GetCurrentThread(), reinterpret_cast<HANDLE>(std::intptr_t{-2}));
    EXPECT_EQ(GetCurrentProcess(), reinterpret_cast<HANDLE>(std::intptr_t{-1}));
}

TEST(PlatformThread, ADuplicateOfThePseudoHandleIsGoodEverywhere)
{
    HANDLE self = nullptr;
    ASSERT_TRUE(DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &self,
                                0, FALSE, DUPLICATE_SAME_ACCESS));
    EXPECT_EQ(waitElsewhere(self, 0), WAIT_TIMEOUT);
    HANDLE again = nullptr;
    ASSERT_TRUE(DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(),
                                &again, 0, FALSE, DUPLICATE_SAME_ACCESS));
    EXPECT_TRUE(CloseHandle(self));
    EXPECT_EQ(waitElsewhere(again, 0), WAIT_TIMEOUT);
    EXPECT_TRUE(CloseHandle(again));
    // One more handle, after the last one has been closed.
    ASSERT_TRUE(DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &self,
                                0, FALSE, DUPLICATE_SAME_ACCESS));
    EXPECT_EQ(waitElsewhere(self, 1), WAIT_TIMEOUT);
    EXPECT_TRUE(CloseHandle(self));
}

TEST(PlatformThread, ADuplicateIsClosedByItself)
{
    HANDLE source = CreateEventA(nullptr, TRUE, TRUE, nullptr), copy = nullptr;
    EXPECT_SUCCEEDS(DuplicateHandle(GetCurrentProcess(), source, GetCurrentProcess(), &copy, 0,
                                    FALSE, DUPLICATE_SAME_ACCESS));
    EXPECT_TRUE(CloseHandle(source));
    EXPECT_EQ(WaitForSingleObject(copy, 0), WAIT_OBJECT_0);
    HANDLE moved = nullptr;
    EXPECT_TRUE(DuplicateHandle(GetCurrentProcess(), copy, GetCurrentProcess(), &moved, 0, FALSE,
                                DUPLICATE_SAME_ACCESS | DUPLICATE_CLOSE_SOURCE));
    EXPECT_EQ(WaitForSingleObject(moved, 0), WAIT_OBJECT_0);
    EXPECT_TRUE(CloseHandle(moved));
    EXPECT_FAILS(ERROR_INVALID_HANDLE, CloseHandle(moved));
}

TEST(PlatformThread, DuplicationThatCannotBe)
{
    HANDLE copy = nullptr;
    Owned const e = manualEvent();
    EXPECT_FAILS(ERROR_INVALID_HANDLE, DuplicateHandle(e, e, GetCurrentProcess(), &copy, 0, FALSE,
                                                       DUPLICATE_SAME_ACCESS));
    EXPECT_FAILS(ERROR_INVALID_HANDLE, DuplicateHandle(GetCurrentProcess(), e, nullptr, &copy, 0,
                                                       FALSE, DUPLICATE_SAME_ACCESS));
    EXPECT_FAILS(ERROR_INVALID_HANDLE,
                 DuplicateHandle(GetCurrentProcess(), nullptr, GetCurrentProcess(), &copy, 0, FALSE,
                                 DUPLICATE_SAME_ACCESS));
    EXPECT_EQ(copy, nullptr);
}

TEST(PlatformThread, ExitCodesOfWhatIsNoThreadFail)
{
    DWORD code = 7;
    Owned const e = manualEvent();
    for (HANDLE bad : {HANDLE{nullptr}, INVALID, HANDLE{e}})
        EXPECT_FAILS(ERROR_INVALID_HANDLE, GetExitCodeThread(bad, &code));
    EXPECT_EQ(code, 7u);
}

TEST(PlatformThread, LastErrorsAreTheThreadsOwn)
{
    SetLastError(UNTOUCHED);
    DWORD before = 1;
    Runner t([&] {
        before = GetLastError();
        SetLastError(5);
        return 0;
    });
    t.join();
    EXPECT_EQ(before, 0u);
    SetLastError(UNTOUCHED);
    EXPECT_EQ(GetLastError(), UNTOUCHED);
}

TEST(PlatformThread, NamesAreTakenAndWrongHandlesRefused)
{
    Owned const go = manualEvent(), e = manualEvent();
    Runner t([&] { return WaitForSingleObject(go, LONG_TIME); });
    EXPECT_GE(SetThreadDescription(t.handle(), L"short"), 0);
    EXPECT_GE(SetThreadDescription(GetCurrentThread(), L"test"), 0);
    SetLastError(UNTOUCHED);
    EXPECT_LT(SetThreadDescription(nullptr, L"name"), 0);
    EXPECT_LT(SetThreadDescription(e, L"name"), 0);
    EXPECT_EQ(GetLastError(), UNTOUCHED);
    SetEvent(go);
}

TEST(PlatformThread, AffinityIsSetWithinTheProcessesAndReadBack)
{
    DWORD_PTR process = 0, system = 0;
    EXPECT_SUCCEEDS(GetProcessAffinityMask(GetCurrentProcess(), &process, &system));
    EXPECT_NE(process, 0u);
    EXPECT_EQ(process & ~system, 0u);
    DWORD_PTR const lowest = process & (~process + 1);
    Owned const go = manualEvent();
    Runner t([&] { return WaitForSingleObject(go, LONG_TIME); });
    EXPECT_EQ(SetThreadAffinityMask(t.handle(), lowest), process);
    EXPECT_EQ(SetThreadAffinityMask(t.handle(), process), lowest);
    EXPECT_EQ(SetThreadAffinityMask(GetCurrentThread(), lowest), process);
    // The mask of the process does not change with that of its main thread.
    DWORD_PTR now = 0;
    EXPECT_TRUE(GetProcessAffinityMask(GetCurrentProcess(), &now, &system));
    EXPECT_EQ(now, process);
    EXPECT_EQ(SetThreadAffinityMask(GetCurrentThread(), process), lowest);
    EXPECT_FAILS(ERROR_INVALID_PARAMETER, SetThreadAffinityMask(t.handle(), 0));
    if (~process != 0) {
        EXPECT_FAILS(ERROR_INVALID_PARAMETER, SetThreadAffinityMask(t.handle(), ~process));
    }
    EXPECT_FAILS(ERROR_INVALID_HANDLE, SetThreadAffinityMask(nullptr, lowest));
    EXPECT_FAILS(ERROR_INVALID_HANDLE, GetProcessAffinityMask(nullptr, &process, &system));
    SetEvent(go);
}

TEST(PlatformThread, ANewOneHasTheProcessorsOfTheProcessAndNotOfItsStarter)
{
    DWORD_PTR process = 0, system = 0;
    ASSERT_TRUE(GetProcessAffinityMask(GetCurrentProcess(), &process, &system));
    DWORD_PTR const lowest = process & (~process + 1);
    DWORD_PTR ofChild = 0;
    Runner starter([&] {
        EXPECT_EQ(SetThreadAffinityMask(GetCurrentThread(), lowest), process);
        Runner child([&] {
            ofChild = SetThreadAffinityMask(GetCurrentThread(), process);
            return 0;
        });
        child.join();
        return 0;
    });
    starter.join();
    EXPECT_EQ(ofChild, process);
}

TEST(PlatformThread, AThreadThatOthersMadeIsServedToo)
{
    Owned const m = mutex();
    DWORD number = 0;
    HANDLE handle = nullptr;
    std::thread([&] {
        number = GetCurrentThreadId();
        EXPECT_EQ(WaitForSingleObject(m, 0), WAIT_OBJECT_0);
        EXPECT_TRUE(DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(),
                                    &handle, 0, FALSE, DUPLICATE_SAME_ACCESS));
        EXPECT_EQ(waitElsewhere(handle, 0), WAIT_TIMEOUT);
    }).join();
    EXPECT_NE(number, 0u);
    // Other threads see its end like that of any thread.
    EXPECT_EQ(WaitForSingleObject(m, 0), WAIT_ABANDONED);
    EXPECT_TRUE(ReleaseMutex(m));
    EXPECT_EQ(WaitForSingleObject(handle, 0), WAIT_OBJECT_0);
    EXPECT_TRUE(CloseHandle(handle));
}

} // namespace ZvTest
