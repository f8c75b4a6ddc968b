// Instants of the monotonic clock, due times of timers, and the date.
#pragma once

#include "platform/services.h"

#include <algorithm>

namespace ZvPlatform {

/// Nanoseconds of the monotonic clock.
using Instant = std::int64_t;

inline constexpr Instant NEVER = INT64_MAX;
inline constexpr Instant MILLISECOND = 1'000'000;

struct TimerState
{
    Instant due;
    Instant period; ///< 0 if the timer becomes due only once

    /// Returns whether the timer is due. If so, sets its next due time, which is a whole number of
    /// periods after the first one, however late it is now.
    bool update(Instant now)
    {
        if (due == NEVER || now < due)
            return false;
        due = period ? due + ((now - due) / period + 1) * period : NEVER;
        return true;
    }
};

/// Returns the date in units of 100 ns since the first of January 1601. Each form of the platform
/// has its own clock.
LONGLONG getSystemTime();

inline FILETIME fileTimeOf(LONGLONG units)
{
    return {static_cast<DWORD>(units), static_cast<DWORD>(units >> 32)};
}

/// Returns the time from now until a due time of `SetWaitableTimer`, or 0 if that is in the past.
inline Instant timeUntil(LONGLONG due)
{
    constexpr LONGLONG UNIT = 100;
    constexpr LONGLONG FURTHEST = NEVER / 4 / UNIT;
    LONGLONG const relative = due < 0 ? due : std::min<LONGLONG>(getSystemTime() - due, 0);
    return (relative < -FURTHEST ? FURTHEST : -relative) * UNIT;
}

} // namespace ZvPlatform
