// Standard containers under the names that this system uses (applications).
#pragma once

#include <deque>
#include <functional>
#include <list>
#include <unordered_map>
#include <vector>

namespace Zv {

/// The standard vector.
template <class T>
using Vector = std::vector<T>;

/// The standard doubly linked list.
template <class T>
using List = std::list<T>;

/// The standard double-ended queue.
template <class T>
using Deque = std::deque<T>;

/// The standard hash map. Names (`LiString`) and identifiers (`LiUuid`) can be keys, because both
/// have a `std::hash`.
///
///     Zv::HashMap<int, double> gains;
///     gains[3] = 0.5;
template <class Key, class T, class Hash = std::hash<Key>, class Equal = std::equal_to<Key>>
using HashMap = std::unordered_map<Key, T, Hash, Equal>;

} // namespace Zv
