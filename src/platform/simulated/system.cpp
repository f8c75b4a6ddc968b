#include "platform/common/memory.h"
#include "platform/common/uuid.h"
#include "platform/simulated/scheduler.h"

#include <cstdio>
#include <unistd.h>

namespace ZvPlatform {

using namespace Simulated;

// ---- Memory.

void *VirtualAlloc(void *address, SIZE_T size, DWORD type, DWORD protection)
{
    enter("VirtualAlloc");
    if (!isRefused(MEMORY))
        return Memory::allocate(address, size, type, protection);
    fail(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
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
    info->dwPageSize = static_cast<DWORD>(::sysconf(_SC_PAGESIZE));
    info->dwAllocationGranularity = info->dwPageSize;
    info->lpMinimumApplicationAddress = reinterpret_cast<void *>(std::uintptr_t{0x10000});
    info->lpMaximumApplicationAddress = reinterpret_cast<void *>(
        (std::uintptr_t{1} << (sizeof(void *) == 8 ? 47 : 31)) - info->dwPageSize - 1);
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
