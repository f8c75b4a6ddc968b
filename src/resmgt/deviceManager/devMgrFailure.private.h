// Description of a request that has failed on the manager's thread.
#pragma once

#include "resmgt/deviceManager/devMgrFailure.h"

namespace Zv {

/// A request that can describe what it was doing when it threw. The caller adds the exception.
class DevMgrFailureSource
{
public:
    virtual DevMgrFailure getFailure() const = 0;

protected:
    ~DevMgrFailureSource() = default;
};

} // namespace Zv
