#include "resmgt/threads/mtThreadGroup.h"

namespace Zv {

MtThreadGroup::~MtThreadGroup() noexcept(false) = default;

} // namespace Zv
