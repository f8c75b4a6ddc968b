// The statics of the package. They are built in one place, in order, and never destroyed.
#pragma once

#include "resmgt/literals/liDate.h"
#include "zvbase/immortal.h"

namespace Zv::LiteralsStatics {

extern Immortal<LiDate> epoch;

} // namespace Zv::LiteralsStatics
