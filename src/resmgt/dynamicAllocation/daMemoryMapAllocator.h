// Memory from the system, in pages.
#pragma once

#include "resmgt/dynamicAllocation/daArenaAllocator.h"

namespace Zv {

/// Pages of zeroes, straight from the system and back to it. A failure throws `ExSysError` with the system's error. Any
/// thread.
class ZVRESMGT_EXPORT DaMemoryMapAllocator : public DaArenaAllocator
{
public:
    /// The name is for debugging and is not copied. The caller owns the allocator, until a pool does.
    static DaMemoryMapAllocator *create(char const *name);
    ~DaMemoryMapAllocator() noexcept(false) override;

    char const *getName() const noexcept { return _name; }

protected:
    explicit DaMemoryMapAllocator(char const *name);

private:
    char const *_name;
};

} // namespace Zv
