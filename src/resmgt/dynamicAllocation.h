// Arena pools and the allocators below them.
#pragma once

#include "resmgt/dynamicAllocation/daArenaAllocator.h"
#include "resmgt/dynamicAllocation/daArenaPool.h"
#include "resmgt/dynamicAllocation/daMallocAllocator.h"
#include "resmgt/dynamicAllocation/daMemoryMapAllocator.h"
