#include "resmgt/xml/xmlText.h"

#include "resmgt/xml/xmlBlocks.private.h"

#include <cstring>

namespace Zv {

XmlText::~XmlText()
{
    XmlBlocks::release(_chars);
}

void XmlText::assign(LiString const &text, XmlBlocks *blocks)
{
    auto const length = static_cast<std::size_t>(text.getLength());
    char *chars = nullptr;
    if (length != 0) {
        chars = static_cast<char *>(blocks ? blocks->allocate(length + 1)
                                           : XmlBlocks::allocateAlone(length + 1));
        std::memcpy(chars, text.getChars(), length + 1);
    }
    XmlBlocks::release(_chars);
    _chars = chars;
    _length = length;
}

} // namespace Zv
