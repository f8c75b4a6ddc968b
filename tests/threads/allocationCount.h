// Counts what a thread allocates.
#pragma once

#include <cstddef>

namespace Zv {

/// Allocations by the calling thread since this was built.
class AllocationCount
{
public:
    AllocationCount();
    std::size_t get() const;

private:
    std::size_t _start;
};

} // namespace Zv
