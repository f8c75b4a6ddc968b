#include "conformance/conformance.h"

namespace Conformance {

namespace {

constexpr LONGLONG MILLISECOND = 10000;
constexpr LONGLONG HOUR = 3600ll * 1000 * MILLISECOND;

LARGE_INTEGER due(LONGLONG units)
{
    LARGE_INTEGER result;
    result.QuadPart = units;
    return result;
}

LARGE_INTEGER const AT_ONCE = due(0), SOON = due(-MILLISECOND), LATE = due(-HOUR);

LARGE_INTEGER fromNow(LONGLONG units)
{
    FILETIME now;
    GetSystemTimePreciseAsFileTime(&now);
    return due(static_cast<LONGLONG>(static_cast<unsigned long long>(now.dwHighDateTime) << 32 |
                                     now.dwLowDateTime) +
               units);
}

void showStates()
{
    scene("manual");
    Owned const m(MADE(CreateWaitableTimerA(nullptr, TRUE, nullptr)));
    WAIT(WaitForSingleObject(m, 0));
    WAIT(WaitForSingleObject(m, 1));
    TRUTH(SetWaitableTimer(m, &SOON, 0, nullptr, nullptr, FALSE));
    WAIT(WaitForSingleObject(m, LONG_TIME));
    WAIT(WaitForSingleObject(m, INFINITE));
    WAIT(WaitForSingleObject(m, 0));
    TRUTH(SetWaitableTimer(m, &LATE, 0, nullptr, nullptr, FALSE));
    WAIT(WaitForSingleObject(m, 0));
    WAIT(WaitForSingleObject(m, 1));

    scene("automatic");
    Owned const a(MADE(CreateWaitableTimerA(nullptr, FALSE, nullptr)));
    TRUTH(SetWaitableTimer(a, &SOON, 0, nullptr, nullptr, FALSE));
    WAIT(WaitForSingleObject(a, LONG_TIME));
    WAIT(WaitForSingleObject(a, 0));
    WAIT(WaitForSingleObject(a, 3));

    scene("periodic");
    TRUTH(SetWaitableTimer(a, &SOON, 2, nullptr, nullptr, FALSE));
    for (int i = 0; i < 3; ++i)
        WAIT(WaitForSingleObject(a, LONG_TIME));
    TRUTH(CancelWaitableTimer(a));
}

void showAbsoluteTimes()
{
    scene("absolute times");
    Owned const t(CreateWaitableTimerA(nullptr, FALSE, nullptr));
    LARGE_INTEGER const hourAgo = fromNow(-HOUR), inAMoment = fromNow(2 * MILLISECOND),
                        inAnHour = fromNow(HOUR);
    TRUTH(SetWaitableTimer(t, &hourAgo, 0, nullptr, nullptr, FALSE));
    WAIT(WaitForSingleObject(t, LONG_TIME));
    TRUTH(SetWaitableTimer(t, &inAMoment, 0, nullptr, nullptr, FALSE));
    WAIT(WaitForSingleObject(t, LONG_TIME));
    TRUTH(SetWaitableTimer(t, &inAnHour, 0, nullptr, nullptr, FALSE));
    WAIT(WaitForSingleObject(t, 1));
    TRUTH(SetWaitableTimer(t, &AT_ONCE, 0, nullptr, nullptr, FALSE));
    WAIT(WaitForSingleObject(t, LONG_TIME));
}

void showCancelling()
{
    scene("cancelled");
    Owned const t(CreateWaitableTimerA(nullptr, TRUE, nullptr));
    TRUTH(CancelWaitableTimer(t));
    TRUTH(SetWaitableTimer(t, &LATE, 1, nullptr, nullptr, FALSE));
    TRUTH(CancelWaitableTimer(t));
    TRUTH(CancelWaitableTimer(t));
    WAIT(WaitForSingleObject(t, 3));

    scene("cancelled when it has been due");
    TRUTH(SetWaitableTimer(t, &SOON, 0, nullptr, nullptr, FALSE));
    WAIT(WaitForSingleObject(t, LONG_TIME));
    TRUTH(CancelWaitableTimer(t));
    WAIT(WaitForSingleObject(t, 0));
}

void showMisuse()
{
    scene("misuse");
    Owned const t(CreateWaitableTimerA(nullptr, TRUE, nullptr));
    Owned const e(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    TRUTH(SetWaitableTimer(t, &AT_ONCE, -1, nullptr, nullptr, FALSE));
    TRUTH(SetWaitableTimer(nullptr, &AT_ONCE, 0, nullptr, nullptr, FALSE));
    TRUTH(SetWaitableTimer(badHandle(), &AT_ONCE, 0, nullptr, nullptr, FALSE));
    TRUTH(SetWaitableTimer(e, &AT_ONCE, 0, nullptr, nullptr, FALSE));
    TRUTH(CancelWaitableTimer(nullptr));
    TRUTH(CancelWaitableTimer(badHandle()));
    TRUTH(CancelWaitableTimer(e));

    scene("a closed handle");
    HANDLE const closed = CreateWaitableTimerA(nullptr, TRUE, nullptr);
    TRUTH(CloseHandle(closed));
    TRUTH(SetWaitableTimer(closed, &AT_ONCE, 0, nullptr, nullptr, FALSE));
    TRUTH(CancelWaitableTimer(closed));
    WAIT(WaitForSingleObject(closed, 0));
}

void showWaiters()
{
    for (BOOL manual : {TRUE, FALSE}) {
        scene(manual ? "a manual one set anew while three wait"
                     : "an automatic one set anew while three wait");
        Owned const t(CreateWaitableTimerA(nullptr, manual, nullptr));
        Owned const begun(CreateSemaphoreA(nullptr, 0, 3, nullptr));
        SetWaitableTimer(t, &LATE, 0, nullptr, nullptr, FALSE);
        std::vector<std::unique_ptr<Runner>> waiters;
        for (int i = 0; i < 3; ++i)
            waiters.push_back(std::make_unique<Runner>([&] {
                ReleaseSemaphore(begun, 1, nullptr);
                return WaitForSingleObject(t, LONG_TIME);
            }));
        for (int i = 0; i < 3; ++i)
            await(begun);
        TRUTH(SetWaitableTimer(t, &SOON, 1, nullptr, nullptr, FALSE));
        int released = 0;
        for (auto const &waiter : waiters) {
            waiter->join();
            released += waiter->exitCode() == WAIT_OBJECT_0;
        }
        showCount("released", released);
    }
}

} // namespace

void showTimers()
{
    table("timer");
    showStates();
    showAbsoluteTimes();
    showCancelling();
    showMisuse();
    showWaiters();
}

} // namespace Conformance
