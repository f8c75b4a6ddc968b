#include "resmgt/dynamicAllocation/daFirstFitArena.private.h"

#include "zvbase/failures.h"

#include <algorithm>
#include <iomanip>
#include <ostream>

namespace Zv {

DaFirstFitArena::DaFirstFitArena(std::uint64_t base, std::uint64_t size, char const *name)
    : _name(name), _base(base), _size(size & ~(ALIGNMENT - 1))
{
    if (_size != 0)
        _freeBlocks.insert(_base, _size);
}

std::uint64_t DaFirstFitArena::allocate(std::uint64_t size, std::uint64_t alignment)
{
    // A larger size could overflow when it is rounded up.
    if (size > _size)
        return 0;
    std::uint64_t const rounded =
        (std::max(size, std::uint64_t{1}) + ALIGNMENT - 1) & ~(ALIGNMENT - 1);
    for (auto block = _freeBlocks.first(rounded); block != 0;
         block = _freeBlocks.next(block, rounded)) {
        std::uint64_t const address = _freeBlocks.getAddress(block);
        std::uint64_t const start = alignment == 0 ? address : roundUp(address, alignment);
        // Rounding up wraps around at the end of the address space.
        if (start < address || start - address > _freeBlocks.getLength(block) - rounded)
            continue;
        take(block, start, rounded);
        return start;
    }
    return 0;
}

void DaFirstFitArena::take(DaFreeBlocks::Position block, std::uint64_t start, std::uint64_t size)
{
    // All that may throw comes first, including the memory that this block needs when it is given
    // back. There is at most one free block behind each allocated block, and one before them all.
    _freeBlocks.reserve(_allocatedBlocks.size() + 2);
    _allocatedBlocks.emplace(start, size);

    std::uint64_t const address = _freeBlocks.getAddress(block);
    std::uint64_t const front = start - address;
    std::uint64_t const rest = _freeBlocks.getLength(block) - front - size;
    if (front == 0 && rest == 0) {
        _freeBlocks.erase(block);
    } else if (front == 0) {
        _freeBlocks.change(block, start + size, rest);
    } else {
        _freeBlocks.change(block, address, front);
        if (rest != 0)
            _freeBlocks.insert(start + size, rest);
    }
}

void DaFirstFitArena::deallocate(std::uint64_t address)
{
    auto const blockEntry = _allocatedBlocks.find(address);
    ZV_ASSERT(blockEntry != _allocatedBlocks.end());
    std::uint64_t const size = blockEntry->second;

    auto const before = _freeBlocks.before(address);
    auto const after =
        before != 0 ? _freeBlocks.next(before, ALIGNMENT) : _freeBlocks.first(ALIGNMENT);
    bool const joinsBefore =
        before != 0 && _freeBlocks.getAddress(before) + _freeBlocks.getLength(before) == address;
    bool const joinsAfter = after != 0 && _freeBlocks.getAddress(after) == address + size;

    std::uint64_t const start = joinsBefore ? _freeBlocks.getAddress(before) : address;
    std::uint64_t const length = (joinsBefore ? _freeBlocks.getLength(before) : 0) + size +
                                 (joinsAfter ? _freeBlocks.getLength(after) : 0);
    if (joinsBefore && joinsAfter)
        _freeBlocks.erase(after);
    if (joinsBefore || joinsAfter)
        _freeBlocks.change(joinsBefore ? before : after, start, length);
    else
        _freeBlocks.insert(start, length);
    _allocatedBlocks.erase(blockEntry);
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
           << "  nb alloc blk : " << _allocatedBlocks.size() << '\n';
}

void DaFirstFitArena::dump(std::ostream &stream) const
{
    stream << "  free block map:\n";
    for (auto block = _freeBlocks.first(ALIGNMENT); block != 0;
         block = _freeBlocks.next(block, ALIGNMENT))
        stream << "    " << std::setw(8) << _freeBlocks.getAddress(block) - _base << "  "
               << std::setw(8) << _freeBlocks.getLength(block) << '\n';
}

} // namespace Zv
