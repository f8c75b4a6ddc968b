// The queue through which devices report to their manager.
#pragma once

#include "resmgt/deviceProtocol/devANOFifo.h"

namespace Zv {

/// The queue of one device manager. All threads produce, the manager's thread "DevMgr ANO" consumes. A full one blocks a
/// device whose properties change faster than observers are told of it. It does not block the reports of a sequence.
class ZVRESMGT_EXPORT DevMgrFifo : public DevANOFifo
{
public:
    /// `capacity` is the number of ANOs that wait at most, not counting the reports of a sequence. 0 means no limit.
    explicit DevMgrFifo(int capacity);

protected:
    ~DevMgrFifo() override;
};

} // namespace Zv
