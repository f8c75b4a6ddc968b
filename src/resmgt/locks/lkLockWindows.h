// The platform form of LkLock.
#pragma once

#include "resmgt/export.h"
#include "zvbase/platform/interlocked.h"
#include "zvbase/platform/types.h"

#include <iosfwd>

namespace Zv {

/// A critical section with a name and a flag. See LkLock.
class ZVRESMGT_EXPORT LkLockWindows
{
public:
    explicit LkLockWindows(char const *name);
    LkLockWindows(LkLockWindows const &) = delete;
    LkLockWindows &operator=(LkLockWindows const &) = delete;
    ~LkLockWindows();

    bool lock() const;
    [[nodiscard]] bool try_lock() const;
    void unlock() const;
    bool isLocked() const { return ZvPlatform::Interlocked::loadAcquire(_isLocked); }
    bool isLockedByThread() const { return isLocked(); }
    char const *getName() const noexcept { return _name; }
    void dump(std::ostream &stream) const;

private:
    // Out of line, so that the way of a lock that is free saves no registers for it.
    [[gnu::noinline]] bool lockSlowly() const;

    char const *_name;
    ZvPlatform::CriticalSection mutable _section;
    bool mutable _isLocked;
};

} // namespace Zv
