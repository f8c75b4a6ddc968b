#include "zvbase/lgRing.private.h"

#include "platform/services.h"
#include "zvbase/lgLog.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

namespace Zv {

namespace {

/// More than most lines have.
constexpr std::uint64_t LONGEST_PREFETCH = 256;

} // namespace

// In real-time operation the memory is filled, so that the writer never waits for a page. Otherwise
// the system provides the pages when they are used, because many threads never write a line.
LgRing::LgRing(std::size_t capacity) : _memory(LgRingMemory::take(capacity)), _capacity(capacity)
{
    if (::GetPriorityClass(::GetCurrentProcess()) == REALTIME_PRIORITY_CLASS)
        std::memset(_memory.get(), 0, capacity);
}

bool LgRing::publish(std::uint64_t end, std::uint32_t kind)
{
    _announcement.exchange(_announcement.load(ZvPlatform::Order::RELAXED) + 1,
                           ZvPlatform::Order::SEQ_CST);
    bool const isServed = LgLog::isLoggerActive();
    std::uint64_t const tail = getTail();
    Header const header = {ZvPlatform::readStamp(), static_cast<std::uint32_t>(end - tail - UNIT),
                           kind, _lostLines.load(ZvPlatform::Order::RELAXED),
                           _lostCharacters.load(ZvPlatform::Order::RELAXED)};
    std::memcpy(at(tail), &header, sizeof header);
    std::uint64_t const next = roundUp(end);
    _reserved.store(next + UNIT, ZvPlatform::Order::RELAXED);
    _tail.store(next, ZvPlatform::Order::RELEASE);
    _announcement.store(_announcement.load(ZvPlatform::Order::RELAXED) + 1,
                        ZvPlatform::Order::RELEASE);
    prefetch(next, next - (end - header.length - UNIT));
    return isServed;
}

void LgRing::prefetch(std::uint64_t place, std::uint64_t length)
{
    constexpr std::uint64_t CACHE_LINE = 64;
    std::uint64_t const end = place + std::min(length, LONGEST_PREFETCH);
    for (; place < end; place += CACHE_LINE)
        __builtin_prefetch(at(place), 1);
}

void LgRing::countLoss(std::uint64_t characters)
{
    _lostCharacters.store(_lostCharacters.load(ZvPlatform::Order::RELAXED) + characters,
                          ZvPlatform::Order::RELAXED);
    _lostLines.store(_lostLines.load(ZvPlatform::Order::RELAXED) + 1, ZvPlatform::Order::RELEASE);
}

void LgRing::reverse(std::uint64_t first, std::uint64_t last)
{
    for (; first + UNIT < last; first += UNIT) {
        last -= UNIT;
        std::swap_ranges(at(first), at(first) + UNIT, at(last));
    }
}

void LgRing::rotate(std::uint64_t first, std::uint64_t middle, std::uint64_t last)
{
    reverse(first, middle);
    reverse(middle, last);
    reverse(first, last);
}

std::uint64_t LgRing::getNbFree() const
{
    // The reserved place may be beyond the limit if the two are of different moments.
    std::uint64_t const reserved = _reserved.load(ZvPlatform::Order::RELAXED);
    std::uint64_t const limit = getLimit();
    return limit > reserved ? limit - reserved : 0;
}

bool LgRing::isEmpty() const
{
    std::uint64_t const tail = _tail.load(ZvPlatform::Order::ACQUIRE);
    return tail == _head.load(ZvPlatform::Order::ACQUIRE);
}

LgRing::Header const *LgRing::getFront() const
{
    std::uint64_t const head = _head.load(ZvPlatform::Order::RELAXED);
    if (_tail.load(ZvPlatform::Order::ACQUIRE) == head)
        return nullptr;
    char const * const place = _memory.get() + (head & (_capacity - 1));
    return std::launder(reinterpret_cast<Header const *>(place));
}

void LgRing::readFront(std::string &text) const
{
    std::size_t const length = getFront()->length;
    std::uint64_t const start = _head.load(ZvPlatform::Order::RELAXED) + UNIT;
    std::size_t const first = std::min<std::size_t>(length, getSeam(start) - start);
    text.append(_memory.get() + (start & (_capacity - 1)), first);
    text.append(_memory.get(), length - first);
}

void LgRing::pop()
{
    std::uint64_t const next =
        _head.load(ZvPlatform::Order::RELAXED) + UNIT + roundUp(getFront()->length);
    _head.store(next, ZvPlatform::Order::RELEASE);
}

} // namespace Zv
