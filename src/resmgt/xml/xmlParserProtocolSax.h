// The parser's calls, turned into one for the start and one for the end of an element.
#pragma once

#include "resmgt/xml/xmlAttributeList.h"
#include "resmgt/xml/xmlParserProtocol.h"

#include <deque>

namespace Zv {

/// Told of each element twice. Derive from it for reading without a document:
///
///     class Reader : public XmlParserProtocolSax
///     {
///         void startElement(LiString const &name, XmlAttributeList const &attributes) override;
///         void endElement(LiString const &name) override;
///     };
///     XmlParser::parse(reader, stream);
///
/// An element's start is told when its first child begins or when the element ends: text that stands before is told
/// first. Text and CDATA sections are told by `notifyTextData` and `notifyCharacterData`, which do nothing here. That
/// the names of start and end tags match is not tested: a closing tag with another name is told as it stands.
class ZVRESMGT_EXPORT XmlParserProtocolSax : public XmlParserProtocol
{
public:
    void createXmlDeclaration(LiString const &version) override;
    void createDocumentType(LiString const &name) override;
    void notifyBeginElement(LiString const &name) override;
    void notifyEmptyElementEnd() override;
    void notifyClosingElement(LiString const &name) override;
    void pushAttribute(LiString const &name, LiString const &value) override;
    void notifyTextData(LiString const &data) override;
    void notifyCharacterData(LiString const &data) override;
    ~XmlParserProtocolSax() noexcept(false) override;

    /// The list is valid during the call.
    virtual void startElement(LiString const &name, XmlAttributeList const &attributes) = 0;
    virtual void endElement(LiString const &name) = 0;

protected:
    XmlParserProtocolSax();
    XmlParserProtocolSax(XmlParserProtocolSax const &) = default;
    XmlParserProtocolSax &operator=(XmlParserProtocolSax const &) = default;

    /// Forgets what a parse that failed has left behind. Call it before the next one.
    void reset();

private:
    friend class XmlReader;

    XmlAttributeList _attributes;
    std::deque<LiString> _openNames; // open, and their start not told yet
};

} // namespace Zv
