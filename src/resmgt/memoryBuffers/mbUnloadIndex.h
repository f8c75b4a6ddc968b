// Where a strategy has its buffers.
#pragma once

#include "resmgt/export.h"
#include "zvbase/containers.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace Zv {

class MbBufferImp;

/// A buffer's address in units of its size.
struct ZVRESMGT_EXPORT MbUnloadHash
{
    std::size_t operator()(MbBufferImp const *buffer) const noexcept;
};

/// A hash map from buffers to their places in a strategy. What is erased leaves its entry for the next that comes: as
/// long as there are no more than was reserved for, nothing allocates, and so nothing fails.
template <class Place>
class MbUnloadIndex
{
    using Entries = HashMap<MbBufferImp *, Place, MbUnloadHash>;

public:
    using iterator = typename Entries::iterator;
    using const_iterator = typename Entries::const_iterator;

    MbUnloadIndex() = default;
    MbUnloadIndex(MbUnloadIndex const &other) : _entries(other._entries)
    {
        reserve(_entries.size());
    }
    MbUnloadIndex &operator=(MbUnloadIndex const &) = delete;
    ~MbUnloadIndex() = default;

    /// Makes room for so many buffers, in constant time on average when they come one by one.
    void reserve(std::size_t nbBuffers)
    {
        if (_room < nbBuffers) {
            std::size_t const room = std::max(nbBuffers, 2 * _room);
            _entries.reserve(room);
            _spares.reserve(room);
            _room = room;
        }
        while (_entries.size() + _spares.size() < nbBuffers) {
            auto const spare = _entries.try_emplace(nullptr).first;
            _spares.push_back(_entries.extract(spare));
        }
    }

    /// Enters a buffer; one that is entered already keeps its place. Returns the entry, and whether it is new.
    std::pair<iterator, bool> insert(MbBufferImp *buffer, Place place)
    {
        reserve(_entries.size() + 1);
        auto &spare = _spares.back();
        spare.key() = buffer;
        spare.mapped() = place;
        auto inserted = _entries.insert(std::move(spare));
        if (inserted.inserted)
            _spares.pop_back();
        else
            spare = std::move(inserted.node);
        return {inserted.position, inserted.inserted};
    }
    void erase(iterator entry) { _spares.push_back(_entries.extract(entry)); }

    iterator find(MbBufferImp *buffer) { return _entries.find(buffer); }
    iterator end() noexcept { return _entries.end(); }
    const_iterator begin() const noexcept { return _entries.begin(); }
    const_iterator end() const noexcept { return _entries.end(); }

    void swap(MbUnloadIndex &other) noexcept
    {
        _entries.swap(other._entries);
        _spares.swap(other._spares);
        std::swap(_room, other._room);
    }

private:
    Entries _entries;
    Vector<typename Entries::node_type> _spares;
    std::size_t _room = 0; // for entries, and for as many spare ones
};

} // namespace Zv
