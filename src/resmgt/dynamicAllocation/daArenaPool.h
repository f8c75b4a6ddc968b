// Allocates small blocks out of one large block of memory (applications).
#pragma once

#include "resmgt/dynamicAllocation/daArenaAllocator.h"
#include "resmgt/export.h"
#include "zvbase/objPtr.h"

#include <cstdint>

namespace Zv {

/// Takes one large block from an allocator and allocates small blocks out of it.
///
///     Zv::ObjPtr<Zv::DaArenaPool> const pool(
///         Zv::DaArenaPool::create(Zv::DaMallocAllocator::create(), 1 << 20));
///     void *const block = pool->allocate(1000, 64);
///     pool->deallocate(block);
///
/// A block is the first free place that fits. Sizes are rounded up to multiples of 8 bytes. A block
/// that is given back is merged with its free neighbours. Both operations take logarithmic time in
/// the number of blocks. In addition, an allocation looks at each earlier free block that is long
/// enough but has no place with the alignment.
///
/// **Threads**: one thread at a time.
///
/// **Throws**: giving a block back does not fail. The destructor fails the assertion "_nbAllocated
/// == 0" if a block was not given back. It has returned the memory to the allocator before.
///
/// **Owns**: the allocator.
class ZVRESMGT_EXPORT DaArenaPool
{
public:
    virtual ~DaArenaPool() noexcept(false);

    /// Returns `size` bytes at a multiple of `alignment`, or null if no free block fits.
    /// `alignment` must be a power of two, or 0 for no alignment. A size of 0 takes as much as a
    /// size of 1, so that each block has an address of its own. Throws `std::bad_alloc` if there is
    /// no memory for the pool's own data. Nothing has changed then.
    [[nodiscard]] virtual void *allocate(std::uint64_t size, std::uint64_t alignment) = 0;
    /// Calls `allocate(size, 0)`.
    [[nodiscard]] virtual void *allocate(std::uint64_t size);
    /// Takes a block back. Fails the assertion "blockEntry != _allocatedBlocks.end()" if `memory`
    /// is not an allocated block of this pool.
    virtual void deallocate(void *memory) = 0;

    DaArenaAllocator *getAllocator() const noexcept { return _allocator.get(); }
    /// Returns the requested size of the pool, in bytes.
    std::uint64_t getSize() const noexcept { return _size; }

    /// Returns a pool of `size` bytes, which it takes from the allocator at once. The caller owns
    /// the pool. The pool owns the allocator. If this throws, the allocator is destroyed. Throws
    /// `RCEx::ExNullPtr` if the allocator is null, and what the allocator throws. Fails the
    /// assertion "_buffer != NULL" if the allocator returns null.
    [[nodiscard]] static DaArenaPool *create(DaArenaAllocator *allocator, std::uint64_t size);

    DaArenaPool(DaArenaPool const &) = delete;
    DaArenaPool &operator=(DaArenaPool const &) = delete;

protected:
    /// Owns the allocator. Takes no memory from it.
    DaArenaPool(ObjPtr<DaArenaAllocator> allocator, std::uint64_t size);

private:
    ObjPtr<DaArenaAllocator> _allocator;
    std::uint64_t _size;
};

} // namespace Zv
