// The device manager, as a client sees it.
#pragma once

#include "resmgt/deviceManager/access/devMgrPropertyAcc.h"
#include "resmgt/deviceManager/access/devMgrSeqSupervisor.h"
#include "resmgt/deviceManager/access/devMgrStreamAcc.h"
#include "resmgt/deviceManager/access/devMgrSyncSeqAcc.h"
#include "resmgt/deviceManager/devMgrCloseReport.h"
#include "resmgt/deviceManager/devMgrFailure.h"
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
/// and all its access objects are gone. A device whose opening failed is kept as it is. It is not opened again, and
/// later mentions of its name find it unopened and do not fail: its sequence then never gets beyond the state `start`,
/// and reading one of its properties blocks. `DevMgrMediator::getOpenFailure` has the reason. Another attempt needs a
/// new manager. Managers share the registry of device kinds and nothing else.
///
/// **Threads**: all operations may be called by any thread but those of devices and "DevMgr ANO".
///
/// **Blocks**: all operations block while another thread configures, except for `close`, and for `getPrtcl` of a device
/// that was opened before.
///
/// Releasing the last of the manager and its access objects closes all devices, the newest first, and destroys them.
/// It blocks until that is done, and then throws the first failure of a device's closing or destruction. It must not
/// be done on "DevMgr ANO", such as by an observer or a failure handler: that fails the assertion
/// "!isDestroyedOnDevMgrANO", and leaves the devices open for the rest of the process. Call `close` before if a device may
/// hang. A device that is in a call of a supervised sequence is not waited for, and closed when the call returns.
class ZVRESMGT_EXPORT DevMgr
{
public:
    static ObjPtrRet<DevMgr> create();

    virtual ~DevMgr() noexcept(false);

    virtual ObjPtrRet<DevMgrSyncSeqAcc> createSyncSeqAcc() = 0;
    virtual ObjPtrRet<DevMgrStreamAcc> createStreamAcc() = 0;
    virtual ObjPtrRet<DevMgrPropertyAcc> createPropertyAcc() = 0;
    /// Returns the device's protocol object, to be cast to the device's own interface. Creates and opens the device if
    /// that has not happened yet. Throws `DevPrtclEx::ExNameNotRegistered` for an unknown name, and what the creation
    /// or the opening of the device throws.
    virtual RCShdPtr<DevMDPrtcl> getPrtcl(LiString const &name) = 0;
    /// Creates and opens the devices of a sequence string, and returns their supervisor. Takes no device into a sequence
    /// whose opening has failed, now or before.
    ///
    /// Throws `DevMgrEx::ConfigSyntaxError` for a bad string and for a second root, `DevMgrEx::NameNotUnique` if a device
    /// stands twice in it, `DevPrtclEx::ExNameNotRegistered` for an unknown device, `DevMgrEx::BadMDPrtclImp` for one
    /// without the sequence protocol, and what the creation or the opening of a device throws. After a failure the
    /// devices that were opened stay open.
    virtual ObjPtrRet<DevMgrSeqSupervisor> createSeqSupervisor(LiString const &config) = 0;
    /// Installs a handler for exceptions on "DevMgr ANO", or takes it away if `handler` is null. Without one, such an
    /// exception ends the process. The former handler may still be called once after that. Does not block.
    virtual void setFailureHandler(RCShdPtr<DevMgrFailureHandler> handler) = 0;

    /// Closes all devices, the newest first, and ends "DevMgr ANO", within a limit of time. What does not end in time is
    /// left behind, and named in the report:
    ///
    ///     ObjPtr<DevMgr> manager = DevMgr::create();
    ///     for (LiString const &name : manager->close(5).getLeftBehind())
    ///         std::cerr << name << " does not close.\n";
    ///
    /// - "DevMgr ANO" ends first, when it has executed what was queued for it. If it has not within half of the limit,
    ///   because a device or an observer does not return from a call, it is left behind.
    /// - Each device is closed on a thread of its own. If it takes longer than its share of the time, the next device is
    ///   closed without waiting for it. A device that has not closed at the end of the limit is left behind: it is never
    ///   closed again and never destroyed, and its threads run on. Supervised sequences do not call a closed device.
    /// - A device that another thread is opening, or that a supervised sequence is calling, is waited for in the same way.
    ///   The opening then throws `DevMgrEx::ManagerClosed`. A call that returns after the limit closes its device itself.
    /// - The other devices are destroyed when the last object that uses them is destroyed.
    ///
    /// From now on the operations of the manager and of its access objects throw `DevMgrEx::ManagerClosed`, and nothing
    /// that a device reports is heard. The manager and its access objects can then be destroyed without blocking, also
    /// while a thread hangs in one of their operations because of a device. A thread that is still in
    /// `DevMgrSyncSeqAcc::wait` is let go when its access object is destroyed.
    ///
    /// **Threads**: any thread but those of devices and "DevMgr ANO", on which an assertion fails. If another thread is in
    /// `start` or `stop` of a `DevMgrSyncSeqAcc`, a device may be called after it was closed.
    ///
    /// **Blocks** for `seconds` at most, and for the destructors of devices.
    ///
    /// **Throws** `DevMgrEx::ManagerClosed` if it was called before. What devices throw is in the report.
    [[nodiscard]] virtual DevMgrCloseReport close(double seconds) = 0;

protected:
    DevMgr() = default;
};

} // namespace Zv
