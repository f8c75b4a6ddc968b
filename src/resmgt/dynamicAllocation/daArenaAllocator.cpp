#include "resmgt/dynamicAllocation/daArenaAllocator.h"

#include "resmgt/dynamicAllocation/daSize.private.h"

#include <cstdlib>

namespace Zv {

DaArenaAllocator::DaArenaAllocator() = default;
DaArenaAllocator::~DaArenaAllocator() noexcept(false) = default;

DaMallocAllocator::DaMallocAllocator() = default;
DaMallocAllocator::~DaMallocAllocator() noexcept(false) = default;

DaMallocAllocator *DaMallocAllocator::create()
{
    return new DaMallocAllocator;
}

void *DaMallocAllocator::allocate(std::uint64_t size)
{
    return std::malloc(toMemorySize(size));
}

void DaMallocAllocator::deallocate(void *memory, std::uint64_t)
{
    std::free(memory);
}

DaMemoryMapAllocator::DaMemoryMapAllocator(char const *name) : _name(name) {}
DaMemoryMapAllocator::~DaMemoryMapAllocator() noexcept(false) = default;

} // namespace Zv
