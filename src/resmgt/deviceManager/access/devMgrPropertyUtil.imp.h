// The bodies of the property utilities, for the source that instantiates them.
#pragma once

#include "resmgt/deviceManager/access/devMgrPropertyUtil.h"
#include "resmgt/deviceManager/devMgrEx.h"
#include "resmgt/deviceProtocol/devMDProperty.h"
#include "zvbase/failures.h"

namespace Zv {

namespace Detail {

template <class T>
RCShdPtr<DevMDProperty<T>> getTypedProperty(DevMgrPropertyAcc &access, LiString const &config)
{
    RCShdPtr<DevMDPropertyAny> const property = access.getProperty(config);
    auto const typed = rcDynamicCast<DevMDProperty<T>>(property);
    if (typed.isNull())
        ZV_THROW(DevMgrEx::PropertyInvalidType, property->getName().getChars());
    return typed;
}

} // namespace Detail

template <class T>
void DevMgrPropertyValueUtil<T>::getValue(DevMgrPropertyAcc &access, LiString const &config,
                                          T &value)
{
    Detail::getTypedProperty<T>(access, config)->get(value);
}

template <class T>
void DevMgrPropertyValueUtil<T>::setValue(DevMgrPropertyAcc &access, LiString const &config,
                                          T const &value)
{
    Detail::getTypedProperty<T>(access, config)->set(value);
}

} // namespace Zv
