#include "platform/linux/object.h"

namespace ZvPlatform {

using namespace Linux;

DWORD timeGetTime()
{
    return static_cast<DWORD>(now() / MILLISECOND);
}

BOOL QueryPerformanceCounter(LARGE_INTEGER *counter)
{
    counter->QuadPart = now();
    return TRUE;
}

LONGLONG getSystemTime()
{
    // The clocks begin 134774 days apart.
    constexpr LONGLONG SECONDS_BEFORE = 134774ll * 24 * 60 * 60;
    return SECONDS_BEFORE * 10'000'000 + Kernel::date() / 100;
}

void GetSystemTimePreciseAsFileTime(FILETIME *file)
{
    *file = fileTimeOf(getSystemTime());
}

void Sleep(DWORD milliseconds)
{
    if (milliseconds == 0) {
        Kernel::yield();
        return;
    }
    Service service;
    Waiter &me = service.thread().waiter;
    Instant const deadline = deadlineAfter(milliseconds);
    bool early = true;
    // A wake-up for an earlier wait must not end the sleep.
    while (early && !service.killed()) {
        me.park.store(0, Order::RELAXED);
        early = !service.killed() && park(me, deadline);
    }
}

} // namespace ZvPlatform
