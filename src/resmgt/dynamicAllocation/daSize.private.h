// Sizes of memory as the system's allocators take them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace Zv {

/// Returns a number of bytes. If a machine of 32 bits cannot have so many, returns the largest
/// number, which all allocators refuse.
inline std::size_t toMemorySize(std::uint64_t bytes)
{
    return static_cast<std::size_t>(std::min<std::uint64_t>(bytes, SIZE_MAX));
}

} // namespace Zv
