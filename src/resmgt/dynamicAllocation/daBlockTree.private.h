// Search tree of the blocks of an arena, sorted by address.
#pragma once

#include "zvbase/containers.h"

#include <cstddef>
#include <cstdint>

namespace Zv {

/// All blocks of an arena, free and allocated, in the order of their addresses. They leave no gaps,
/// so a block ends at the address of the next one. A tree with wide nodes (a B+ tree): each entry
/// of a node knows the longest free block below it. So the first free block of a given length is
/// found without looking at all blocks before it, and few cache lines are touched.
///
/// Only the constructor and `reserve` allocate memory and throw.
class DaBlockTree
{
public:
    /// A block, by its way from the root. Valid until the tree is changed, unless stated otherwise.
    class Block;

    /// Begins with one free block. There is none if `length` is 0.
    DaBlockTree(std::uint64_t address, std::uint64_t length);

    /// Sets `block` to the first free block of at least `length`. Returns false if there is none.
    [[nodiscard]] bool findFree(Block &block, std::uint64_t length) const noexcept;
    /// Sets `block` to the next free block of at least `length`. Returns false if there is none.
    [[nodiscard]] bool findNextFree(Block &block, std::uint64_t length) const noexcept;
    /// Sets `block` to the allocated block that begins at `address`. Returns false if there is
    /// none.
    [[nodiscard]] bool findAllocated(Block &block, std::uint64_t address) const noexcept;

    std::uint64_t getAddress(Block const &block) const noexcept;
    /// Returns the length of a free block, or 0 if the block is allocated.
    std::uint64_t getFreeLength(Block const &block) const noexcept;

    /// Allocates memory for the nodes that one call of `allocate` may need.
    void reserve();
    /// Divides a free block into a free block of `front` bytes, an allocated one of `size` bytes
    /// and a free rest. The free ones may be empty.
    void allocate(Block &block, std::uint64_t front, std::uint64_t size) noexcept;
    /// Makes an allocated block free, and joins it with its free neighbours.
    void free(Block &block) noexcept;

private:
    using Position = std::uint32_t;

    static constexpr Position NO_NODE = 0xFFFFFFFF;
    static constexpr unsigned WIDTH = 32;
    /// A node is split when it is full, and then each half must get as many entries again. So
    /// 16 ^ 16 blocks have to be allocated before there are more levels.
    static constexpr unsigned MAXIMUM_DEPTH = 16;

    struct Entry
    {
        std::uint64_t address;
        std::uint64_t longest; // the length of a free block, 0 for an allocated one
    };
    struct Node
    {
        unsigned count;
        // Not used in a leaf. The first one of a spare node is the next spare node.
        Position children[WIDTH];
        Entry entries[WIDTH];
    };
    struct Step
    {
        Position node;
        unsigned index;
    };

    Node &nodeOf(Step const &step) noexcept { return _nodes[step.node]; }
    Node const &nodeOf(Step const &step) const noexcept { return _nodes[step.node]; }
    Step const &leafOf(Block const &block) const noexcept;
    Entry &entryOf(Block const &block) noexcept;
    Entry &entryAbove(Block const &block, unsigned level) noexcept;
    Position childOf(Step const &step) const noexcept { return nodeOf(step).children[step.index]; }
    bool goDown(Block &block, unsigned level, unsigned index, std::uint64_t length) const noexcept;
    bool goToNext(Block &block) const noexcept;
    bool goToPrevious(Block &block) const noexcept;
    std::uint64_t getEnd(Block const &block) const noexcept;

    void makeRoom(Block &block) noexcept;
    void split(Block &block, unsigned level) noexcept;
    void insertBehind(Step const &step, Entry entry, Position child = NO_NODE) noexcept;
    unsigned erase(Block const &block) noexcept;
    void update(Block const &block, unsigned level) noexcept;
    void updateForLonger(Block const &block, std::uint64_t length) noexcept;
    static std::uint64_t longestOf(Node const &node) noexcept;
    Position takeNode() noexcept;
    void giveBack(Position node) noexcept;

    Vector<Node> _nodes;
    Position _root;
    unsigned _depth;
    Position _spare;
    std::size_t _nbSpares;
    std::uint64_t _end;
};

class DaBlockTree::Block
{
    friend class DaBlockTree;
    Step _steps[MAXIMUM_DEPTH];
};

} // namespace Zv
