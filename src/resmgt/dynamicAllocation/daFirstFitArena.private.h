// The arena of a pool.
#pragma once

#include "resmgt/dynamicAllocation/daFreeBlocks.private.h"
#include "zvbase/containers.h"

#include <cstddef>
#include <cstdint>
#include <iosfwd>

namespace Zv {

/// Gives out parts of a range of addresses, which it never touches: the first free block that fits.
class DaFirstFitArena
{
public:
    /// What sizes are multiples of.
    static constexpr std::uint64_t ALIGNMENT = 8;

    DaFirstFitArena(std::uint64_t base, std::uint64_t size, char const *name = "<Unnamed arena>");

    /// The address of a block, or 0. An allocation that throws changes nothing.
    std::uint64_t allocate(std::uint64_t size, std::uint64_t alignment);
    /// Asserts that the block was given out; else it does not fail.
    void deallocate(std::uint64_t address);

    /// Name, sizes and counts, in four lines.
    void dumpSummary(std::ostream &stream) const;
    /// A line, then a line for each free block: offset and length.
    void dump(std::ostream &stream) const;

private:
    struct Hash
    {
        std::size_t operator()(std::uint64_t address) const noexcept { return address; }
    };

    static std::uint64_t roundUp(std::uint64_t address, std::uint64_t alignment);
    void take(DaFreeBlocks::Position block, std::uint64_t start, std::uint64_t size);

    char const *_name;
    std::uint64_t _base;
    std::uint64_t _size;
    DaFreeBlocks _freeBlocks; // no two of them touch
    HashMap<std::uint64_t, std::uint64_t, Hash> _allocatedBlocks;
};

} // namespace Zv
