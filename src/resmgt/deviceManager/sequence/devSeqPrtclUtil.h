// Calls of a device by its sequence machine, and a device that does nothing (extenders).
#pragma once

#include "resmgt/deviceManager/devMgrFifo.h"
#include "resmgt/deviceProtocol/devANO.h"
#include "resmgt/deviceProtocol/devMDPrtcl.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/objPtr.h"

namespace Zv {

/// Calls a device's protocol for the device's sequence machine. With each call it passes the
/// notification by which the device reports back. The notification is a new clone of a prototype
/// and returns through the manager's queue.
///
/// **Threads**: one thread at a time, under the tree's lock.
///
/// **Blocks**: as long as the device's protocol does.
///
/// **Throws**: what the device's protocol throws, and `RCEx::ExNullPtr` if the protocol is null.
class ZVRESMGT_EXPORT DevSeqPrtclUtil : public RCBase<LkCounter<long>>
{
public:
    /// The largest number of reports of one kind, recovery or abort, that one device can have in
    /// the manager's queue. Further ones are dropped. The tree could not learn anything new from
    /// them.
    static constexpr long MAX_WAITING_REPORTS = 8;

    /// Makes an object without a queue. Requests to recover and to abort then do nothing. A
    /// completion that is run throws `RCEx::ExNullPtr`, so the protocol must destroy its
    /// completions.
    explicit DevSeqPrtclUtil(RCShdPtr<DevMDSyncSeqPrtcl> prtcl);
    /// Makes an object with the queue and the prototypes of the notifications of `READY`, `LOCK`,
    /// `ABORTED`, `STOPPED`, `RECOVER` and `ABORT`.
    DevSeqPrtclUtil(RCShdPtr<DevMDSyncSeqPrtcl> prtcl, RCShdPtr<DevMgrFifo> fifo,
                    ObjPtr<DevClonableANO> ready, ObjPtr<DevClonableANO> lock,
                    ObjPtr<DevClonableANO> aborted, ObjPtr<DevClonableANO> stopped,
                    ObjPtr<DevClonableANO> recover, ObjPtr<DevClonableANO> abort);
    DevSeqPrtclUtil(DevSeqPrtclUtil const &) = delete;
    DevSeqPrtclUtil &operator=(DevSeqPrtclUtil const &) = delete;

    /// Sets the name of the device, under which a `TraceSession` shows its steps. Call it before
    /// the first step.
    void setName(LiString const &name) { _name = name; }

    /// Starts the device, which then reports `READY`. From this call on it may report `RECOVER` and
    /// `ABORT`.
    void start();
    /// Locks the root device, which then reports `LOCK`.
    void sync(DtTime const &latency);
    /// Locks another device to the mark of its parent. It then reports `LOCK`.
    void sync(DtTimeMark const &mark);
    /// Recovers the device, which then reports `READY`.
    void recover();
    /// Stops the device, which then reports `STOPPED`.
    void stop();
    /// Aborts the device, which then reports `ABORTED`.
    void abort();
    DtTime getLatency();
    DtTimeMark getMark();

protected:
    ~DevSeqPrtclUtil() override;

private:
    ObjPtrRet<DevACO> complete(ObjPtr<DevClonableANO> const &prototype, char const *step) const;
    ObjPtrRet<DevANO> keep(ObjPtr<DevClonableANO> const &prototype) const;

    RCShdPtr<DevMDSyncSeqPrtcl> _prtcl;
    RCShdPtr<DevMgrFifo> _fifo;
    LiString _name;
    ObjPtr<DevClonableANO> _readyANO;
    ObjPtr<DevClonableANO> _lockANO;
    ObjPtr<DevClonableANO> _abortedANO;
    ObjPtr<DevClonableANO> _stoppedANO;
    ObjPtr<DevClonableANO> _recoverANO;
    ObjPtr<DevClonableANO> _abortANO;
};

/// A device that does nothing. It destroys the completions without running them, so no step of it
/// is ever finished. Its latency is zero, and its mark is unset.
class ZVRESMGT_EXPORT NoopedSyncSeqProtocol : public DevMDSyncSeqPrtcl
{
public:
    NoopedSyncSeqProtocol() = default;

    void performStart(ObjPtr<DevACO> aco, ObjPtr<DevANO> recover, ObjPtr<DevANO> abort) override;
    void performSync(ObjPtr<DevACO> aco, DtTimeMark const &mark) override;
    void performSync(ObjPtr<DevACO> aco, DtTime const &latency) override;
    void performRecover(ObjPtr<DevACO> aco) override;
    void performStop(ObjPtr<DevACO> aco) override;
    void performAbort(ObjPtr<DevACO> aco) override;
    DtTime getLatency() override;
    DtTimeMark getMark() override;

protected:
    ~NoopedSyncSeqProtocol() override;
};

} // namespace Zv
