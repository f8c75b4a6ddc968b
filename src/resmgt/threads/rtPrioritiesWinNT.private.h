// Fixed nodes of the priority graph on the seven levels of the platform.
#pragma once

#include "resmgt/threads/priority.h"
#include "resmgt/threads/rtPriorities.h"
#include "zvbase/objPtr.h"

namespace Zv {

/// The node of the process scope. It carries a value, and nothing has to be told about it.
class ProcessScopePriority : public Priority
{
public:
    ProcessScopePriority();
    ProcessScopePriority(ProcessScopePriority const &) = delete;
    ~ProcessScopePriority() noexcept(false) override;
};

/// The nodes of the process, see `RtPriorities`.
class RtPrioritiesWinNT : public RtPriorities
{
public:
    /// Asserts the order of the fixed nodes.
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
    ObjPtr<PriorityRelation> _processScopeRelation; // destroyed first, before its nodes
};

} // namespace Zv
