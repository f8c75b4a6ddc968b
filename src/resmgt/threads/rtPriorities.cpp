#include "resmgt/threads/rtPriorities.h"

#include "resmgt/locks/lkGuard.h"
#include "resmgt/locks/lkSingleton.imp.h"
#include "resmgt/threads/mtPriorityLevels.private.h"
#include "resmgt/threads/mtPriorityMgr.h"
#include "resmgt/threads/rtPrioritiesWinNT.private.h"
#include "zvbase/failures.h"

#include <utility>

namespace Zv {

// ---- RtPriorities

ZV_DEFINE_SINGLETON(RtPriorities, RtPrioritiesWinNT);

RtPriorities::~RtPriorities() noexcept(false) = default;

// ---- ProcessScopePriority

ProcessScopePriority::ProcessScopePriority()
    : Priority("rt-process-scope", MtPriorityMgr::getInstance(), NOT_SET, NEVER)
{
    join();
}

ProcessScopePriority::~ProcessScopePriority() noexcept(false)
{
    leave();
}

// ---- RtPrioritiesWinNT

RtPrioritiesWinNT::RtPrioritiesWinNT()
    : _baseLinePriority("BaseLine", MtPriorityMgr::getInstance(), MtPriorityLevels::MINIMUM),
      _realTimePriority("RealTime", MtPriorityMgr::getInstance(), MtPriorityLevels::MINIMUM + 1),
      _interruptPriority("Interrupt", MtPriorityMgr::getInstance(), MtPriorityLevels::MAXIMUM)
{
    ZV_ASSERT( _baseLinePriority.getPriority() < _realTimePriority.getPriority() );
    ZV_ASSERT( _realTimePriority.getPriority() < _interruptPriority.getPriority() );
}

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
    LkGuard const guard(MtPriorityMgr::getInstance().getLock());
    // The new relation replaces the former one in one solving. Both at once may be unsolvable.
    ObjPtr<PriorityRelation> relation(
        new PriorityRelation("rt-process-scope", priority, PriorityRelation::EQUAL,
                             _processScopePriority, _processScopeRelation.get()));
    _processScopeRelation = std::move(relation);
}

Priority &RtPrioritiesWinNT::getProcessScopePriority()
{
    return _processScopePriority;
}

} // namespace Zv
