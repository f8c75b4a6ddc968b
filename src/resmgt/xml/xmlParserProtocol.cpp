#include "resmgt/xml/xmlParserProtocol.h"

namespace Zv {

XmlParserProtocol::XmlParserProtocol() = default;
XmlParserProtocol::~XmlParserProtocol() noexcept(false) = default;

void XmlParserProtocol::createXmlDeclaration(LiString const &) {}
void XmlParserProtocol::createDocumentType(LiString const &) {}
void XmlParserProtocol::notifyBeginElement(LiString const &) {}
void XmlParserProtocol::notifyEmptyElementEnd() {}
void XmlParserProtocol::notifyStartTagEnd() {}
void XmlParserProtocol::notifyClosingElement(LiString const &) {}
void XmlParserProtocol::pushAttribute(LiString const &, LiString const &) {}
void XmlParserProtocol::notifyTextData(LiString const &) {}
void XmlParserProtocol::notifyCharacterData(LiString const &) {}

} // namespace Zv
