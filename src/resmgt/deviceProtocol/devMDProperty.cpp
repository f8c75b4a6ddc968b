#include "resmgt/deviceProtocol/devMDProperty.h"

#include "resmgt/deviceProtocol/devPrtclEx.h"
#include "zvbase/failures.h"

namespace Zv {

DevMDPropertyAEO::~DevMDPropertyAEO() = default;

void DevMDPropertyAEO::performExecute()
{
    performNotify(ALL_EVENTS);
}

DevMDPropertyAny::~DevMDPropertyAny() = default;

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

DevMDPropertySet::~DevMDPropertySet() = default;

DevMDPropertyPrtcl::~DevMDPropertyPrtcl() = default;

#define ZV_INSTANTIATE_PROPERTY(T) template class DevMDProperty<T>;
ZV_FOR_EACH_PROPERTY_TYPE(ZV_INSTANTIATE_PROPERTY)
#undef ZV_INSTANTIATE_PROPERTY

} // namespace Zv
