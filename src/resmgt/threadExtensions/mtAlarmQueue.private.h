// Alarms in the order in which they are due.
#pragma once

#include "resmgt/smartPtrs/rcShdPtr.h"
#include "resmgt/threadExtensions/mtAlarmHandle.h"
#include "zvbase/containers.h"

#include <cstddef>
#include <cstdint>

namespace Zv {

/// Alarms sorted by time; among those of the same time the one that was added last comes first. A value that is no
/// number comes after all times.
///
/// A heap of four children a node: an alarm that comes and goes before its time hardly moves, the earliest one stands
/// in front, and no step takes more than the logarithm of the number. Each handle knows its place. All operations under
/// the lock of the queue's owner.
class MtAlarmQueue
{
public:
    bool isEmpty() const { return _entries.empty(); }
    bool contains(MtAlarmHandle const &handle) const;
    /// The earliest alarm. Not of an empty queue.
    MtAlarmHandle const &getFront() const { return *_entries.front().handle; }
    double getFrontTime() const { return _entries.front().time; }

    /// Sees to it that the next `nb` calls of `add` cannot fail.
    void reserve(std::size_t nb);
    /// The handle stands in no queue.
    void add(RCShdPtr<MtAlarmHandle> handle, double time);
    RCShdPtr<MtAlarmHandle> takeFront();
    /// Gives back what the queue held of the handle; null where it does not stand here.
    RCShdPtr<MtAlarmHandle> take(MtAlarmHandle const &handle);

private:
    struct Entry
    {
        double time;
        std::uint64_t number; // of its adding
        RCShdPtr<MtAlarmHandle> handle;

        bool isBefore(Entry const &other) const;
    };

    void settle(std::size_t free, Entry entry);
    std::size_t rise(std::size_t free, Entry const &entry);
    std::size_t sink(std::size_t free, Entry const &entry);
    void put(std::size_t place, Entry entry);

    Vector<Entry> _entries;
    std::uint64_t _nbAdded = 0;
};

} // namespace Zv
