// Name and processors of the calling thread, as the system reports them.
#pragma once

#include <set>
#include <string>

#ifdef _WIN32

#include <windows.h>

// No header of mingw-w64 declares it.
extern "C" __declspec(dllimport) HRESULT
    __stdcall GetThreadDescription(HANDLE thread, PWSTR *description);

namespace ZvTest {

inline std::string getName()
{
    PWSTR description = nullptr;
    if (FAILED(::GetThreadDescription(::GetCurrentThread(), &description)))
        return {};
    std::string name;
    for (PWSTR c = description; *c; ++c)
        name += static_cast<char>(*c);
    ::LocalFree(description);
    return name;
}

inline std::set<int> getProcessors()
{
    // Windows returns a thread's mask only to a call that sets another one.
    DWORD_PTR ofProcess = 0, ofSystem = 0;
    ::GetProcessAffinityMask(::GetCurrentProcess(), &ofProcess, &ofSystem);
    DWORD_PTR const mask = ::SetThreadAffinityMask(::GetCurrentThread(), ofProcess);
    ::SetThreadAffinityMask(::GetCurrentThread(), mask);
    std::set<int> processors;
    for (int i = 0; i != 64; ++i)
        if (mask >> i & 1)
            processors.insert(i);
    return processors;
}

} // namespace ZvTest

#else

#include <sched.h>
#include <sys/prctl.h>

namespace ZvTest {

/// Returns the name as the system keeps it: on Linux its first 15 bytes, on Windows all.
inline std::string getName()
{
    char name[16] = {};
    ::prctl(PR_GET_NAME, name);
    return name;
}

/// Returns the processors on which the thread may run.
inline std::set<int> getProcessors()
{
    cpu_set_t mask;
    CPU_ZERO(&mask);
    ::sched_getaffinity(0, sizeof mask, &mask);
    std::set<int> processors;
    for (int i = 0; i != CPU_SETSIZE; ++i)
        if (CPU_ISSET(i, &mask))
            processors.insert(i);
    return processors;
}

} // namespace ZvTest

#endif
