// Priority graph of the process, and the nodes of its threads (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkSingleton.h"
#include "resmgt/threads/priority.h"
#include "resmgt/threads/priorityMgr.h"

namespace Zv {

class MtThread;

/// The priority graph of the process. Its range is that of `MtThreadFactory`, 0 to 6. Each thread
/// has a node in it, see `MtThread::getPriority`. `RtPriorities` has its fixed nodes. A singleton.
///
///     Priority decoding("decoding", MtPriorityMgr::getInstance(), 3);
///
/// **Threads**: thread-safe.
class ZVRESMGT_EXPORT MtPriorityMgr : public PriorityMgr
{
public:
    /// Returns the graph of the process, and creates it if needed.
    static MtPriorityMgr &getInstance();

private:
    friend class LkSingleton<MtPriorityMgr>;
    friend struct LkSingletonCreator<MtPriorityMgr>;

    MtPriorityMgr();
    ~MtPriorityMgr() noexcept(false) override;
};

ZV_DECLARE_SINGLETON(MtPriorityMgr);

/// The node of a thread in `MtPriorityMgr` (extenders). It is free, so that its relations alone
/// decide its value, which becomes the level of the thread. See `MtThread::getPriority`.
class ZVRESMGT_EXPORT MtThreadPriority : public Priority
{
public:
    /// Adds the node to the graph. From then on it sets the level of `thread` each time the level
    /// changes, under the manager's lock and on any thread. `thread` must accept levels already,
    /// and must outlive the node. Fails an assertion if it is null.
    MtThreadPriority(LiString const &name, MtThread *thread);
    MtThreadPriority(MtThreadPriority const &) = delete;
    ~MtThreadPriority() noexcept(false) override;

    /// Sets the level of the thread.
    void updatePriority(int priority) override;

private:
    MtThread *_thread;
};

} // namespace Zv
