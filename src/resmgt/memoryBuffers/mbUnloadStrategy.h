// Strategies that select the buffer to evict: least recently used, and random (extenders).
#pragma once

#include "resmgt/export.h"
#include "zvbase/containers.h"
#include "zvbase/rnNumRecUniformRng.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <utility>

namespace Zv {

class MbBufferImp;

/// The set of buffers that a pool manager may evict, and the choice among them. These are the
/// buffers that are loaded and not locked. Derive from it to evict in another order.
///
///     #include <vector>
///
///     class NewestFirst : public MbUnloadStrategy
///     {
///     public:
///         char const *getName() const override { return "NewestFirst"; }
///         void insertBuffer(MbBufferImp *buffer) override { _buffers.push_back(buffer); }
///         void removeBuffer(MbBufferImp *buffer) override { std::erase(_buffers, buffer); }
///         MbBufferImp *selectVictim() const override { return _buffers.back(); }
///         bool isEmpty() const override { return _buffers.empty(); }
///         void reserve(std::size_t nbBuffers) override { _buffers.reserve(nbBuffers); }
///
///     private:
///         std::vector<MbBufferImp *> _buffers;
///     };
///
/// **Threads**: one thread at a time. The manager owns its strategy and calls it under its mutex. A
/// strategy must not block. Every operation except `dump` is part of a load or an unlock, and
/// should take constant time on average.
class ZVRESMGT_EXPORT MbUnloadStrategy
{
public:
    virtual ~MbUnloadStrategy() noexcept(false);

    virtual char const *getName() const = 0;
    /// Adds a buffer that is not in the set. Must not throw if `reserve` has made room for it.
    /// Otherwise an unlock would throw, and the buffer would stay locked.
    virtual void insertBuffer(MbBufferImp *buffer) = 0;
    /// Removes a buffer. Must not throw. Must do nothing if the buffer is not in the set, which
    /// happens after `insertBuffer` has thrown.
    virtual void removeBuffer(MbBufferImp *buffer) = 0;
    /// Returns a buffer of the set, which stays in it. The set must not be empty.
    virtual MbBufferImp *selectVictim() const = 0;
    virtual bool isEmpty() const = 0;
    /// Writes the name. A derived class may write more for debugging.
    virtual void dump(std::ostream &stream) const;
    /// Makes room for `nbBuffers` buffers in all. Throws `std::bad_alloc`. The manager calls it
    /// before it gives a buffer memory, so that the unlock of the buffer cannot fail. The base
    /// class does nothing: a strategy whose `insertBuffer` allocates must override it.
    virtual void reserve(std::size_t nbBuffers);

protected:
    MbUnloadStrategy();
    MbUnloadStrategy(MbUnloadStrategy const &);
    MbUnloadStrategy &operator=(MbUnloadStrategy const &);
};

/// Hashes a buffer by its address, in units of the size of a buffer.
struct ZVRESMGT_EXPORT MbUnloadHash
{
    std::size_t operator()(MbBufferImp const *buffer) const noexcept;
};

/// A hash map from buffers to their places in a strategy. It keeps erased entries for later
/// buffers. As long as there are no more buffers than `reserve` has made room for, no operation
/// allocates, so none throws.
///
///     MbUnloadIndex<std::size_t> places;
///     places.reserve(16);
///
/// **Threads**: one thread at a time.
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

    /// Makes room for `nbBuffers` buffers in all. Takes constant time on average if the number
    /// grows by one.
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

    /// Inserts a buffer. If the buffer is in the map already, it keeps its place. Returns the
    /// entry, and true if the entry is new.
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
    /// Removes an entry, and keeps its memory for a later buffer.
    void erase(iterator entry) { _spares.push_back(_entries.extract(entry)); }

    /// Returns the entry of a buffer, or `end()` if there is none.
    iterator find(MbBufferImp *buffer) { return _entries.find(buffer); }
    /// Return the ends of the map.
    iterator end() noexcept { return _entries.end(); }
    const_iterator begin() const noexcept { return _entries.begin(); }
    const_iterator end() const noexcept { return _entries.end(); }

    /// Exchanges the contents of two maps.
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

/// Evicts the least recently used buffer. A buffer counts as used when it is unlocked, and when it
/// is prefetched while it is loaded.
///
///     RCShdPtr<MbManager> const manager(
///         new MbHeapManager("frames", 64 << 20, ObjPtr<MbUnloadStrategy>(new MbUnloadLRU(0))));
///
/// A copy has the same buffers in the same order. Each manager needs a strategy of its own.
class ZVRESMGT_EXPORT MbUnloadLRU : public MbUnloadStrategy
{
public:
    /// `capacity` has no effect.
    explicit MbUnloadLRU(int capacity);
    MbUnloadLRU(MbUnloadLRU const &other);
    MbUnloadLRU &operator=(MbUnloadLRU const &other);
    ~MbUnloadLRU() noexcept(false) override;

    /// Returns "MbUnloadLRU".
    char const *getName() const override;
    void insertBuffer(MbBufferImp *buffer) override;
    void removeBuffer(MbBufferImp *buffer) override;
    MbBufferImp *selectVictim() const override;
    bool isEmpty() const override;
    void reserve(std::size_t nbBuffers) override;

private:
    using Queue = List<MbBufferImp *>;

    Queue _queue; // the oldest first
    MbUnloadIndex<Queue::iterator> _index;
    Queue _spares; // the memory of later entries
};

/// Evicts a random buffer. Each buffer is as likely as the others, and a second call of
/// `selectVictim` selects anew. This is useful if an application walks in a circle through more
/// buffers than fit: the least recently used buffer is then the one that it needs next.
///
///     ObjPtr<MbUnloadStrategy> strategy(new MbUnloadRandom(100));
///     RCShdPtr<MbManager> const manager(new MbHeapManager("frames", 64 << 20, strategy));
///
/// A copy has the same buffers, and goes on with the same random numbers. Each manager needs a
/// strategy of its own.
class ZVRESMGT_EXPORT MbUnloadRandom : public MbUnloadStrategy
{
public:
    /// Reserves room for `capacity` buffers. The set may become larger.
    explicit MbUnloadRandom(int capacity);
    MbUnloadRandom(MbUnloadRandom const &);
    MbUnloadRandom &operator=(MbUnloadRandom const &);
    ~MbUnloadRandom() noexcept(false) override;

    /// Returns "MbUnloadRandom".
    char const *getName() const override;
    void insertBuffer(MbBufferImp *buffer) override;
    void removeBuffer(MbBufferImp *buffer) override;
    MbBufferImp *selectVictim() const override;
    bool isEmpty() const override;
    /// Writes the name, the buffers by their positions, and the positions by their buffers.
    void dump(std::ostream &stream) const override;
    void reserve(std::size_t nbBuffers) override;

private:
    Vector<MbBufferImp *> _container;
    MbUnloadIndex<std::uint64_t> _index;
    RnNumRecUniformRng mutable _generator;
};

} // namespace Zv
