// Standard containers under the names that this system uses (applications).
#pragma once

#include "zvbase/sequenceContainers.h"

#include <functional>
#include <unordered_map>

namespace Zv {

/// The standard hash map. Names (`LiString`) and identifiers (`LiUuid`) can be keys, because both
/// have a `std::hash`.
///
///     Zv::HashMap<int, double> gains;
///     gains[3] = 0.5;
template <class Key, class T, class Hash = std::hash<Key>, class Equal = std::equal_to<Key>>
using HashMap = std::unordered_map<Key, T, Hash, Equal>;

} // namespace Zv
