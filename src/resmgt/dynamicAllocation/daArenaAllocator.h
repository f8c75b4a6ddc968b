// Allocators of large memory blocks: interface, heap and memory pages (applications and extenders).
#pragma once

#include "resmgt/export.h"

#include <cstdint>

namespace Zv {

/// Provides large blocks of memory. An arena pool (`DaArenaPool`) owns an allocator and takes one
/// block from it. Derive from this class for memory of another kind.
///
///     Zv::ObjPtr<Zv::DaArenaPool> const onHeap(
///         Zv::DaArenaPool::create(Zv::DaMallocAllocator::create(), 1 << 20));
///     Zv::ObjPtr<Zv::DaArenaPool> const onPages(
///         Zv::DaArenaPool::create(Zv::DaMemoryMapAllocator::create("clips"), 1 << 20));
///
/// **Threads**: one thread at a time, unless a derived class says otherwise.
class ZVRESMGT_EXPORT DaArenaAllocator
{
public:
    /// Returns `size` bytes, or null if there is not enough memory. May throw instead.
    [[nodiscard]] virtual void *allocate(std::uint64_t size) = 0;
    /// Takes a block back. `size` must be the size that was requested.
    virtual void deallocate(void *memory, std::uint64_t size) = 0;
    virtual ~DaArenaAllocator() noexcept(false);

    DaArenaAllocator(DaArenaAllocator const &) = delete;
    DaArenaAllocator &operator=(DaArenaAllocator const &) = delete;

protected:
    DaArenaAllocator();
};

/// Allocates memory with `malloc`.
///
/// **Threads**: thread-safe.
class ZVRESMGT_EXPORT DaMallocAllocator : public DaArenaAllocator
{
public:
    /// Returns a new allocator. The caller owns it until it is passed to a pool.
    [[nodiscard]] static DaMallocAllocator *create();

    /// Returns null if the heap has not enough memory.
    [[nodiscard]] void *allocate(std::uint64_t size) override;
    void deallocate(void *memory, std::uint64_t size) override;
    ~DaMallocAllocator() noexcept(false) override;

private:
    DaMallocAllocator();
};

/// Allocates whole pages of memory, filled with zeroes, directly from the system.
///
/// **Threads**: thread-safe.
///
/// **Throws**: `allocate` and `deallocate` throw `ExSysError` if the system refuses.
class ZVRESMGT_EXPORT DaMemoryMapAllocator : public DaArenaAllocator
{
public:
    /// Returns a new allocator. The caller owns it until it is passed to a pool. `name` is for
    /// debugging. It is not copied and must outlive the allocator.
    [[nodiscard]] static DaMemoryMapAllocator *create(char const *name);
    ~DaMemoryMapAllocator() noexcept(false) override;

    char const *getName() const noexcept { return _name; }

protected:
    explicit DaMemoryMapAllocator(char const *name);

private:
    char const *_name;
};

} // namespace Zv
