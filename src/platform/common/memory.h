// The address space in regions of pages, as VirtualAlloc and VirtualFree hand it out.
#pragma once

#include "platform/services.h"

namespace ZvPlatform::Memory {

/// The two services. One call at a time: the caller sees to that.
void *allocate(void *address, SIZE_T size, DWORD type, DWORD protection);
BOOL free(void *address, SIZE_T size, DWORD type);

} // namespace ZvPlatform::Memory
