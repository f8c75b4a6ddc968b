#include "resmgt/deviceProtocol/devMDStdProperty.imp.h"

namespace Zv {

#define ZV_INSTANTIATE_PROPERTY(T)                                                                 \
    template class DevMDStdPropertyANOFactory<T>;                                                  \
    template class DevMDStdProperty<T>;
ZV_FOR_EACH_PROPERTY_TYPE(ZV_INSTANTIATE_PROPERTY)
#undef ZV_INSTANTIATE_PROPERTY

} // namespace Zv
