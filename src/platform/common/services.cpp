#include "platform/common/arguments.h"

// Services that are calls of other services, or return constants.

namespace ZvPlatform {

HANDLE GetCurrentThread()
{
    return CURRENT_THREAD;
}

HANDLE GetCurrentProcess()
{
    return CURRENT_PROCESS;
}

DWORD TlsAlloc()
{
    return FlsAlloc(nullptr);
}

BOOL FlsSetValue(DWORD index, void *value)
{
    return TlsSetValue(index, value);
}

BOOL QueryPerformanceFrequency(LARGE_INTEGER *frequency)
{
    frequency->QuadPart = 1'000'000'000;
    return TRUE;
}

} // namespace ZvPlatform
