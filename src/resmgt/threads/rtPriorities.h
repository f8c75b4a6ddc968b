// Fixed nodes of the process's priority graph (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkSingleton.h"

namespace Zv {

class Priority;

/// The nodes of `MtPriorityMgr` to which the priorities of threads are related. A singleton.
///
///     MtThread &self = *MtThreadMgr::findCurrentThread();
///     PriorityRelation atLeast("decoder", RtPriorities::getInstance().getRealTimePriority(),
///                              PriorityRelation::LESS_EQUAL, self.getPriority());
///
/// **Threads**: thread-safe. The nodes live as long as the process.
class ZVRESMGT_EXPORT RtPriorities
{
    // The order of the virtual functions is part of the binary interface. It decides the order of
    // the sections.
public:
    /// Returns the nodes of the process, and creates them if needed.
    static RtPriorities &getInstance();

    RtPriorities(RtPriorities const &) = delete;
    RtPriorities &operator=(RtPriorities const &) = delete;

protected:
    friend class LkSingleton<RtPriorities>;

    virtual ~RtPriorities() noexcept(false);

public:
    /// Returns the node that is fixed at 0: for work that waits for all other work, such as
    /// logging.
    virtual Priority &getBaseLinePriority() = 0;
    /// Returns the node that is fixed at 1: the lowest level of real-time work.
    virtual Priority &getRealTimePriority() = 0;
    /// Returns the node that is fixed at 6: the highest level.
    virtual Priority &getInterruptPriority() = 0;
    /// Makes the process scope priority equal to `priority`, and no longer to the node that it
    /// followed before. The graph is solved once for this change, so a thread that follows the
    /// process scope gets the new level without another one in between. `priority` must not be
    /// destroyed while it is followed. A `Priority::updatePriority` must not call this.
    ///
    /// Throws what the constructor of `PriorityRelation` throws, also if another change has left
    /// the graph invalid. The process scope priority then follows the node that it followed before.
    virtual void setProcessScope(Priority &priority) = 0;
    /// Returns the node for threads that must follow one chosen priority. Its value is the lowest
    /// until `setProcessScope` is called.
    virtual Priority &getProcessScopePriority() = 0;

protected:
    RtPriorities() = default;
};

ZV_DECLARE_SINGLETON(RtPriorities);

} // namespace Zv
