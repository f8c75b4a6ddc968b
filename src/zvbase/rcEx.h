// Failures of the pointer classes.
#pragma once

#include "zvbase/exBase.h"

#include <stdexcept>

namespace Zv {

/// Failures of the pointer classes.
class ZVBASE_EXPORT RCEx : public ExBase
{
public:
    class ExNullPtr;

    RCEx(char const *file, int line) noexcept;
};

/// A null pointer was used: "Dereferencing a null pointer".
class ZVBASE_EXPORT RCEx::ExNullPtr : public std::domain_error, public RCEx
{
public:
    ExNullPtr(char const *file, int line);
    ~ExNullPtr() override;
    ZV_EXCEPTION_MEMBERS(ExNullPtr)
};

/// Keeps the throw out of line, so that the test in `operator->` stays one comparison.
class ZVBASE_EXPORT RCExUtil
{
public:
    /// Throws `RCEx::ExNullPtr`.
    [[noreturn]] static void throwExNullPtr();

    RCExUtil() = delete;
};

} // namespace Zv
