// Waiting and waking of the threads of a supervised sequence.
#pragma once

#include "resmgt/locks/lkGuard.h"
#include "resmgt/locks/lkMutex.h"
#include "resmgt/locks/lkPulse.h"

#include <cstddef>

namespace Zv {

/// Lets the runner and the clients of a supervised sequence wait, and wakes them.
///
/// **Threads**: the caller must hold the sequence's lock, except for `now`.
class DevSeqWaiters
{
public:
    using Guard = LkGuard<LkMutex const>;

    /// The longest single wait, in seconds. The thread then looks at the clock and waits again.
    static constexpr double LONGEST_WAIT = 10'000;

    DevSeqWaiters();

    /// Returns the time of the clock by which all limits are kept.
    static double now();

    /// Called by the runner. Blocks until `wakeRunner` is called, or until the moment.
    void waitForWork(Guard const &guard, double moment);
    /// Called by a client. Blocks until `wakeClients` is called, or until the moment.
    void waitForChange(Guard const &guard, double moment);
    void wakeRunner() const;
    void wakeClients() const;

private:
    static void wait(LkPulse const &pulse, std::size_t &nbWaiting, Guard const &guard,
                     double moment);

    LkPulse _work;
    LkPulse _changed;
    std::size_t _nbRunners = 0;
    std::size_t _nbClients = 0;
};

} // namespace Zv
