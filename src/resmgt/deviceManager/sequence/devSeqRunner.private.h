// The thread that calls the devices of a supervised sequence.
#pragma once

#include "resmgt/locks/lkThreadId.h"
#include "resmgt/threads/mtThread.h"
#include "resmgt/threads/priorityRelation.h"
#include "zvbase/objPtr.h"

namespace Zv {

/// Who calls the devices of a supervised sequence. A runner that hangs in a device or in the observer is replaced: it is
/// no longer the present one, and does nothing more when it returns.
///
/// **Threads**: one thread at a time, under the sequence's lock.
class DevSeqRunner
{
public:
    /// Makes the runner of this number the present one, in place of the former. Its thread has not begun yet.
    void appoint(unsigned number);
    /// Says that the calling thread is that runner, if that is still the present one.
    void enter(unsigned number);
    /// From now on there is none.
    void dismiss() { _number = 0; }
    /// Says that the present runner has finished.
    void leave() { _hasLeft = true; }

    unsigned getNumber() const { return _number; }
    bool isPresent(unsigned number) const { return number == _number; }
    bool isCurrentThread() const { return _thread.isCurrentThread(); }
    bool hasLeft() const { return _hasLeft; }

    // What it does.
    void setIdle() { _isBusy = false; }
    void setBusy();
    /// The next call begins, or one has returned.
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
    /// Starts another thread, and leaves the former one behind if there is one. Changes nothing if it throws.
    void start(ObjPtr<MtThreadProtocol> body);
    void join();
    /// The thread and its priority stay for the rest of the process.
    void leaveBehind();

private:
    ObjPtr<MtThread> _thread;
    ObjPtr<PriorityRelation> _relation;
};

} // namespace Zv
