#include "zvbase/traceRing.private.h"

#include "zvbase/platform/interlocked.h"

#include <algorithm>
#include <cstring>

namespace Zv {

namespace Interlocked = ZvPlatform::Interlocked;

namespace {

/// The turn of a place that is no longer used.
constexpr std::uint64_t WITHDRAWN = UINT64_MAX;

} // namespace

void TraceRecord::setText(std::string_view track, std::string_view detail)
{
    track = track.substr(0, TraceEvents::TRACK_CAPACITY);
    detail = detail.substr(0, TraceEvents::TEXT_CAPACITY - track.size());
    trackLength = static_cast<std::uint8_t>(track.size());
    detailLength = static_cast<std::uint8_t>(detail.size());
    std::copy(track.begin(), track.end(), text);
    std::copy(detail.begin(), detail.end(), text + track.size());
}

TraceRing::TraceRing(std::size_t capacity)
    : _capacity(capacity), _records(new TraceRecord[capacity])
{
    for (std::size_t i = 0; i < capacity; ++i)
        _records[i].turn = i;
}

TraceRecord *TraceRing::claim(std::uint64_t &position) noexcept
{
    position = Interlocked::loadRelaxed(_tail);
    for (;;) {
        TraceRecord &record = at(position);
        std::uint64_t const turn = Interlocked::loadAcquire(record.turn);
        if (turn == position || turn == WITHDRAWN) {
            // The place is withdrawn in each round, so its positions are passed over.
            if (Interlocked::compareExchange(_tail, position, position + 1)) {
                if (turn == position)
                    return &record;
                ++position;
            }
        } else if (turn < position) { // the reader has not emptied it since the last round
            countLoss();
            return nullptr;
        } else {
            position = Interlocked::loadRelaxed(_tail);
        }
    }
}

void TraceRing::publish(TraceRecord &record, std::uint64_t position) noexcept
{
    // Fails if the reader has withdrawn the place, and has counted the loss.
    Interlocked::compareExchange(record.turn, position, position + 1);
}

void TraceRing::countLoss() noexcept
{
    Interlocked::increment(_nbLost);
}

std::uint64_t TraceRing::getNbLost() const noexcept
{
    return Interlocked::loadAcquire(_nbLost);
}

std::uint64_t TraceRing::makeFlow() noexcept
{
    return Interlocked::increment(_nbFlows);
}

std::uint64_t TraceRing::getNbFlows() const noexcept
{
    return Interlocked::loadAcquire(_nbFlows);
}

std::uint64_t TraceRing::getTail() const noexcept
{
    return Interlocked::loadAcquire(_tail);
}

TraceRecord const *TraceRing::getFront() noexcept
{
    while (_head != getTail()) {
        TraceRecord &record = at(_head);
        std::uint64_t const turn = Interlocked::loadAcquire(record.turn);
        if (turn != WITHDRAWN)
            return turn == _head + 1 ? &record : nullptr;
        ++_head;
    }
    return nullptr;
}

void TraceRing::pop() noexcept
{
    Interlocked::storeRelease(at(_head).turn, _head + _capacity);
    ++_head;
}

void TraceRing::withdrawFront() noexcept
{
    std::uint64_t turn = _head;
    if (_head == getTail() || !Interlocked::compareExchange(at(_head).turn, turn, WITHDRAWN))
        return;
    countLoss();
    ++_head;
}

} // namespace Zv
