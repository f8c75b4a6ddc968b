#include "resmgt/deviceProtocol/devMDProperty.imp.h"

namespace Zv {

DevMDPropertyAEO::~DevMDPropertyAEO() = default;

void DevMDPropertyAEO::performExecute()
{
    performNotify(ALL_EVENTS);
}

DevMDPropertyAny::~DevMDPropertyAny() = default;

DevMDPropertySet::~DevMDPropertySet() = default;

#define ZV_INSTANTIATE_PROPERTY(T) template class DevMDProperty<T>;
ZV_FOR_EACH_PROPERTY_TYPE(ZV_INSTANTIATE_PROPERTY)
#undef ZV_INSTANTIATE_PROPERTY

} // namespace Zv
