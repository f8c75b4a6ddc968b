#include "resmgt/dynamicAllocation/daMallocAllocator.h"

#include <cstdlib>

namespace Zv {

DaMallocAllocator::DaMallocAllocator() = default;
DaMallocAllocator::~DaMallocAllocator() noexcept(false) = default;

DaMallocAllocator *DaMallocAllocator::create()
{
    return new DaMallocAllocator;
}

void *DaMallocAllocator::allocate(std::uint64_t size)
{
    return std::malloc(size);
}

void DaMallocAllocator::deallocate(void *memory, std::uint64_t)
{
    std::free(memory);
}

} // namespace Zv
