#include "resmgt/xml/xmlAttribute.h"

#include "resmgt/xml/xmlBlocks.private.h"

#include <new>

namespace Zv {

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
