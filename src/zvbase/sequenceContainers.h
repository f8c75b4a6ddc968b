// Standard containers that keep an order, under the names that this system uses (applications).
#pragma once

#include <deque>
#include <list>
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

} // namespace Zv
