// The free blocks of an arena.
#pragma once

#include "zvbase/containers.h"

#include <cstddef>
#include <cstdint>

namespace Zv {

/// Blocks in the order of their addresses: a tree that is balanced by random priorities, in which each node knows the
/// longest block below it. That finds the first block of a given length without a look at those before it.
class DaFreeBlocks
{
public:
    /// A block, for as long as it is in the tree; 0 is none.
    using Position = std::uint32_t;

    DaFreeBlocks();

    /// As many blocks as this can be in the tree without an allocation, and so without a failure.
    void reserve(std::size_t nbBlocks)
    {
        if (nbBlocks >= _nodes.capacity())
            _nodes.reserve(2 * nbBlocks);
    }

    /// The first block of at least that length, which is not 0.
    Position first(std::uint64_t length) const noexcept;
    /// The first of them behind a block.
    Position next(Position block, std::uint64_t length) const noexcept;
    /// The last block that begins below an address.
    Position before(std::uint64_t address) const noexcept;
    std::uint64_t getAddress(Position block) const noexcept { return _nodes[block].address; }
    std::uint64_t getLength(Position block) const noexcept { return _nodes[block].length; }

    void insert(std::uint64_t address, std::uint64_t length);
    void erase(Position block) noexcept;
    /// Moves an end of a block, which stays between its neighbours.
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

    Vector<Node> _nodes; // the node 0 stands below every leaf, and has nothing
    Position _root;
    Position _spare;
    std::uint32_t _random;
};

} // namespace Zv
