// Opening and closing a device.
#pragma once

#include "resmgt/deviceProtocol/devMDPrtcl.h"

namespace Zv {

/// The face of a device that has to be opened before use. Both operations run on a client's thread, under the
/// manager's configuration lock, and return when the device is open or closed.
class ZVRESMGT_EXPORT DevMDAccessPrtcl : public virtual DevMDPrtcl
{
public:
    virtual void performOpen() = 0;
    virtual void performClose() = 0;

protected:
    ~DevMDAccessPrtcl() override;
};

} // namespace Zv
