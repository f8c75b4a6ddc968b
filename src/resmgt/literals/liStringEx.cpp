#include "resmgt/literals/liStringEx.h"

namespace Zv {

LiStringEx::LiStringEx(char const *file, int line) noexcept : ExBase(file, line) {}

LiStringEx::ExOutOfBounds::ExOutOfBounds(char const *file, int line, int index, int low, int high)
    : std::range_error(""), LiStringEx(file, line)
{
    formatReason("Index (%d) is not in the proper range (%d-%d).", index, low, high);
}

LiStringEx::ExOutOfBounds::~ExOutOfBounds() = default;

} // namespace Zv
