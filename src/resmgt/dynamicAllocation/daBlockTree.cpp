#include "resmgt/dynamicAllocation/daBlockTree.private.h"

#include <algorithm>
#include <utility>

namespace Zv {

DaBlockTree::DaBlockTree(std::uint64_t address, std::uint64_t length)
    : _nodes(1), _root(0), _depth(1), _spare(NO_NODE), _nbSpares(0), _end(address + length)
{
    Node &root = _nodes[_root];
    root.count = length != 0 ? 1 : 0;
    root.entries[0] = {address, length};
}

bool DaBlockTree::findFree(Block &block, std::uint64_t length) const noexcept
{
    block._steps[0].node = _root;
    return goDown(block, 0, 0, length);
}

bool DaBlockTree::findNextFree(Block &block, std::uint64_t length) const noexcept
{
    for (unsigned level = _depth; level-- != 0;)
        if (goDown(block, level, block._steps[level].index + 1, length))
            return true;
    return false;
}

bool DaBlockTree::findAllocated(Block &block, std::uint64_t address) const noexcept
{
    Position node = _root;
    for (unsigned level = 0;; ++level) {
        // The last entry that does not begin behind the address. The loop has no branch that
        // depends on the addresses, because no processor could predict it.
        Node const &present = _nodes[node];
        unsigned index = 0;
        for (unsigned count = present.count; count > 1; count -= count / 2)
            index += present.entries[index + count / 2].address <= address ? count / 2 : 0;
        block._steps[level] = {node, index};
        if (level + 1 == _depth)
            return index < present.count && present.entries[index].address == address &&
                   present.entries[index].longest == 0;
        node = present.children[index];
    }
}

std::uint64_t DaBlockTree::getAddress(Block const &block) const noexcept
{
    return nodeOf(leafOf(block)).entries[leafOf(block).index].address;
}

std::uint64_t DaBlockTree::getFreeLength(Block const &block) const noexcept
{
    return nodeOf(leafOf(block)).entries[leafOf(block).index].longest;
}

void DaBlockTree::reserve()
{
    // A node on each level, and a new root.
    std::size_t const needed = _depth + 1;
    if (_nodes.capacity() - _nodes.size() + _nbSpares < needed)
        _nodes.reserve(2 * _nodes.size() + needed);
}

void DaBlockTree::allocate(Block &block, std::uint64_t front, std::uint64_t size) noexcept
{
    makeRoom(block);
    Entry &entry = entryOf(block);
    std::uint64_t const length = entry.longest;
    std::uint64_t const start = entry.address + front;
    std::uint64_t const rest = length - front - size;
    entry.longest = front;
    if (rest != 0)
        insertBehind(leafOf(block), {start + size, rest});
    if (front != 0)
        insertBehind(leafOf(block), {start, 0});
    // Usually there is a longer one in the same leaf.
    if (_depth > 1 && entryAbove(block, _depth - 1).longest == length)
        update(block, _depth - 1);
}

void DaBlockTree::free(Block &block) noexcept
{
    // The leaf of the block that is left is corrected in the end. Only other nodes are corrected
    // before.
    std::uint64_t length = getEnd(block) - getAddress(block);
    Block next = block;
    if (goToNext(next) && getFreeLength(next) != 0) {
        length += getFreeLength(next);
        unsigned const level = erase(next);
        if (leafOf(next).node != leafOf(block).node)
            update(next, level);
    }
    Block previous = block;
    if (goToPrevious(previous) && getFreeLength(previous) != 0) {
        length += getFreeLength(previous);
        unsigned const level = erase(block);
        if (leafOf(previous).node != leafOf(block).node)
            update(block, level);
        block = previous;
    }
    entryOf(block).longest = length;
    updateForLonger(block, length);

    while (_depth > 1 && _nodes[_root].count == 1) {
        Position const only = _nodes[_root].children[0];
        giveBack(_root);
        _root = only;
        --_depth;
    }
}

DaBlockTree::Step const &DaBlockTree::leafOf(Block const &block) const noexcept
{
    return block._steps[_depth - 1];
}

DaBlockTree::Entry &DaBlockTree::entryOf(Block const &block) noexcept
{
    return nodeOf(leafOf(block)).entries[leafOf(block).index];
}

/// Returns the entry of a node in the node above it.
DaBlockTree::Entry &DaBlockTree::entryAbove(Block const &block, unsigned level) noexcept
{
    Step const &above = block._steps[level - 1];
    return nodeOf(above).entries[above.index];
}

/// Goes to the first free block of at least `length` among the entries of the node at `level`, from
/// `index` on. Returns false if there is none.
bool DaBlockTree::goDown(Block &block, unsigned level, unsigned index,
                         std::uint64_t length) const noexcept
{
    for (;; index = 0) {
        Node const &node = nodeOf(block._steps[level]);
        while (index < node.count && node.entries[index].longest < length)
            ++index;
        // Below the first node there always is one.
        if (index == node.count)
            return false;
        block._steps[level].index = index;
        if (++level == _depth)
            return true;
        block._steps[level].node = node.children[index];
    }
}

bool DaBlockTree::goToNext(Block &block) const noexcept
{
    unsigned level = _depth - 1;
    while (block._steps[level].index + 1 == nodeOf(block._steps[level]).count)
        if (level-- == 0)
            return false;
    ++block._steps[level].index;
    for (; level + 1 < _depth; ++level)
        block._steps[level + 1] = {childOf(block._steps[level]), 0};
    return true;
}

bool DaBlockTree::goToPrevious(Block &block) const noexcept
{
    unsigned level = _depth - 1;
    while (block._steps[level].index == 0)
        if (level-- == 0)
            return false;
    --block._steps[level].index;
    for (; level + 1 < _depth; ++level) {
        Position const child = childOf(block._steps[level]);
        block._steps[level + 1] = {child, _nodes[child].count - 1};
    }
    return true;
}

/// Returns the address behind a block: the next entry on the lowest level that has one.
std::uint64_t DaBlockTree::getEnd(Block const &block) const noexcept
{
    for (unsigned level = _depth; level-- != 0;) {
        Step const &step = block._steps[level];
        if (step.index + 1 < nodeOf(step).count)
            return nodeOf(step).entries[step.index + 1].address;
    }
    return _end;
}

/// Splits the leaf if two more blocks do not fit, and the nodes above it that are full.
void DaBlockTree::makeRoom(Block &block) noexcept
{
    if (nodeOf(leafOf(block)).count + 2 <= WIDTH) [[likely]]
        return;
    unsigned level = _depth - 1;
    while (level != 0 && nodeOf(block._steps[level - 1]).count == WIDTH)
        --level;
    if (level == 0) {
        Position const root = takeNode();
        Node &top = _nodes[root];
        top.count = 1;
        top.children[0] = _root;
        top.entries[0] = {_nodes[_root].entries[0].address, longestOf(_nodes[_root])};
        std::copy_backward(block._steps, block._steps + _depth, block._steps + _depth + 1);
        block._steps[0] = {root, 0};
        _root = root;
        ++_depth;
        level = 1;
    }
    for (; level != _depth; ++level)
        split(block, level);
}

/// Moves the upper half of a node to a new one. The node above it must have room.
void DaBlockTree::split(Block &block, unsigned level) noexcept
{
    constexpr unsigned HALF = WIDTH / 2;
    Position const upper = takeNode();
    Step &step = block._steps[level];
    Step &above = block._steps[level - 1];
    Node &node = nodeOf(step);
    Node &moved = _nodes[upper];
    moved.count = node.count - HALF;
    std::copy(node.children + HALF, node.children + node.count, moved.children);
    std::copy(node.entries + HALF, node.entries + node.count, moved.entries);
    node.count = HALF;
    nodeOf(above).entries[above.index].longest = longestOf(node);
    insertBehind(above, {moved.entries[0].address, longestOf(moved)}, upper);
    if (step.index >= HALF) {
        step = {upper, step.index - HALF};
        ++above.index;
    }
}

/// Inserts an entry behind that of `step`, whose node must have room.
void DaBlockTree::insertBehind(Step const &step, Entry entry, Position child) noexcept
{
    Node &node = nodeOf(step);
    auto const insert = [&](auto *values, auto value) {
        auto * const place = values + step.index + 1;
        std::copy_backward(place, values + node.count, values + node.count + 1);
        *place = value;
    };
    insert(node.entries, entry);
    if (child != NO_NODE)
        insert(node.children, child);
    ++node.count;
}

/// Erases a block, and the nodes that have no entries then. The blocks before it keep their ways
/// from the root. Returns the level of the lowest node that is left.
unsigned DaBlockTree::erase(Block const &block) noexcept
{
    for (unsigned level = _depth - 1;; --level) {
        Step const &step = block._steps[level];
        Node &node = nodeOf(step);
        auto const close = [&](auto *values) {
            std::copy(values + step.index + 1, values + node.count, values + step.index);
        };
        close(node.entries);
        if (level + 1 != _depth)
            close(node.children);
        --node.count;
        if (node.count != 0 || level == 0)
            return level;
        giveBack(step.node);
    }
}

/// Corrects the entries above a node that has changed.
void DaBlockTree::update(Block const &block, unsigned level) noexcept
{
    for (; level != 0; --level) {
        Node const &node = nodeOf(block._steps[level]);
        Entry const entry = {node.entries[0].address, longestOf(node)};
        Entry &above = entryAbove(block, level);
        if (above.address == entry.address && above.longest == entry.longest)
            return;
        above = entry;
    }
}

/// Corrects the entries above a leaf with a block that has become free. No other block of the leaf
/// has become shorter, so the leaf need not be searched.
void DaBlockTree::updateForLonger(Block const &block, std::uint64_t length) noexcept
{
    for (unsigned level = _depth - 1; level != 0; --level) {
        std::uint64_t const address = nodeOf(block._steps[level]).entries[0].address;
        Entry &above = entryAbove(block, level);
        if (above.address == address && above.longest >= length)
            return;
        above = {address, std::max(above.longest, length)};
    }
}

std::uint64_t DaBlockTree::longestOf(Node const &node) noexcept
{
    std::uint64_t longest = 0;
    for (unsigned i = 0; i != node.count; ++i)
        longest = std::max(longest, node.entries[i].longest);
    return longest;
}

/// There must be a spare node, or room for one.
DaBlockTree::Position DaBlockTree::takeNode() noexcept
{
    if (_spare == NO_NODE) {
        _nodes.emplace_back();
        return static_cast<Position>(_nodes.size() - 1);
    }
    --_nbSpares;
    return std::exchange(_spare, _nodes[_spare].children[0]);
}

void DaBlockTree::giveBack(Position node) noexcept
{
    _nodes[node].children[0] = std::exchange(_spare, node);
    ++_nbSpares;
}

} // namespace Zv
