// Memory for the parts of a document.
#pragma once

#include <cstddef>

namespace Zv {

/// Gives pieces of large blocks: a document has many small parts, which come together and mostly go together. A block
/// goes when all its pieces have gone and no more are given from it.
///
/// Nothing here is locked: pieces of one object are given and released by one thread at a time. After `retire` the
/// object and the pieces that it has given have nothing to do with each other.
class XmlBlocks
{
public:
    XmlBlocks() = default;
    XmlBlocks(XmlBlocks const &) = delete;
    XmlBlocks &operator=(XmlBlocks const &) = delete;
    ~XmlBlocks() { retire(); }

    /// For objects that are aligned like a pointer.
    void *allocate(std::size_t size);
    /// Gives no more from the present block.
    void retire() noexcept;

    /// A piece that is no part of a block.
    static void *allocateAlone(std::size_t size);
    /// Null does nothing.
    static void release(void *piece) noexcept;

private:
    struct Block
    {
        std::size_t holders; // the pieces, and the one who gives them
    };

    static constexpr std::size_t BLOCK_SIZE = 32768;
    static constexpr std::size_t LARGE_PIECE = BLOCK_SIZE / 16;

    static void letGo(Block *block) noexcept;

    Block *_block = nullptr;
    char *_free = nullptr;
    std::size_t _room = 0;
};

} // namespace Zv
