// Names of threads as the system keeps them.
#pragma once

#include "platform/services.h"

namespace ZvPlatform {

/// Stores the beginning of a name in UTF-8, as many whole characters as fit. A lone surrogate from
/// 0xDC80 to 0xDCFF encodes a byte that is part of no character.
inline void narrow(wchar_t const *name, char (&text)[16])
{
    std::size_t length = 0;
    for (; *name; ++name) {
        auto const code = static_cast<std::uint32_t>(*name);
        bool const isByte = code >= 0xDC80 && code <= 0xDCFF;
        std::size_t const size = code < 0x80 || isByte ? 1
                                 : code < 0x800        ? 2
                                 : code < 0x10000      ? 3
                                                       : 4;
        if (length + size > 15)
            break;
        if (size == 1) {
            text[length++] = static_cast<char>(code & 0xFF);
            continue;
        }
        text[length++] = static_cast<char>(0xF00 >> size | code >> 6 * (size - 1));
        for (std::size_t i = size - 1; i-- > 0;)
            text[length++] = static_cast<char>(0x80 | (code >> 6 * i & 0x3F));
    }
    text[length] = '\0';
}

/// Carries out `SetThreadDescription`. `give` gives the name to the system. It returns false, and
/// may set the last error, if the handle is bad.
template <class Give>
long describeThread(wchar_t const *name, Give give)
{
    constexpr long INVALID_HANDLE = static_cast<std::int32_t>(0x80070006);
    constexpr long INVALID_ARGUMENT = static_cast<std::int32_t>(0x80070057);
    if (!name)
        return INVALID_ARGUMENT;
    char text[16];
    narrow(name, text);
    DWORD const lastError = GetLastError();
    bool const good = give(text);
    SetLastError(lastError);
    return good ? 0 : INVALID_HANDLE;
}

} // namespace ZvPlatform
