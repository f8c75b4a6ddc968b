// The name of a type as it stands in sources.
#pragma once

#include "zvbase/export.h"

#include <string>
#include <typeinfo>

namespace Zv {

/// With its namespaces and arguments, as the compiler writes it. Throws `std::bad_alloc`.
ZVBASE_EXPORT std::string nameType(std::type_info const &type);

} // namespace Zv
