// Names of objects: which are allowed, and which mean the same object.
#pragma once

#include "platform/services.h"

#include <cstring>

namespace ZvPlatform {

/// Skips a prefix that has no effect. Returns ERROR_SUCCESS, or the error if the name is not
/// allowed.
///
/// There is one session here. A name with the prefix "Local\" is in it, and so is a name without a
/// prefix. "Global\" has a folder of its own. No other folder is allowed.
inline DWORD resolveName(char const *&name)
{
    constexpr char LOCAL[] = "Local\\", GLOBAL[] = "Global\\";
    if (std::strlen(name) >= MAX_PATH)
        return ERROR_FILENAME_EXCED_RANGE;
    char const *rest = name;
    if (std::strncmp(name, LOCAL, sizeof LOCAL - 1) == 0)
        name = rest = name + sizeof LOCAL - 1;
    else if (std::strncmp(name, GLOBAL, sizeof GLOBAL - 1) == 0)
        rest = name + sizeof GLOBAL - 1;
    return *rest && !std::strchr(rest, '\\') ? ERROR_SUCCESS : ERROR_PATH_NOT_FOUND;
}

} // namespace ZvPlatform
