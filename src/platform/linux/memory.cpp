#include "platform/common/memory.h"

#include "platform/linux/thread.h"

namespace ZvPlatform {

namespace Linux {

constinit Lock regionsLock;

} // namespace Linux

using namespace Linux;

void *VirtualAlloc(void *address, SIZE_T size, DWORD type, DWORD protection)
{
    Service service;
    Locked locked(regionsLock);
    return Memory::allocate(address, size, type, protection);
}

BOOL VirtualFree(void *address, SIZE_T size, DWORD type)
{
    Service service;
    Locked locked(regionsLock);
    return Memory::free(address, size, type);
}

} // namespace ZvPlatform
