// Exceptions of the pointer classes (applications).
#pragma once

#include "zvbase/exBase.h"

#include <stdexcept>

namespace Zv {

/// Exceptions of the pointer classes.
class ZVBASE_EXPORT RCEx : public ExBase
{
public:
    class ExNullPtr;

    RCEx(char const *file, int line) noexcept;
};

/// Thrown if a null pointer is dereferenced. "Dereferencing a null pointer"
ZV_EXCEPTION(ZVBASE_EXPORT, RCEx, ExNullPtr, std::domain_error, RCEx);

/// Keeps the throw out of line, so that the check in `operator->` stays one comparison.
class ZVBASE_EXPORT RCExUtil
{
public:
    /// Throws `RCEx::ExNullPtr`.
    [[noreturn]] static void throwExNullPtr();

    RCExUtil() = delete;
};

} // namespace Zv
