#include "platform/simulated/scheduler.h"

namespace ZvPlatform::Simulated {

namespace {

/// The clocks begin one hour after the start of the machine, at the beginning of 2026.
constexpr Instant UPTIME = 3'600'000 * MILLISECOND;
constexpr LONGLONG BEGINNING = 155'228ll * 24 * 60 * 60 * 10'000'000;

} // namespace

std::int64_t getTime()
{
    return scheduler.now();
}

} // namespace ZvPlatform::Simulated

namespace ZvPlatform {

using namespace Simulated;

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
    me.granted = false;
    me.deadline = scheduler.deadlineAfter(milliseconds);
    scheduler.wait();
}

} // namespace ZvPlatform
