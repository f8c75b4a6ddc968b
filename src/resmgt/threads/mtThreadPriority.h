// The priority of a thread.
#pragma once

#include "resmgt/export.h"
#include "resmgt/threads/priority.h"

namespace Zv {

class MtThread;

/// The node that each thread carries in `MtPriorityMgr`: free, so that its relations alone give it its value, which
/// becomes the thread's level. A thread hands it out as `Priority &`.
///
/// Joins the graph when it is complete, and from then on sets its thread's level, under the manager's lock and on any
/// thread, each time the level changes.
class ZVRESMGT_EXPORT MtThreadPriority : public Priority
{
public:
    /// `thread` outlives the node, takes levels already, and is not null (an assertion).
    MtThreadPriority(LiString const &name, MtThread *thread);
    MtThreadPriority(MtThreadPriority const &) = delete;
    ~MtThreadPriority() noexcept(false) override;

    void updatePriority(int priority) override;

private:
    MtThread *_thread;
};

} // namespace Zv
