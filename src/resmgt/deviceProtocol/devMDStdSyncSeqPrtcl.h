// The sequence face of a device that has a thread.
#pragma once

#include "resmgt/deviceProtocol/devMDStdANO.h"
#include "resmgt/deviceProtocol/devMDStdFifo.h"
#include "resmgt/deviceProtocol/devMDSyncSeqPrtcl.h"
#include "resmgt/literals/liString.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/objPtr.h"

namespace Zv {

/// Makes the requests of a sequence. Written by the device; called on the thread that drives the sequence.
class ZVRESMGT_EXPORT DevMDStdSyncSeqANOFactory
{
public:
    virtual ~DevMDStdSyncSeqANOFactory() noexcept(false);

    /// `recover` and `abort` are the notifications that the device keeps; see `DevMDSyncSeqPrtcl::performStart`.
    virtual ObjPtrRet<DevMDStdANO> createStartANO(ObjPtr<DevANO> recover, ObjPtr<DevANO> abort) = 0;
    virtual ObjPtrRet<DevMDStdANO> createSyncANO(DtTimeMark const &mark) = 0;
    virtual ObjPtrRet<DevMDStdANO> createSyncANO(DtTime const &latency) = 0;
    virtual ObjPtrRet<DevMDStdANO> createRecoverANO() = 0;
    virtual ObjPtrRet<DevMDStdANO> createStopANO() = 0;
    virtual ObjPtrRet<DevMDStdANO> createAbortANO() = 0;
};

/// Turns every step of a sequence into a request on the device's thread. Each call queues the request behind those that
/// the FIFO holds, also if it is full, and never blocks. A sequence has at most one step and one abort of a device on
/// their way, so the FIFO stays bounded. The ACO runs when the request has been executed. A device that
/// takes longer than that for a step takes the ACO out with `releaseACO` and runs it when the step is finished.
///
/// `getLatency` and `getMark` stay the device's. They run on other threads than the device's: what they read must be
/// safe to read there.
class ZVRESMGT_EXPORT DevMDStdSyncSeqPrtcl : public DevMDSyncSeqPrtcl
{
public:
    DevMDStdSyncSeqPrtcl(LiString const &name, RCShdPtr<DevMDStdFifo> fifo,
                         ObjPtr<DevMDStdSyncSeqANOFactory> anoFactory);

    void performStart(ObjPtr<DevACO> aco, ObjPtr<DevANO> recover, ObjPtr<DevANO> abort) override;
    void performSync(ObjPtr<DevACO> aco, DtTimeMark const &mark) override;
    void performSync(ObjPtr<DevACO> aco, DtTime const &latency) override;
    void performRecover(ObjPtr<DevACO> aco) override;
    void performStop(ObjPtr<DevACO> aco) override;
    void performAbort(ObjPtr<DevACO> aco) override;

protected:
    ~DevMDStdSyncSeqPrtcl() override;

private:
    void send(ObjPtr<DevMDStdANO> ano, ObjPtr<DevACO> aco);

    LiString _name;
    RCShdPtr<DevMDStdFifo> _fifo;
    ObjPtr<DevMDStdSyncSeqANOFactory> _anoFactory;
};

} // namespace Zv
