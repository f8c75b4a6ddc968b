// The landmarks on the seven levels of the platform.
#pragma once

#include "resmgt/threads/priority.h"
#include "resmgt/threads/priorityRelation.h"
#include "resmgt/threads/rtPriorities.h"
#include "zvbase/objPtr.h"

namespace Zv {

/// Carries a value, and is told nothing.
class ProcessScopePriority : public Priority
{
public:
    ProcessScopePriority();
    ProcessScopePriority(ProcessScopePriority const &) = delete;
    ~ProcessScopePriority() noexcept(false) override;
};

/// See `RtPriorities`.
class RtPrioritiesWinNT : public RtPriorities
{
public:
    /// Asserts the order of the landmarks.
    RtPrioritiesWinNT();
    ~RtPrioritiesWinNT() noexcept(false) override;

    Priority &getBaseLinePriority() override;
    Priority &getRealTimePriority() override;
    Priority &getInterruptPriority() override;
    void setProcessScope(Priority &priority) override;
    Priority &getProcessScopePriority() override;

private:
    Priority _baseLinePriority;
    Priority _realTimePriority;
    Priority _interruptPriority;
    ProcessScopePriority _processScopePriority;
    ObjPtr<PriorityRelation> _processScopeRelation;
};

} // namespace Zv
