// Output of a list of names, for the table and its builder.
#pragma once

#include "resmgt/literals/liString.h"
#include "zvbase/sequenceContainers.h"

#include <ostream>

namespace Zv::Detail {

inline void writeNames(std::ostream &stream, Vector<LiString> const &names, char const *separator)
{
    char const *before = "";
    for (LiString const &name : names) {
        stream << before << name;
        before = separator;
    }
}

} // namespace Zv::Detail
