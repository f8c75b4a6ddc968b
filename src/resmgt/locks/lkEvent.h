// Event that stays set until it is reset (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkUtil.h"
#include "zvbase/platform/types.h"

#include <iosfwd>

namespace Zv {

/// Platform form of `LkEvent`: a manual-reset event with a name.
class ZVRESMGT_EXPORT LkEventWindows
{
public:
    LkEventWindows(char const *name, bool initialState);
    LkEventWindows(LkEventWindows const &) = delete;
    LkEventWindows &operator=(LkEventWindows const &) = delete;
    ~LkEventWindows() noexcept(false);

    void set();
    void reset();
    void wait() const;
    [[nodiscard]] bool timedWait(double seconds) const;
    char const *getName() const noexcept { return _name; }
    void dump(std::ostream &stream) const;

private:
    ZvPlatform::Handle _event;
    char const *_name;
};

/// Event that threads wait for without a mutex. Once set, it stays set and every wait returns at
/// once, until it is reset.
///
///     Zv::LkEvent ready("ready", false);
///     ready.set();
///     ready.wait();
///     bool const wasSet = ready.timedWait(0.04); // true
///
/// **Threads**: thread-safe.
///
/// **Throws** `AssertionFailed` if the system refuses to create the event or to wait for it.
///
/// **Owns**: nothing. The name is not copied and must exist as long as the event.
class ZVRESMGT_EXPORT LkEvent
{
public:
    /// `initialState` is true if the event is set at first.
    LkEvent(char const *name, bool initialState) : _imp(name, initialState) {}
    LkEvent(LkEvent const &) = delete;
    LkEvent &operator=(LkEvent const &) = delete;

    /// Sets the event and wakes all threads that wait for it.
    void set() { _imp.set(); }
    /// Resets the event: later waits block.
    void reset() { _imp.reset(); }
    /// **Blocks** until the event is set.
    void wait() const { _imp.wait(); }
    /// **Blocks** until the event is set and returns true, or returns false when the time is over.
    /// `LkWaitable` says how the limit is rounded.
    [[nodiscard]] bool timedWait(double seconds) const { return _imp.timedWait(seconds); }
    /// As with seconds.
    template <LkDuration Duration>
    [[nodiscard]] bool timedWait(Duration const &time) const
    {
        return _imp.timedWait(LkUtil::toSeconds(time));
    }
    char const *getName() const noexcept { return _imp.getName(); }
    /// Writes the name.
    void dump(std::ostream &stream) const { _imp.dump(stream); }

private:
    LkEventWindows _imp;
};

} // namespace Zv
