#include "resmgt/threads/priorityEx.h"

#include "zvbase/exBody.private.h"

namespace Zv {

ZV_EXCEPTION_FAMILY_BODY(PriorityEx)
ZV_EXCEPTION_BODY_FAMILY_FIRST(PriorityEx, ExTransientInvalid, std::logic_error,
                               (char const *name, int lhsTransient, int rhsTransient),
                               formatReason("Transient \"%s\" invalid: %d %d", name, lhsTransient,
                                            rhsTransient))
ZV_EXCEPTION_BODY_FAMILY_FIRST(PriorityEx, ExRelationInvalid, std::logic_error,
                               (char const *name, char const *lhsName, int lhsPriority,
                                char const *relation, char const *rhsName, int rhsPriority),
                               formatReason("Relation \"%s\" invalid: \"%s\" (%d) %s \"%s\" (%d)",
                                            name, lhsName, lhsPriority, relation, rhsName,
                                            rhsPriority))

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
