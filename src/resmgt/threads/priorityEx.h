// Failures of the priority graph.
#pragma once

#include "resmgt/export.h"
#include "zvbase/exBase.h"

#include <stdexcept>

namespace Zv {

class ZVRESMGT_EXPORT PriorityEx : public ExBase
{
public:
    class ExTransientInvalid;
    class ExRelationInvalid;
    class ExError;

    PriorityEx(char const *file, int line) noexcept;
};

/// No value is left for a node: its lower bound lies above its upper one.
/// `Transient "name" invalid: lower upper`
class ZVRESMGT_EXPORT PriorityEx::ExTransientInvalid : public PriorityEx, public std::logic_error
{
public:
    ExTransientInvalid(char const *file, int line, char const *name, int lhsTransient,
                       int rhsTransient);
    ~ExTransientInvalid() override;
    ZV_EXCEPTION_MEMBERS(ExTransientInvalid)
};

/// The solved values break a relation, as between two fixed nodes.
/// `Relation "name" invalid: "left" (value) < "right" (value)`
class ZVRESMGT_EXPORT PriorityEx::ExRelationInvalid : public PriorityEx, public std::logic_error
{
public:
    ExRelationInvalid(char const *file, int line, char const *name, char const *lhsName,
                      int lhsPriority, char const *relation, char const *rhsName, int rhsPriority);
    ~ExRelationInvalid() override;
    ZV_EXCEPTION_MEMBERS(ExRelationInvalid)
};

/// Any other error of a solving, by its name. The one class of all families that is no `std::exception`.
class ZVRESMGT_EXPORT PriorityEx::ExError : public PriorityEx
{
public:
    ExError(char const *file, int line, char const *error) noexcept;
    ~ExError() override;
    ExError *clone() const override;
};

} // namespace Zv
