// Ring buffer of records, with one writing thread and one reader at a time.
#pragma once

#include "zvbase/lgRingMemory.private.h"
#include "zvbase/platform/shared.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace Zv {

/// The memory of a log queue.
///
/// Places in the ring are counted without end. The memory of a place is at the remainder of its
/// number. A record is a header and its text, padded to whole units. So a header never crosses the
/// end of the memory. A text may.
///
/// Time order: a writer ends a record in three steps. It announces that (an odd number in
/// `_announcement`), takes a stamp, and publishes the record with that stamp. A reader takes a stamp
/// first and reads the announcements afterwards. The announcement and what the reader does between
/// the two are full barriers. If the reader has not seen an announcement, that writer takes its
/// stamp later than the reader did. So if the reader waits until all announcements that it has seen
/// are over, it knows all records up to its own stamp.
class LgRing
{
public:
    static constexpr std::size_t UNIT = 32;

    struct Header
    {
        std::uint64_t stamp; // of ZvPlatform::readStamp, see LgClock
        std::uint32_t length;
        std::uint32_t kind;
        std::uint64_t lostLines; // all that the writer had lost when it ended the record
        std::uint64_t lostCharacters;
    };
    static_assert(sizeof(Header) == UNIT);

    /// `capacity` is in bytes and must be a power of two.
    explicit LgRing(std::size_t capacity);
    LgRing(LgRing const &) = delete;
    LgRing &operator=(LgRing const &) = delete;

    std::size_t getCapacity() const { return _capacity; }
    static std::uint64_t roundUp(std::uint64_t place) { return (place + UNIT - 1) & ~(UNIT - 1); }

    // ---- the writer

    std::uint64_t getTail() const { return _tail.load(ZvPlatform::Order::RELAXED); }
    /// Returns the first place that is not free. It grows when the reader reads.
    std::uint64_t getLimit() const { return _head.load(ZvPlatform::Order::ACQUIRE) + _capacity; }
    char *at(std::uint64_t place) { return _memory.get() + (place & (_capacity - 1)); }
    /// Returns the place behind `place` at which the memory ends.
    std::uint64_t getSeam(std::uint64_t place) const { return (place | (_capacity - 1)) + 1; }
    /// Tells other threads where the text ends that is not published yet.
    void setReserved(std::uint64_t place) { _reserved.store(place, ZvPlatform::Order::RELAXED); }
    /// Publishes the record whose header is at the tail and whose text ends at `end`. Returns true
    /// if a logger ran when the record was announced. Then a reader is sure to find it.
    bool publish(std::uint64_t end, std::uint32_t kind);
    /// Counts a dropped line.
    void countLoss(std::uint64_t characters);
    /// Exchanges two neighbouring pieces of whole units: `first` to `middle`, and `middle` to
    /// `last`.
    void rotate(std::uint64_t first, std::uint64_t middle, std::uint64_t last);

    // ---- any thread

    std::uint64_t getNbFree() const;
    bool isEmpty() const;
    std::uint64_t getNbLostLines() const { return _lostLines.load(ZvPlatform::Order::ACQUIRE); }
    // In one order with the announcements, see above.
    std::uint32_t getAnnouncement() const { return _announcement.load(ZvPlatform::Order::SEQ_CST); }

    // ---- the reader

    /// Returns the header of the earliest record, or null if there is none. Valid until `pop`.
    Header const *getFront() const;
    /// Appends the text of the earliest record to `text`.
    void readFront(std::string &text) const;
    /// Removes the earliest record.
    void pop();
    std::uint64_t getNbLostCharacters() const
    {
        return _lostCharacters.load(ZvPlatform::Order::RELAXED);
    }

private:
    /// Fetches memory into the cache. The next record is probably as long as this one, and its
    /// memory was used last a whole ring ago.
    void prefetch(std::uint64_t place, std::uint64_t length);
    void reverse(std::uint64_t first, std::uint64_t last);

    LgRingMemory::Owned _memory;
    std::size_t _capacity;
    alignas(64) ZvPlatform::Shared<std::uint64_t> _tail{0}; // written by the writer
    // Text would continue here, behind the tail's header.
    ZvPlatform::Shared<std::uint64_t> _reserved{UNIT};
    ZvPlatform::Shared<std::uint32_t> _announcement{0};
    ZvPlatform::Shared<std::uint64_t> _lostLines{0};
    ZvPlatform::Shared<std::uint64_t> _lostCharacters{0};
    alignas(64) ZvPlatform::Shared<std::uint64_t> _head{0}; // written by the reader
};

} // namespace Zv
