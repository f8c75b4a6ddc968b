// Strategies that select the buffer to evict: least recently used, and random (extenders).
#pragma once

#include "resmgt/export.h"
#include "zvbase/containers.h"
#include "zvbase/rnNumRecUniformRng.h"

#include <bit>
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

/// A hash map from buffers to their places in a strategy. As long as there are no more buffers than
/// `reserve` has made room for, no operation allocates, so none throws. An iterator is valid until
/// the map is changed.
///
///     MbUnloadIndex<std::size_t> places;
///     places.reserve(16);
///
/// The entries are in one array, and a buffer that finds its entry taken gets the next free one. So
/// a search rarely touches more than one line of the cache.
///
/// **Threads**: one thread at a time.
template <class Place>
class MbUnloadIndex
{
    using Entry = std::pair<MbBufferImp *, Place>; // a null pointer if it is free
    using Entries = Vector<Entry>;

    /// Goes from buffer to buffer.
    template <class T>
    class Iterator
    {
    public:
        Iterator(T *entry, T *end) : _entry(entry), _end(end) { skipFree(); }

        T &operator*() const { return *_entry; }
        T *operator->() const { return _entry; }
        Iterator &operator++()
        {
            ++_entry;
            skipFree();
            return *this;
        }
        bool operator==(Iterator const &) const = default;

    private:
        friend class MbUnloadIndex;

        void skipFree()
        {
            while (_entry != _end && !_entry->first)
                ++_entry;
        }

        T *_entry;
        T *_end;
    };

public:
    using iterator = Iterator<Entry>;
    using const_iterator = Iterator<Entry const>;

    MbUnloadIndex() = default;
    MbUnloadIndex(MbUnloadIndex const &) = default;
    MbUnloadIndex &operator=(MbUnloadIndex const &) = delete;
    ~MbUnloadIndex() = default;

    /// Makes room for `nbBuffers` buffers in all. Takes constant time on average if the number
    /// grows by one.
    void reserve(std::size_t nbBuffers)
    {
        // At most half of the entries are taken.
        if (2 * nbBuffers > _entries.size()) [[unlikely]]
            grow(nbBuffers);
    }

    /// Inserts a buffer. If the buffer is in the map already, it keeps its place. Returns the
    /// entry, and true if the entry is new.
    std::pair<iterator, bool> insert(MbBufferImp *buffer, Place place)
    {
        reserve(_size + 1);
        Entry &entry = _entries[seek(buffer)];
        bool const isNew = !entry.first;
        if (isNew) {
            entry = {buffer, place};
            ++_size;
        }
        return {iteratorAt(&entry), isNew};
    }
    /// Removes an entry, and keeps its memory for a later buffer.
    void erase(iterator position)
    {
        std::size_t const mask = _entries.size() - 1;
        auto free = static_cast<std::size_t>(position._entry - _entries.data());
        _entries[free].first = nullptr;
        --_size;
        // An entry behind moves to the free one, unless its search begins between the two.
        for (std::size_t i = (free + 1) & mask; _entries[i].first; i = (i + 1) & mask) {
            std::size_t const distance = (i - firstChoice(_entries[i].first)) & mask;
            if (distance >= ((i - free) & mask)) {
                _entries[free] = std::exchange(_entries[i], Entry());
                free = i;
            }
        }
    }

    /// Returns the entry of a buffer, or `end()` if there is none.
    iterator find(MbBufferImp *buffer)
    {
        if (_size == 0)
            return end();
        Entry &entry = _entries[seek(buffer)];
        return entry.first ? iteratorAt(&entry) : end();
    }
    /// Return the ends of the map.
    iterator begin() noexcept { return iteratorAt(_entries.data()); }
    iterator end() noexcept { return iteratorAt(_entries.data() + _entries.size()); }
    const_iterator begin() const noexcept
    {
        return {_entries.data(), _entries.data() + _entries.size()};
    }
    const_iterator end() const noexcept
    {
        return {_entries.data() + _entries.size(), _entries.data() + _entries.size()};
    }

    /// Exchanges the contents of two maps.
    void swap(MbUnloadIndex &other) noexcept
    {
        _entries.swap(other._entries);
        std::swap(_size, other._size);
    }

private:
    void grow(std::size_t nbBuffers)
    {
        MbUnloadIndex larger;
        larger._entries.resize(std::bit_ceil(2 * nbBuffers));
        for (Entry const &entry : _entries)
            if (entry.first)
                larger.insert(entry.first, entry.second);
        swap(larger);
    }
    iterator iteratorAt(Entry *entry) { return {entry, _entries.data() + _entries.size()}; }
    /// Returns the entry that a buffer gets if it is free. The number of entries is a power of two.
    std::size_t firstChoice(MbBufferImp const *buffer) const
    {
        // The upper bits of the product depend on all bits of the hash.
        std::uint64_t const hash = MbUnloadHash()(buffer);
        return static_cast<std::size_t>((hash * 0x9E3779B97F4A7C15) >> 32) & (_entries.size() - 1);
    }
    /// Returns the entry of a buffer, or the free one that it would get.
    std::size_t seek(MbBufferImp const *buffer) const
    {
        std::size_t i = firstChoice(buffer);
        while (_entries[i].first && _entries[i].first != buffer)
            i = (i + 1) & (_entries.size() - 1);
        return i;
    }

    Entries _entries;
    std::size_t _size = 0;
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
    using Place = std::uint32_t;

    /// A place in the queue, which is a ring through the first place. Places that are not used are
    /// a list by `next`.
    struct Link
    {
        MbBufferImp *buffer = nullptr;
        Place previous = 0;
        Place next = 0;
    };

    void grow(std::size_t nbBuffers);

    Vector<Link> _links; // the first one is before the oldest buffer and behind the newest one
    Place _unused;       // 0 if there is none
    std::size_t _size;
    MbUnloadIndex<Place> _index;
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
