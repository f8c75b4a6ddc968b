// Thread of a device manager, "DevMgr ANO", which executes the requests of the manager's queue.
#pragma once

#include "resmgt/deviceManager/devMgrFailure.h"
#include "resmgt/deviceManager/devMgrFifo.h"
#include "resmgt/deviceProtocol/devReceiverWait.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "resmgt/threads/mtThread.h"
#include "resmgt/threads/priority.h"
#include "zvbase/objPtr.h"

namespace Zv {

/// A request that can describe what it was doing when it threw. The caller adds the exception.
class DevMgrFailureSource
{
public:
    virtual DevMgrFailure getFailure() const = 0;

protected:
    ~DevMgrFailureSource() = default;
};

class ANOThreadProtocol;
struct DevMgrMeeting;

/// Runs the thread that executes the requests of a manager's queue, from its constructor to its
/// destructor. The destructor waits until the thread has executed all requests that were queued
/// before, and destroys later ones without executing them. After `end` the destructor does nothing.
class DevMgrThread
{
public:
    explicit DevMgrThread(RCShdPtr<DevMgrFifo> const &fifo);
    ~DevMgrThread() noexcept(false);

    DevMgrThread(DevMgrThread const &) = delete;
    DevMgrThread &operator=(DevMgrThread const &) = delete;

    /// Does what the destructor does, but waits for the thread no longer than `seconds`. If the
    /// thread has not executed all requests by then, leaves the thread behind and returns false.
    /// The thread then ends when its present request returns. Must be called once at most. Throws
    /// only if the system is out of memory, and has no effect then.
    [[nodiscard]] bool end(double seconds);
    bool isCurrentThread() const;
    /// Sets the handler, see `DevMgr::setFailureHandler`.
    void setFailureHandler(RCShdPtr<DevMgrFailureHandler> const &handler);

private:
    void end();
    void finish();
    void sendClose();

    RCShdPtr<DevMgrFifo> _fifo;
    ObjPtr<MtThread> _thread;
    ObjPtr<PriorityRelation> _relation;
    ObjPtr<MtThreadProtocol> _protocol; // null when the thread has it
    ANOThreadProtocol *_executor;       // the thread's protocol, valid as long as `_thread`
    ObjPtr<DevANO> _close; // made in the constructor, so that ending needs no memory for it
    DevANO const *_last;   // the object of `_close`, also when that is queued
    RCShdPtr<DevMgrMeeting> _meeting; // with `_close`
    ObjPtr<DevSenderWait> _closer;
    enum
    {
        NOT_ENDED,
        ENDED,
        LEFT_BEHIND
    } _end = NOT_ENDED;
};

} // namespace Zv
