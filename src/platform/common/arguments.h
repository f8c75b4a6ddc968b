// Handles with a fixed value, and the checks of arguments that all forms of the platform share.
#pragma once

#include "platform/services.h"

namespace ZvPlatform {

/// Handles of the calling thread and of its process. They need not be closed.
inline HANDLE const CURRENT_PROCESS = reinterpret_cast<HANDLE>(std::intptr_t{-1});
inline HANDLE const CURRENT_THREAD = reinterpret_cast<HANDLE>(std::intptr_t{-2});

// Each of the following functions returns ERROR_SUCCESS, or the error with which the service must
// fail.

inline DWORD checkCounts(LONG initialCount, LONG maximumCount)
{
    bool const good = initialCount >= 0 && maximumCount > 0 && initialCount <= maximumCount;
    return good ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER;
}

/// Checks the name of an object that must exist.
inline DWORD checkNameToOpen(char const *name)
{
    if (!name)
        return ERROR_INVALID_PARAMETER;
    return *name ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}

inline DWORD checkTimer(LARGE_INTEGER const *dueTime, LONG period, void *routine)
{
    if (!dueTime || period < 0)
        return ERROR_INVALID_PARAMETER;
    return routine ? ERROR_NOT_SUPPORTED : ERROR_SUCCESS;
}

inline DWORD checkAddress(void volatile *address, void *compare, SIZE_T size)
{
    bool const isSize = size == 1 || size == 2 || size == 4 || size == 8;
    bool const good =
        address && compare && isSize && reinterpret_cast<std::uintptr_t>(address) % size == 0;
    return good ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER;
}

inline DWORD checkThread(LPTHREAD_START_ROUTINE function, DWORD flags)
{
    bool const good = function && !(flags & ~STACK_SIZE_PARAM_IS_A_RESERVATION);
    return good ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER;
}

inline DWORD checkDuplication(HANDLE sourceProcess, HANDLE source, HANDLE targetProcess,
                              HANDLE const *target)
{
    if (sourceProcess != CURRENT_PROCESS || targetProcess != CURRENT_PROCESS)
        return ERROR_INVALID_HANDLE;
    if (source == CURRENT_PROCESS)
        return ERROR_NOT_SUPPORTED;
    return target ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER;
}

} // namespace ZvPlatform
