#include "zvbase/exSysError.h"

#include "platform/services.h"

namespace Zv {

ExSysError::ExSysError(char const *file, int line, int systemError)
    : ExBase(file, line), std::runtime_error(""), _systemError(systemError)
{
    if (char const * const meaning = getMeaning(systemError))
        formatReason("System error %d: %s", systemError, meaning);
    else
        formatReason("System error %d.", systemError);
}

ExSysError::ExSysError(ExSysError const &) = default;
ExSysError &ExSysError::operator=(ExSysError const &) = default;
ExSysError::~ExSysError() = default;

char const *ExSysError::what() const noexcept
{
    return getReason();
}

char const *ExSysError::getMeaning(int systemError) noexcept
{
    switch (static_cast<DWORD>(systemError)) {
    case ERROR_SUCCESS:
        return "No error.";
    case ERROR_FILE_NOT_FOUND:
        return "There is no object of that name.";
    case ERROR_ACCESS_DENIED:
        return "Access is denied.";
    case ERROR_INVALID_HANDLE:
        return "The handle is invalid.";
    case ERROR_NOT_ENOUGH_MEMORY:
        return "There is not enough memory.";
    case ERROR_NOT_SUPPORTED:
        return "The operation is not supported.";
    case ERROR_INVALID_PARAMETER:
        return "A parameter is wrong.";
    case ERROR_INVALID_NAME:
        return "The name is not valid.";
    case ERROR_MAX_THRDS_REACHED:
        return "No more threads can be made.";
    case ERROR_ALREADY_EXISTS:
        return "An object of that name exists already.";
    case ERROR_FILENAME_EXCED_RANGE:
        return "The name is too long.";
    case ERROR_NO_MORE_ITEMS:
        return "There are no more of them.";
    case ERROR_NOT_OWNER:
        return "The mutex belongs to another thread.";
    case ERROR_TOO_MANY_POSTS:
        return "The semaphore's count is at its maximum.";
    case ERROR_INVALID_ADDRESS:
        return "The address is not valid.";
    case ERROR_PRIVILEGE_NOT_HELD:
        return "The process does not have the privilege.";
    case ERROR_TIMEOUT:
        return "The time has run out.";
    default:
        return nullptr;
    }
}

ExSysErrorWindows::ExSysErrorWindows(char const *file, int line)
    : ExSysError(file, line, static_cast<int>(::GetLastError()))
{}

ExSysErrorWindows::ExSysErrorWindows(ExSysErrorWindows const &) = default;
ExSysErrorWindows &ExSysErrorWindows::operator=(ExSysErrorWindows const &) = default;
ExSysErrorWindows::~ExSysErrorWindows() = default;

ExSysErrorWindows *ExSysErrorWindows::clone() const
{
    return new ExSysErrorWindows(*this);
}

} // namespace Zv
