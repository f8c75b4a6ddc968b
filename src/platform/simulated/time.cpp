#include "platform/simulated/thread.h"

namespace ZvPlatform {

using namespace Simulated;

namespace {

/// The clocks begin one hour after the start of the machine, at the beginning of 2026.
constexpr Instant UPTIME = 3'600'000 * MILLISECOND;
constexpr LONGLONG BEGINNING = 155'228ll * 24 * 60 * 60 * 10'000'000;

} // namespace

LONGLONG getSystemTime()
{
    return BEGINNING + scheduler.now() / 100;
}

DWORD timeGetTime()
{
    enter("timeGetTime");
    return static_cast<DWORD>((UPTIME + scheduler.now()) / MILLISECOND);
}

BOOL QueryPerformanceCounter(LARGE_INTEGER *counter)
{
    enter("QueryPerformanceCounter");
    counter->QuadPart = UPTIME + scheduler.now();
    return TRUE;
}

void GetSystemTimePreciseAsFileTime(FILETIME *file)
{
    enter("GetSystemTimePreciseAsFileTime");
    *file = fileTimeOf(getSystemTime());
}

void Sleep(DWORD milliseconds)
{
    if (!scheduler.isRunning())
        return;
    scheduler.point({"Sleep"}, milliseconds == 0);
    if (milliseconds == 0)
        return;
    Thread &me = currentThread();
    me.kind = Thread::SLEEP;
    scheduler.wait(scheduler.deadlineAfter(milliseconds));
}

} // namespace ZvPlatform
