// Starting, synchronising and stopping a device together with others.
#pragma once

#include "resmgt/deviceProtocol/devANO.h"
#include "resmgt/deviceProtocol/devMDPrtcl.h"
#include "zvbase/dtTime.h"

namespace Zv {

/// The face of a device that takes part in a synchronised sequence.
///
/// The ACO is the device's to keep, and the device causes it to run when the step is finished. The calls run under
/// the lock of the sequence: they hand the request over and must not wait for its completion.
class ZVRESMGT_EXPORT DevMDSyncSeqPrtcl : public virtual DevMDPrtcl
{
public:
    /// `recover` and `abort` are for the device to keep: it executes one of them, from any thread and as often as it
    /// happens, when it wants a recovery or has to abort. That queues the report for the manager's thread.
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
