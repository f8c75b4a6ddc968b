// The landmarks of the process's priority graph.
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkSingleton.h"

namespace Zv {

class Priority;

/// The landmarks to which the priorities of threads are related, all in `MtPriorityMgr`. A singleton, made at first
/// use. All operations may be called by any thread; the nodes live as long as the process.
///
///     PriorityRelation atLeast("decoder", RtPriorities::getInstance().getRealTimePriority(),
///                              PriorityRelation::LESS_EQUAL, thread->getPriority());
class ZVRESMGT_EXPORT RtPriorities
{
public:
    static RtPriorities &getInstance();

    RtPriorities(RtPriorities const &) = delete;
    RtPriorities &operator=(RtPriorities const &) = delete;

protected:
    friend class LkSingleton<RtPriorities>;

    virtual ~RtPriorities() noexcept(false);

public:
    /// Fixed at 0: work that waits for everything else, such as logging.
    virtual Priority &getBaseLinePriority() = 0;
    /// Fixed at 1: the floor for real-time work.
    virtual Priority &getRealTimePriority() = 0;
    /// Fixed at 6: above everything else.
    virtual Priority &getInterruptPriority() = 0;
    /// Lets the process scope priority follow `priority`, and no longer what it followed before. The change is solved
    /// as one: a thread that follows the process scope gets the new level, and none in between. `priority` must not be
    /// destroyed while it is followed. A `Priority::updatePriority` must not call this.
    ///
    /// Throws what making a relation throws (see `PriorityRelation`), also if another change has left the graph
    /// invalid. The process scope priority then follows what it followed before.
    virtual void setProcessScope(Priority &priority) = 0;
    /// A priority for threads that have to follow one chosen priority; the lowest until `setProcessScope`.
    virtual Priority &getProcessScopePriority() = 0;

protected:
    RtPriorities() = default;
};

ZV_DECLARE_SINGLETON(RtPriorities);

} // namespace Zv
