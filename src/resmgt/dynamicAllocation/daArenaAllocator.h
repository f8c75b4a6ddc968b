// Where an arena pool has its memory from.
#pragma once

#include "resmgt/export.h"

#include <cstdint>

namespace Zv {

/// Gives large blocks of memory. An arena pool owns one and takes a single block from it.
class ZVRESMGT_EXPORT DaArenaAllocator
{
public:
    /// `size` bytes, or null where there are none. May throw instead.
    virtual void *allocate(std::uint64_t size) = 0;
    /// Takes a block back, with the size that was asked for.
    virtual void deallocate(void *memory, std::uint64_t size) = 0;
    virtual ~DaArenaAllocator() noexcept(false);

    DaArenaAllocator(DaArenaAllocator const &) = delete;
    DaArenaAllocator &operator=(DaArenaAllocator const &) = delete;

protected:
    DaArenaAllocator();
};

} // namespace Zv
