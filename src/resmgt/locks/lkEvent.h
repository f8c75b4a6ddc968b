// The event.
#pragma once

#include "resmgt/locks/lkEventWindows.h"
#include "resmgt/locks/lkUtil.h"

namespace Zv {

/// A state that threads wait for, without a mutex: set it stays, and all waits return at once, until it is reset. Any
/// thread may call anything. The name is not copied.
class ZVRESMGT_EXPORT LkEvent
{
public:
    LkEvent(char const *name, bool initialState) : _imp(name, initialState) {}
    LkEvent(LkEvent const &) = delete;
    LkEvent &operator=(LkEvent const &) = delete;

    void set() { _imp.set(); }
    void reset() { _imp.reset(); }
    /// Blocks until set.
    void wait() const { _imp.wait(); }
    /// Blocks until set, which is true, or until the time in seconds is over, which is false.
    [[nodiscard]] bool timedWait(double seconds) const { return _imp.timedWait(seconds); }
    template <LkDuration Duration>
    [[nodiscard]] bool timedWait(Duration const &time) const
    {
        return _imp.timedWait(LkUtil::toSeconds(time));
    }
    char const *getName() const noexcept { return _imp.getName(); }
    /// The name.
    void dump(std::ostream &stream) const { _imp.dump(stream); }

private:
    LkEventWindows _imp;
};

} // namespace Zv
