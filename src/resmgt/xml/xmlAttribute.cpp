#include "resmgt/xml/xmlAttribute.h"

#include "resmgt/xml/xmlBlocks.private.h"

namespace Zv {

XmlAttribute::XmlAttribute(LiString const &name, LiString const &value)
    : XmlAttribute(name, value, nullptr)
{}

XmlAttribute::XmlAttribute(LiString const &name, LiString const &value, XmlBlocks *blocks)
    : XmlNode(name)
{
    _value.assign(value, blocks);
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

void *XmlAttribute::operator new(std::size_t size, XmlBlocks *blocks)
{
    return blocks ? blocks->allocate(size) : XmlBlocks::allocateAlone(size);
}

void XmlAttribute::operator delete(void *memory)
{
    XmlBlocks::release(memory);
}

void XmlAttribute::operator delete(void *memory, XmlBlocks *)
{
    XmlBlocks::release(memory);
}

} // namespace Zv
