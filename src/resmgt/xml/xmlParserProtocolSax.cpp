#include "resmgt/xml/xmlParserProtocolSax.h"

#include "resmgt/xml/xmlEx.h"
#include "zvbase/failures.h"

namespace Zv {

XmlParserProtocolSax::XmlParserProtocolSax() = default;
XmlParserProtocolSax::~XmlParserProtocolSax() noexcept(false) = default;

void XmlParserProtocolSax::reset()
{
    _attributes.clear();
    _openNames.clear();
}

void XmlParserProtocolSax::createXmlDeclaration(LiString const &) {}
void XmlParserProtocolSax::createDocumentType(LiString const &) {}
void XmlParserProtocolSax::notifyTextData(LiString const &) {}
void XmlParserProtocolSax::notifyCharacterData(LiString const &) {}

void XmlParserProtocolSax::notifyBeginElement(LiString const &name)
{
    if (!_openNames.empty()) {
        startElement(_openNames.back(), _attributes);
        _openNames.pop_back();
    }
    _openNames.push_back(name);
    _attributes.clear();
}

void XmlParserProtocolSax::pushAttribute(LiString const &name, LiString const &value)
{
    _attributes.addAttribute(name, value);
}

void XmlParserProtocolSax::notifyEmptyElementEnd()
{
    if (_openNames.empty())
        ZV_THROW(XmlEx::ExSyntaxError);
    startElement(_openNames.back(), _attributes);
    endElement(_openNames.back());
    _openNames.pop_back();
    _attributes.clear();
}

void XmlParserProtocolSax::notifyClosingElement(LiString const &name)
{
    if (!_openNames.empty() && _openNames.back() == name) {
        startElement(name, _attributes);
        _openNames.pop_back();
    }
    _attributes.clear();
    endElement(name);
}

} // namespace Zv
