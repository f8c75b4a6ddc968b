#include "resmgt/threads/mtThreadPriority.h"

#include "resmgt/threads/mtPriorityMgr.h"
#include "resmgt/threads/mtThread.h"
#include "zvbase/failures.h"

namespace Zv {

MtThreadPriority::MtThreadPriority(LiString const &name, MtThread *thread)
    : Priority(name, MtPriorityMgr::getInstance(), NOT_SET, WHEN_CHANGED), _thread(thread)
{
    ZV_ASSERT(_thread);
    join();
}

MtThreadPriority::~MtThreadPriority() noexcept(false)
{
    leave();
}

void MtThreadPriority::updatePriority(int priority)
{
    _thread->setPriorityValue(priority);
}

} // namespace Zv
