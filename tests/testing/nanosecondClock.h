// Clock in nanoseconds on every system, for tests that simulate the time. Include it in one source
// of a program. The wrapped.txt of its folder must list both calls.
#pragma once

#include "platform/services.h"

#define ZV_WRAP(name) __asm__("__wrap_" name)
#define ZV_REAL(name) __asm__("__real_" name)

BOOL realGetFrequency(LARGE_INTEGER *)
    ZV_REAL("_ZN10ZvPlatform25QueryPerformanceFrequencyEPNS_13LARGE_INTEGERE");
BOOL wrapGetFrequency(LARGE_INTEGER *)
    ZV_WRAP("_ZN10ZvPlatform25QueryPerformanceFrequencyEPNS_13LARGE_INTEGERE");
BOOL realReadClock(LARGE_INTEGER *)
    ZV_REAL("_ZN10ZvPlatform23QueryPerformanceCounterEPNS_13LARGE_INTEGERE");
BOOL wrapReadClock(LARGE_INTEGER *)
    ZV_WRAP("_ZN10ZvPlatform23QueryPerformanceCounterEPNS_13LARGE_INTEGERE");

namespace ZvTest {

inline constexpr LONGLONG NANOSECONDS = 1'000'000'000;

/// Returns the time of the system's own clock, in nanoseconds.
inline LONGLONG readRealClock()
{
    LARGE_INTEGER ticks, frequency;
    realReadClock(&ticks);
    realGetFrequency(&frequency);
    LONGLONG const f = frequency.QuadPart;
    return ticks.QuadPart / f * NANOSECONDS + ticks.QuadPart % f * NANOSECONDS / f;
}

} // namespace ZvTest

BOOL wrapGetFrequency(LARGE_INTEGER *frequency)
{
    frequency->QuadPart = ZvTest::NANOSECONDS;
    return TRUE;
}
