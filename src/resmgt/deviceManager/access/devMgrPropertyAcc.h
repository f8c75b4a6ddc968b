// Access object that finds and observes the properties of devices (applications).
#pragma once

#include "resmgt/deviceManager/access/devMgrPropertyObserver.h"
#include "resmgt/deviceProtocol/devMDProperty.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "zvbase/objPtr.h"

namespace Zv {

class DevMgrMediator;

/// Finds properties by a property string, `device : set : set : property` with any number of sets,
/// and observes them:
///
///     ObjPtr<DevMgr> const manager = DevMgr::create();
///     ObjPtr<DevMgrPropertyAcc> const properties = manager->createPropertyAcc();
///     DevMgrPropertyValueUtil<double>::setValue(*properties, "camera:lens:focus", 2.5);
///
/// `DevMgrPropertyValueUtil` reads and writes values, and `DevMgrPropertyObserverUtil` attaches
/// observers by string.
///
/// Changes are reported on the manager's thread "DevMgr ANO". Only one property access at a time
/// can observe a property. If a second one attaches an observer, it replaces the observers of the
/// first one without a report.
///
/// **Threads**: any thread may call any operation at any time, except the threads of devices and
/// "DevMgr ANO". On "DevMgr ANO" an observer may call `attachObserver` and `detachObserver`.
///
/// **Throws**: after `DevMgr::close`, `getProperty` throws `DevMgrEx::ManagerClosed`.
class ZVRESMGT_EXPORT DevMgrPropertyAcc : public RCBase<LkCounter<long>>
{
public:
    /// Creates an access object for the devices of a mediator. Applications call
    /// `DevMgr::createPropertyAcc`. The returned pointer is the only owner, although the object can
    /// count references. To share it, pass what `release` returns to an `RCShdPtr`.
    [[nodiscard]] static ObjPtrRet<DevMgrPropertyAcc>
    create(RCShdPtr<DevMgrMediator> const &mediator);

    /// Detaches all observers. Blocks while one of them is in `update`. If this object is the last
    /// of its manager, the destructor also closes the devices, see `DevMgr`. If `DevMgr::close` has
    /// left "DevMgr ANO" behind, the observers stay attached, because that thread may be in one.
    ///
    /// An observer must not destroy the object in `update`. That fails the assertion
    /// "!isDestroyedByItsOwnObserver" when all are detached. Throws the first failure of a property
    /// or of an observer's destructor when all are detached.
    ~DevMgrPropertyAcc() noexcept(false) override;

    /// Returns the property that the string names. If the device is not open, creates and opens it.
    /// In that case the call blocks while another thread configures. Otherwise it does not wait for
    /// the opening of another device.
    ///
    /// If the opening of the device has failed before, the device is not opened. If it is a
    /// standard device, reading the property then throws `DevPrtclEx::ExMDStdPropertyGet`, and
    /// setting it has no effect.
    ///
    /// Throws `DevMgrEx::PropertySyntaxError`, with what was accepted and the fault, if the string
    /// is wrong, `DevMgrEx::NameNotFound` if the device is unknown, `DevMgrEx::BadMDPrtclImp` if it
    /// has no properties, `DevMgrEx::NameNotRegistered` if a set or the property is unknown, and
    /// `DevPrtclEx::ExMDStdPropertiesReadUnavail` while the device builds its properties. Passes on
    /// what the device throws when it is created or opened.
    virtual RCShdPtr<DevMDPropertyAny> getProperty(LiString const &config) = 0;
    /// Attach and detach an observer. Attaching it again changes nothing, and neither does
    /// detaching an observer that is not attached. An observer is not called after `detachObserver`
    /// has returned.
    ///
    /// Both block while another thread is in `update` of an observer of this object. An observer
    /// may call both in `update`, for itself and for others. One that is attached there is called
    /// at the next change. Both throw `RCEx::ExNullPtr` if the property is null, and
    /// `attachObserver` also if the observer is null.
    virtual void attachObserver(RCShdPtr<DevMDPropertyAny> property,
                                RCShdPtr<DevMgrPropertyObserver> observer) = 0;
    virtual void detachObserver(RCShdPtr<DevMDPropertyAny> property,
                                RCShdPtr<DevMgrPropertyObserver> observer) = 0;

protected:
    DevMgrPropertyAcc() = default;
};

} // namespace Zv
