#include "resmgt/xml/xmlText.h"

#include "resmgt/xml/xmlBlocks.private.h"

#include <cstring>

namespace Zv {

namespace {

/// A string is not longer than 31 bits say.
std::uint32_t lengthOf(LiString const &text)
{
    return static_cast<std::uint32_t>(text.getLength()) & 0x7FFFFFFF;
}

} // namespace

XmlText::XmlText(LiString const &text, char *room) : _chars(room), _room(lengthOf(text))
{
    copy(text);
}

XmlText::~XmlText()
{
    release();
}

void XmlText::assign(LiString const &text, XmlBlocks *blocks)
{
    std::uint32_t const length = lengthOf(text);
    if (length > _room) {
        std::size_t const size = std::size_t{length} + 1;
        void * const room = blocks ? blocks->allocate(size) : XmlBlocks::allocateAlone(size);
        release();
        _chars = static_cast<char *>(room);
        _room = length & 0x7FFFFFFF;
        _ownsRoom = true;
    }
    copy(text);
}

void XmlText::copy(LiString const &text)
{
    _length = lengthOf(text);
    if (_chars)
        std::memcpy(_chars, text.getChars(), std::size_t{_length} + 1);
}

void XmlText::release() noexcept
{
    if (_ownsRoom)
        XmlBlocks::release(_chars);
}

} // namespace Zv
