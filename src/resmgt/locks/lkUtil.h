// Odds and ends of the locks.
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkDuration.h"

#include <cstdint>

namespace Zv {

/// Static functions that the locks share. Any thread may call them.
class ZVRESMGT_EXPORT LkUtil
{
public:
    static int getMinSchedulingPriority() { return 0; }

    /// Gives the processor away once if ZV_LOCK_YIELD asks for it. For code of your own that spins; the locks of the
    /// library do not call it.
    static void yield();
    /// Whether ZV_LOCK_YIELD is not 0.
    static bool isYieldEnabled();
    /// Set ZV_LOCK_YIELD in the process's environment to 1 or 0.
    static void enableYield();
    static void disableYield();
    /// Gives the processor away once.
    static void performYield();

    /// How all timed waits read their time: `seconds * 1000.0 + 0.5`, truncated. Nothing below 0, and never so much
    /// that it stands for an endless wait.
    static std::uint32_t toMilliseconds(double seconds) noexcept;
    /// How all timed waits read a duration: as its milliseconds, a half rounded up, with the same limits.
    template <LkDuration Duration>
    static constexpr std::uint32_t toMilliseconds(Duration const &time) noexcept
    {
        std::int64_t const milliseconds = Detail::countUnits<std::milli>(time);
        if (milliseconds <= 0)
            return 0;
        return milliseconds < LONGEST_WAIT ? static_cast<std::uint32_t>(milliseconds)
                                           : LONGEST_WAIT;
    }
    /// A duration in seconds, for what takes them as a `double`: `toMilliseconds` reads the result as it reads `time`.
    template <LkDuration Duration>
    static constexpr double toSeconds(Duration const &time) noexcept
    {
        return toMilliseconds(time) / 1000.0;
    }

    /// The longest limit of a wait, in milliseconds: almost 50 days.
    static constexpr std::uint32_t LONGEST_WAIT = 0xFFFFFFFE;

    LkUtil() = delete;
};

} // namespace Zv
