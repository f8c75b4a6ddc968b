// The standard containers by the names that the system uses for them.
#pragma once

#include <deque>
#include <functional>
#include <list>
#include <unordered_map>
#include <vector>

namespace Zv {

template <class T>
using Vector = std::vector<T>;

template <class T>
using List = std::list<T>;

template <class T>
using Deque = std::deque<T>;

/// Names (`LiString`) and identifiers (`LiUuid`) serve as keys: both have a `std::hash`.
template <class Key, class T, class Hash = std::hash<Key>, class Equal = std::equal_to<Key>>
using HashMap = std::unordered_map<Key, T, Hash, Equal>;

} // namespace Zv
