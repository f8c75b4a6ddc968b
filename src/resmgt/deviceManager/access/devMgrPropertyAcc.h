// Reading, writing and observing the properties of devices.
#pragma once

#include "resmgt/deviceManager/access/devMgrPropertyObserver.h"
#include "resmgt/deviceProtocol/devMDProperty.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "zvbase/objPtr.h"

namespace Zv {

class DevMgrMediator;

/// Finds properties by a property string, `device : set : set : property` with any number of sets: `camera:lens:focus`.
/// Typed reading and writing stand in `DevMgrPropertyValueUtil`, attaching by string in `DevMgrPropertyObserverUtil`.
///
/// Changes are reported on the manager's thread "DevMgr ANO", never on a device's. The object's destruction detaches
/// all its observers; a notification that is under way then reaches nobody. A property has one property access that
/// observes it at a time.
///
/// All operations may be called by any thread but those of devices and "DevMgr ANO". After `DevMgr::close`,
/// `getProperty` throws `DevMgrEx::ManagerClosed`.
class ZVRESMGT_EXPORT DevMgrPropertyAcc : public RCBase<LkCounter<long>>
{
public:
    static ObjPtrRet<DevMgrPropertyAcc> create(RCShdPtr<DevMgrMediator> const &mediator);

    /// Detaches all observers. Blocks while one of them is in `update`. Must not be called from within `update` of one
    /// of them: that fails the assertion "!isDestroyedByItsOwnObserver" when all are detached. Throws the first failure
    /// of a property or of an observer's destructor when all are detached. If this object is the last of its manager,
    /// the destructor also does what `DevMgr` says of that.
    ~DevMgrPropertyAcc() noexcept(false) override;

    /// The property that the string names. Its device is created and opened at its first mention, and the call then blocks
    /// while another thread configures. Otherwise it does not wait for the opening of another device. If the opening of
    /// the device has failed before, the property is that of an unopened device: reading it never returns if the device
    /// is a standard device, and so does setting it when the device's queue is full. `DevMgrEx::PropertySyntaxError` with
    /// all that was accepted and the fault; `NameNotFound` for an unknown device; `BadMDPrtclImp` for one without
    /// properties; `NameNotRegistered` for an unknown set or property; `DevPrtclEx::ExMDStdPropertiesReadUnavail` while
    /// the device builds its properties; what the creation or the opening of the device throws.
    virtual RCShdPtr<DevMDPropertyAny> getProperty(LiString const &config) = 0;
    /// Both block while any observer of this object is in `update` on another thread. From within `update` both may be
    /// called, for the same observer and for others. Null pointers throw `RCEx::ExNullPtr`. Attaching an observer again
    /// changes nothing, nor does detaching one that is not attached. After `detachObserver` has returned, the observer
    /// is no longer called. An observer that is attached from within `update` is told of the next change.
    virtual void attachObserver(RCShdPtr<DevMDPropertyAny> property,
                                RCShdPtr<DevMgrPropertyObserver> observer) = 0;
    virtual void detachObserver(RCShdPtr<DevMDPropertyAny> property,
                                RCShdPtr<DevMgrPropertyObserver> observer) = 0;

protected:
    DevMgrPropertyAcc() = default;
};

} // namespace Zv
