#include "testing/allocations.h"

#include <atomic>
#include <cstdlib>

namespace {

thread_local std::size_t nbAllocations = 0;
thread_local std::size_t nbReleases = 0;
thread_local long nbStillGood = -1; // negative if none fails
thread_local ZvTest::Allocations failing = ZvTest::Allocations::ALL;
std::atomic<bool> isPoor = false;

void *allocate(std::size_t size, ZvTest::Allocations kind) noexcept
{
    if (nbAllocations == 0 && isPoor)
        return nullptr;
    ++nbAllocations;
    bool const mayFail = failing == ZvTest::Allocations::ALL || failing == kind;
    if (mayFail && nbStillGood >= 0 && nbStillGood-- == 0)
        return nullptr;
    return std::malloc(size ? size : 1);
}

void *allocateOrThrow(std::size_t size)
{
    if (void * const memory = allocate(size, ZvTest::Allocations::THROWING))
        return memory;
    throw std::bad_alloc();
}

void release(void *memory) noexcept
{
    if (memory)
        ++nbReleases;
    std::free(memory);
}

} // namespace

void *operator new(std::size_t size)
{
    return allocateOrThrow(size);
}

void *operator new[](std::size_t size)
{
    return allocateOrThrow(size);
}

void *operator new(std::size_t size, std::nothrow_t const &) noexcept
{
    return allocate(size, ZvTest::Allocations::ANSWERING_NULL);
}

void *operator new[](std::size_t size, std::nothrow_t const &) noexcept
{
    return allocate(size, ZvTest::Allocations::ANSWERING_NULL);
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

namespace ZvTest {

AllocationCount::AllocationCount() : _start(nbAllocations) {}

std::size_t AllocationCount::get() const
{
    return nbAllocations - _start;
}

ReleaseCount::ReleaseCount() : _start(nbReleases) {}

std::size_t ReleaseCount::get() const
{
    return nbReleases - _start;
}

NewThreadsHaveNoMemory::NewThreadsHaveNoMemory()
{
    isPoor = true;
}

NewThreadsHaveNoMemory::~NewThreadsHaveNoMemory()
{
    isPoor = false;
}

FailingAllocation::FailingAllocation(long nbGood, Allocations kind)
{
    failing = kind;
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
