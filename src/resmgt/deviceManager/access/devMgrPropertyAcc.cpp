#include "resmgt/deviceManager/access/devMgrPropertyAcc.h"

#include "resmgt/deviceManager/access/configParsers.private.h"
#include "resmgt/deviceManager/access/devMgrPropertyObserverEng.private.h"
#include "resmgt/deviceManager/devMgrDevice.private.h"
#include "resmgt/deviceManager/devMgrEx.h"
#include "resmgt/deviceManager/devMgrMediator.h"
#include "resmgt/deviceManager/devRegistry.h"
#include "resmgt/deviceProtocol/devMDProperty.h"
#include "zvbase/failures.h"

namespace Zv {

namespace {

/// Returns the element of that name. Throws `DevMgrEx::NameNotRegistered` if there is none.
template <class Iter>
auto findByName(Iter iter, Iter const &end, LiString const &name)
{
    for (; iter != end; ++iter)
        if ((*iter)->getName() == name)
            return *iter;
    ZV_THROW(DevMgrEx::NameNotRegistered);
}

class DevMgrPropertyAccImp : public DevMgrPropertyAcc
{
public:
    explicit DevMgrPropertyAccImp(RCShdPtr<DevMgrMediator> const &mediator)
        : _mediator(mediator), _observerEng(new DevMgrPropertyObserverEng(*mediator))
    {}

    ~DevMgrPropertyAccImp() noexcept(false) override
    {
        // The manager's thread may hang in an observer, and hold the engine's lock.
        if (!_mediator.isNull() && _mediator->isThreadLeftBehind()) {
            DevMgrLeftBehind::keep(_observerEng);
            return;
        }
        bool const isDestroyedByItsOwnObserver = _observerEng->isUpdating();
        _observerEng->detachAll();
        ZV_ASSERT_IN_DESTRUCTOR(!isDestroyedByItsOwnObserver);
    }

    RCShdPtr<DevMDPropertyAny> getProperty(LiString const &config) override
    {
        PropertyConfigParser const parser(config);
        RCShdPtr<DevMDPropertyPrtcl> const device = getDevice(parser.getDeviceName());
        auto sets = device->getPropertySetIter();
        auto setsEnd = device->getPropertySetIterEnd();
        auto properties = device->getPropertyIter();
        auto propertiesEnd = device->getPropertyIterEnd();
        for (auto const &name : parser.getSetNames()) {
            RCShdPtr<DevMDPropertySet> const set = findByName(sets, setsEnd, name);
            sets = set->getPropertySetIter();
            setsEnd = set->getPropertySetIterEnd();
            properties = set->getPropertyIter();
            propertiesEnd = set->getPropertyIterEnd();
        }
        return findByName(properties, propertiesEnd, parser.getPropertyName());
    }

    void attachObserver(RCShdPtr<DevMDPropertyAny> property,
                        RCShdPtr<DevMgrPropertyObserver> observer) override
    {
        _observerEng->attach(property, observer);
    }

    void detachObserver(RCShdPtr<DevMDPropertyAny> property,
                        RCShdPtr<DevMgrPropertyObserver> observer) override
    {
        _observerEng->detach(property, observer);
    }

private:
    RCShdPtr<DevMDPropertyPrtcl> getDevice(LiString const &name)
    {
        if (!DevRegistry::getInstance().isRegistered(name))
            ZV_THROW(DevMgrEx::NameNotFound);
        RCShdPtr<DevMgrMediator> const mediator = _mediator;
        auto const device = rcDynamicCast<DevMDPropertyPrtcl>(mediator->obtainPrtcl(name));
        if (device.isNull())
            ZV_THROW(DevMgrEx::BadMDPrtclImp);
        return device;
    }

    RCShdPtr<DevMgrMediator> _mediator;
    RCShdPtr<DevMgrPropertyObserverEng> _observerEng;
};

} // namespace

DevMgrPropertyAcc::~DevMgrPropertyAcc() noexcept(false) = default;

DevMgrPropertyObserver::~DevMgrPropertyObserver() noexcept(false) = default;

ObjPtrRet<DevMgrPropertyAcc> DevMgrPropertyAcc::create(RCShdPtr<DevMgrMediator> const &mediator)
{
    return makeObj<DevMgrPropertyAccImp>(mediator);
}

// ---- DevMgrPropertyValueUtil, DevMgrPropertyObserverUtil

namespace {

template <class T>
RCShdPtr<DevMDProperty<T>> getTypedProperty(DevMgrPropertyAcc &access, LiString const &config)
{
    RCShdPtr<DevMDPropertyAny> const property = access.getProperty(config);
    auto const typed = rcDynamicCast<DevMDProperty<T>>(property);
    if (typed.isNull())
        ZV_THROW(DevMgrEx::PropertyInvalidType, property->getName().getChars());
    return typed;
}

} // namespace

template <class T>
void DevMgrPropertyValueUtil<T>::getValue(DevMgrPropertyAcc &access, LiString const &config,
                                          T &value)
{
    getTypedProperty<T>(access, config)->get(value);
}

template <class T>
void DevMgrPropertyValueUtil<T>::setValue(DevMgrPropertyAcc &access, LiString const &config,
                                          T const &value)
{
    getTypedProperty<T>(access, config)->set(value);
}

#define ZV_INSTANTIATE_PROPERTY_UTIL(T) template class DevMgrPropertyValueUtil<T>;
ZV_FOR_EACH_PROPERTY_TYPE(ZV_INSTANTIATE_PROPERTY_UTIL)
#undef ZV_INSTANTIATE_PROPERTY_UTIL

void DevMgrPropertyObserverUtil::attachObserver(DevMgrPropertyAcc &access, LiString const &config,
                                                RCShdPtr<DevMgrPropertyObserver> observer)
{
    access.attachObserver(access.getProperty(config), observer);
}

void DevMgrPropertyObserverUtil::detachObserver(DevMgrPropertyAcc &access, LiString const &config,
                                                RCShdPtr<DevMgrPropertyObserver> observer)
{
    access.detachObserver(access.getProperty(config), observer);
}

} // namespace Zv
