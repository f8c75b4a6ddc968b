// Where the reader finds the queues.
#pragma once

#include "zvbase/containers.h"
#include "zvbase/export.h"

#include <cstddef>

namespace Zv {

class LgQueue;

/// The set of queues. The base library has one of its own, that is in force until a logger brings another
/// (`LgLog::setRegistry`). Any thread may call; implementations lock for themselves, call nobody under their lock and
/// write nothing to the log. A registry owns no queue.
class ZVBASE_EXPORT LgRegistry
{
public:
    virtual ~LgRegistry();
    /// Appends at the end. A null pointer is not entered.
    virtual void addQueue(LgQueue *queue) = 0;
    /// Takes out all entries that equal `queue`.
    virtual void removeQueue(LgQueue *queue) = 0;
    /// A copy of the list. Queues of ended threads die as the reader empties them: whoever looks into the queues
    /// holds a `LgLog::QueuesGuard` from before this call.
    virtual List<LgQueue *> getQueues() = 0;
    /// Whether a queue is entered; asked when a thread begins and ends. Walks through `getQueues` where a registry has
    /// no better way.
    virtual bool hasQueue(LgQueue *queue);

protected:
    LgRegistry();
    LgRegistry(LgRegistry const &) = delete;
    LgRegistry &operator=(LgRegistry const &) = delete;
};

} // namespace Zv
