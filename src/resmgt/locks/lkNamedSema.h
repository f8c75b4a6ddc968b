// The semaphore that processes share.
#pragma once

#include "resmgt/locks/lkNamedSemaWindows.h"

namespace Zv {

/// A counting semaphore under a name of the system, which processes can share. A backslash in the name stands for a
/// slash. Label and system name are not copied.
///
/// The constructor never throws: test `getErrno` behind it. On a semaphore that could not be had, `wait` returns at
/// once and `post` does nothing; `tryWait` fails an assertion. Any thread may call anything.
class ZVRESMGT_EXPORT LkNamedSema
{
public:
    /// `label` is the name in reports; where it is null the system name is.
    LkNamedSema(char const *systemName, unsigned count, LkSemaTypes::CreateFlag flag,
                char const *label)
        : _imp(systemName, count, flag, label)
    {}
    LkNamedSema(LkNamedSema const &) = delete;
    LkNamedSema &operator=(LkNamedSema const &) = delete;

    /// Blocks until the count is above 0, then takes 1 from it.
    void wait() { _imp.wait(); }
    /// Takes 1 where the count is above 0. Never blocks.
    [[nodiscard]] bool tryWait() { return _imp.tryWait(); }
    /// Adds 1 and wakes one who waits.
    void post() { _imp.post(); }
    /// The system's error of a failed construction, or 0.
    int getErrno() const noexcept { return _imp.getErrno(); }
    char const *getName() const noexcept { return _imp.getName(); }
    LkNamedSemaWindows const &getImp() const noexcept { return _imp; }

private:
    LkNamedSemaWindows _imp;
};

} // namespace Zv
