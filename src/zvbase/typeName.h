// Readable names of types (extenders).
#pragma once

#include "zvbase/export.h"

#include <string>
#include <typeinfo>

namespace Zv {

/// Returns the name of a type as it is written in sources, with its namespaces and template
/// arguments. The form depends on the compiler. Throws `std::bad_alloc`.
///
///     std::string const name = Zv::nameType(typeid(int)); // int
ZVBASE_EXPORT std::string nameType(std::type_info const &type);

} // namespace Zv
