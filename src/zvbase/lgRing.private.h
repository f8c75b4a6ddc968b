// The memory of a queue: lines in a ring, from one writing thread to one reader at a time.
#pragma once

#include "zvbase/platform/interlocked.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace Zv {

/// Places in the ring are counted through, without end; a place's memory is its remainder. A record is a header and
/// the text behind it, filled up to whole units, so that a header never lies across the ring's end; a text may.
///
/// Time order. A writer ends a record in three steps: it announces that (an odd number in `_announcement`), reads the
/// clock, and publishes the record with the reading. A reader reads the clock first and the announcements after it.
/// The announcement and the reader's look are full barriers: an announcement that the reader has not seen comes
/// after its look, so that record's moment comes after the reader's. A reader that waits until the announcements it
/// has seen are over knows all records up to its moment.
class LgRing
{
public:
    static constexpr std::size_t UNIT = 32;

    struct Header
    {
        std::uint64_t stamp;
        std::uint32_t length;
        std::uint32_t kind;
        std::uint64_t lostLines; // by the writer, all in all, when the record was ended
        std::uint64_t lostCharacters;
    };
    static_assert(sizeof(Header) == UNIT);

    /// `capacity` is a power of two, in bytes.
    explicit LgRing(std::size_t capacity);
    LgRing(LgRing const &) = delete;
    LgRing &operator=(LgRing const &) = delete;

    std::size_t getCapacity() const { return _capacity; }
    static std::uint64_t roundUp(std::uint64_t place) { return (place + UNIT - 1) & ~(UNIT - 1); }

    // ---- the writer

    std::uint64_t getTail() const { return _tail; }
    /// The first place that is not free. Moves on as the reader reads.
    std::uint64_t getLimit() const
    {
        return ZvPlatform::Interlocked::loadAcquire(_head) + _capacity;
    }
    char *at(std::uint64_t place) { return _memory.get() + (place & (_capacity - 1)); }
    /// The place behind `place` where the ring's memory ends.
    std::uint64_t getSeam(std::uint64_t place) const { return (place | (_capacity - 1)) + 1; }
    /// Tells the others how far the writer has come with text that is not published yet.
    void setReserved(std::uint64_t place)
    {
        ZvPlatform::Interlocked::storeRelease(_reserved, place);
    }
    /// Publishes the record whose header lies at the tail and whose text ends at `end`. Returns whether a logger ran
    /// when the record was announced: if it did, a reader is bound to find it.
    bool publish(std::uint64_t end, std::uint32_t kind);
    void countLoss(std::uint64_t characters);
    /// Exchanges two neighbouring pieces of whole units: from `first` to `middle`, and from there to `last`.
    void rotate(std::uint64_t first, std::uint64_t middle, std::uint64_t last);

    // ---- any thread

    std::uint64_t getNbFree() const;
    bool isEmpty() const;
    std::uint64_t getNbLostLines() const
    {
        return ZvPlatform::Interlocked::loadAcquire(_lostLines);
    }
    std::uint32_t getAnnouncement() const
    {
        return ZvPlatform::Interlocked::loadAcquire(_announcement);
    }

    // ---- the reader

    /// The earliest record's header; null where there is none. Valid until `pop`.
    Header const *getFront() const;
    /// Appends the text of the earliest record.
    void readFront(std::string &text) const;
    void pop();
    std::uint64_t getNbLostCharacters() const
    {
        return ZvPlatform::Interlocked::loadAcquire(_lostCharacters);
    }

    /// The clock of the stamps.
    static std::uint64_t getNow();
    static double toSeconds(std::uint64_t stamp);

private:
    void reverse(std::uint64_t first, std::uint64_t last);

    std::unique_ptr<char[]> _memory;
    std::size_t _capacity;
    alignas(64) std::uint64_t _tail = 0; // written by the writer
    std::uint64_t _reserved = UNIT;      // where text would go on; past the tail's header
    std::uint32_t _announcement = 0;
    std::uint64_t _lostLines = 0;
    std::uint64_t _lostCharacters = 0;
    alignas(64) std::uint64_t _head = 0; // written by the reader
};

} // namespace Zv
