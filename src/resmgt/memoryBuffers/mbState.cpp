#include "resmgt/memoryBuffers/mbState.h"

namespace Zv {

MbState::MbState() = default;
MbState::~MbState() noexcept(false) = default;

} // namespace Zv
