// Being told of changes of a property.
#pragma once

#include "resmgt/deviceProtocol/devMDProperty.h"
#include "resmgt/export.h"

namespace Zv {

/// Which property changed, and the device's word for how. It carries no value.
class ZVRESMGT_EXPORT DevMgrPropertyObserverHint
{
public:
    DevMgrPropertyObserverHint(RCShdPtr<DevMDPropertyAny> const &property, unsigned int event)
        : _property(property), _event(event)
    {}

    RCShdPtr<DevMDPropertyAny> getProperty() const { return _property; }
    unsigned int getEvent() const { return _event; }

private:
    RCShdPtr<DevMDPropertyAny> _property;
    unsigned int _event;
};

/// Written by a client that wants to know of changes.
class ZVRESMGT_EXPORT DevMgrPropertyObserver : public RCBase<LkCounter<long>>
{
public:
    /// Called on the manager's thread "DevMgr ANO", which serves all notifications of the manager. It should note the
    /// change and leave the reading to a thread of the client. It must not wait for a device, because a device that
    /// waits for this thread would then never go on. It may attach observers, and detach itself and others. It must
    /// not destroy the property access or the manager, which fails an assertion.
    ///
    /// If it throws, the property's other observers are told all the same. The first exception then goes to the
    /// manager's `DevMgrFailureHandler`, and ends the process if there is none.
    virtual void update(DevMgrPropertyObserverHint const &hint) = 0;

    ~DevMgrPropertyObserver() noexcept(false) override;
};

} // namespace Zv
