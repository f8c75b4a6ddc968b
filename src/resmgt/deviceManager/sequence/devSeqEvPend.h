// Events that wait for their hour.
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "zvbase/containers.h"

#include <cstdint>
#include <utility>

namespace Zv {

/// A queue of events that is read only once it is released. An event that is added without a
/// release stays parked, however many others pass, until somebody releases it. No lock: whoever
/// steps the machine uses it.
class ZVRESMGT_EXPORT DevSeqEvPend : public RCBase<LkCounter<long>>
{
public:
    /// Appends; does not release.
    void addEvent(std::int32_t event) { _events.push_back(event); }
    /// Releases what is there; nothing, where nothing is there.
    void release() { _released = _released || !_events.empty(); }
    bool isReleased() const { return _released; }
    /// Hands all events out, the oldest first, and leaves an empty queue that is not released.
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

} // namespace Zv
