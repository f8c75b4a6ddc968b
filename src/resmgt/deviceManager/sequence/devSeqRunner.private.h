// The thread that calls the devices of a supervised sequence.
#pragma once

#include "resmgt/locks/lkThreadId.h"
#include "resmgt/threads/mtThread.h"
#include "resmgt/threads/priorityRelation.h"
#include "zvbase/objPtr.h"

namespace Zv {

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
