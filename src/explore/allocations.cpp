// Replaces `operator new`: counts the allocations and can make them fail.
#include "explore/scenario.private.h"

#include <cstdlib>
#include <new>

namespace {

long nbAllocations = 0;

void *allocate(std::size_t size)
{
    void *memory = nullptr;
    if (!ZvPlatform::Simulated::isRefused(ZvPlatform::Simulated::MEMORY))
        memory = std::malloc(size ? size : 1);
    if (memory)
        __atomic_add_fetch(&nbAllocations, 1, __ATOMIC_RELAXED);
    return memory;
}

void release(void *memory)
{
    if (memory)
        __atomic_sub_fetch(&nbAllocations, 1, __ATOMIC_RELAXED);
    std::free(memory);
}

} // namespace

long Zv::Simulated::getNbAllocations()
{
    return __atomic_load_n(&nbAllocations, __ATOMIC_RELAXED);
}

void *operator new(std::size_t size)
{
    if (void *memory = allocate(size))
        return memory;
    throw std::bad_alloc();
}

void *operator new[](std::size_t size)
{
    return operator new(size);
}

void *operator new(std::size_t size, std::nothrow_t const &) noexcept
{
    return allocate(size);
}

void *operator new[](std::size_t size, std::nothrow_t const &) noexcept
{
    return allocate(size);
}

void operator delete(void *memory) noexcept
{
    release(memory);
}

void operator delete[](void *memory) noexcept
{
    release(memory);
}

void operator delete(void *memory, std::size_t) noexcept
{
    release(memory);
}

void operator delete[](void *memory, std::size_t) noexcept
{
    release(memory);
}
