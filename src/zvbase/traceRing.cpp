#include "zvbase/traceRing.private.h"

#include <algorithm>
#include <cstring>

namespace Zv {

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
        _records[i].turn.store(i, ZvPlatform::Order::RELAXED);
}

TraceRecord *TraceRing::claim(std::uint64_t &position) noexcept
{
    position = _tail.load(ZvPlatform::Order::RELAXED);
    for (;;) {
        TraceRecord &record = at(position);
        std::uint64_t const turn = record.turn.load(ZvPlatform::Order::ACQUIRE);
        if (turn == position || turn == WITHDRAWN) {
            // The place is withdrawn in each round, so its positions are passed over.
            if (_tail.compare_exchange_strong(position, position + 1, ZvPlatform::Order::RELAXED,
                                              ZvPlatform::Order::RELAXED)) {
                if (turn == position)
                    return &record;
                ++position;
            }
        } else if (turn < position) { // the reader has not emptied it since the last round
            countLoss();
            return nullptr;
        } else {
            position = _tail.load(ZvPlatform::Order::RELAXED);
        }
    }
}

void TraceRing::publish(TraceRecord &record, std::uint64_t position) noexcept
{
    // Fails if the reader has withdrawn the place, and has counted the loss.
    record.turn.compare_exchange_strong(position, position + 1, ZvPlatform::Order::RELEASE,
                                        ZvPlatform::Order::RELAXED);
}

void TraceRing::countLoss() noexcept
{
    _nbLost.fetch_add(1, ZvPlatform::Order::RELAXED);
}

std::uint64_t TraceRing::getNbLost() const noexcept
{
    return _nbLost.load(ZvPlatform::Order::RELAXED);
}

std::uint64_t TraceRing::makeFlow() noexcept
{
    return _nbFlows.fetch_add(1, ZvPlatform::Order::RELAXED) + 1;
}

std::uint64_t TraceRing::getNbFlows() const noexcept
{
    return _nbFlows.load(ZvPlatform::Order::RELAXED);
}

std::uint64_t TraceRing::getTail() const noexcept
{
    return _tail.load(ZvPlatform::Order::RELAXED);
}

TraceRecord const *TraceRing::getFront() noexcept
{
    while (_head != getTail()) {
        TraceRecord &record = at(_head);
        std::uint64_t const turn = record.turn.load(ZvPlatform::Order::ACQUIRE);
        if (turn != WITHDRAWN)
            return turn == _head + 1 ? &record : nullptr;
        ++_head;
    }
    return nullptr;
}

void TraceRing::pop() noexcept
{
    at(_head).turn.store(_head + _capacity, ZvPlatform::Order::RELEASE);
    ++_head;
}

void TraceRing::withdrawFront() noexcept
{
    std::uint64_t turn = _head;
    if (_head == getTail() ||
        !at(_head).turn.compare_exchange_strong(turn, WITHDRAWN, ZvPlatform::Order::RELAXED,
                                                ZvPlatform::Order::RELAXED))
        return;
    countLoss();
    ++_head;
}

} // namespace Zv
