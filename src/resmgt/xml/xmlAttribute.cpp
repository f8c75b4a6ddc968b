#include "resmgt/xml/xmlAttribute.h"

namespace Zv {

XmlAttribute::~XmlAttribute() noexcept = default;

void XmlAttribute::streamToOutput(XmlStreamer::ElementGuard &guard) const
{
    guard.addAttribute(name().getChars(), _value.getChars());
}

} // namespace Zv
