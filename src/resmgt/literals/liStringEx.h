// Failures of strings.
#pragma once

#include "resmgt/export.h"
#include "zvbase/exBase.h"

#include <stdexcept>

namespace Zv {

/// Failures of strings.
class ZVRESMGT_EXPORT LiStringEx : public ExBase
{
public:
    class ExOutOfBounds;

    LiStringEx(char const *file, int line) noexcept;
};

/// A position outside the string: "Index (%d) is not in the proper range (%d-%d)." The high value is the string's
/// length, one more than the last position that is allowed.
class ZVRESMGT_EXPORT LiStringEx::ExOutOfBounds : public std::range_error, public LiStringEx
{
public:
    ExOutOfBounds(char const *file, int line, int index, int low, int high);
    ~ExOutOfBounds() override;
    ZV_EXCEPTION_MEMBERS(ExOutOfBounds)
};

} // namespace Zv
