#include "platform/common/memory.h"

#include "platform/linux/thread.h"

namespace ZvPlatform {

using namespace Linux;

namespace {

constinit Lock regionsLock;

} // namespace

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
