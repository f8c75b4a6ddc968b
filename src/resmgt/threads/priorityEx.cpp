#include "resmgt/threads/priorityEx.h"

namespace Zv {

PriorityEx::PriorityEx(char const *file, int line) noexcept : ExBase(file, line) {}

PriorityEx::ExTransientInvalid::ExTransientInvalid(char const *file, int line, char const *name,
                                                   int lhsTransient, int rhsTransient)
    : PriorityEx(file, line), std::logic_error("")
{
    formatReason("Transient \"%s\" invalid: %d %d", name, lhsTransient, rhsTransient);
}

PriorityEx::ExTransientInvalid::~ExTransientInvalid() = default;

PriorityEx::ExRelationInvalid::ExRelationInvalid(char const *file, int line, char const *name,
                                                 char const *lhsName, int lhsPriority,
                                                 char const *relation, char const *rhsName,
                                                 int rhsPriority)
    : PriorityEx(file, line), std::logic_error("")
{
    formatReason("Relation \"%s\" invalid: \"%s\" (%d) %s \"%s\" (%d)", name, lhsName, lhsPriority,
                 relation, rhsName, rhsPriority);
}

PriorityEx::ExRelationInvalid::~ExRelationInvalid() = default;

PriorityEx::ExError::ExError(char const *file, int line, char const *error) noexcept
    : PriorityEx(file, line)
{
    setReason(error);
}

PriorityEx::ExError::~ExError() = default;

PriorityEx::ExError *PriorityEx::ExError::clone() const
{
    return new ExError(*this);
}

} // namespace Zv
