// The light semaphore.
#pragma once

#include "resmgt/locks/lkNamedSemaWindows.h"

namespace Zv {

/// A counting semaphore of one process, the cheapest way to hand a wake-up from thread to thread. It has no time-out:
/// `LkSema` has. The label is not copied. Any thread may call anything.
///
/// The constructor never throws: where the system may be out of objects, test `getErrno` behind it. On a semaphore that
/// could not be had, `wait` returns at once and `post` does nothing; `tryWait` fails an assertion.
class ZVRESMGT_EXPORT LkUnnamedSema
{
public:
    LkUnnamedSema(char const *label, unsigned count,
                  LkSemaTypes::Shared shared = LkSemaTypes::PRIVATE)
        : _imp(label, count, shared)
    {}
    LkUnnamedSema(LkUnnamedSema const &) = delete;
    LkUnnamedSema &operator=(LkUnnamedSema const &) = delete;

    /// Blocks until the count is above 0, then takes 1 from it.
    void wait() { _imp.wait(); }
    /// Takes 1 where the count is above 0. Never blocks.
    [[nodiscard]] bool tryWait() { return _imp.tryWait(); }
    /// Adds 1 and wakes one who waits. A thread that it wakes may destroy the semaphore at once.
    void post() { _imp.post(); }
    /// The system's error of a failed construction, or 0.
    int getErrno() const noexcept { return _imp.getErrno(); }
    char const *getName() const noexcept { return _imp.getName(); }

private:
    LkUnnamedSemaWindows _imp;
};

} // namespace Zv
