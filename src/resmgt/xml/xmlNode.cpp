#include "resmgt/xml/xmlNode.h"

#include "resmgt/xml/xmlBlocks.private.h"

#include <cstring>
#include <new>

namespace Zv {

namespace {

/// Returns the length of a string, which fits into 31 bits.
std::uint32_t lengthOf(LiString const &text)
{
    return static_cast<std::uint32_t>(text.getLength()) & 0x7FFFFFFF;
}

} // namespace

XmlNode::~XmlNode() noexcept(false) = default;

XmlDocumentType::~XmlDocumentType() noexcept(false) = default;

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

XmlAttribute::XmlAttribute(LiString const &name, LiString const &value) : XmlNode(name)
{
    _value.assign(value);
}

XmlAttribute::XmlAttribute(LiString const &name, LiString const &value, char *room)
    : XmlNode(name), _value(value, room)
{}

ObjPtrRet<XmlAttribute> XmlAttribute::make(LiString const &name, LiString const &value,
                                           XmlBlocks *blocks)
{
    std::size_t const size = sizeof(XmlAttribute) + static_cast<std::size_t>(value.getLength()) + 1;
    void * const memory = blocks ? blocks->allocate(size) : XmlBlocks::allocateAlone(size);
    char * const room = static_cast<char *>(memory) + sizeof(XmlAttribute);
    auto * const attribute = ::new (memory) XmlAttribute(name, value, room); // which does not throw
    return ObjPtrRet<XmlAttribute>(attribute);
}

XmlAttribute::~XmlAttribute() noexcept(false) = default;

void XmlAttribute::streamToOutput(XmlStreamer::ElementGuard &guard) const
{
    guard.addAttribute(name().getChars(), _value.getChars());
}

void *XmlAttribute::operator new(std::size_t size)
{
    return XmlBlocks::allocateAlone(size);
}

void XmlAttribute::operator delete(void *memory)
{
    XmlBlocks::release(memory);
}

} // namespace Zv
