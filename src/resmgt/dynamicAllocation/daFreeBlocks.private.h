// Search tree of free blocks, sorted by address.
#pragma once

#include "zvbase/sequenceContainers.h"

#include <cstddef>
#include <cstdint>

namespace Zv {

/// The free blocks of an arena, sorted by address. A tree that is balanced by random priorities (a
/// treap). Each node knows the longest block below it. So the first block of a given length is
/// found without looking at all blocks before it.
class DaFreeBlocks
{
public:
    /// Identifies a block while it is in the tree. 0 means no block.
    using Position = std::uint32_t;

    DaFreeBlocks();

    /// Allocates memory, so that the tree can have `nbBlocks` blocks and `insert` does not throw.
    void reserve(std::size_t nbBlocks)
    {
        if (nbBlocks >= _nodes.capacity())
            _nodes.reserve(2 * nbBlocks);
    }

    /// Returns the first block of at least `length`, which must not be 0.
    Position first(std::uint64_t length) const noexcept;
    /// Returns the first block of at least `length` behind `block`.
    Position next(Position block, std::uint64_t length) const noexcept;
    /// Returns the last block that begins below `address`.
    Position before(std::uint64_t address) const noexcept;
    std::uint64_t getAddress(Position block) const noexcept { return _nodes[block].address; }
    std::uint64_t getLength(Position block) const noexcept { return _nodes[block].length; }

    void insert(std::uint64_t address, std::uint64_t length);
    void erase(Position block) noexcept;
    /// Changes a block. It must stay between its neighbours.
    void change(Position block, std::uint64_t address, std::uint64_t length) noexcept;

private:
    struct Node
    {
        std::uint64_t address;
        std::uint64_t length;
        std::uint64_t longest; // of this block and those below it
        Position left;
        Position right;
        Position parent; // of a spare node: the next one
        std::uint32_t priority;
    };

    Position makeNode(std::uint64_t address, std::uint64_t length);
    Position firstBelow(Position block, std::uint64_t length) const noexcept;
    Position &linkTo(Position block) noexcept;
    void rotateUp(Position block) noexcept;
    bool updateLongest(Position block) noexcept;
    void updateUpwards(Position block) noexcept;

    Vector<Node> _nodes; // node 0 is the empty node below every leaf
    Position _root;
    Position _spare;
    std::uint32_t _random;
};

} // namespace Zv
