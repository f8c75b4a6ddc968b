// Static objects of the values. They are built while the library loads and never destroyed.
#pragma once

#include "resmgt/literals/liDate.h"
#include "zvbase/immortal.h"

namespace Zv::LiteralsStatics {

extern Immortal<LiDate> epoch;

} // namespace Zv::LiteralsStatics
