// Static functions of the locks: yielding and time limits (extenders).
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkDuration.h"

#include <cstdint>

namespace Zv {

/// Static functions that the locks share.
///
///     #include <chrono>
///
///     double const limit = Zv::LkUtil::toSeconds(std::chrono::milliseconds(40)); // 0.04
///     Zv::LkUtil::performYield();
///
/// **Threads**: thread-safe.
class ZVRESMGT_EXPORT LkUtil
{
public:
    /// Returns 0.
    static int getMinSchedulingPriority() { return 0; }

    /// Offers the processor to another thread if the environment variable ZV_LOCK_YIELD is not 0.
    /// Call it in code of your own that spins. The locks of the library do not call it.
    static void yield();
    /// Returns true if ZV_LOCK_YIELD is not 0.
    static bool isYieldEnabled();
    /// Sets ZV_LOCK_YIELD to 1 in the environment of the process.
    static void enableYield();
    /// Sets ZV_LOCK_YIELD to 0 in the environment of the process.
    static void disableYield();
    /// Offers the processor to another thread once.
    static void performYield();

    /// Returns the milliseconds of a time limit: `seconds * 1000.0 + 0.5`, truncated. The result is
    /// 0 for a negative time and for a value that is not a number, and at most `LONGEST_WAIT`. All
    /// timed waits of the library read their limits in this way.
    static std::uint32_t toMilliseconds(double seconds) noexcept;
    /// Returns the milliseconds of a duration, a half rounded up, from 0 to `LONGEST_WAIT`. An
    /// integral duration is converted without loss.
    template <LkDuration Duration>
    static constexpr std::uint32_t toMilliseconds(Duration const &time) noexcept
    {
        std::int64_t const milliseconds = Detail::countUnits<std::milli>(time);
        if (milliseconds <= 0)
            return 0;
        return milliseconds < LONGEST_WAIT ? static_cast<std::uint32_t>(milliseconds)
                                           : LONGEST_WAIT;
    }
    /// Returns a duration, rounded to milliseconds, as seconds for an operation that takes a
    /// `double`.
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
