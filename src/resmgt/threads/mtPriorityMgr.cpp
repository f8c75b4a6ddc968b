#include "resmgt/threads/mtPriorityMgr.h"

#include "resmgt/locks/lkSingleton.imp.h"
#include "resmgt/threads/mtThread.h"
#include "resmgt/threads/mtThreadFactory.h"
#include "zvbase/failures.h"

namespace Zv {

// ---- MtPriorityMgr

ZV_DEFINE_SINGLETON(MtPriorityMgr, MtPriorityMgr);

MtPriorityMgr::MtPriorityMgr()
    : PriorityMgr("MtPriorityMgr", MtThreadFactory::getInstance().getMinPriority(),
                  MtThreadFactory::getInstance().getMaxPriority())
{}

MtPriorityMgr::~MtPriorityMgr() noexcept(false) = default;

// ---- MtThreadPriority

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
