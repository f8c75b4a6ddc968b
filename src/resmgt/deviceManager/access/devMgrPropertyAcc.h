// Access object that finds and observes the properties of devices (applications).
#pragma once

#include "resmgt/deviceProtocol/devMDProperty.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "zvbase/objPtr.h"

namespace Zv {

/// What an observer is told of a change: the property, and the event bits that the device has set.
/// It does not contain the value.
class ZVRESMGT_EXPORT DevMgrPropertyObserverHint
{
public:
    /// `event` has the bits that the device has set.
    DevMgrPropertyObserverHint(RCShdPtr<DevMDPropertyAny> const &property, unsigned int event)
        : _property(property), _event(event)
    {}

    RCShdPtr<DevMDPropertyAny> getProperty() const { return _property; }
    unsigned int getEvent() const { return _event; }

private:
    RCShdPtr<DevMDPropertyAny> _property;
    unsigned int _event;
};

/// Observes properties. A client derives from it and attaches an instance with
/// `DevMgrPropertyAcc::attachObserver`.
class ZVRESMGT_EXPORT DevMgrPropertyObserver : public RCBase<LkCounter<long>>
{
public:
    /// Called on the manager's thread "DevMgr ANO", which serves all notifications of the manager.
    /// It should record the change and let a thread of the client read the value. It must not wait
    /// for a device: a device that waits for this thread would deadlock. It may attach observers,
    /// and detach itself and others. It must not destroy the property access or the manager. That
    /// fails an assertion.
    ///
    /// If it throws, the property's other observers are called nevertheless. The first exception
    /// then goes to the manager's `DevMgrFailureHandler`, and ends the process if there is none.
    virtual void update(DevMgrPropertyObserverHint const &hint) = 0;

    ~DevMgrPropertyObserver() noexcept(false) override;
};

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

/// Reads and writes a property whose value is a `T`, one of the types of `DevMDPropertyValue`. See
/// `DevMgrPropertyAcc` for an example.
///
/// **Throws**: `DevMgrEx::PropertyInvalidType` with the property's name if its value has another
/// type, what `getProperty` throws, and what the property throws.
template <class T>
class ZVRESMGT_EXPORT DevMgrPropertyValueUtil
{
public:
    /// Writes the value into `value`. Blocks until the device's thread has delivered it. Must not
    /// be called on that thread nor in an observer's `update`.
    static void getValue(DevMgrPropertyAcc &access, LiString const &config, T &value);
    /// Sets the value. Returns before the device has stored it. Blocks while the device's queue is
    /// full.
    static void setValue(DevMgrPropertyAcc &access, LiString const &config, T const &value);

    DevMgrPropertyValueUtil() = delete;
};

/// Attaches and detaches observers by a property string. Both operations throw what
/// `DevMgrPropertyAcc::getProperty` throws.
class ZVRESMGT_EXPORT DevMgrPropertyObserverUtil
{
public:
    /// Attaches an observer to the property, as `DevMgrPropertyAcc::attachObserver` does.
    static void attachObserver(DevMgrPropertyAcc &access, LiString const &config,
                               RCShdPtr<DevMgrPropertyObserver> observer);
    /// Detaches an observer from the property, as `DevMgrPropertyAcc::detachObserver` does.
    static void detachObserver(DevMgrPropertyAcc &access, LiString const &config,
                               RCShdPtr<DevMgrPropertyObserver> observer);

    DevMgrPropertyObserverUtil() = delete;
};

#define ZV_EXTERN_PROPERTY_UTIL(T) extern template class DevMgrPropertyValueUtil<T>;
ZV_FOR_EACH_PROPERTY_TYPE(ZV_EXTERN_PROPERTY_UTIL)
#undef ZV_EXTERN_PROPERTY_UTIL

} // namespace Zv
