// Opening and closing a device.
#pragma once

#include "resmgt/deviceProtocol/devMDPrtcl.h"

namespace Zv {

/// The face of a device that has to be opened before use. The manager calls both operations on clients' threads.
class ZVRESMGT_EXPORT DevMDAccessPrtcl : public virtual DevMDPrtcl
{
public:
    /// Returns when the device is open. Called once, by the thread that names the device first, under the manager's
    /// configuration lock: other configuration waits for it. If it throws, the device is neither opened again nor
    /// closed.
    virtual void performOpen() = 0;
    /// Returns when the device is closed. Called if `performOpen` has returned, by the thread that releases the last
    /// reference to the manager and its access objects, or by a thread "DevMgr close" of `DevMgr::close`, which has a stack
    /// of 1 MiB. That thread does not hold the configuration lock for it.
    virtual void performClose() = 0;

protected:
    ~DevMDAccessPrtcl() override;
};

} // namespace Zv
