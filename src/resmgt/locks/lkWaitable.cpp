#include "resmgt/locks/lkWaitable.h"

namespace Zv {

LkWaitable::~LkWaitable() noexcept(false) = default;

} // namespace Zv
