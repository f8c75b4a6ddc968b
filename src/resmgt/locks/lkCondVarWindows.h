// The platform form of LkCondVar.
#pragma once

#include "resmgt/export.h"
#include "zvbase/platform/types.h"

#include <cstdint>
#include <iosfwd>

namespace Zv {

class LkMutex;

/// A condition variable over a semaphore. See LkCondVar.
///
/// A broadcast releases the semaphore once for each waiter and goes on when the last of them has left. Until then
/// newcomers stay outside, or one of them could take what was released for another.
class ZVRESMGT_EXPORT LkCondVarWindows
{
public:
    explicit LkCondVarWindows(char const *name);
    LkCondVarWindows(LkCondVarWindows const &) = delete;
    LkCondVarWindows &operator=(LkCondVarWindows const &) = delete;
    ~LkCondVarWindows() noexcept(false);

    void wait(LkMutex const &externalMutex) const;
    [[nodiscard]] bool timedWait(LkMutex const &externalMutex, double seconds) const;
    void signal() const;
    void broadcast() const;
    char const *getName() const noexcept { return _name; }
    void dump(std::ostream &stream) const;

private:
    bool waitInternal(LkMutex const &externalMutex, std::uint32_t milliseconds) const;
    void enter() const;
    bool leave() const;
    bool releaseAll() const;
    void endBroadcast() const;

    int mutable _nbWaiters;
    ZvPlatform::CriticalSection mutable _waitersLock;
    ZvPlatform::Handle _sema;
    ZvPlatform::Handle _waitersDone;
    bool mutable _wasBroadcast;
    char const *_name;
    ZvPlatform::CriticalSection mutable _broadcastLock; // held for the whole of a broadcast
};

} // namespace Zv
