// A property whose value lives on a device's thread.
#pragma once

#include "resmgt/deviceProtocol/devMDProperty.h"
#include "resmgt/deviceProtocol/devMDStdANO.h"
#include "resmgt/deviceProtocol/devMDStdFifo.h"
#include "resmgt/deviceProtocol/devMDStdPropertyObserver.h"

#include <concepts>
#include <functional>
#include <type_traits>
#include <utility>

namespace Zv {

/// Makes the requests of one property, or of several that it tells apart by `id`. Written by the device; called on the
/// thread that sets or gets.
template <class T>
class ZVRESMGT_EXPORT DevMDStdPropertyANOFactory
{
public:
    virtual ~DevMDStdPropertyANOFactory() noexcept(false);

    /// A request that stores the value.
    virtual ObjPtrRet<DevMDStdANO> createSetANO(LiUuid const &id, T value) = 0;
    /// A request that writes the value into `value`, or sets `ok` to false where it cannot. Both live until the
    /// request's ACO has run.
    virtual ObjPtrRet<DevMDStdANO> createGetANO(LiUuid const &id, T &value, bool &ok) = 0;
};

/// A property that is set and read on its device's thread, so that the device's state is touched by that thread only.
///
/// `set` returns when the request is queued. After the device has been closed, it has no effect and does not fail.
/// `get` blocks until the device's thread has executed the request, so that thread must not call it. If the device has
/// not been opened yet, `get` blocks until it is opened. It throws `DevPrtclEx::ExMDStdPropertyGet` if the request
/// reports that it has no value, if the request throws, and if the device is closed or destroyed without having
/// executed it. Both block while the FIFO is full.
template <class T>
class ZVRESMGT_EXPORT DevMDStdProperty : public DevMDProperty<T>
{
public:
    /// `attributes` are the bits of `DevMDPropertyAny`. Makes the property's identifier.
    DevMDStdProperty(LiString const &name, LiString const &description, unsigned int attributes,
                     ObjPtr<DevMDStdPropertyANOFactory<T>> anoFactory, RCShdPtr<DevMDStdFifo> fifo);

    LiUuid getUuid() override { return _uuid; }
    LiString getName() override { return _name; }
    LiString getDescription() override { return _description; }
    unsigned int getAttributes() const override;
    /// Always true.
    bool isAvailable() const override { return true; }
    void setObserverAEO(ObjPtr<DevMDPropertyAEO> observer) override;

    /// Tells the observer that there is a new value. Does nothing if the observer has been told before and the device has
    /// executed no `get` since: a notification carries no value, so a second one would say nothing more. A `get` counts
    /// also if it failed. A client that does not keep up can therefore not fill the manager's queue. An observer must
    /// get the value once after it was attached, and after each notification. The device must call this function on
    /// its own thread.
    void changed() { _observerAEO.notifyUnread(); }

protected:
    ~DevMDStdProperty() override;

    void performSet(T const &value) override;
    void performGet(T &value) override;
    /// What can be done with the property from now on. By any thread.
    virtual void setAttributes(unsigned int attributes);
    /// Tells the observer, if there is one, each time, for events with a meaning of their own; `changed` is for those
    /// that only say that there is a new value. The device calls it, from its own thread; it may block while the
    /// observer's queue is full, and a device that waits there serves nobody.
    void notify(unsigned int events) { _observerAEO.notify(events); }

private:
    LiUuid _uuid;
    LiString _name;
    LiString _description;
    unsigned int _attributes;
    DevMDStdPropertyObserver _observerAEO;
    ObjPtr<DevMDStdPropertyANOFactory<T>> _anoFactory;
    RCShdPtr<DevMDStdFifo> _fifo;
};

#define ZV_EXTERN_PROPERTY(T)                                                                      \
    extern template class DevMDStdPropertyANOFactory<T>;                                           \
    extern template class DevMDStdProperty<T>;
ZV_FOR_EACH_PROPERTY_TYPE(ZV_EXTERN_PROPERTY)
#undef ZV_EXTERN_PROPERTY

} // namespace Zv
