// Part of a sequence tree's node that the transitions of its machine use (extenders).
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/locks/lkNamedSema.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/containers.h"
#include "zvbase/dtTime.h"
#include <utility>

#include <cstdint>

namespace Zv {

/// A queue of events of a sequence machine. The events stay in the queue until it is released.
///
/// **Threads**: one thread at a time, under the tree's lock.
class ZVRESMGT_EXPORT DevSeqEvPend : public RCBase<LkCounter<long>>
{
public:
    /// Appends an event.
    void addEvent(std::int32_t event) { _events.push_back(event); }
    /// Releases the events in the queue. Does nothing if the queue is empty.
    void release() { _released = _released || !_events.empty(); }
    bool isReleased() const { return _released; }
    /// Removes all events and returns them, the oldest first. The queue is not released afterwards.
    Vector<std::int32_t> take()
    {
        _released = false;
        return std::exchange(_events, {});
    }

protected:
    ~DevSeqEvPend() override;

private:
    Vector<std::int32_t> _events;
    bool _released = false;
};

/// The part of a node that the transitions of its machine use: the number of its children, the
/// events for its neighbours, its latency and mark, and its end.
///
/// **Threads**: any thread may call `waitDone`, `hasEnded` and `releaseWaiters`. The other
/// operations need the tree's lock.
class ZVRESMGT_EXPORT DevSeqTreeNodeUtil : public RCBase<LkCounter<long>>
{
public:
    explicit DevSeqTreeNodeUtil(LiString const &name);

    LiString getName() const { return _name; }

    /// The number of children that have reported `SREADY` since the node waits for them.
    std::int32_t getSreadyCount() const { return _sreadyCount; }
    void setSreadyCount(std::int32_t count) { _sreadyCount = count; }
    /// The number of children that have reported `SSTOPPED` since the node waits for them.
    std::int32_t getSstoppedCount() const { return _sstoppedCount; }
    void setSstoppedCount(std::int32_t count) { _sstoppedCount = count; }

    /// The number of children of the node.
    std::int32_t getNbChildren() const { return _nbChildren; }
    void setNbChildren(std::int32_t nbChildren) { _nbChildren = nbChildren; }
    /// True if the node has a parent.
    bool hasParent() const { return _hasParent; }
    void setHasParent(bool hasParent) { _hasParent = hasParent; }

    /// Queue an event and release it at once. The tree delivers it after the machine's step.
    void sendToSelf(std::int32_t event);
    void sendToParent(std::int32_t event);
    void sendToChildren(std::int32_t event);
    RCShdPtr<DevSeqEvPend> const &getSelfPend() const { return _selfPend; }
    RCShdPtr<DevSeqEvPend> const &getParentPend() const { return _parentPend; }
    RCShdPtr<DevSeqEvPend> const &getChildrenPend() const { return _childrenPend; }

    /// The latency of this device.
    DtTime const &getLatency() const { return _latency; }
    void setLatency(DtTime const &latency) { _latency = latency; }
    /// The largest latency of the subtree.
    DtTime const &getMaxLatency() const { return _maxLatency; }
    void setMaxLatency(DtTime const &latency) { _maxLatency = latency; }
    /// The mark of this device. Valid once it has locked.
    DtTimeMark const &getMark() const { return _mark; }
    void setMark(DtTimeMark const &mark) { _mark = mark; }
    /// The mark that this device locks to.
    DtTimeMark const &getParentMark() const { return _parentMark; }
    void setParentMark(DtTimeMark const &mark) { _parentMark = mark; }

    /// Records that the device has stopped or aborted, and wakes the threads in `waitDone`.
    void postDone();
    /// Blocks until `postDone` or `releaseWaiters` has been called. Any number of threads may wait
    /// at the same time, any number of times.
    void waitDone();
    /// Returns true if `postDone` has been called.
    bool hasEnded() const;
    /// Wakes all threads in `waitDone`. From now on `waitDone` does not block.
    void releaseWaiters() { _done.post(); }

protected:
    ~DevSeqTreeNodeUtil() override;

private:
    LiString _name;
    std::int32_t _sreadyCount = 0;
    std::int32_t _sstoppedCount = 0;
    std::int32_t _nbChildren = 0;
    bool _hasParent = false;
    RCShdPtr<DevSeqEvPend> _selfPend;
    RCShdPtr<DevSeqEvPend> _parentPend;
    RCShdPtr<DevSeqEvPend> _childrenPend;
    DtTime _latency;
    DtTime _maxLatency;
    DtTimeMark _mark;
    DtTimeMark _parentMark;
    bool _hasEnded = false; // read without the tree's lock
    LkUnnamedSema _done;
};

} // namespace Zv
