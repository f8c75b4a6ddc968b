#include "resmgt/deviceManager/access/devMgrPropertyUtil.h"

#include "resmgt/deviceManager/devMgrEx.h"
#include "resmgt/deviceProtocol/devMDProperty.h"
#include "zvbase/failures.h"

namespace Zv {

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
