// The queue through which devices report to their manager.
#pragma once

#include "resmgt/deviceProtocol/devANOFifo.h"

namespace Zv {

/// The queue of one device manager. All threads produce, the manager's thread "DevMgr ANO" consumes. A full one blocks
/// its producers, and so a device that reports faster than its reports are worked on.
class ZVRESMGT_EXPORT DevMgrFifo : public DevANOFifo
{
public:
    /// `capacity` is the number of ANOs that wait at most; 0 means no limit.
    explicit DevMgrFifo(int capacity);

protected:
    ~DevMgrFifo() override;
};

} // namespace Zv
