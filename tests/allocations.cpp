#include "allocations.h"

#include <atomic>
#include <cstdlib>

namespace {

thread_local std::size_t nbAllocations = 0;
thread_local long nbStillGood = -1; // negative: all
std::atomic<bool> isPoor = false;

void *allocate(std::size_t size)
{
    if (nbAllocations == 0 && isPoor)
        throw std::bad_alloc();
    ++nbAllocations;
    if (nbStillGood >= 0 && nbStillGood-- == 0)
        throw std::bad_alloc();
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

namespace ZvTest {

AllocationCount::AllocationCount() : _start(nbAllocations) {}

std::size_t AllocationCount::get() const
{
    return nbAllocations - _start;
}

NewThreadsHaveNoMemory::NewThreadsHaveNoMemory()
{
    isPoor = true;
}

NewThreadsHaveNoMemory::~NewThreadsHaveNoMemory()
{
    isPoor = false;
}

FailingAllocation::FailingAllocation(long nbGood)
{
    nbStillGood = nbGood;
}

FailingAllocation::~FailingAllocation()
{
    nbStillGood = -1;
}

bool FailingAllocation::hasFailed() const
{
    return nbStillGood < 0;
}

} // namespace ZvTest
