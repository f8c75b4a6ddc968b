// List that finds its entries in constant time.
#pragma once

#include "zvbase/sequenceContainers.h"

#include <cstddef>
#include <unordered_map>

namespace Zv {

/// Pointers in the order in which they were added. Finding and removing one takes the same time for
/// any number of them.
template <class T>
class IndexedList
{
public:
    using Entries = List<T *>;

    /// Appends an entry. The list may contain it already.
    void add(T *entry)
    {
        Entries added{entry};
        _places.emplace(entry, added.begin());
        _entries.splice(_entries.end(), added); // keeps the place valid
    }

    /// Removes all entries that equal `entry`.
    void remove(T *entry)
    {
        auto const [first, last] = _places.equal_range(entry);
        for (auto place = first; place != last; ++place)
            _entries.erase(place->second);
        _places.erase(first, last);
    }

    bool contains(T *entry) const { return _places.find(entry) != _places.end(); }
    std::size_t size() const { return _entries.size(); }
    Entries const &entries() const { return _entries; }

private:
    Entries _entries;
    std::unordered_multimap<T *, typename Entries::iterator> _places;
};

} // namespace Zv
