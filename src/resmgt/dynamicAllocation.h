// Arena pools and their allocators (applications).
#pragma once

#include "resmgt/dynamicAllocation/daArenaAllocator.h"
#include "resmgt/dynamicAllocation/daArenaPool.h"
