// Device manager: creates, opens and closes devices (applications).
#pragma once

#include "resmgt/deviceManager/access/devMgrPropertyAcc.h"
#include "resmgt/deviceManager/access/devMgrSeqSupervisor.h"
#include "resmgt/deviceManager/access/devMgrStreamAcc.h"
#include "resmgt/deviceManager/access/devMgrSyncSeqAcc.h"
#include "resmgt/deviceManager/devMgrFailure.h"
#include "resmgt/deviceProtocol/devMDPrtcl.h"
#include "resmgt/export.h"
#include "resmgt/locks/lkDuration.h"
#include "zvbase/objPtr.h"

namespace Zv {

/// A device manager. A client creates one, and from it the objects through which it runs sequences,
/// connects streams and uses properties:
///
///     ObjPtr<DevMgr> const manager = DevMgr::create();
///     ObjPtr<DevMgrSeqSupervisor> const sequence =
///         manager->createSeqSupervisor("( recorder ( player ) )");
///     sequence->start();
///
/// A device is created and opened when its name is first mentioned, once for each manager. It is
/// closed when the manager and all its access objects have been destroyed. Managers share the
/// registry of device kinds and nothing else.
///
/// If the opening of a device fails, the device stays in the manager unopened. It is not opened
/// again, and later mentions of its name do not fail. If it is a standard device, a plain sequence
/// of it does not get beyond the state `start`, reading its properties throws
/// `DevPrtclEx::ExMDStdPropertyGet`, and setting them has no effect. A supervisor refuses it.
/// `DevMgrMediator::getOpenFailure` returns the reason. Another attempt needs a new manager.
///
/// Releasing the last of the manager and its access objects closes all devices, the newest first,
/// and destroys them. It blocks until that is done, and then throws the first failure of a device's
/// closing or destruction. It does not wait for a device that is in a call of a supervised
/// sequence. That device is closed when the call returns. The last object must not be released on
/// "DevMgr ANO", for example by an observer or a failure handler. That fails the assertion
/// "!isDestroyedOnDevMgrANO", and the devices stay open until the process ends. If a device may
/// hang, call `close` before.
///
/// **Threads**: any thread may call any operation at any time, except the threads of devices and
/// "DevMgr ANO".
///
/// **Blocks**: all operations block while another thread configures, except `close`,
/// `setFailureHandler`, and `getPrtcl` of a device that has been opened.
class ZVRESMGT_EXPORT DevMgr
{
public:
    /// Creates a manager and starts its thread "DevMgr ANO". Fails the assertion "canStart()"
    /// before the first `InPackageScope`.
    [[nodiscard]] static ObjPtrRet<DevMgr> create();

    virtual ~DevMgr() noexcept(false);

    /// Create an access object. It keeps the manager's devices open.
    [[nodiscard]] virtual ObjPtrRet<DevMgrSyncSeqAcc> createSyncSeqAcc() = 0;
    [[nodiscard]] virtual ObjPtrRet<DevMgrStreamAcc> createStreamAcc() = 0;
    [[nodiscard]] virtual ObjPtrRet<DevMgrPropertyAcc> createPropertyAcc() = 0;
    /// Returns the device, so that it can be cast to its own interface. Creates and opens it first
    /// if that has not been done. Throws `DevPrtclEx::ExNameNotRegistered` if the name is unknown,
    /// and what the device throws when it is created or opened.
    virtual RCShdPtr<DevMDPrtcl> getPrtcl(LiString const &name) = 0;
    /// Creates and opens the devices of a sequence string, and returns their supervisor.
    ///
    /// Throws `DevMgrEx::ConfigSyntaxError` if the string is wrong or has a second root,
    /// `DevMgrEx::NameNotUnique` if it names a device twice, `DevPrtclEx::ExNameNotRegistered` if a
    /// device is unknown, and `DevMgrEx::BadMDPrtclImp` if a device has no sequence protocol.
    /// Throws what a device throws when it is created or opened, also if its opening has failed
    /// earlier. After a failure the devices that were opened stay open.
    [[nodiscard]] virtual ObjPtrRet<DevMgrSeqSupervisor>
    createSeqSupervisor(LiString const &config) = 0;
    /// Sets the handler of exceptions on "DevMgr ANO". Null means none. Without a handler, such an
    /// exception ends the process. The former handler may still be called once after this call.
    /// Does not block.
    virtual void setFailureHandler(RCShdPtr<DevMgrFailureHandler> handler) = 0;

    /// Closes all devices, the newest first, and ends "DevMgr ANO", within a limit. What does not
    /// end in time is left behind, and named in the report:
    ///
    ///     ObjPtr<DevMgr> const manager = DevMgr::create();
    ///     for (LiString const &name : manager->close(5).getLeftBehind())
    ///         std::cerr << name << " does not close.\n";
    ///
    /// - "DevMgr ANO" ends first, when it has executed what was queued for it. It is left behind if
    ///   a device or an observer that it calls does not return within half of the limit.
    /// - Each device is closed on a thread of its own. If it takes longer than its share of the
    ///   time, the next device is closed without waiting for it. A device that has not closed at
    ///   the end of the limit is left behind. It is never closed again and never destroyed, and its
    ///   threads run on. Supervised sequences do not call a closed device.
    /// - If another thread is opening a device, or if a supervised sequence is calling it, `close`
    ///   waits for that in the same way. The opening then throws `DevMgrEx::ManagerClosed`. If the
    ///   call returns after the limit, the device is closed on the thread of that call.
    /// - The other devices are destroyed when the last object that uses them is destroyed.
    ///
    /// From now on the operations of the manager and of its access objects throw
    /// `DevMgrEx::ManagerClosed`, and reports of devices have no effect. The manager and its access
    /// objects can be destroyed without blocking, also while a thread hangs in one of their
    /// operations because of a device. If a thread is in `DevMgrSyncSeqAcc::wait`, it is released
    /// when its access object is destroyed.
    ///
    /// **Threads**: any thread except those of devices and "DevMgr ANO", on which an assertion
    /// fails. If another thread is in `start` or `stop` of a `DevMgrSyncSeqAcc`, a device may be
    /// called after it was closed.
    ///
    /// **Blocks** for `seconds` at most, and for the destructors of devices.
    ///
    /// **Throws** `DevMgrEx::ManagerClosed` if it was called before. What devices throw is in the
    /// report.
    [[nodiscard]] virtual DevMgrCloseReport close(double seconds) = 0;
    template <LkDuration Limit>
    [[nodiscard]] DevMgrCloseReport close(Limit const &limit)
    {
        return close(Detail::countSeconds(limit));
    }

protected:
    DevMgr() = default;
};

} // namespace Zv
