// A device as its sequence machine calls it.
#pragma once

#include "resmgt/deviceManager/devMgrFifo.h"
#include "resmgt/deviceProtocol/devANO.h"
#include "resmgt/deviceProtocol/devMDSyncSeqPrtcl.h"
#include "resmgt/export.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/objPtr.h"

namespace Zv {

/// Calls a device's protocol on behalf of its machine, and gives it with each request the
/// notification by which the device's report comes back: a fresh clone of a prototype, on its way
/// through the manager's FIFO. Every operation runs under the tree's lock, blocks as long as the
/// protocol does, and lets the protocol's exceptions pass.
class ZVRESMGT_EXPORT DevSeqPrtclUtil : public RCBase<LkCounter<long>>
{
public:
    /// The reports of one kind, recovery or abort, that one device can have in the manager's FIFO. While so many wait,
    /// a further one is dropped: the tree could not learn anything new from it.
    static constexpr long MAX_WAITING_REPORTS = 8;

    /// Notifications that do nothing, without a FIFO.
    explicit DevSeqPrtclUtil(RCShdPtr<DevMDSyncSeqPrtcl> prtcl);
    /// The prototypes deliver, in this order, `READY`, `LOCK`, `ABORTED`, `STOPPED`, `RECOVER` and
    /// `ABORT` to the node.
    DevSeqPrtclUtil(RCShdPtr<DevMDSyncSeqPrtcl> prtcl, RCShdPtr<DevMgrFifo> fifo,
                    ObjPtr<DevClonableANO> ready, ObjPtr<DevClonableANO> lock,
                    ObjPtr<DevClonableANO> aborted, ObjPtr<DevClonableANO> stopped,
                    ObjPtr<DevClonableANO> recover, ObjPtr<DevClonableANO> abort);
    DevSeqPrtclUtil(DevSeqPrtclUtil const &) = delete;
    DevSeqPrtclUtil &operator=(DevSeqPrtclUtil const &) = delete;

    /// Ends in `READY`; from now on the device may ask for `RECOVER` and `ABORT`.
    void start();
    /// The root's form. Ends in `LOCK`.
    void sync(DtTime const &latency);
    /// Every other node's form, with the parent's mark. Ends in `LOCK`.
    void sync(DtTimeMark const &mark);
    /// Ends in `READY`, as a start does.
    void recover();
    /// Ends in `STOPPED`.
    void stop();
    /// Ends in `ABORTED`.
    void abort();
    DtTime getLatency();
    DtTimeMark getMark();

protected:
    ~DevSeqPrtclUtil() override;

private:
    ObjPtrRet<DevACO> complete(ObjPtr<DevClonableANO> const &prototype) const;
    ObjPtrRet<DevANO> keep(ObjPtr<DevClonableANO> const &prototype) const;

    RCShdPtr<DevMDSyncSeqPrtcl> _prtcl;
    RCShdPtr<DevMgrFifo> _fifo;
    ObjPtr<DevClonableANO> _readyANO;
    ObjPtr<DevClonableANO> _lockANO;
    ObjPtr<DevClonableANO> _abortedANO;
    ObjPtr<DevClonableANO> _stoppedANO;
    ObjPtr<DevClonableANO> _recoverANO;
    ObjPtr<DevClonableANO> _abortANO;
};

} // namespace Zv
