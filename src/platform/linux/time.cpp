#include "platform/linux/futex.h"
#include "platform/services.h"

#include <cerrno>
#include <ctime>
#include <sched.h>

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

BOOL QueryPerformanceFrequency(LARGE_INTEGER *frequency)
{
    frequency->QuadPart = 1'000'000'000;
    return TRUE;
}

void GetSystemTimePreciseAsFileTime(FILETIME *file)
{
    // Days between the beginnings of the two calendars.
    constexpr std::uint64_t SECONDS_BEFORE = 134774ull * 24 * 60 * 60;
    timespec time;
    ::clock_gettime(CLOCK_REALTIME, &time);
    std::uint64_t const units =
        (static_cast<std::uint64_t>(time.tv_sec) + SECONDS_BEFORE) * 10'000'000 +
        static_cast<std::uint64_t>(time.tv_nsec) / 100;
    file->dwLowDateTime = static_cast<DWORD>(units);
    file->dwHighDateTime = static_cast<DWORD>(units >> 32);
}

void Sleep(DWORD milliseconds)
{
    if (milliseconds == 0) {
        ::sched_yield();
        return;
    }
    // A signal that kills does so here; any other ends no sleep.
    Instant const deadline = milliseconds == INFINITE ? INT64_MAX / 2 : deadlineAfter(milliseconds);
    timespec const limit = {static_cast<time_t>(deadline / 1'000'000'000),
                            static_cast<long>(deadline % 1'000'000'000)};
    while (::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &limit, nullptr) == EINTR) {
    }
}

} // namespace ZvPlatform
