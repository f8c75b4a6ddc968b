// ignoring return value

#include <resmgt/dynamicAllocation.h>

void leak()
{
    Zv::DaArenaPool::create(Zv::DaMallocAllocator::create(), 1000);
}
