// The light semaphore.
#pragma once

#include "resmgt/locks/lkNamedSemaWindows.h"

namespace Zv {

/// A counting semaphore of one process, the cheapest way to hand a wake-up from thread to thread. It has no time-out:
/// `LkSema` has. The label is not copied. Any thread may call anything.
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
    bool tryWait() { return _imp.tryWait(); }
    /// Adds 1 and wakes one who waits. A thread that it wakes may destroy the semaphore at once.
    void post() { _imp.post(); }
    char const *getName() const noexcept { return _imp.getName(); }

private:
    LkUnnamedSemaWindows _imp;
};

} // namespace Zv
