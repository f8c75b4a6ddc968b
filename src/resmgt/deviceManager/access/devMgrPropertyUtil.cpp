#include "resmgt/deviceManager/access/devMgrPropertyUtil.imp.h"

namespace Zv {

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
