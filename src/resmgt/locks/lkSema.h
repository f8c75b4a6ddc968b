// Semaphore that can wait with a time-out (applications).
#pragma once

#include "resmgt/locks/lkCondVar.h"
#include "resmgt/locks/lkMutex.h"
#include "zvbase/platform/shared.h"

#include <cstdint>

namespace Zv {

/// Counting semaphore with a time-out, built from a mutex and a condition variable.
///
///     Zv::LkSema frames("frames", 0);
///     frames.post();
///     bool const hasFrame = frames.timedWait(0.04); // true
///
/// If you need no time-out, use `LkUnnamedSema`. Its waits are cheaper if they have to sleep, and a
/// thread may be killed while it waits, which this class does not tolerate.
///
/// **Threads**: thread-safe.
///
/// **Throws** `AssertionFailed` if the system refuses a call. A wait that throws leaves the count
/// as it was.
///
/// **Owns**: nothing. The name is not copied and must exist as long as the semaphore.
class ZVRESMGT_EXPORT LkSema
{
public:
    /// Builds a semaphore that starts at `count`.
    LkSema(char const *name, unsigned count,
           LkMutexAttr const &mutexAttr = LkMutexAttr::getDefaultAttr(),
           LkCondVarAttr const &condVarAttr = LkCondVarAttr::getDefaultAttr());
    LkSema(LkSema const &) = delete;
    LkSema &operator=(LkSema const &) = delete;

    /// **Blocks** until the count is above 0, then subtracts 1.
    void wait();
    /// **Blocks** until the count is above 0, subtracts 1 and returns true. Returns false when the
    /// time is over. The time starts again each time that another thread was faster. `LkWaitable`
    /// says how the limit is rounded.
    [[nodiscard]] bool timedWait(double seconds);
    /// As with seconds.
    template <LkDuration Duration>
    [[nodiscard]] bool timedWait(Duration const &time)
    {
        return timedWait(LkUtil::toSeconds(time));
    }
    /// Subtracts 1 and returns true if the count is above 0. Does not wait for a post.
    [[nodiscard]] bool tryWait();
    /// Adds 1 and wakes one waiting thread.
    void post();
    /// Returns true if the count is 0. The name says the opposite, by design.
    bool isCountNonZero() const;
    char const *getName() const noexcept { return _name; }

private:
    template <class Wait>
    bool waitForPost(Wait wait);

    char const *_name;
    // The upper half is the count, the lower half the number of waiters.
    ZvPlatform::Shared<std::uint64_t> _state;
    LkMutex _lock; // for waiters, and for a post that finds one
    LkCondVar _nonZero;
};

} // namespace Zv
