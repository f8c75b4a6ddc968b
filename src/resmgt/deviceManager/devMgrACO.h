// The way back from a device to its manager.
#pragma once

#include "resmgt/deviceManager/devMgrFifo.h"
#include "resmgt/deviceProtocol/devACO.h"
#include "resmgt/deviceProtocol/devANO.h"
#include "resmgt/export.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/objPtr.h"

namespace Zv {

/// A completion that runs on the device's thread and does no more there than to pass an ANO on to
/// the manager's. Never blocks: the ANO is queued also if the FIFO is full. A device has few of these at a time, so the
/// FIFO stays bounded.
class ZVRESMGT_EXPORT DevMgrACO final : public DevACO
{
public:
    DevMgrACO(ObjPtr<DevANO> ano, RCShdPtr<DevMgrFifo> fifo);
    DevMgrACO(DevMgrACO const &) = delete;
    DevMgrACO &operator=(DevMgrACO const &) = delete;
    ~DevMgrACO() override;

    /// Passes the ANO on, once: it is gone then, and a second call throws `RCEx::ExNullPtr`.
    void performExecute() override;

private:
    ObjPtr<DevANO> _ano;
    RCShdPtr<DevMgrFifo> _fifo;
};

} // namespace Zv
