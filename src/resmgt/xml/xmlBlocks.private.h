// Allocates the parts of an XML document in blocks.
#pragma once

#include <cstddef>

namespace Zv {

/// Allocates pieces of large blocks, because a document has many small parts, most of which are
/// created and destroyed together. A block is freed when all its pieces are released and no more
/// are allocated from it.
///
/// One thread at a time may allocate and release the pieces of one object. After `retire` its
/// pieces may be released by another thread than the one that uses the object.
class XmlBlocks
{
public:
    XmlBlocks() = default;
    XmlBlocks(XmlBlocks const &) = delete;
    XmlBlocks &operator=(XmlBlocks const &) = delete;
    ~XmlBlocks() { retire(); }

    /// Returns memory that is aligned like a pointer.
    void *allocate(std::size_t size);
    /// Allocates no more from the present block.
    void retire() noexcept;

    /// Returns a piece that is no part of a block.
    static void *allocateAlone(std::size_t size);
    /// Releases a piece. Does nothing if `piece` is null.
    static void release(void *piece) noexcept;

private:
    struct Block
    {
        std::size_t holders; // its pieces, and the object while it allocates from the block
    };

    static constexpr std::size_t BLOCK_SIZE = 32768;
    static constexpr std::size_t LARGE_PIECE = BLOCK_SIZE / 16;

    static void letGo(Block *block) noexcept;

    Block *_block = nullptr;
    char *_free = nullptr;
    std::size_t _room = 0;
};

} // namespace Zv
