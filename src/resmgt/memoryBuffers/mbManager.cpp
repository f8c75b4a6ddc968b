#include "resmgt/memoryBuffers/mbManager.h"

namespace Zv {

MbManager::MbManager() = default;
MbManager::~MbManager() noexcept(false) = default;

} // namespace Zv
