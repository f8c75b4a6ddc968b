// Memory from the heap.
#pragma once

#include "resmgt/dynamicAllocation/daArenaAllocator.h"

namespace Zv {

/// `malloc` and `free`. Any thread.
class ZVRESMGT_EXPORT DaMallocAllocator : public DaArenaAllocator
{
public:
    /// The caller owns it, until a pool does.
    static DaMallocAllocator *create();

    /// Null where the heap has no more.
    void *allocate(std::uint64_t size) override;
    void deallocate(void *memory, std::uint64_t size) override;
    ~DaMallocAllocator() noexcept(false) override;

private:
    DaMallocAllocator();
};

} // namespace Zv
