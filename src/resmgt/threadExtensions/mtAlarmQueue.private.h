// Priority queue of alarms.
#pragma once

#include "resmgt/smartPtrs/rcShdPtr.h"
#include "resmgt/threadExtensions/mtAlarmHandle.h"
#include "zvbase/sequenceContainers.h"

#include <cstddef>
#include <cstdint>

namespace Zv {

/// Alarms sorted by time. Of alarms with the same time, the one that was added last is first. A
/// value that is not a number is after all times.
///
/// It is a heap with four children for each node. Each operation takes at most logarithmic time,
/// and adding an alarm or removing it before its time moves few entries. Each handle stores its
/// place, the count of additions when it was added, and the queue's reference to it, so that an
/// entry is small and can be copied. The owner of the queue must hold its lock.
class MtAlarmQueue
{
public:
    MtAlarmQueue() = default;
    ~MtAlarmQueue();
    MtAlarmQueue(MtAlarmQueue const &) = delete;
    MtAlarmQueue &operator=(MtAlarmQueue const &) = delete;

    bool isEmpty() const { return _entries.empty(); }
    bool contains(MtAlarmHandle const &handle) const;
    /// Returns the earliest alarm. The queue must not be empty.
    MtAlarmHandle const &getFront() const { return *_entries.front().handle; }
    double getFrontTime() const { return _entries.front().time; }

    /// Allocates memory for the next `nb` calls of `add`, so that they cannot fail.
    void reserve(std::size_t nb)
    {
        if (_entries.capacity() - _entries.size() < nb) [[unlikely]]
            grow(nb);
    }
    /// Adds a handle, which must not be in a queue.
    void add(RCShdPtr<MtAlarmHandle> handle, double time);
    /// Removes and returns the earliest alarm. The queue must not be empty.
    RCShdPtr<MtAlarmHandle> takeFront();
    /// Removes and returns the handle. Returns null if it is not in this queue.
    RCShdPtr<MtAlarmHandle> take(MtAlarmHandle const &handle);

private:
    /// Is passed in registers. Four of them are a line of the cache.
    struct Entry
    {
        double time;
        MtAlarmHandle *handle;

        bool isBefore(Entry other) const;
    };

    void grow(std::size_t nb);
    void settle(std::size_t free, Entry entry);
    std::size_t rise(std::size_t free, Entry entry);
    std::size_t sink(std::size_t free, Entry entry);
    void put(std::size_t place, Entry entry);

    Vector<Entry> _entries;
    std::uint64_t _nbAdded = 0;
};

} // namespace Zv
