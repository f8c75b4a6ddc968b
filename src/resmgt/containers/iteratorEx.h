// Failures of iterators.
#pragma once

#include "resmgt/export.h"
#include "zvbase/exBase.h"

#include <stdexcept>

namespace Zv {

/// Failures of iterators.
class ZVRESMGT_EXPORT IteratorEx : public ExBase
{
public:
    class ExOutOfRange;

    IteratorEx(char const *file, int line) noexcept;
};

/// A step beyond either end, or a look at what stands behind the last element: "\tReached the container boundary",
/// with a tab in front.
class ZVRESMGT_EXPORT IteratorEx::ExOutOfRange : public std::out_of_range, public IteratorEx
{
public:
    ExOutOfRange(char const *file, int line);
    ~ExOutOfRange() override;
    ZV_EXCEPTION_MEMBERS(ExOutOfRange)
};

/// Keeps the throw out of the templates.
class ZVRESMGT_EXPORT IteratorExUtil
{
public:
    /// Throws `IteratorEx::ExOutOfRange`.
    [[noreturn]] static void throwExOutOfRange();

    IteratorExUtil() = delete;
};

} // namespace Zv
