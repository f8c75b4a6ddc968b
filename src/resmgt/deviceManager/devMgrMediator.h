// The meeting point of one manager: its devices, its configuration lock, its queue and its thread.
#pragma once

#include "resmgt/deviceManager/devMgrCloseReport.h"
#include "resmgt/deviceManager/devMgrFailure.h"
#include "resmgt/deviceManager/devMgrFifo.h"
#include "resmgt/deviceProtocol/devMDPrtcl.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkLock.h"
#include "zvbase/containers.h"
#include "zvbase/objPtr.h"
#include "zvbase/threadAnnotations.h"

#include <exception>

namespace Zv {

class DevMgrDevice;
class DevMgrProgress;
class DevMgrThread;

/// Holds the devices that were created for one manager, the lock under which all configuration runs, and the queue
/// and the thread through which devices report back. The manager and its access objects share it; with the last of
/// them it closes the devices, the newest first, and stops the thread.
class ZVRESMGT_EXPORT DevMgrMediator : public RCBase<LkCounter<long>>
{
public:
    /// Starts the thread "DevMgr ANO".
    DevMgrMediator();
    /// Closes every device whose opening succeeded; one that fails to close does not keep the others open. Throws
    /// the first failure when all is done. After `close` there is nothing left to do. On the manager's own thread it fails
    /// the assertion "!isDestroyedOnDevMgrANO", and leaves the devices open and the thread running for the rest of the
    /// process.
    ~DevMgrMediator() noexcept(false) override;

    /// See `DevMgr::close`.
    [[nodiscard]] DevMgrCloseReport close(double seconds);
    /// Returns whether `close` was called.
    bool isClosed() const;
    /// Throws `DevMgrEx::ManagerClosed` if `close` was called.
    void expectNotClosed() const;
    /// Returns whether `close` has left "DevMgr ANO" behind. Then that thread may be in a sequence or in an observer for
    /// ever, and hold their locks.
    bool isThreadLeftBehind() const;

    /// The configuration lock, which a thread must hold while it configures. A slow device holds up other configuration,
    /// but no notification. Throws `DevMgrEx::ManagerClosed` after `close`. A thread that had to wait for the lock must
    /// ask `expectNotClosed` again, and hold a reference of its own to the mediator: the object whose operation it
    /// carries out may be gone.
    LkLock const &getLock() const ZV_RETURN_CAPABILITY(_configLock);
    RCShdPtr<DevMgrFifo> getFifo() const { return _fifo; }
    /// As `DevMgr::setFailureHandler`.
    void setFailureHandler(RCShdPtr<DevMgrFailureHandler> const &handler);

    /// Returns whether the device was created. Any thread.
    bool isPrtclCreated(LiString const &name) const;
    /// Returns the device, which may not be open. Any thread. Throws `DevMgrEx::NameNotFound` if the device was not
    /// created, and `DevMgrEx::ManagerClosed` after `close`.
    RCShdPtr<DevMDPrtcl> getPrtcl(LiString const &name) const;
    /// Returns what the opening of the device has thrown. Returns null if the device is open, is being opened, or has no
    /// access protocol. Any thread. Throws `DevMgrEx::NameNotFound` if the device was not created.
    std::exception_ptr getOpenFailure(LiString const &name) const;
    /// Returns the device with its opening and closing. Any thread. Throws as `getPrtcl` does.
    RCShdPtr<DevMgrDevice> getDevice(LiString const &name) const;
    /// Creates and opens the device unless that was done before. It is done at most once for each manager, also if the
    /// opening failed: then the device stays unopened, and further calls return. The caller must hold the configuration
    /// lock. Throws `DevPrtclEx::ExNameNotRegistered` if the registry does not hold the name, and what the device throws.
    /// Fails an assertion, at each call, if the registry's entry has made a null pointer. Throws
    /// `DevMgrEx::ManagerClosed` after `close`.
    void createPrtcl(LiString const &name) ZV_REQUIRES(_configLock);
    /// Creates and opens the device unless that was done before, and returns it. Takes the configuration lock
    /// only if the device has not been opened yet: the call does not wait for the opening of another device otherwise.
    /// Any thread.
    RCShdPtr<DevMDPrtcl> obtainPrtcl(LiString const &name);

private:
    struct Entry
    {
        RCShdPtr<DevMDPrtcl> prtcl;
        RCShdPtr<DevMgrDevice> device; // null if there is none of the name
    };

    Entry find(LiString const &name) const;
    Entry get(LiString const &name) const;
    void add(LiString const &name, Entry const &entry);
    void moveToEnd(RCShdPtr<DevMgrDevice> const &device);

    ObjPtr<DevMgrThread> _thread;
    LkLock _configLock;
    LkLock _prtclMapLock; // a leaf: other threads ask for devices while one is being created
    HashMap<LiString, Entry> _prtclMap ZV_GUARDED_BY(_prtclMapLock);
    Vector<RCShdPtr<DevMgrDevice>>
        _devices ZV_GUARDED_BY(_prtclMapLock); // the same, in the order in which they were opened
    RCShdPtr<DevMgrProgress> _progress;
    RCShdPtr<DevMgrFifo> _fifo;
    bool _isClosed = false; // written under the map's lock, read without
    bool _isThreadLeftBehind = false;
};

} // namespace Zv
