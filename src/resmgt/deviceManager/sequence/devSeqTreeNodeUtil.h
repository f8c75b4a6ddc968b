// What a node of a sequence tree shares with the transitions of its machine.
#pragma once

#include "resmgt/deviceManager/sequence/devSeqEvPend.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkUnnamedSema.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/dtTime.h"

#include <cstdint>

namespace Zv {

/// A node as the transitions of its machine see it: its neighbours by number and by the events that
/// go to them, its times, and its end. Used under the tree's lock, except for `waitDone`, `hasEnded` and
/// `releaseWaiters`, which any thread may call.
class ZVRESMGT_EXPORT DevSeqTreeNodeUtil : public RCBase<LkCounter<long>>
{
public:
    explicit DevSeqTreeNodeUtil(LiString const &name);

    LiString getName() const { return _name; }

    /// Children that reported `SREADY` since the node waits for them.
    std::int32_t getSreadyCount() const { return _sreadyCount; }
    void setSreadyCount(std::int32_t count) { _sreadyCount = count; }
    /// Children that reported `SSTOPPED` since the node waits for them.
    std::int32_t getSstoppedCount() const { return _sstoppedCount; }
    void setSstoppedCount(std::int32_t count) { _sstoppedCount = count; }

    std::int32_t getNbChildren() const { return _nbChildren; }
    void setNbChildren(std::int32_t nbChildren) { _nbChildren = nbChildren; }
    bool hasParent() const { return _hasParent; }
    void setHasParent(bool hasParent) { _hasParent = hasParent; }

    /// Queue the event and release it at once; the tree delivers it when the machine's step is
    /// done.
    void sendToSelf(std::int32_t event);
    void sendToParent(std::int32_t event);
    void sendToChildren(std::int32_t event);
    RCShdPtr<DevSeqEvPend> const &getSelfPend() const { return _selfPend; }
    RCShdPtr<DevSeqEvPend> const &getParentPend() const { return _parentPend; }
    RCShdPtr<DevSeqEvPend> const &getChildrenPend() const { return _childrenPend; }

    /// This device's latency.
    DtTime const &getLatency() const { return _latency; }
    void setLatency(DtTime const &latency) { _latency = latency; }
    /// The largest latency of the subtree.
    DtTime const &getMaxLatency() const { return _maxLatency; }
    void setMaxLatency(DtTime const &latency) { _maxLatency = latency; }
    /// This device's mark, once it has locked.
    DtTimeMark const &getMark() const { return _mark; }
    void setMark(DtTimeMark const &mark) { _mark = mark; }
    /// The mark that this device locks to.
    DtTimeMark const &getParentMark() const { return _parentMark; }
    void setParentMark(DtTimeMark const &mark) { _parentMark = mark; }

    /// The device has stopped or aborted.
    void postDone();
    /// Blocks until `postDone` or `releaseWaiters` was called. Any number of threads may wait, at the same time and
    /// again.
    void waitDone();
    /// Returns whether `postDone` was called.
    bool hasEnded() const;
    /// Lets all threads in `waitDone` go, now and later.
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
