// A large block of memory, given out in small ones.
#pragma once

#include "resmgt/dynamicAllocation/daArenaAllocator.h"
#include "resmgt/export.h"
#include "zvbase/objPtr.h"

#include <cstdint>

namespace Zv {

/// Memory that is taken from an allocator once and given out by first fit, in multiples of 8 bytes. Blocks that come back
/// are merged with their free neighbours. Finding a block and giving one back takes logarithmic time in the number of free
/// blocks. A search also looks at each earlier block that is long enough but has no aligned place. Giving a block back
/// does not fail.
///
/// A pool has no lock: one thread at a time. All blocks are back before it is destroyed, or its destructor fails an
/// assertion, after it has given its memory back.
class ZVRESMGT_EXPORT DaArenaPool
{
public:
    virtual ~DaArenaPool() noexcept(false);

    /// `size` bytes at a multiple of `alignment`, a power of two, 0 for none; null where no free block fits. A size of 0
    /// takes as much as one of 1, so that each block has an address of its own.
    virtual void *allocate(std::uint64_t size, std::uint64_t alignment) = 0;
    virtual void *allocate(std::uint64_t size);
    /// Takes a block back. Asserts that it was given out.
    virtual void deallocate(void *memory) = 0;

    DaArenaAllocator *getAllocator() const noexcept { return _allocator.get(); }
    /// Bytes, as they were asked for.
    std::uint64_t getSize() const noexcept { return _size; }

    /// A pool of `size` bytes, which it takes at once. It owns the allocator, also where this fails; the caller owns the
    /// pool. Throws `RCEx::ExNullPtr` if the allocator is null.
    static DaArenaPool *create(DaArenaAllocator *allocator, std::uint64_t size);

    DaArenaPool(DaArenaPool const &) = delete;
    DaArenaPool &operator=(DaArenaPool const &) = delete;

protected:
    DaArenaPool(ObjPtr<DaArenaAllocator> allocator, std::uint64_t size);

private:
    ObjPtr<DaArenaAllocator> _allocator;
    std::uint64_t _size;
};

} // namespace Zv
