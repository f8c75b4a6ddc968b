// Search in and output of a list of names, for the table and its builder.
#pragma once

#include "resmgt/literals/liString.h"
#include "zvbase/sequenceContainers.h"

#include <algorithm>
#include <ostream>

namespace Zv::Detail {

inline bool isMember(LiString const &name, Vector<LiString> const &names)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

inline void writeNames(std::ostream &stream, Vector<LiString> const &names, char const *separator)
{
    char const *before = "";
    for (LiString const &name : names) {
        stream << before << name;
        before = separator;
    }
}

} // namespace Zv::Detail
