// Static variables of the memory buffers. statics.cpp builds them in order, and they are never
// destroyed.
#pragma once

#include "zvbase/traceLevel.h"

namespace Zv::MemoryBuffersStatics {

/// "MbBuffers"
extern TraceLevel * const mbBuffersLevel;

} // namespace Zv::MemoryBuffersStatics
