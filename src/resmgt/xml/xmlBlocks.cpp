#include "resmgt/xml/xmlBlocks.private.h"

#include "resmgt/xml/xmlBytes.private.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace Zv {

/// The beginning of each block and of each text.
struct alignas(void *) XmlBlocks::Block
{
    Block *former;
};

XmlBlocks::~XmlBlocks()
{
    while (Block * const block = _blocks) {
        _blocks = block->former;
        delete[] reinterpret_cast<char *>(block);
    }
}

char *XmlBlocks::allocateBlock(std::size_t size)
{
    return new char[sizeof(Block) + size + XmlBytes::MARGIN];
}

char *XmlBlocks::add(char *memory) noexcept
{
    _blocks = ::new (static_cast<void *>(memory)) Block{_blocks};
    return memory + sizeof(Block);
}

void *XmlBlocks::allocateFromAnother(std::size_t size)
{
    // A large piece has a block of its own, so that the rest of the present one is not lost.
    if (size > LARGEST / 16)
        return add(allocateBlock(size));
    _size = std::clamp(2 * size, _size, LARGEST);
    char * const piece = add(allocateBlock(_size));
    _free = piece + size;
    _end = piece + _size;
    _size = std::min(2 * _size, LARGEST);
    return piece;
}

std::string_view XmlBlocks::copy(std::string_view bytes)
{
    if (bytes.empty())
        return {};
    char *target;
    if (bytes.size() <= static_cast<std::size_t>(_end - _free))
        target = _end -= bytes.size();
    else
        target = static_cast<char *>(allocate(bytes.size()));
    std::memcpy(target, bytes.data(), bytes.size());
    return {target, bytes.size()};
}

char *XmlBlocks::allocateText(std::size_t size) noexcept
{
    char * const memory = new (std::nothrow) char[sizeof(Block) + size];
    return memory ? add(memory) : nullptr;
}

LiString const &XmlBlocks::nameOf(std::string_view name)
{
    if (_names.isNull())
        _names.reset(new XmlNames);
    return _names->get(name);
}

} // namespace Zv
