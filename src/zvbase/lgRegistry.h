// Interface to the list of all log queues (extenders).
#pragma once

#include "zvbase/export.h"
#include "zvbase/sequenceContainers.h"

#include <cstddef>

namespace Zv {

class LgQueue;

/// The list in which an `LgReader` finds the log queues. The base library has one of its own. A
/// logger installs another one with `LgLog::setRegistry`, which also has an example.
///
/// An implementation must not call other code under its lock, and must not write to the log.
///
/// **Threads**: an implementation must be thread-safe.
///
/// **Owns**: nothing. A registry does not own its queues.
class ZVBASE_EXPORT LgRegistry
{
public:
    virtual ~LgRegistry();
    /// Appends a queue. Does nothing if `queue` is null.
    virtual void addQueue(LgQueue *queue) = 0;
    /// Removes all entries that equal `queue`.
    virtual void removeQueue(LgQueue *queue) = 0;
    /// Returns a copy of the list. The reader deletes the queue of an ended thread when the queue
    /// is empty. If you access the queues, hold an `LgLog::QueuesGuard` from before this call.
    virtual List<LgQueue *> getQueues() = 0;
    /// Returns true if the list contains a queue. Called when a thread begins and when it ends.
    /// This implementation searches the result of `getQueues`. Override it if there is a faster
    /// way.
    virtual bool hasQueue(LgQueue *queue);

protected:
    LgRegistry();
    LgRegistry(LgRegistry const &) = delete;
    LgRegistry &operator=(LgRegistry const &) = delete;
};

} // namespace Zv
