// The device manager, as a client sees it.
#pragma once

#include "resmgt/deviceManager/access/devMgrPropertyAcc.h"
#include "resmgt/deviceManager/access/devMgrSeqSupervisor.h"
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
/// and all its access objects are gone. A device whose opening failed is kept as it is: it is not opened again, and
/// later mentions of its name find it unopened. Another attempt needs a new manager. Managers share the registry of
/// device kinds and nothing else. All operations may be called by any thread but those of devices and "DevMgr ANO";
/// they block while another thread configures.
///
/// Releasing the last of the manager and its access objects closes all devices, the newest first, and destroys them.
/// It blocks until that is done, and then throws the first failure of a device's closing or destruction. It must not
/// be done on "DevMgr ANO", which would wait for its own end.
class ZVRESMGT_EXPORT DevMgr
{
public:
    static ObjPtrRet<DevMgr> create();

    virtual ~DevMgr() noexcept(false);

    virtual ObjPtrRet<DevMgrSyncSeqAcc> createSyncSeqAcc() = 0;
    virtual ObjPtrRet<DevMgrStreamAcc> createStreamAcc() = 0;
    virtual ObjPtrRet<DevMgrPropertyAcc> createPropertyAcc() = 0;
    /// Returns the device's protocol object, to be cast to the device's own interface. Creates and opens the device if
    /// that has not happened yet. Throws `DevPrtclEx::ExNameNotRegistered` for an unknown name, and what the creation or
    /// the opening of the device throws.
    virtual RCShdPtr<DevMDPrtcl> getPrtcl(LiString const &name) = 0;
    /// Creates and opens the devices of a sequence string, and returns their supervisor. Takes no device into a sequence
    /// whose opening has failed, now or before.
    ///
    /// Throws `DevMgrEx::ConfigSyntaxError` for a bad string and for a second root, `DevMgrEx::NameNotUnique` if a device
    /// stands twice in it, `DevPrtclEx::ExNameNotRegistered` for an unknown device, `DevMgrEx::BadMDPrtclImp` for one
    /// without the sequence protocol, and what the creation or the opening of a device throws. After a failure the
    /// devices that were opened stay open.
    virtual ObjPtrRet<DevMgrSeqSupervisor> createSeqSupervisor(LiString const &config) = 0;

protected:
    DevMgr() = default;
};

} // namespace Zv
