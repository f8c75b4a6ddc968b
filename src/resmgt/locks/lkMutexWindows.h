// The platform form of LkMutex.
#pragma once

#include "resmgt/export.h"
#include "zvbase/platform/interlocked.h"
#include "zvbase/platform/types.h"

#include <cstdint>
#include <iosfwd>

namespace Zv {

/// A kernel mutex with a name and a flag. See LkMutex.
///
/// The wait objects release and take the handle on their own and keep the flag right with the last two operations.
class ZVRESMGT_EXPORT LkMutexWindows
{
public:
    explicit LkMutexWindows(char const *name);
    LkMutexWindows(LkMutexWindows const &) = delete;
    LkMutexWindows &operator=(LkMutexWindows const &) = delete;
    ~LkMutexWindows() noexcept(false);

    bool lock() const;
    void unlock() const;
    [[nodiscard]] bool tryLock() const;
    bool spinLock(unsigned tries) const;
    bool isLocked() const { return ZvPlatform::Interlocked::loadAcquire(_isLocked); }
    bool isLockedByThread() const { return isLocked(); }
    char const *getName() const noexcept { return _name; }
    void dump(std::ostream &stream) const;

    ZvPlatform::Handle const &getMutex() const noexcept { return _mutex; }
    /// The caller is about to release the mutex by its handle.
    void clearLockedFlag() const { ZvPlatform::Interlocked::storeRelease(_isLocked, false); }
    /// The caller has taken the mutex by its handle.
    void updateLockingThreadId() const { ZvPlatform::Interlocked::storeRelease(_isLocked, true); }

private:
    // Out of line, so that the way without the service saves no registers for them.
    [[gnu::noinline]] bool lockSlowly() const;
    [[gnu::noinline]] void unlockSlowly() const;
    std::uint32_t waitFor(std::uint32_t milliseconds) const;
    [[noreturn]] void failLock() const;

    char const *_name;
    ZvPlatform::Handle _mutex;
    bool mutable _isLocked;
};

} // namespace Zv
