#include "resmgt/threads/mtPriorityMgr.h"

#include "resmgt/locks/lkSingleton.imp.h"
#include "resmgt/threads/mtThreadFactory.h"

namespace Zv {

ZV_DEFINE_SINGLETON(MtPriorityMgr, MtPriorityMgr);

MtPriorityMgr::MtPriorityMgr()
    : PriorityMgr("MtPriorityMgr", MtThreadFactory::getInstance().getMinPriority(),
                  MtThreadFactory::getInstance().getMaxPriority())
{}

MtPriorityMgr::~MtPriorityMgr() noexcept(false) = default;

} // namespace Zv
