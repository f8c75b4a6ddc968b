// The thread that calls the devices of a supervised sequence, and how it and the clients wait.
#pragma once

#include "resmgt/locks/lkGuard.h"
#include "resmgt/locks/lkMutex.h"
#include "resmgt/locks/lkPulse.h"
#include "resmgt/locks/lkThreadId.h"
#include "resmgt/threads/mtThread.h"
#include "resmgt/threads/priority.h"
#include "zvbase/objPtr.h"

#include <cstddef>
#include <limits>

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

    /// Moment that no clock reaches.
    static constexpr double NEVER = std::numeric_limits<double>::infinity();

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

/// The state of the thread that calls the devices of a supervised sequence, the runner. A runner
/// that hangs in a device or in the observer is replaced. It is no longer the present runner then,
/// and does nothing more when its call returns.
///
/// **Threads**: one thread at a time, under the sequence's lock.
class DevSeqRunner
{
public:
    /// Makes the runner of this number the present one. Its thread has not begun yet.
    void appoint(unsigned number);
    /// Records that the calling thread is the runner of this number, if that is still the present
    /// one.
    void enter(unsigned number);
    /// Records that there is no runner.
    void dismiss() { _number = 0; }
    /// Records that the present runner has finished.
    void leave() { _hasLeft = true; }

    unsigned getNumber() const { return _number; }
    bool isPresent(unsigned number) const { return number == _number; }
    bool isCurrentThread() const { return _thread.isCurrentThread(); }
    bool hasLeft() const { return _hasLeft; }

    // What the runner does at the moment.
    void setIdle() { _isBusy = false; }
    void setBusy();
    /// Records that a call begins or has returned.
    void proceed();
    bool isBusy() const { return _isBusy; }
    double getBusySince() const { return _busySince; }
    void setInObserver(bool isIn);
    bool isInObserver() const { return _isInObserver; }

private:
    unsigned _number = 0;
    LkThreadId _thread;
    bool _isBusy = false;
    double _busySince = 0;
    bool _isInObserver = false;
    bool _hasLeft = false;
};

/// The thread of the present runner.
class DevSeqRunnerThread
{
public:
    /// Starts another thread. If there was one before, leaves it behind. Has no effect if it
    /// throws.
    void start(ObjPtr<MtThreadProtocol> body);
    void join();
    /// Keeps the thread and its priority until the process ends.
    void leaveBehind();

private:
    ObjPtr<MtThread> _thread;
    ObjPtr<PriorityRelation> _relation;
};

} // namespace Zv
