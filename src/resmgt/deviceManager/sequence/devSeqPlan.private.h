// Decides what a supervised sequence does next.
#pragma once

#include "resmgt/deviceManager/sequence/devSeqRecord.private.h"
#include "zvbase/sequenceContainers.h"

#include <cstddef>
#include <cstdint>

namespace Zv {

/// A task of the runner of a supervised sequence.
struct DevSeqTask
{
    enum Kind
    {
        DELIVER,     ///< deliver an event to the device's machine
        CALL_ABORT,  ///< call the device, without its machine
        TELL,        ///< tell the observer the state of the device
        TELL_FAILURE ///< tell the observer that the device has failed
    };

    Kind kind;
    std::size_t device;
    std::int32_t number; // of the event or of the state
};

/// Chooses the next task of a supervised sequence, from the record and the reports of the devices.
///
/// Before the abort, tasks are events for the machines of the tree. An event that is illegal in the
/// state of its machine is never chosen. If a device has failed or aborted, the plan does for its
/// neighbours what its machine no longer does. In the abort, tasks are calls of `performAbort`.
///
/// **Threads**: one thread at a time, under the sequence's lock.
class DevSeqPlan
{
public:
    explicit DevSeqPlan(DevSeqRecord &record);

    /// Adds the next device. The parent of the root is the root.
    void add(std::size_t parent);
    /// Adds a report to the queue. Needs no memory. Returns false if this report of the device is
    /// in the queue already.
    bool addReport(std::size_t device, DevSeqRecord::Report report);
    /// Chooses the next task. Returns false if there is nothing to do until something changes. If
    /// there will be something to do at a moment before `until`, sets `until` to that moment.
    bool getNext(double &until, DevSeqTask &task);

private:
    struct Node
    {
        std::size_t parent;
        unsigned height = 0;             // above the lowest device of its subtree
        unsigned reports = 0;            // bits: those in the queue
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
