// The platform form of LkRecLock.
#pragma once

#include "resmgt/export.h"
#include "zvbase/platform/types.h"

#include <iosfwd>

namespace Zv {

/// A recursive critical section that knows its depth. See LkRecLock.
class ZVRESMGT_EXPORT LkRecLockWindows
{
public:
    explicit LkRecLockWindows(char const *name);
    LkRecLockWindows(LkRecLockWindows const &) = delete;
    LkRecLockWindows &operator=(LkRecLockWindows const &) = delete;
    ~LkRecLockWindows();

    bool lock() const;
    [[nodiscard]] bool try_lock() const;
    void unlock() const;
    bool isLocked() const;
    bool isLockedByThread() const;
    char const *getName() const noexcept { return _name; }
    void dump(std::ostream &stream) const;

private:
    // Out of line, so that the way of a lock that is free saves no registers for it.
    [[gnu::noinline]] bool lockSlowly() const;
    bool counted() const;

    char const *_name;
    ZvPlatform::CriticalSection mutable _section;
    ZvPlatform::ThreadNumber mutable _holder; // a dump reads both without the lock
    int mutable _count;
};

} // namespace Zv
