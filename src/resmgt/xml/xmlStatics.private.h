// Static objects of the package xml.
#pragma once

#include "resmgt/literals/liString.h"
#include "zvbase/immortal.h"

namespace Zv::XmlStatics {

/// Constructed in `resmgt/statics.cpp`, and never destroyed. The blanks by which a level of a
/// written text is indented.
extern Immortal<LiString> const indentStep;

} // namespace Zv::XmlStatics
