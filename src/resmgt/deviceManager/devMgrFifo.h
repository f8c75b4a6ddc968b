// Queue through which devices report to their manager (extenders).
#pragma once

#include "resmgt/deviceProtocol/devANO.h"
#include "resmgt/deviceProtocol/devANOFifo.h"
#include "resmgt/export.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/objPtr.h"

namespace Zv {

/// The queue of a device manager. Any thread produces, and the manager's thread "DevMgr ANO"
/// consumes. A full queue blocks a device that notifies of property changes faster than the
/// observers return. It does not block the reports of a sequence.
class ZVRESMGT_EXPORT DevMgrFifo : public DevANOFifo
{
public:
    /// `capacity` is the largest number of requests that wait, without the reports of a sequence. 0
    /// means no limit.
    explicit DevMgrFifo(int capacity);

protected:
    ~DevMgrFifo() override;
};

/// A completion that passes a request on to the manager's thread. It runs on the device's thread
/// and never blocks: the request is queued also if the queue is full. A device has few of these at
/// a time, so the queue stays bounded.
class ZVRESMGT_EXPORT DevMgrACO final : public DevACO
{
public:
    /// Owns the request `ano`, and shares the manager's queue.
    DevMgrACO(ObjPtr<DevANO> ano, RCShdPtr<DevMgrFifo> fifo);
    DevMgrACO(DevMgrACO const &) = delete;
    DevMgrACO &operator=(DevMgrACO const &) = delete;
    ~DevMgrACO() override;

    /// Passes the request on. Throws `RCEx::ExNullPtr` if it is called again.
    void performExecute() override;

private:
    ObjPtr<DevANO> _ano;
    RCShdPtr<DevMgrFifo> _fifo;
};

} // namespace Zv
