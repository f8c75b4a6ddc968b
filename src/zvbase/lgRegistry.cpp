#include "zvbase/lgRegistry.h"

namespace Zv {

LgRegistry::LgRegistry() = default;
LgRegistry::~LgRegistry() = default;

} // namespace Zv
