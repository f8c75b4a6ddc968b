#include "resmgt/dynamicAllocation/daFreeBlocks.private.h"

#include <algorithm>

namespace Zv {

DaFreeBlocks::DaFreeBlocks() : _nodes(1), _root(0), _spare(0), _random(2463534242) {}

DaFreeBlocks::Position DaFreeBlocks::first(std::uint64_t length) const noexcept
{
    return _nodes[_root].longest < length ? 0 : firstBelow(_root, length);
}

DaFreeBlocks::Position DaFreeBlocks::next(Position block, std::uint64_t length) const noexcept
{
    // Go up until there is something to the right, then down to its left.
    while (_nodes[_nodes[block].right].longest < length) {
        Position child;
        do {
            child = block;
            block = _nodes[block].parent;
        } while (block != 0 && _nodes[block].right == child);
        if (block == 0 || _nodes[block].length >= length)
            return block;
    }
    return firstBelow(_nodes[block].right, length);
}

DaFreeBlocks::Position DaFreeBlocks::before(std::uint64_t address) const noexcept
{
    Position last = 0;
    for (Position block = _root; block != 0;) {
        Node const &node = _nodes[block];
        if (node.address < address) {
            last = block;
            block = node.right;
        } else {
            block = node.left;
        }
    }
    return last;
}

void DaFreeBlocks::insert(std::uint64_t address, std::uint64_t length)
{
    Position const block = makeNode(address, length);
    Position parent = 0;
    Position *link = &_root;
    while (*link != 0) {
        parent = *link;
        Node &node = _nodes[parent];
        node.longest = std::max(node.longest, length);
        link = address < node.address ? &node.left : &node.right;
    }
    *link = block;
    _nodes[block].parent = parent;
    while (_nodes[block].parent != 0 &&
           _nodes[_nodes[block].parent].priority < _nodes[block].priority)
        rotateUp(block);
}

void DaFreeBlocks::erase(Position block) noexcept
{
    Node &node = _nodes[block];
    while (node.left != 0 && node.right != 0)
        rotateUp(_nodes[node.left].priority > _nodes[node.right].priority ? node.left : node.right);
    Position const child = node.left + node.right;
    linkTo(block) = child;
    if (child != 0)
        _nodes[child].parent = node.parent;
    updateUpwards(node.parent);
    node.parent = _spare;
    _spare = block;
}

void DaFreeBlocks::change(Position block, std::uint64_t address, std::uint64_t length) noexcept
{
    _nodes[block].address = address;
    _nodes[block].length = length;
    updateUpwards(block);
}

DaFreeBlocks::Position DaFreeBlocks::makeNode(std::uint64_t address, std::uint64_t length)
{
    if (_spare == 0)
        _nodes.push_back({});
    Position const block = _spare != 0 ? _spare : static_cast<Position>(_nodes.size() - 1);
    _spare = _nodes[block].parent;
    // Marsaglia's generator.
    _random ^= _random << 13;
    _random ^= _random >> 17;
    _random ^= _random << 5;
    _nodes[block] = {address, length, length, 0, 0, 0, _random};
    return block;
}

/// There must be such a block.
DaFreeBlocks::Position DaFreeBlocks::firstBelow(Position block, std::uint64_t length) const noexcept
{
    for (;;) {
        Node const &node = _nodes[block];
        if (_nodes[node.left].longest >= length)
            block = node.left;
        else if (node.length >= length)
            return block;
        else
            block = node.right;
    }
}

/// Returns the link that refers to a block.
DaFreeBlocks::Position &DaFreeBlocks::linkTo(Position block) noexcept
{
    Position const parent = _nodes[block].parent;
    if (parent == 0)
        return _root;
    return _nodes[parent].left == block ? _nodes[parent].left : _nodes[parent].right;
}

/// Moves a block above its parent. The parent takes the blocks between them.
void DaFreeBlocks::rotateUp(Position block) noexcept
{
    Node &node = _nodes[block];
    Position const lower = node.parent;
    Node &parent = _nodes[lower];
    linkTo(lower) = block;
    bool const isLeft = parent.left == block;
    Position &between = isLeft ? node.right : node.left;
    (isLeft ? parent.left : parent.right) = between;
    if (between != 0)
        _nodes[between].parent = lower;
    between = lower;
    node.parent = parent.parent;
    parent.parent = block;
    updateLongest(lower);
    updateLongest(block);
}

/// Returns true if the longest length has changed.
bool DaFreeBlocks::updateLongest(Position block) noexcept
{
    Node &node = _nodes[block];
    std::uint64_t const longest =
        std::max({node.length, _nodes[node.left].longest, _nodes[node.right].longest});
    bool const isNew = node.longest != longest;
    node.longest = longest;
    return isNew;
}

void DaFreeBlocks::updateUpwards(Position block) noexcept
{
    while (block != 0 && updateLongest(block))
        block = _nodes[block].parent;
}

} // namespace Zv
