// Observer of the changes of a property (applications).
#pragma once

#include "resmgt/deviceProtocol/devMDProperty.h"
#include "resmgt/export.h"

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

} // namespace Zv
