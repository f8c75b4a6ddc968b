// The statics of the package. They are built in one place, in order, and never destroyed.
#pragma once

#include "zvbase/traceLevel.h"

namespace Zv::MemoryBuffersStatics {

/// "MbBuffers"
extern TraceLevel * const mbBuffersLevel;

} // namespace Zv::MemoryBuffersStatics
