// Decides what a supervised sequence does next.
#pragma once

#include "resmgt/deviceManager/sequence/devSeqRecord.private.h"
#include "zvbase/containers.h"

#include <cstddef>
#include <cstdint>

namespace Zv {

/// Something that the runner of a supervised sequence has to do.
struct DevSeqTask
{
    enum Kind
    {
        DELIVER,     ///< an event to the device's machine
        CALL_ABORT,  ///< call the device, without its machine
        TELL,        ///< the observer of a state of the device
        TELL_FAILURE ///< the same, of a device that has failed
    };

    Kind kind;
    std::size_t device;
    std::int32_t number; // of the event or of the state
};

/// Chooses the next task by the record and by what the devices have reported.
///
/// Before the abort, tasks are events for the machines of the tree. No event is chosen that is
/// illegal in the state of its machine. If a device has failed or aborted, the plan does for its
/// neighbours what its machine no longer does. In the abort, tasks are calls of `performAbort`.
///
/// **Threads**: one thread at a time, under the sequence's lock.
class DevSeqPlan
{
public:
    explicit DevSeqPlan(DevSeqRecord &record);

    /// Adds the next device. The parent of the root is the root.
    void add(std::size_t parent);
    /// Adds a report to the queue. Needs no memory. Returns false if the same report of the device
    /// waits there already.
    bool addReport(std::size_t device, DevSeqRecord::Report report);
    /// Returns false if there is nothing to do before the moment `until`, which it may bring
    /// forward, or before something changes.
    bool getNext(double &until, DevSeqTask &task);

private:
    struct Node
    {
        std::size_t parent;
        unsigned height = 0;             // above the lowest device of its subtree
        unsigned reports = 0;            // those in the queue
        bool isRecoveryDeferred = false; // until its subtree has locked
        bool isSettled = false;          // its parent no longer waits for its end
        bool isMarked = false;           // for a walk through the tree
    };
    struct Queued
    {
        std::size_t device;
        DevSeqRecord::Report report;
    };

    bool getNextTell(DevSeqTask &task);
    bool getNextInOrder(DevSeqTask &task);
    bool getNextReport(DevSeqTask &task);
    bool takeReport(std::size_t number, DevSeqRecord::Report report, DevSeqTask &task);
    bool takeRecovery(std::size_t number, DevSeqTask &task);
    bool getNextDeferred(DevSeqTask &task);
    bool getNextOfStop(DevSeqTask &task);
    bool getNextOfLostParent(DevSeqTask &task);
    bool getNextOfLostChild(DevSeqTask &task);
    bool getNextAbort(double &until, DevSeqTask &task);
    void checkProgress();
    bool isBlocked();
    bool isSubtreeLocked(std::size_t top);

    DevSeqRecord::Device const &getDevice(std::size_t number) const
    {
        return _record.getDevice(number);
    }
    template <class Condition>
    bool isAny(Condition condition) const;

    DevSeqRecord &_record;
    Vector<Node> _nodes;
    bool _isStartDelivered = false;
    bool _isStopDelivered = false;
    std::size_t _nbDeferred = 0;

    // The queue has room for all reports that there can be.
    Vector<Queued> _queue;
    std::size_t _first = 0;
    std::size_t _nbQueued = 0;
};

} // namespace Zv
