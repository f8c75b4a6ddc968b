// Exceptions of the priority graph (applications).
#pragma once

#include "resmgt/export.h"
#include "zvbase/exBase.h"

#include <stdexcept>

namespace Zv {

/// Exceptions of the priority graph.
class ZVRESMGT_EXPORT PriorityEx : public ExBase
{
public:
    class ExTransientInvalid;
    class ExRelationInvalid;
    class ExError;

    PriorityEx(char const *file, int line) noexcept;
};

/// Thrown if the relations leave no value for a node, because its lower bound is above its upper
/// bound. `Transient "name" invalid: lower upper`
ZV_EXCEPTION(ZVRESMGT_EXPORT, PriorityEx, ExTransientInvalid, PriorityEx, std::logic_error,
             char const *name, int lhsTransient, int rhsTransient);

/// Thrown if the solved values break a relation, for example one between two fixed nodes.
/// `Relation "name" invalid: "left" (value) < "right" (value)`
ZV_EXCEPTION(ZVRESMGT_EXPORT, PriorityEx, ExRelationInvalid, PriorityEx, std::logic_error,
             char const *name, char const *lhsName, int lhsPriority, char const *relation,
             char const *rhsName, int rhsPriority);

/// Thrown if the priorities cannot be solved for any other reason. The reason is the name of the
/// error. This is the only class of all families that is not a `std::exception`.
class ZVRESMGT_EXPORT PriorityEx::ExError : public PriorityEx
{
public:
    /// `error` is the name of the error.
    ExError(char const *file, int line, char const *error) noexcept;
    ~ExError() override;
    ExError *clone() const override;
};

} // namespace Zv
