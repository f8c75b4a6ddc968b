// The priority graph of the process's threads.
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkSingleton.h"
#include "resmgt/threads/priorityMgr.h"

namespace Zv {

/// The one priority graph of the process, with the range of `MtThreadFactory`, 0 to 6. Every thread has a node in it
/// (`MtThread::getPriority`), and `RtPriorities` holds its landmarks. A singleton, made at first use.
class ZVRESMGT_EXPORT MtPriorityMgr : public PriorityMgr
{
public:
    static MtPriorityMgr &getInstance();

private:
    friend class LkSingleton<MtPriorityMgr>;
    friend struct LkSingletonCreator<MtPriorityMgr>;

    MtPriorityMgr();
    ~MtPriorityMgr() noexcept(false) override;
};

ZV_DECLARE_SINGLETON(MtPriorityMgr);

} // namespace Zv
