#include "platform/services.h"
#include "resmgt/dynamicAllocation/daArenaAllocator.h"
#include "resmgt/dynamicAllocation/daSize.private.h"
#include "zvbase/exSysError.h"
#include "zvbase/failures.h"

namespace Zv {

namespace {

class DaMemoryMapAllocatorWindows : public DaMemoryMapAllocator
{
public:
    using DaMemoryMapAllocator::DaMemoryMapAllocator;

    void *allocate(std::uint64_t size) override
    {
        void * const memory =
            ::VirtualAlloc(NULL, toMemorySize(size), MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
        if (!memory)
            ZV_THROW(ExSysErrorWindows);
        return memory;
    }
    void deallocate(void *memory, std::uint64_t) override
    {
        if (!::VirtualFree(memory, 0, MEM_RELEASE))
            ZV_THROW(ExSysErrorWindows);
    }
    ~DaMemoryMapAllocatorWindows() noexcept(false) override = default;
};

} // namespace

DaMemoryMapAllocator *DaMemoryMapAllocator::create(char const *name)
{
    return new DaMemoryMapAllocatorWindows(name);
}

} // namespace Zv
