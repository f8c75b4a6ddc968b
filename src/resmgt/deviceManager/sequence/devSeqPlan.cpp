#include "resmgt/deviceManager/sequence/devSeqPlan.private.h"

#include "resmgt/deviceManager/sequence/devSeqRunner.private.h"
#include "resmgt/deviceManager/sequence/devSeqTreeNode.h"

#include <algorithm>

namespace Zv {

namespace {

using Record = DevSeqRecord;
using Device = DevSeqRecord::Device;
using Task = DevSeqTask;

constexpr std::size_t NB_REPORTS = 3; // that a device can have in the queue

bool waitsForChildren(Device const &device)
{
    return device.state == Record::START_STATE || device.state == Record::WSR_STATE ||
           device.state == Record::RECOVER_STATE;
}

bool waitsForParent(Device const &device)
{
    return waitsForChildren(device) || device.state == Record::READY_STATE ||
           device.state == Record::WML_STATE;
}

/// Returns the event that passes a report to the device's machine.
std::int32_t toEvent(Device const &device, Record::Report report)
{
    if (report == Record::WANTS_ABORT)
        return DevSeqEv::ABORT;
    switch (device.step) {
    case Record::SYNC:
        return DevSeqEv::LOCK;
    case Record::STOP:
        return DevSeqEv::STOPPED;
    case Record::ABORT:
        return DevSeqEv::ABORTED;
    default:
        return DevSeqEv::READY;
    }
}

} // namespace

DevSeqPlan::DevSeqPlan(DevSeqRecord &record) : _record(record) {}

void DevSeqPlan::add(std::size_t parent)
{
    std::size_t number = _nodes.size();
    _nodes.push_back({.parent = parent});
    _queue.resize(NB_REPORTS * _nodes.size());
    for (; number > 0; number = _nodes[number].parent) {
        Node &upper = _nodes[_nodes[number].parent];
        upper.height = std::max(upper.height, _nodes[number].height + 1);
    }
}

bool DevSeqPlan::addReport(std::size_t device, Record::Report report)
{
    Node &node = _nodes[device];
    if (node.reports & report)
        return false;
    node.reports |= report;
    _queue[(_first + _nbQueued++) % _queue.size()] = {device, report};
    return true;
}

bool DevSeqPlan::getNext(double &until, Task &task)
{
    do {
        if (getNextTell(task) || (_record.isOrderly() && getNextInOrder(task)) ||
            (_record.getPhase() == Record::Phase::ABORTING && getNextAbort(until, task)))
            return true;
    } while (_record.hasTells());
    return false;
}

bool DevSeqPlan::getNextTell(Task &task)
{
    if (!_record.takeTell(task.device, task.number))
        return false;
    task.kind = _record.isFailedState(task.number) ? Task::TELL_FAILURE : Task::TELL;
    return true;
}

bool DevSeqPlan::getNextInOrder(Task &task)
{
    if (!_isStartDelivered) {
        _isStartDelivered = true;
        task = {Task::DELIVER, 0, DevSeqEv::START};
        return true;
    }
    if (getNextReport(task) || getNextDeferred(task) || getNextOfStop(task))
        return true;
    checkProgress();
    return false;
}

bool DevSeqPlan::getNextReport(Task &task)
{
    while (_nbQueued) {
        Queued const queued = _queue[_first];
        _first = (_first + 1) % _queue.size();
        --_nbQueued;
        _nodes[queued.device].reports &= ~static_cast<unsigned>(queued.report);
        if (takeReport(queued.device, queued.report, task))
            return true;
    }
    return false;
}

/// Returns true if the report leads to a task.
bool DevSeqPlan::takeReport(std::size_t number, Record::Report report, Task &task)
{
    Device const &device = getDevice(number);
    if (report == Record::WANTS_RECOVERY)
        return takeRecovery(number, task);
    if (report == Record::COMPLETED && (device.hasFailed || !device.isAnswered))
        return false; // no machine waits for this completion now
    std::int32_t const event = toEvent(device, report);
    if (!device.isRunning() || !DevSeqSMTable::getInstance().isLegal(device.state, event)) {
        _record.refuse(number, report);
        return false;
    }
    task = {Task::DELIVER, number, event};
    return true;
}

bool DevSeqPlan::takeRecovery(std::size_t number, Task &task)
{
    Device const &device = getDevice(number);
    Node &node = _nodes[number];
    if (device.isLive() && device.isLocked() && !_isStopDelivered) {
        if (isSubtreeLocked(number)) {
            task = {Task::DELIVER, number, DevSeqEv::RECOVER};
            return true;
        }
        if (!node.isRecoveryDeferred) {
            node.isRecoveryDeferred = true;
            ++_nbDeferred;
            return false;
        }
    }
    _record.refuse(number, Record::WANTS_RECOVERY);
    task = {Task::DELIVER, number, DevSeqEv::ABORT};
    return _record.getPhase() == Record::Phase::STOPPING && device.isLive();
}

bool DevSeqPlan::getNextDeferred(Task &task)
{
    for (std::size_t i = 0; _nbDeferred && i < _nodes.size(); ++i) {
        Device const &device = getDevice(i);
        if (!_nodes[i].isRecoveryDeferred)
            continue;
        // The device may have recovered with its parent meanwhile.
        bool const isObsolete = !device.isLive() || !device.isLocked();
        if (!isObsolete && !_isStopDelivered && !isSubtreeLocked(i))
            continue;
        _nodes[i].isRecoveryDeferred = false;
        --_nbDeferred;
        if (!isObsolete && takeRecovery(i, task))
            return true;
    }
    return false;
}

/// Delivers the stop when each live device is in lock, so that no event of the stop meets another
/// state. A lost device cannot pass the stop on, so the plan does that. If the sequence itself has
/// failed, a machine may refuse the stop again and again. Then the abort is next.
bool DevSeqPlan::getNextOfStop(Task &task)
{
    if (_record.getPhase() != Record::Phase::STOPPING || _record.hasFailedAsWhole())
        return false;
    if (!_isStopDelivered) {
        if (!_record.areLocked() &&
            isAny([](Device const &device) { return device.isLive() && !device.isLocked(); }))
            return false;
        _isStopDelivered = true;
        if (getDevice(0).isLive()) {
            task = {Task::DELIVER, 0, DevSeqEv::STOP};
            return true;
        }
    }
    return _record.isAnyLost() && (getNextOfLostParent(task) || getNextOfLostChild(task));
}

bool DevSeqPlan::getNextOfLostParent(Task &task)
{
    for (std::size_t i = 1; i < _nodes.size(); ++i)
        if (getDevice(i).isLive() && getDevice(i).isLocked() &&
            !getDevice(_nodes[i].parent).isLive()) {
            task = {Task::DELIVER, i, DevSeqEv::STOP};
            return true;
        }
    return false;
}

/// For its parent, a lost device counts as stopped when nothing in its subtree runs.
bool DevSeqPlan::getNextOfLostChild(Task &task)
{
    for (std::size_t i = 0; i < _nodes.size(); ++i)
        _nodes[i].isMarked = getDevice(i).isRunning();
    for (std::size_t i = _nodes.size(); i-- > 1;) {
        Node &node = _nodes[i];
        Device const &parent = getDevice(node.parent);
        if (node.isMarked) {
            _nodes[node.parent].isMarked = true;
        } else if (getDevice(i).end != Record::End::STOPPED && !node.isSettled && parent.isLive() &&
                   parent.state == Record::WSS_STATE) {
            node.isSettled = true;
            task = {Task::DELIVER, node.parent, DevSeqEv::SSTOPPED};
            return true;
        }
    }
    return false;
}

void DevSeqPlan::checkProgress()
{
    if (!_record.isAnyStarted())
        return _record.finish();
    if (_record.getPhase() != Record::Phase::STOPPING)
        return;
    if (_record.hasFailedAsWhole() ||
        !isAny([](Device const &device) { return device.isRunning(); }) ||
        (_record.isAnyLost() && isBlocked()))
        _record.beginAbort();
}

/// Returns true if a device waits for a lost one, so that it can never stop. The first loop finds
/// devices that wait for their children, the second one those that wait for their parents.
bool DevSeqPlan::isBlocked()
{
    for (Node &node : _nodes)
        node.isMarked = false;
    bool isAnyBlocked = false;
    for (std::size_t i = _nodes.size(); i-- > 1;) {
        std::size_t const parent = _nodes[i].parent;
        if (getDevice(parent).isLive() && waitsForChildren(getDevice(parent)) &&
            (!getDevice(i).isLive() || _nodes[i].isMarked))
            isAnyBlocked = _nodes[parent].isMarked = true;
    }
    for (std::size_t i = 1; i < _nodes.size(); ++i) {
        std::size_t const parent = _nodes[i].parent;
        if (getDevice(i).isLive() && waitsForParent(getDevice(i)) &&
            (!getDevice(parent).isLive() || _nodes[parent].isMarked))
            isAnyBlocked = _nodes[i].isMarked = true;
    }
    return isAnyBlocked;
}

bool DevSeqPlan::isSubtreeLocked(std::size_t top)
{
    if (_record.areLocked())
        return true;
    for (std::size_t i = top; i < _nodes.size(); ++i) {
        Node &node = _nodes[i];
        node.isMarked =
            i == top || (node.parent > top ? _nodes[node.parent].isMarked : node.parent == top);
        if (node.isMarked && getDevice(i).isLive() && !getDevice(i).isLocked())
            return false;
    }
    return true;
}

/// A device is told to abort when its children have ended, or when its share of the time begins.
bool DevSeqPlan::getNextAbort(double &until, Task &task)
{
    double const now = DevSeqWaiters::now();
    double const begin = _record.getAbortBegin();
    double const share = (_record.getAbortEnd() - begin) / (_nodes[0].height + 1.0);
    for (Node &node : _nodes)
        node.isMarked = false; // a marked node has a child that has not ended
    for (std::size_t i = _nodes.size(); i-- > 0;) {
        Device const &device = getDevice(i);
        if (device.life != Record::Life::STARTED)
            continue;
        if (i > 0)
            _nodes[_nodes[i].parent].isMarked = true;
        if (device.isAbortCalled || device.call != Record::NO_STEP)
            continue;
        double const turn = begin + share * _nodes[i].height;
        if (_nodes[i].isMarked && now < turn) {
            until = std::min(until, turn);
            continue;
        }
        _record.beginAbortOf(i);
        task = {Task::CALL_ABORT, i, 0};
        return true;
    }
    return false;
}

template <class Condition>
bool DevSeqPlan::isAny(Condition condition) const
{
    for (std::size_t i = 0; i < _nodes.size(); ++i)
        if (condition(getDevice(i)))
            return true;
    return false;
}

} // namespace Zv
