#include "resmgt/threads/rtPrioritiesWinNT.private.h"

#include "resmgt/locks/lkGuard.h"
#include "resmgt/threads/mtPriorityLevels.private.h"
#include "resmgt/threads/mtPriorityMgr.h"
#include "zvbase/failures.h"

namespace Zv {

ProcessScopePriority::ProcessScopePriority()
    : Priority("rt-process-scope", MtPriorityMgr::getInstance(), NOT_SET, NEVER)
{
    join();
}

ProcessScopePriority::~ProcessScopePriority() noexcept(false)
{
    leave();
}

RtPrioritiesWinNT::RtPrioritiesWinNT()
    : _baseLinePriority("BaseLine", MtPriorityMgr::getInstance(), MtPriorityLevels::MINIMUM),
      _realTimePriority("RealTime", MtPriorityMgr::getInstance(), MtPriorityLevels::MINIMUM + 1),
      _interruptPriority("Interrupt", MtPriorityMgr::getInstance(), MtPriorityLevels::MAXIMUM)
{
    ZV_ASSERT( _baseLinePriority.getPriority() < _realTimePriority.getPriority() );
    ZV_ASSERT( _realTimePriority.getPriority() < _interruptPriority.getPriority() );
}

// The relation goes before the nodes: it is the last member.
RtPrioritiesWinNT::~RtPrioritiesWinNT() noexcept(false) = default;

Priority &RtPrioritiesWinNT::getBaseLinePriority()
{
    return _baseLinePriority;
}

Priority &RtPrioritiesWinNT::getRealTimePriority()
{
    return _realTimePriority;
}

Priority &RtPrioritiesWinNT::getInterruptPriority()
{
    return _interruptPriority;
}

void RtPrioritiesWinNT::setProcessScope(Priority &priority)
{
    LkGuard<LkRecLock const> const guard(MtPriorityMgr::getInstance().getLock());
    // In the place of the former one: two priorities of different values cannot be followed at once.
    ObjPtr<PriorityRelation> relation(
        new PriorityRelation("rt-process-scope", priority, PriorityRelation::EQUAL,
                             _processScopePriority, _processScopeRelation.get()));
    _processScopeRelation = relation;
}

Priority &RtPrioritiesWinNT::getProcessScopePriority()
{
    return _processScopePriority;
}

} // namespace Zv
