// Parser protocol with one call for the start and one for the end of an element (applications).
#pragma once

#include "resmgt/xml/xmlAttributeList.h"
#include "resmgt/xml/xmlParser.h"

#include <deque>

namespace Zv {

/// Turns the calls of the parser into two calls for each element. Derive from it to read XML
/// without a document:
///
///     #include <sstream>
///
///     class ClipLister : public XmlParserProtocolSax
///     {
///         void startElement(LiString const &name, XmlAttributeList const &attributes) override
///         {
///             if (name == "clip")
///                 std::cout << attributes.getValue("file") << '\n';
///         }
///         void endElement(LiString const &) override {}
///     };
///
///     void listClips()
///     {
///         std::istringstream text("<show><clip file='a.wav'/><clip file='b.wav'/></show>");
///         ClipLister lister;
///         XmlParser::parse(lister, text);
///     }
///
/// The start of an element is reported when its first child begins or when the element ends. A text
/// before the first child is therefore reported earlier than the start of its element. Text and
/// CDATA sections are reported by `notifyTextData` and `notifyCharacterData`, which do nothing
/// here. The names of start tag and closing tag are not compared. `endElement` gets the name of the
/// closing tag.
///
/// **Threads**: one thread at a time.
class ZVRESMGT_EXPORT XmlParserProtocolSax : public XmlParserProtocol
{
public:
    void createXmlDeclaration(LiString const &version) override;
    void createDocumentType(LiString const &name) override;
    void notifyBeginElement(LiString const &name) override;
    /// Throws `XmlEx::ExSyntaxError` if no element is open.
    void notifyEmptyElementEnd() override;
    void notifyClosingElement(LiString const &name) override;
    void pushAttribute(LiString const &name, LiString const &value) override;
    void notifyTextData(LiString const &data) override;
    void notifyCharacterData(LiString const &data) override;
    ~XmlParserProtocolSax() noexcept(false) override;

    /// Called for the start of an element. `attributes` is valid during the call.
    virtual void startElement(LiString const &name, XmlAttributeList const &attributes) = 0;
    /// Called for the end of an element, after all elements in it.
    virtual void endElement(LiString const &name) = 0;

protected:
    XmlParserProtocolSax();
    XmlParserProtocolSax(XmlParserProtocolSax const &) = default;
    XmlParserProtocolSax &operator=(XmlParserProtocolSax const &) = default;

    /// Forgets what a failed parse has left. After a failed parse, call it before the next one.
    void reset();

private:
    friend class XmlReader;

    XmlAttributeList _attributes;
    std::deque<LiString> _openNames; // of open elements whose start was not reported yet
};

} // namespace Zv
