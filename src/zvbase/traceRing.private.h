// Ring of records of events, with many writing threads and one reader.
#pragma once

#include "zvbase/platform/shared.h"
#include "zvbase/traceEvents.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

namespace Zv {

/// One event.
struct alignas(64) TraceRecord
{
    enum Kind : std::uint8_t
    {
        SLICE,
        FLOW_START, // slices with a flow
        FLOW_STEP,
        FLOW_END,
        INSTANT,
        COUNTER,
        SPAN_BEGIN,
        SPAN_END,
        THREAD_NAME
    };

    ZvPlatform::Shared<std::uint64_t> turn; // belongs to the ring
    std::uint64_t stamp;
    std::uint64_t begin; // of slices
    std::uint64_t id;    // of the flow or the span; 0 means that of this record
    std::int64_t value;
    char const *category;
    char const *name;
    char const *valueName; // null if there is no value
    std::uint32_t thread;
    Kind kind;
    std::uint8_t trackLength;
    std::uint8_t detailLength;
    char text[TraceEvents::TEXT_CAPACITY];

    void setText(std::string_view track, std::string_view detail);
    std::string_view getTrack() const { return {text, trackLength}; }
    std::string_view getDetail() const { return {text + trackLength, detailLength}; }
};
static_assert(sizeof(TraceRecord) == 192);

/// The memory of the events that are not written yet.
///
/// Each place has a turn, which says whose it is. The writer with position p may claim its place if
/// the turn is p, and sets it to p + 1 when the record is whole. The reader then sets it to the
/// position of the next round. So a writer that is slow, or is killed while it writes, delays the
/// reader, but no other writer. The reader withdraws such a place for good, because its writer may
/// still write to it.
class TraceRing
{
public:
    /// `capacity` must be a power of two.
    explicit TraceRing(std::size_t capacity);

    // ---- any thread

    /// Returns the place for a record, and its position in `position`. Returns null, and counts the
    /// loss, if the ring is full.
    TraceRecord *claim(std::uint64_t &position) noexcept;
    /// Passes a record on to the reader.
    void publish(TraceRecord &record, std::uint64_t position) noexcept;
    void countLoss() noexcept;
    std::uint64_t getNbLost() const noexcept;
    /// Returns the number of a new flow: one more than the last one.
    std::uint64_t makeFlow() noexcept;
    std::uint64_t getNbFlows() const noexcept;
    /// Returns the position of the next record that is claimed.
    std::uint64_t getTail() const noexcept;

    // ---- the reader

    /// Returns the earliest record, or null if it is not whole yet or if there is none.
    TraceRecord const *getFront() noexcept;
    std::uint64_t getHead() const noexcept { return _head; }
    /// Removes the earliest record.
    void pop() noexcept;
    /// Removes the earliest record although it is not whole, and counts its loss. Does nothing if
    /// it has become whole meanwhile.
    void withdrawFront() noexcept;

private:
    TraceRecord &at(std::uint64_t position) const { return _records[position & (_capacity - 1)]; }

    std::size_t _capacity;
    std::unique_ptr<TraceRecord[]> _records;
    alignas(64) ZvPlatform::Shared<std::uint64_t> _tail{0};
    ZvPlatform::Shared<std::uint64_t> _nbLost{0};
    ZvPlatform::Shared<std::uint64_t> _nbFlows{0};
    alignas(64) std::uint64_t _head = 0;
};

} // namespace Zv
