// Regions of pages in the address space, for VirtualAlloc and VirtualFree.
#pragma once

#include "platform/services.h"

namespace ZvPlatform::Memory {

/// Carry out the two services. The caller must see to it that only one call runs at a time.
void *allocate(void *address, SIZE_T size, DWORD type, DWORD protection);
BOOL free(void *address, SIZE_T size, DWORD type);

/// Stores the size of a page and the bounds of the addresses.
void describe(SYSTEM_INFO &);

} // namespace ZvPlatform::Memory
