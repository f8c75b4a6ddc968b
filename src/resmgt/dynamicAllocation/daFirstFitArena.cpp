#include "resmgt/dynamicAllocation/daFirstFitArena.private.h"

#include "zvbase/failures.h"

#include <algorithm>
#include <iomanip>
#include <ostream>

namespace Zv {

DaFirstFitArena::DaFirstFitArena(std::uint64_t base, std::uint64_t size, char const *name)
    : _name(name),
      _base(base),
      _size(size & ~(ALIGNMENT - 1)),
      _blocks(_base, _size),
      _nbAllocated(0)
{}

std::uint64_t DaFirstFitArena::allocate(std::uint64_t size, std::uint64_t alignment)
{
    // A larger size could overflow when it is rounded up.
    if (size > _size)
        return 0;
    std::uint64_t const rounded =
        (std::max(size, std::uint64_t{1}) + ALIGNMENT - 1) & ~(ALIGNMENT - 1);
    DaBlockTree::Block block;
    for (bool isFound = _blocks.findFree(block, rounded); isFound;
         isFound = _blocks.findNextFree(block, rounded)) {
        std::uint64_t const address = _blocks.getAddress(block);
        std::uint64_t const start = alignment == 0 ? address : roundUp(address, alignment);
        // Rounding up wraps around at the end of the address space.
        if (start < address || start - address > _blocks.getFreeLength(block) - rounded)
            continue;
        _blocks.reserve();
        _blocks.allocate(block, start - address, rounded);
        ++_nbAllocated;
        return start;
    }
    return 0;
}

void DaFirstFitArena::deallocate(std::uint64_t address)
{
    DaBlockTree::Block block;
    if (!_blocks.findAllocated(block, address)) [[unlikely]]
        Assertions::throwAssertionFailed(__FILE__, __LINE__,
                                         "blockEntry != _allocatedBlocks.end()");
    _blocks.free(block);
    --_nbAllocated;
}

std::uint64_t DaFirstFitArena::roundUp(std::uint64_t address, std::uint64_t alignment)
{
    ZV_ASSERT(alignment != 0);
    return (address + alignment - 1) & -alignment;
}

void DaFirstFitArena::dumpSummary(std::ostream &stream) const
{
    stream << "Arena: " << _name << '\n'
           << "  alignment    : " << ALIGNMENT << " bytes\n"
           << "  size         : " << _size << " bytes\n"
           << "  nb alloc blk : " << _nbAllocated << '\n';
}

void DaFirstFitArena::dump(std::ostream &stream) const
{
    stream << "  free block map:\n";
    DaBlockTree::Block block;
    for (bool isFound = _blocks.findFree(block, ALIGNMENT); isFound;
         isFound = _blocks.findNextFree(block, ALIGNMENT))
        stream << "    " << std::setw(8) << _blocks.getAddress(block) - _base << "  "
               << std::setw(8) << _blocks.getFreeLength(block) << '\n';
}

} // namespace Zv
