// Exceptions of strings (applications).
#pragma once

#include "resmgt/export.h"
#include "zvbase/exBase.h"

#include <stdexcept>

namespace Zv {

/// Exceptions of strings.
class ZVRESMGT_EXPORT LiStringEx : public ExBase
{
public:
    class ExOutOfBounds;

    LiStringEx(char const *file, int line) noexcept;
};

/// Thrown if a position is outside of a string. "Index (%d) is not in the proper range (%d-%d)."
/// `high` is the length of the string, one more than the last position that is allowed.
ZV_EXCEPTION(ZVRESMGT_EXPORT, LiStringEx, ExOutOfBounds, std::range_error, LiStringEx, int index,
             int low, int high);

} // namespace Zv
