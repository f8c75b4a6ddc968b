#include "resmgt/locks/lkNamedSema.h"

#include "platform/services.h"
#include "zvbase/failures.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace Zv {

namespace {

constexpr LONG LARGEST_COUNT = 0x7fffffff;

} // namespace

LkNamedSemaWindows::LkNamedSemaWindows(char const *systemName, unsigned count,
                                       LkSemaTypes::CreateFlag flag, char const *label)
    : _name(label ? label : systemName), _sema(reinterpret_cast<HANDLE>(-1)), _errno(0)
{
    // The name of a kernel object has no backslash. The service refuses a name that is cut here.
    char copy[MAX_PATH + 1] = {};
    if (systemName)
        std::replace_copy(systemName,
                          systemName + std::min<std::size_t>(std::strlen(systemName), MAX_PATH),
                          copy, '\\', '/');
    char const * const name = systemName ? copy : NULL;

    if (flag == LkSemaTypes::OPEN) {
        _sema = ::OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, name);
    } else {
        _sema = ::CreateSemaphoreA(NULL, static_cast<LONG>(count), LARGEST_COUNT, name);
        if (_sema && flag == LkSemaTypes::CREATE_EXCLUSIVE &&
            ::GetLastError() == ERROR_ALREADY_EXISTS) {
            ::CloseHandle(_sema);
            ::SetLastError(ERROR_ALREADY_EXISTS);
            _sema = NULL;
        }
    }
    if (!_sema)
        _errno = static_cast<int>(::GetLastError());
}

LkNamedSemaWindows::~LkNamedSemaWindows() noexcept(false)
{
    if (_errno == 0)
        ZV_SYS_ASSERT_IN_DESTRUCTOR(::CloseHandle( _sema ));
}

void LkNamedSemaWindows::wait()
{
    if (!_sema || !ZvPlatform::takeSemaphoreAtOnce(_sema)) [[unlikely]]
        ::WaitForSingleObject(_sema, INFINITE);
}

bool LkNamedSemaWindows::tryWait()
{
    DWORD const ret = ::WaitForSingleObject(_sema, 0);
    ZV_SYS_ASSERT(ret == WAIT_OBJECT_0 || ret == WAIT_TIMEOUT);
    return ret == WAIT_OBJECT_0;
}

void LkNamedSemaWindows::post()
{
    if (!_sema || !ZvPlatform::postSemaphoreAtOnce(_sema, LARGEST_COUNT)) [[unlikely]]
        ::ReleaseSemaphore(_sema, 1, NULL);
}

LkUnnamedSemaWindows::LkUnnamedSemaWindows(char const *label, unsigned count, LkSemaTypes::Shared)
    : LkNamedSemaWindows(NULL, count, LkSemaTypes::CREATE, label)
{}

} // namespace Zv
