// What the manager's thread asks an ANO that has failed.
#pragma once

#include "resmgt/deviceManager/devMgrFailure.h"

namespace Zv {

/// An ANO that can say what it was about when its execution threw. The exception is added by the caller.
class DevMgrFailureSource
{
public:
    virtual DevMgrFailure getFailure() const = 0;

protected:
    ~DevMgrFailureSource() = default;
};

} // namespace Zv
