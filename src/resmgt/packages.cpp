#include "resmgt/packages.h"

namespace Zv {

template class InInit<ZvInit::containers>;
template class InInit<ZvInit::deviceManager>;
template class InInit<ZvInit::deviceProtocol>;
template class InInit<ZvInit::dynamicAllocation>;
template class InInit<ZvInit::literals>;
template class InInit<ZvInit::locks>;
template class InInit<ZvInit::memoryBuffers>;
template class InInit<ZvInit::resmgt>;
template class InInit<ZvInit::smartPtrs>;
template class InInit<ZvInit::syncEngine>;
template class InInit<ZvInit::threadExtensions>;
template class InInit<ZvInit::threads>;
template class InInit<ZvInit::xml>;

} // namespace Zv
