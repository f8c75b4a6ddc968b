#include "resmgt/dynamicAllocation/daFirstFitArena.private.h"

#include "zvbase/failures.h"

#include <algorithm>
#include <iomanip>
#include <iterator>
#include <ostream>
#include <utility>

namespace Zv {

DaFirstFitArena::DaFirstFitArena(std::uint64_t base, std::uint64_t size, char const *name)
    : _name(name), _base(base), _size(size & ~(ALIGNMENT - 1))
{
    if (_size != 0)
        _freeBlocks.emplace(_base, _size);
}

std::uint64_t DaFirstFitArena::allocate(std::uint64_t size, std::uint64_t alignment)
{
    // More than the arena has may be more than can be rounded up.
    if (size > _size)
        return 0;
    std::uint64_t const rounded =
        (std::max(size, std::uint64_t{1}) + ALIGNMENT - 1) & ~(ALIGNMENT - 1);
    for (auto block = _freeBlocks.begin(); block != _freeBlocks.end(); ++block) {
        auto const [address, length] = *block;
        std::uint64_t const start = alignment == 0 ? address : roundUp(address, alignment);
        // Rounding wraps around at the end of the address space.
        if (start < address || start - address > length || rounded > length - (start - address))
            continue;
        take(block, start, rounded);
        return start;
    }
    return 0;
}

/// What may throw comes first.
void DaFirstFitArena::take(FreeBlocks::iterator block, std::uint64_t start, std::uint64_t size)
{
    std::uint64_t const front = start - block->first;
    std::uint64_t const rest = block->second - front - size;
    auto const entry = _allocatedBlocks.emplace(start, size).first;
    if (front == 0) {
        auto node = _freeBlocks.extract(block);
        if (rest != 0) {
            node.key() = start + size;
            node.mapped() = rest;
            _freeBlocks.insert(std::move(node));
        }
        return;
    }
    if (rest != 0) {
        try {
            _freeBlocks.emplace_hint(std::next(block), start + size, rest);
        } catch (...) {
            _allocatedBlocks.erase(entry);
            throw;
        }
    }
    block->second = front;
}

void DaFirstFitArena::deallocate(std::uint64_t address)
{
    auto const blockEntry = _allocatedBlocks.find(address);
    ZV_ASSERT(blockEntry != _allocatedBlocks.end());
    std::uint64_t const size = blockEntry->second;

    auto const after = _freeBlocks.lower_bound(address);
    auto block = after;
    bool const joinsBefore = after != _freeBlocks.begin() &&
                             std::prev(after)->first + std::prev(after)->second == address;
    if (joinsBefore) {
        block = std::prev(after);
        block->second += size;
    } else {
        block = _freeBlocks.emplace_hint(after, address, size);
    }
    if (after != _freeBlocks.end() && after->first == block->first + block->second) {
        block->second += after->second;
        _freeBlocks.erase(after);
    }
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
    for (auto const &[address, length] : _freeBlocks)
        stream << "    " << std::setw(8) << address - _base << "  " << std::setw(8) << length
               << '\n';
}

} // namespace Zv
