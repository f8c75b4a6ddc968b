// Bodies of the properties. Included where they are instantiated.
#pragma once

#include "resmgt/deviceProtocol/devMDProperty.h"
#include "resmgt/deviceProtocol/devPrtclEx.h"
#include "zvbase/failures.h"

namespace Zv {

template <class T>
DevMDProperty<T>::~DevMDProperty() = default;

template <class T>
void DevMDProperty<T>::set(T const &value)
{
    if (!(getAttributes() & WRITABLE))
        ZV_THROW(DevPrtclEx::ExMDPropertyIllegalOp, "set", getName().getChars());
    performSet(value);
}

template <class T>
void DevMDProperty<T>::get(T &value)
{
    if (!(getAttributes() & READABLE))
        ZV_THROW(DevPrtclEx::ExMDPropertyIllegalOp, "get", getName().getChars());
    performGet(value);
}

} // namespace Zv
