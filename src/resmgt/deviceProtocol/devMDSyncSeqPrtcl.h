// Starting, synchronising and stopping a device together with others.
#pragma once

#include "resmgt/deviceProtocol/devANO.h"
#include "resmgt/deviceProtocol/devMDPrtcl.h"
#include "zvbase/dtTime.h"

namespace Zv {

/// The face of a device that takes part in a synchronised sequence.
///
/// The device keeps the ACO, and must run it once, when the step is finished. It may do so on any thread, also before the
/// call has returned: the ACO queues a report for the manager's thread and never blocks.
///
/// **Threads**: the calls come one at a time, in a supervised sequence from "DevMgr Seq", otherwise from clients' threads
/// and from "DevMgr ANO". At most one step of a device is on its way, besides an abort.
///
/// **Blocks**: the calls run under the lock of the sequence. A call must hand the request over and return. It must not
/// wait for the completion of a step, for a property or a stream, nor tell of a change of a property: the manager's queue
/// may be full, and the thread that empties it may be waiting for the lock.
class ZVRESMGT_EXPORT DevMDSyncSeqPrtcl : public virtual DevMDPrtcl
{
public:
    /// `recover` and `abort` are for the device to keep. It executes one of them, on any thread, when it wants a recovery
    /// or has to abort. That queues a report for the manager's thread and never blocks. If 8 reports of that kind of this
    /// device wait in the queue, the report is dropped.
    virtual void performStart(ObjPtr<DevACO> aco, ObjPtr<DevANO> recover, ObjPtr<DevANO> abort) = 0;
    /// Lock to the mark of the parent device.
    virtual void performSync(ObjPtr<DevACO> aco, DtTimeMark const &mark) = 0;
    /// Lock as the root, with the largest latency of the sequence.
    virtual void performSync(ObjPtr<DevACO> aco, DtTime const &latency) = 0;
    virtual void performRecover(ObjPtr<DevACO> aco) = 0;
    virtual void performStop(ObjPtr<DevACO> aco) = 0;
    virtual void performAbort(ObjPtr<DevACO> aco) = 0;
    /// How long the device takes from input to output. Asked once it has started.
    virtual DtTime getLatency() = 0;
    /// The point of time that the device has locked to. Asked once it has locked.
    virtual DtTimeMark getMark() = 0;

protected:
    ~DevMDSyncSeqPrtcl() override;
};

} // namespace Zv
