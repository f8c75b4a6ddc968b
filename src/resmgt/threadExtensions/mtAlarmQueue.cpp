#include "resmgt/threadExtensions/mtAlarmQueue.private.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace Zv {

namespace {

constexpr std::size_t NB_CHILDREN = 4;

} // namespace

bool MtAlarmQueue::Entry::isBefore(Entry other) const
{
    if (time < other.time)
        return true;
    if (time > other.time)
        return false;
    if (time != other.time && std::isnan(time) != std::isnan(other.time))
        return std::isnan(other.time);
    return handle->_number > other.handle->_number;
}

bool MtAlarmQueue::contains(MtAlarmHandle const &handle) const
{
    return handle._position < _entries.size() && _entries[handle._position].handle == &handle;
}

MtAlarmQueue::~MtAlarmQueue()
{
    while (!isEmpty())
        takeFront();
}

void MtAlarmQueue::grow(std::size_t nb)
{
    _entries.reserve(std::max(2 * _entries.capacity(), _entries.size() + nb));
}

void MtAlarmQueue::add(RCShdPtr<MtAlarmHandle> handle, double time)
{
    MtAlarmHandle &added = *handle;
    _entries.push_back({time, &added});
    added._number = ++_nbAdded;
    added._queued = std::move(handle);
    settle(_entries.size() - 1, {time, &added});
}

RCShdPtr<MtAlarmHandle> MtAlarmQueue::takeFront()
{
    return take(getFront());
}

RCShdPtr<MtAlarmHandle> MtAlarmQueue::take(MtAlarmHandle const &handle)
{
    if (!contains(handle))
        return nullptr;
    std::size_t const hole = handle._position;
    MtAlarmHandle &taken = *_entries[hole].handle;
    taken._position = MtAlarmHandle::NOWHERE;
    Entry const last = _entries.back();
    _entries.pop_back();
    if (hole < _entries.size())
        settle(hole, last);
    return std::move(taken._queued);
}

/// Stores an entry at its place in the order, starting from a free place: upwards, or else
/// downwards.
void MtAlarmQueue::settle(std::size_t free, Entry entry)
{
    std::size_t const place = rise(free, entry);
    put(place == free ? sink(free, entry) : place, entry);
}

/// Moves entries above the free place that are later than `entry` down. Returns the place that is
/// free then.
std::size_t MtAlarmQueue::rise(std::size_t free, Entry entry)
{
    while (free > 0) {
        std::size_t const parent = (free - 1) / NB_CHILDREN;
        if (!entry.isBefore(_entries[parent]))
            break;
        put(free, _entries[parent]);
        free = parent;
    }
    return free;
}

/// Moves entries below the free place that are earlier than `entry` up. Returns the place that is
/// free then.
std::size_t MtAlarmQueue::sink(std::size_t free, Entry entry)
{
    for (;;) {
        std::size_t const first = NB_CHILDREN * free + 1;
        if (first >= _entries.size())
            return free;
        std::size_t const end = std::min(first + NB_CHILDREN, _entries.size());
        std::size_t earliest = first;
        for (std::size_t child = first + 1; child < end; ++child)
            if (_entries[child].isBefore(_entries[earliest]))
                earliest = child;
        if (!_entries[earliest].isBefore(entry))
            return free;
        put(free, _entries[earliest]);
        free = earliest;
    }
}

void MtAlarmQueue::put(std::size_t place, Entry entry)
{
    entry.handle->_position = place;
    _entries[place] = entry;
}

} // namespace Zv
