// The meeting point of one manager: its devices, its configuration lock, its queue and its thread.
#pragma once

#include "resmgt/deviceManager/devMgrFailure.h"
#include "resmgt/deviceManager/devMgrFifo.h"
#include "resmgt/deviceProtocol/devMDAccessPrtcl.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkLock.h"
#include "zvbase/containers.h"
#include "zvbase/objPtr.h"
#include "zvbase/threadAnnotations.h"

namespace Zv {

class DevMgrThread;

/// Holds the devices that were created for one manager, the lock under which all configuration runs, and the queue
/// and the thread through which devices report back. The manager and its access objects share it; with the last of
/// them it closes the devices, the newest first, and stops the thread.
class ZVRESMGT_EXPORT DevMgrMediator : public RCBase<LkCounter<long>>
{
public:
    /// Starts the thread "DevMgr ANO".
    DevMgrMediator();
    /// Closes every device whose opening succeeded; one that fails to close does not keep the others open. Throws the
    /// first failure when all is done. On the manager's own thread it fails the assertion "!isDestroyedOnDevMgrANO",
    /// and leaves the devices open and the thread running for the rest of the process.
    ~DevMgrMediator() noexcept(false) override;

    /// Held by whoever configures. A slow device holds up other configuration, but no notification.
    LkLock const &getLock() const ZV_RETURN_CAPABILITY(_configLock) { return _configLock; }
    RCShdPtr<DevMgrFifo> getFifo() const { return _fifo; }
    /// As `DevMgr::setFailureHandler`.
    void setFailureHandler(RCShdPtr<DevMgrFailureHandler> const &handler);

    /// Any thread.
    bool isPrtclCreated(LiString const &name) const;
    /// Any thread. `DevMgrEx::NameNotFound` for a device that was never created.
    RCShdPtr<DevMDPrtcl> getPrtcl(LiString const &name) const;
    /// Creates and opens the device unless that was done before: at most once for each manager, also where the
    /// opening failed. The caller holds the configuration lock. `DevPrtclEx::ExNameNotRegistered` for a name that
    /// the registry does not hold; what the device throws passes.
    void createPrtcl(LiString const &name) ZV_REQUIRES(_configLock);

private:
    ObjPtr<DevMgrThread> _thread;
    LkLock _configLock;
    LkLock _prtclMapLock; // a leaf: other threads ask for devices while one is being created
    HashMap<LiString, RCShdPtr<DevMDPrtcl>> _prtclMap ZV_GUARDED_BY(_prtclMapLock);
    Vector<RCShdPtr<DevMDAccessPrtcl>> _opened ZV_GUARDED_BY(_configLock);
    RCShdPtr<DevMgrFifo> _fifo;
};

} // namespace Zv
