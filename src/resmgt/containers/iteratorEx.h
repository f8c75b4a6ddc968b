// Exceptions of the iterators (applications).
#pragma once

#include "resmgt/export.h"
#include "zvbase/exBase.h"

#include <stdexcept>

namespace Zv {

/// Exceptions of the iterators.
class ZVRESMGT_EXPORT IteratorEx : public ExBase
{
public:
    class ExOutOfRange;

    IteratorEx(char const *file, int line) noexcept;
};

/// Thrown if an iterator is moved beyond either end, or is dereferenced behind the last element.
/// "\tReached the container boundary", with a tab in front.
ZV_EXCEPTION(ZVRESMGT_EXPORT, IteratorEx, ExOutOfRange, std::out_of_range, IteratorEx);

/// Keeps the throw out of the templates.
class ZVRESMGT_EXPORT IteratorExUtil
{
public:
    /// Throws `IteratorEx::ExOutOfRange`.
    [[noreturn]] static void throwExOutOfRange();

    IteratorExUtil() = delete;
};

} // namespace Zv
