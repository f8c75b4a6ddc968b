// Thread of a device manager, "DevMgr ANO".
#pragma once

#include "resmgt/deviceManager/devMgrFailure.h"
#include "resmgt/deviceManager/devMgrFifo.h"
#include "resmgt/deviceProtocol/devReceiverWait.h"
#include "resmgt/locks/lkSema.h"
#include "resmgt/threads/mtThread.h"
#include "resmgt/threads/priorityRelation.h"
#include "zvbase/objPtr.h"

namespace Zv {

class ANOThreadProtocol;

/// Runs the thread that executes what arrives in a manager's queue, from its constructor to its
/// destructor. The thread executes everything that was queued before the destructor, and destroys
/// later requests without executing them. After `end` the destructor does nothing.
class DevMgrThread
{
public:
    explicit DevMgrThread(RCShdPtr<DevMgrFifo> const &fifo);
    ~DevMgrThread() noexcept(false);

    DevMgrThread(DevMgrThread const &) = delete;
    DevMgrThread &operator=(DevMgrThread const &) = delete;

    /// Does what the destructor does, but waits for the thread no longer than that many seconds. If
    /// the thread has not executed everything by then, leaves it behind and returns false. The
    /// thread ends when what it executes returns. Must be called once. If it throws, it has done
    /// nothing. It throws only if the system is out of memory.
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
    ObjPtr<MtThreadProtocol> _protocol; // until the thread has it
    ANOThreadProtocol *_executor;       // the same, for as long as the thread object lives
    ObjPtr<DevANO> _close; // made in the constructor, so that the thread can always be ended
    DevANO const *_last;   // the same, also when it is queued
    ObjPtr<DevSenderWait> _closer;
    LkSema *_hasArrived = nullptr; // of `_close`
    enum
    {
        NOT_ENDED,
        ENDED,
        LEFT_BEHIND
    } _end = NOT_ENDED;
};

} // namespace Zv
