#include "resmgt/xml/xmlBlocks.private.h"

#include <new>

namespace Zv {

namespace {

/// A pointer to the block is in front of each piece. It is null for a piece of its own.
void *&blockOf(void *piece)
{
    return static_cast<void **>(piece)[-1];
}

} // namespace

void *XmlBlocks::allocate(std::size_t size)
{
    constexpr std::size_t UNIT = sizeof(void *);
    std::size_t const needed = UNIT + (size + UNIT - 1) / UNIT * UNIT;
    if (needed > LARGE_PIECE)
        return allocateAlone(size);
    if (needed > _room) {
        void * const memory = ::operator new(BLOCK_SIZE);
        retire();
        _block = ::new (memory) Block{1};
        _free = static_cast<char *>(memory) + sizeof(Block);
        _room = BLOCK_SIZE - sizeof(Block);
    }
    void * const piece = _free + UNIT;
    blockOf(piece) = _block;
    ++_block->holders;
    _free += needed;
    _room -= needed;
    return piece;
}

void XmlBlocks::retire() noexcept
{
    if (_block)
        letGo(_block);
    _block = nullptr;
    _room = 0;
}

void *XmlBlocks::allocateAlone(std::size_t size)
{
    // A piece of its own may hold an object of any class, and is aligned for it.
    constexpr std::size_t BEFORE = __STDCPP_DEFAULT_NEW_ALIGNMENT__;
    void * const piece = static_cast<char *>(::operator new(BEFORE + size)) + BEFORE;
    blockOf(piece) = nullptr;
    return piece;
}

void XmlBlocks::release(void *piece) noexcept
{
    if (!piece)
        return;
    if (void * const block = blockOf(piece))
        letGo(static_cast<Block *>(block));
    else
        ::operator delete(static_cast<char *>(piece) - __STDCPP_DEFAULT_NEW_ALIGNMENT__);
}

void XmlBlocks::letGo(Block *block) noexcept
{
    if (--block->holders == 0)
        ::operator delete(block);
}

} // namespace Zv
