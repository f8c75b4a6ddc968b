#include "resmgt/locks/lkSingleton.imp.h"

#include "platform/services.h"
#include "zvbase/exSysError.h"
#include "zvbase/failures.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

namespace Zv::Detail {

namespace {

constexpr char MUTEX_BASE_NAME[] = "LkSingleton ";
constexpr int PID_LEN = 12;

// The template has turned the type into its name already.
#undef ZV_TYPE_NAME
#define ZV_TYPE_NAME(Id) Id

} // namespace

ZvPlatform::Handle acquireInitMutex(char const *Id)
{
    ZV_ASSERT(::strlen( MUTEX_BASE_NAME ) + PID_LEN + ::strlen( ZV_TYPE_NAME( Id ) ) < MAX_PATH - 1);
    char name[MAX_PATH];
    std::snprintf(name, sizeof name, "%s%s%12ld", MUTEX_BASE_NAME, Id,
                  static_cast<long>(::GetCurrentProcessId()));
    // The name of a kernel object has no backslash.
    std::replace(std::begin(name), std::begin(name) + std::strlen(name), '\\', '/');

    HANDLE const mutex = ::CreateMutexA(NULL, FALSE, name);
    if (!mutex)
        ZV_THROW(ExSysErrorWindows);
    if (::WaitForSingleObject(mutex, INFINITE) != WAIT_OBJECT_0) {
        ExSysErrorWindows const failure(__FILE__, __LINE__);
        // A mutex whose holder was killed belongs to the caller now. Others must be able to take
        // it.
        abandonInitMutex(mutex);
        throw failure;
    }
    return mutex;
}

void releaseInitMutex(ZvPlatform::Handle mutex)
{
    if (!::ReleaseMutex(mutex)) {
        ExSysErrorWindows const failure(__FILE__, __LINE__);
        ::CloseHandle(mutex);
        throw failure;
    }
    if (!::CloseHandle(mutex))
        ZV_THROW(ExSysErrorWindows);
}

void abandonInitMutex(ZvPlatform::Handle mutex) noexcept
{
    ::ReleaseMutex(mutex);
    ::CloseHandle(mutex);
}

} // namespace Zv::Detail
