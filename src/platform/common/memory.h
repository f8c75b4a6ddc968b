// Regions of pages in the address space, for VirtualAlloc and VirtualFree.
#pragma once

#include "platform/services.h"

namespace ZvPlatform::Memory {

/// Carry out the two services. The caller must see to it that only one call runs at a time.
void *allocate(void *address, SIZE_T size, DWORD type, DWORD protection);
BOOL free(void *address, SIZE_T size, DWORD type);

} // namespace ZvPlatform::Memory
