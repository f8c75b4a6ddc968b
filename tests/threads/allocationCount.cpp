#include "threads/allocationCount.h"

#include <cstdlib>
#include <new>

namespace {

thread_local std::size_t nbAllocations = 0;

void *allocate(std::size_t size)
{
    ++nbAllocations;
    if (void * const memory = std::malloc(size ? size : 1))
        return memory;
    throw std::bad_alloc();
}

} // namespace

void *operator new(std::size_t size)
{
    return allocate(size);
}

void *operator new[](std::size_t size)
{
    return allocate(size);
}

void operator delete(void *memory) noexcept
{
    std::free(memory);
}

void operator delete[](void *memory) noexcept
{
    std::free(memory);
}

void operator delete(void *memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete[](void *memory, std::size_t) noexcept
{
    std::free(memory);
}

namespace Zv {

AllocationCount::AllocationCount() : _start(nbAllocations) {}

std::size_t AllocationCount::get() const
{
    return nbAllocations - _start;
}

} // namespace Zv

// What a killed thread has of its own is nobody's any more.
extern "C" __attribute__((visibility("default"))) char const *__lsan_default_suppressions()
{
    return "leak:Zv::MtLogger::enterThread\nleak:Zv::MtTraceMgr::prepareThread\n";
}
