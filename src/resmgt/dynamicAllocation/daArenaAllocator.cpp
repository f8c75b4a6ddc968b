#include "resmgt/dynamicAllocation/daArenaAllocator.h"

namespace Zv {

DaArenaAllocator::DaArenaAllocator() = default;
DaArenaAllocator::~DaArenaAllocator() noexcept(false) = default;

} // namespace Zv
