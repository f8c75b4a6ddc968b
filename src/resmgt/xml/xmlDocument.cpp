#include "resmgt/xml/xmlDocument.h"

#include "resmgt/containers/iteratorSTL.h"
#include "resmgt/smartPtrs/rcProxy.h"
#include "resmgt/xml/xmlDocumentBuilder.h"
#include "resmgt/xml/xmlMemoryStream.private.h"
#include "resmgt/xml/xmlParser.h"
#include "resmgt/xml/xmlStreamer.h"

#include <cstring>
#include <ostream>
#include <vector>

namespace Zv {

XmlDocument::XmlDocument(bool withDeclaration) : _withDeclaration(withDeclaration) {}

XmlDocument::XmlDocument(std::istream &input) : XmlDocument(false)
{
    parse(input);
}

XmlDocument::XmlDocument(LiString const &text) : XmlDocument(false)
{
    parse(text.getChars(), static_cast<std::size_t>(text.getLength()));
}

XmlDocument::XmlDocument(char const *text) : XmlDocument(false)
{
    parse(text, text ? std::strlen(text) : 0);
}

XmlDocument::XmlDocument(std::istream &input, XmlDocumentBuilder &builder) : XmlDocument(false)
{
    builder.setDocument(this);
    try {
        XmlParser::parse(builder, input);
    } catch (...) {
        builder.setDocument(nullptr); // there is no document now
        throw;
    }
}

XmlDocument::~XmlDocument() noexcept(false) = default;

void XmlDocument::parse(std::istream &input)
{
    XmlDocumentBuilder builder;
    builder.setDocument(this);
    builder.parseKept(input);
}

void XmlDocument::parse(char const *text, std::size_t length)
{
    XmlMemoryStream stream(text, length);
    parse(stream);
}

UnownedObjPtr<XmlElement> XmlDocument::getRoot() const
{
    return _root.get();
}

UnownedObjPtr<XmlDocumentType> XmlDocument::getDocumentType() const
{
    return _documentType.get();
}

void XmlDocument::setRoot(ObjPtr<XmlElement> &root)
{
    _root = root;
}

void XmlDocument::setDocumentType(ObjPtr<XmlDocumentType> &type)
{
    _documentType = type;
}

void XmlDocument::enableXmlDecl()
{
    _withDeclaration = true;
}

void XmlDocument::disableXmlDecl()
{
    _withDeclaration = false;
}

bool XmlDocument::hasXmlDecl() const
{
    return _withDeclaration;
}

Iterator<UnownedObjPtr<XmlElement>> XmlDocument::getElementsByTagName(LiString const &tag) const
{
    if (!_root.isNull())
        return _root->getElementsByTagName(tag);
    using Elements = std::vector<UnownedObjPtr<XmlElement>>;
    using Holder = RCProxyShdPtr<Elements>;
    return Iterator<UnownedObjPtr<XmlElement>>(
        new IteratorSTL<Elements, Holder>(Holder(ObjPtr<Elements>(new Elements))));
}

std::ostream &operator<<(std::ostream &stream, XmlDocument const &document)
{
    UnownedObjPtr<XmlElement> const root = document.getRoot();
    XmlStreamer streamer(stream, document.hasXmlDecl(),
                         root.isNull() ? LiString() : root->getNodeName());
    if (!root.isNull())
        root->streamToOutput(streamer);
    return stream;
}

} // namespace Zv
