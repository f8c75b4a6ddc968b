#include "platform/common/memory.h"
#include "platform/common/uuid.h"
#include "platform/simulated/thread.h"

#include <cstdio>

namespace ZvPlatform {

using namespace Simulated;

// ---- Memory.

void *VirtualAlloc(void *address, SIZE_T size, DWORD type, DWORD protection)
{
    enter("VirtualAlloc");
    return isRefused(MEMORY) ? refuse(ERROR_NOT_ENOUGH_MEMORY)
                             : Memory::allocate(address, size, type, protection);
}

BOOL VirtualFree(void *address, SIZE_T size, DWORD type)
{
    enter("VirtualFree");
    return Memory::free(address, size, type);
}

// ---- Identifiers.

RPC_STATUS UuidCreate(UUID *uuid)
{
    enter("UuidCreate");
    unsigned char bytes[16];
    for (unsigned i = 0; i < sizeof bytes; ++i)
        bytes[i] = static_cast<unsigned char>(scheduler.random());
    makeRandomUuid(bytes, *uuid);
    return RPC_S_OK;
}

// ---- Description of the machine.

void GetSystemInfo(SYSTEM_INFO *info)
{
    *info = {};
    info->wProcessorArchitecture = 9;
    info->dwProcessorType = 8664;
    Memory::describe(*info);
    DWORD_PTR process;
    GetProcessAffinityMask(GetCurrentProcess(), &process, &info->dwActiveProcessorMask);
    for (; process; process &= process - 1)
        ++info->dwNumberOfProcessors;
}

BOOL GetVersionExA(OSVERSIONINFOA *version)
{
    if (version->dwOSVersionInfoSize != sizeof *version)
        return fail(ERROR_INSUFFICIENT_BUFFER);
    version->dwMajorVersion = 1;
    version->dwMinorVersion = version->dwBuildNumber = 0;
    version->dwPlatformId = 10;
    std::snprintf(version->szCSDVersion, sizeof version->szCSDVersion, "simulated");
    return TRUE;
}

} // namespace ZvPlatform
