#include "platform/common/memory.h"
#include "platform/linux/thread.h"

#include <cstdio>

namespace ZvPlatform {

using namespace Linux;

namespace {

#if defined(__x86_64__)
constexpr WORD ARCHITECTURE = 9;
constexpr DWORD PROCESSOR_TYPE = 8664;
#elif defined(__i386__)
constexpr WORD ARCHITECTURE = 0;
constexpr DWORD PROCESSOR_TYPE = 586;
#elif defined(__aarch64__)
constexpr WORD ARCHITECTURE = 12;
constexpr DWORD PROCESSOR_TYPE = 0;
#else
constexpr WORD ARCHITECTURE = 0xFFFF; // unknown
constexpr DWORD PROCESSOR_TYPE = 0;
#endif

void describeProcessor(SYSTEM_INFO &info)
{
    unsigned const signature = Kernel::processorSignature();
    if (!signature)
        return;
    unsigned const family = signature >> 8 & 0xF;
    unsigned const model = (signature >> 4 & 0xF) | (signature >> 12 & 0xF0);
    info.wProcessorLevel =
        static_cast<WORD>(family == 15 ? family + (signature >> 20 & 0xFF) : family);
    info.wProcessorRevision = static_cast<WORD>(model << 8 | (signature & 0xF));
}

} // namespace

void GetSystemInfo(SYSTEM_INFO *info)
{
    *info = {};
    info->wProcessorArchitecture = ARCHITECTURE;
    info->dwProcessorType = PROCESSOR_TYPE;
    Memory::describe(*info);
    info->dwNumberOfProcessors = static_cast<DWORD>(Kernel::nbOnlineProcessors());
    DWORD_PTR process;
    GetProcessAffinityMask(GetCurrentProcess(), &process, &info->dwActiveProcessorMask);
    describeProcessor(*info);
}

BOOL GetVersionExA(OSVERSIONINFOA *version)
{
    if (version->dwOSVersionInfoSize != sizeof *version)
        return fail(ERROR_INSUFFICIENT_BUFFER);
    Kernel::Version name;
    if (!Kernel::getVersion(name))
        return fail(ERROR_NOT_SUPPORTED);
    constexpr DWORD PLATFORM_UNIX = 10;
    unsigned numbers[3] = {};
    std::sscanf(name.release, "%u.%u.%u", &numbers[0], &numbers[1], &numbers[2]);
    version->dwMajorVersion = numbers[0];
    version->dwMinorVersion = numbers[1];
    version->dwBuildNumber = numbers[2];
    version->dwPlatformId = PLATFORM_UNIX;
    std::snprintf(version->szCSDVersion, sizeof version->szCSDVersion, "%.*s",
                  int{sizeof version->szCSDVersion} - 1, name.version);
    return TRUE;
}

} // namespace ZvPlatform
