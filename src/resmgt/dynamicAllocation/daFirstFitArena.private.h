// First-fit allocation of address ranges.
#pragma once

#include "resmgt/dynamicAllocation/daBlockTree.private.h"

#include <cstddef>
#include <cstdint>
#include <iosfwd>

namespace Zv {

/// Allocates blocks out of a range of addresses: the first free block that fits. It never accesses
/// the memory itself.
class DaFirstFitArena
{
public:
    /// All sizes are multiples of this.
    static constexpr std::uint64_t ALIGNMENT = 8;

    DaFirstFitArena(std::uint64_t base, std::uint64_t size, char const *name = "<Unnamed arena>");

    /// Returns the address of a block, or 0 if no free block fits. If it throws, nothing has
    /// changed.
    std::uint64_t allocate(std::uint64_t size, std::uint64_t alignment);
    /// Takes a block back. Fails an assertion if it is not allocated. Does not fail otherwise.
    void deallocate(std::uint64_t address);

    /// Writes name, sizes and counts, in four lines.
    void dumpSummary(std::ostream &stream) const;
    /// Writes a headline, then offset and length of each free block, one in a line.
    void dump(std::ostream &stream) const;

private:
    static std::uint64_t roundUp(std::uint64_t address, std::uint64_t alignment);

    char const *_name;
    std::uint64_t _base;
    std::uint64_t _size;
    DaBlockTree _blocks; // no two free ones are adjacent
    std::size_t _nbAllocated;
};

} // namespace Zv
