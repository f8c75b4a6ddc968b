// The device manager, as a client sees it.
#pragma once

#include "resmgt/deviceManager/access/devMgrPropertyAcc.h"
#include "resmgt/deviceManager/access/devMgrStreamAcc.h"
#include "resmgt/deviceManager/access/devMgrSyncSeqAcc.h"
#include "resmgt/deviceProtocol/devMDPrtcl.h"
#include "resmgt/export.h"
#include "zvbase/objPtr.h"

namespace Zv {

/// One instance of the device manager. A client creates it, and from it the access objects through which it
/// configures sequences, streams and properties:
///
///     ObjPtr<DevMgr> manager = DevMgr::create();
///     ObjPtr<DevMgrSyncSeqAcc> sequence = manager->createSyncSeqAcc();
///     sequence->configure("( recorder ( player ) )");
///     sequence->start();
///
/// A device is created and opened at its first mention by name, once for each manager, and closed when the manager
/// and all its access objects are gone. Managers share the registry of device kinds and nothing else. All operations
/// may be called by any thread but those of devices and "DevMgr ANO"; they block while another thread configures.
class ZVRESMGT_EXPORT DevMgr
{
public:
    static ObjPtrRet<DevMgr> create();

    virtual ~DevMgr() noexcept(false);

    virtual ObjPtrRet<DevMgrSyncSeqAcc> createSyncSeqAcc() = 0;
    virtual ObjPtrRet<DevMgrStreamAcc> createStreamAcc() = 0;
    virtual ObjPtrRet<DevMgrPropertyAcc> createPropertyAcc() = 0;
    /// The device's protocol object, created and opened where that has not happened, to be cast to the device's own
    /// interface. `DevPrtclEx::ExNameNotRegistered` for an unknown name; what the device throws passes.
    virtual RCShdPtr<DevMDPrtcl> getPrtcl(LiString const &name) = 0;

protected:
    DevMgr() = default;
};

} // namespace Zv
