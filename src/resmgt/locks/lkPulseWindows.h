// The platform form of LkPulse.
#pragma once

#include "resmgt/export.h"
#include "zvbase/platform/types.h"

#include <cstdint>
#include <iosfwd>

namespace Zv {

class LkMutex;

/// A wake-up: over a semaphore where pulses count, over a manual-reset event where one latches. See LkPulse.
class ZVRESMGT_EXPORT LkPulseWindows
{
public:
    LkPulseWindows(char const *name, bool wakeAll);
    LkPulseWindows(LkPulseWindows const &) = delete;
    LkPulseWindows &operator=(LkPulseWindows const &) = delete;
    ~LkPulseWindows() noexcept(false);

    void pulse() const;
    void wait(LkMutex const &externalMutex) const;
    [[nodiscard]] bool timedWait(LkMutex const &externalMutex, double seconds) const;
    void waitNext(LkMutex const &externalMutex) const;
    [[nodiscard]] bool timedWaitNext(LkMutex const &externalMutex, double seconds) const;
    char const *getName() const noexcept { return _name; }
    void dump(std::ostream &stream) const;

private:
    bool wait_internal(LkMutex const &externalMutex, std::uint32_t milliseconds) const;
    bool takePulse(std::uint32_t milliseconds) const;
    bool waitNextInternal(LkMutex const &externalMutex, std::uint32_t milliseconds) const;
    bool sleepUntilNext(std::uint32_t generation, std::uint32_t milliseconds) const;
    bool withdraw(std::uint32_t generation) const;

    ZvPlatform::Handle _event;
    bool _wakeAll;
    char const *_name;
    // Threads in waitNext, over the number of pulses that woke such.
    std::uint64_t mutable _sleepers;
};

} // namespace Zv
