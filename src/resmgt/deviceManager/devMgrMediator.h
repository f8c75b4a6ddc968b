// Shared part of a device manager: its devices, configuration lock, queue and thread (extenders).
#pragma once

#include "resmgt/deviceManager/devMgrFailure.h"
#include "resmgt/deviceManager/devMgrFifo.h"
#include "resmgt/deviceProtocol/devMDPrtcl.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkLock.h"
#include "zvbase/objPtr.h"
#include "zvbase/platform/shared.h"
#include "zvbase/sequenceContainers.h"
#include "zvbase/threadAnnotations.h"

#include <exception>

namespace Zv {

class DevMgrDevice;
class DevMgrProgress;
class DevMgrThread;

/// The part of a device manager that it shares with its access objects. It has the devices, the
/// lock under which all configuration runs, and the queue and the thread through which devices
/// report. When the last of the manager and its access objects is destroyed, it closes the devices,
/// the newest first, and ends the thread.
///
/// **Threads**: thread-safe, unless an operation says that the caller must hold the configuration
/// lock.
class ZVRESMGT_EXPORT DevMgrMediator : public RCBase<LkCounter<long>>
{
public:
    /// Starts the thread "DevMgr ANO".
    DevMgrMediator();
    /// Closes every device whose opening has succeeded. If a device fails to close, the others are
    /// closed nevertheless, and the first failure is thrown at the end. Does nothing if `close` was
    /// called. On the manager's own thread the assertion "!isDestroyedOnDevMgrANO" fails, and the
    /// devices stay open and the thread runs until the process ends.
    ~DevMgrMediator() noexcept(false) override;

    /// Closes the manager, see `DevMgr::close`.
    [[nodiscard]] DevMgrCloseReport close(double seconds);
    /// Returns true if `close` was called.
    bool isClosed() const;
    /// Throws `DevMgrEx::ManagerClosed` if `close` was called.
    void expectNotClosed() const;
    /// Returns true if `close` has left "DevMgr ANO" behind. That thread may never return from a
    /// sequence or an observer, and may hold their locks.
    bool isThreadLeftBehind() const;

    /// Returns the configuration lock, which a thread must hold while it configures. A slow device
    /// delays other configuration, but no notification. Throws `DevMgrEx::ManagerClosed` after
    /// `close`. A thread that had to wait for the lock must call `expectNotClosed` again, and must
    /// hold its own reference to the mediator, because the object whose operation it carries out
    /// may have been destroyed.
    LkLock const &getLock() const ZV_RETURN_CAPABILITY(_configLock);
    RCShdPtr<DevMgrFifo> getFifo() const { return _fifo; }
    /// Sets the handler, see `DevMgr::setFailureHandler`.
    void setFailureHandler(RCShdPtr<DevMgrFailureHandler> const &handler);

    /// Returns true if the device was created. Returns false after `close`.
    bool isPrtclCreated(LiString const &name) const;
    /// Returns the device, which may not be open. Throws `DevMgrEx::NameNotFound` if it was not
    /// created, and `DevMgrEx::ManagerClosed` after `close`.
    RCShdPtr<DevMDPrtcl> getPrtcl(LiString const &name) const;
    /// Returns what the opening of the device has thrown. Returns null if the device is open, is
    /// being opened, or has no access protocol. Throws `DevMgrEx::NameNotFound` if the device was
    /// not created, and `DevMgrEx::ManagerClosed` after `close`.
    std::exception_ptr getOpenFailure(LiString const &name) const;
    /// Returns the record of the device's opening and closing. Throws like `getPrtcl`.
    RCShdPtr<DevMgrDevice> getDevice(LiString const &name) const;
    /// Creates and opens the device if that has not been done. It is done once for each manager. If
    /// the opening has failed, the device stays unopened, and further calls return. The caller must
    /// hold the configuration lock. The call blocks until the device is open.
    ///
    /// Throws `DevPrtclEx::ExNameNotRegistered` if the registry has no such name, what the device
    /// throws, and `DevMgrEx::ManagerClosed` after `close`. Fails an assertion, at each call, if
    /// the registry's entry has returned null.
    void createPrtcl(LiString const &name) ZV_REQUIRES(_configLock);
    /// Creates and opens the device if that has not been done, and returns it. If an earlier
    /// opening has failed, returns the unopened device.
    ///
    /// Takes the configuration lock only if the device is unknown or is being opened. Otherwise the
    /// call does not wait for the opening of another device. Throws like `createPrtcl`.
    RCShdPtr<DevMDPrtcl> obtainPrtcl(LiString const &name);

private:
    struct Entry
    {
        RCShdPtr<DevMDPrtcl> prtcl;
        RCShdPtr<DevMgrDevice> device; // null if there is none of the name
    };

    struct PrtclMap; // entries by the name of the device

    Entry find(LiString const &name) const;
    Entry get(LiString const &name) const;
    void add(LiString const &name, Entry const &entry);
    void moveToEnd(RCShdPtr<DevMgrDevice> const &device);

    ObjPtr<DevMgrThread> _thread;
    LkLock _configLock;
    LkLock _prtclMapLock; // a leaf. Other threads look for devices while one is being created
    ObjPtr<PrtclMap> const _prtclMap ZV_PT_GUARDED_BY(_prtclMapLock);
    Vector<RCShdPtr<DevMgrDevice>>
        _devices ZV_GUARDED_BY(_prtclMapLock); // the same, in the order in which they were opened
    RCShdPtr<DevMgrProgress> _progress;
    RCShdPtr<DevMgrFifo> _fifo;
    ZvPlatform::Shared<bool> _isClosed{false}; // written under the map's lock, read without
    ZvPlatform::Shared<bool> _isThreadLeftBehind{false};
};

} // namespace Zv
