// Names of objects: what is good as one, and which two are the same.
#pragma once

#include "platform/services.h"

#include <cstring>

namespace ZvPlatform {

/// Leads past a prefix that changes nothing. Returns the error of what is no name, else ERROR_SUCCESS.
///
/// There is one session here, whose names "Local\" means and a name without a prefix too. "Global\" has a folder of its
/// own. Nothing else has one.
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
