// Attributes of a condition variable.
#pragma once

#include "resmgt/export.h"

#include <iosfwd>

namespace Zv {

/// The platform form of LkCondVarAttr.
class ZVRESMGT_EXPORT LkCondVarAttrWindows
{
public:
    explicit LkCondVarAttrWindows(char const *name) : _name(name) {}
    virtual ~LkCondVarAttrWindows() noexcept(false);

    char const *getName() const noexcept { return _name; }

private:
    char const *_name;
};

/// Attributes that a condition variable is built with; there is nothing to set. The name is not copied.
class ZVRESMGT_EXPORT LkCondVarAttr
{
public:
    explicit LkCondVarAttr(char const *name) : _imp(name) {}
    virtual ~LkCondVarAttr() noexcept(false);

    /// What a condition variable that is built without takes, named "DefaultLkCondVarAttr". Any thread may call it.
    static LkCondVarAttr const &getDefaultAttr();

    char const *getName() const noexcept { return _imp.getName(); }

private:
    LkCondVarAttrWindows _imp;
};

} // namespace Zv
