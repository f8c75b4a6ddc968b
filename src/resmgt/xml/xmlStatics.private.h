// The statics of the package. They are built in one place, in order, and never destroyed.
#pragma once

#include "resmgt/literals/liString.h"
#include "zvbase/immortal.h"

namespace Zv::XmlStatics {

/// What one level of a written text is indented by.
extern Immortal<LiString> const indentStep;

} // namespace Zv::XmlStatics
